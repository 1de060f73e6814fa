#version 410 core
// First pass of the older weighted blended transparency, per-vertex colours.
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 2) in vec3 vColor;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;

out VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec3 color;
} vs_out;

void main()
{
    vs_out.vertex = (osg_ModelViewMatrix * vec4(vPosition, 1.0)).xyz;
    vs_out.normal = normalize(osg_NormalMatrix * vNormal);
    vs_out.color = vColor;
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
