#version 410 core

layout(location = 0) in vec3 vPosition;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;

out VertexOutData
{
    vec3 vertex;
} vs_out;

void main()
{
    vec4 eye = osg_ModelViewMatrix * vec4(vPosition, 1.0);
    vs_out.vertex = eye.xyz;
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
