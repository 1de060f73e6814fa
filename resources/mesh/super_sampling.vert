#version 410 core

// A full-screen quad: clip-space corners and their texture coordinates.
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec2 vTexCoord;

out VertexOutData
{
    vec2 texCoord;
} vs_out;

void main()
{
    vs_out.texCoord = vTexCoord;
    gl_Position = vec4(vPosition, 1.0);
}
