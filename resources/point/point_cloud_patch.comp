#version 430 core
// Scatters one patch into the whole-cloud buffers by vertex id, the GPU form of the CPU writer.
layout(local_size_x = 64) in;

layout(std430, binding = 0) readonly buffer PatchPositions { float patchPositions[]; };
layout(std430, binding = 1) readonly buffer PatchNormals { float patchNormals[]; };
layout(std430, binding = 2) readonly buffer PatchIds { int patchIds[]; };
layout(std430, binding = 3) buffer WholePositions { float wholePositions[]; };
layout(std430, binding = 4) buffer WholeNormals { float wholeNormals[]; };

uniform uint patchSize;
uniform uint wholeCapacity;

void main()
{
    uint i = gl_GlobalInvocationID.x;
    if (i >= patchSize)
        return;
    int id = patchIds[i];
    // An id beyond the buffers would write another point's memory.
    if (id < 0 || uint(id) >= wholeCapacity)
        return;
    for (int c = 0; c < 3; ++c) {
        wholePositions[3 * id + c] = patchPositions[3 * i + c];
        wholeNormals[3 * id + c] = patchNormals[3 * i + c];
    }
}
