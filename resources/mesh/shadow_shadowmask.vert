#version 430

layout(location = 0) in vec3 vertex;

uniform mat4 osg_ModelViewProjectionMatrix;

void main()
{
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vertex, 1.0);
}
