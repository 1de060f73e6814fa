#version 410 core
// Transparent passes of textured meshes: the eye-space normal and the coordinates go on.
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 3) in vec2 vTexCoord;

uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;

out VertexOutData
{
    vec3 normal;
    vec2 texCoord;
} vs_out;

void main()
{
    vs_out.normal = normalize(osg_NormalMatrix * vNormal);
    vs_out.texCoord = vTexCoord;
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
