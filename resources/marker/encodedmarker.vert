#version 410 core

layout(location = 0) in vec3 vPosition;

uniform mat4 osg_ModelViewProjectionMatrix;

out vec3 vertex;

void main()
{
    vertex = vPosition;
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
