#version 410 core
// Transparent passes of plain meshes: only the eye-space normal goes on.
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;

uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;

out VertexOutData
{
    vec3 normal;
} vs_out;

void main()
{
    vs_out.normal = normalize(osg_NormalMatrix * vNormal);
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
