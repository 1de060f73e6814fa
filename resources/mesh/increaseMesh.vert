#version 410 core

// One packed triangle a point; the geometry stage unpacks it.
layout(location = 0) in uvec4 compressedData;

out VertexOutData
{
    flat uvec4 compressedData;
} vs_out;

void main()
{
    vs_out.compressedData = compressedData;
    gl_Position = vec4(0.0, 0.0, 0.0, 1.0);
}
