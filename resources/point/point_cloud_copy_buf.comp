#version 430 core
// Copies the old whole-cloud buffer into a larger one when the cloud outgrows it.
layout(local_size_x = 256) in;

layout(std430, binding = 0) readonly buffer Source { uint source[]; };
layout(std430, binding = 1) writeonly buffer Target { uint target[]; };

uniform uint wordCount;

void main()
{
    uint i = gl_GlobalInvocationID.x;
    if (i < wordCount)
        target[i] = source[i];
}
