#version 430 core

layout(location = 0) in vec3 vPosition;

uniform mat4 osg_ModelViewProjectionMatrix;

void main()
{
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
