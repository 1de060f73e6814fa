#include <metal_stdlib>
using namespace metal;

struct PatchVertex {
    float4 position;
    float4 normal;
    float4 color;
    int4 vid; // whole-cloud vertex id, state, frame id, unused
};

// One thread per patch point; a negative target means the point has none.
kernel void updateVertexDataMultiBufer(device const float* patchVid [[buffer(0)]],
                                       device const float* patchPos [[buffer(1)]],
                                       device const float* patchNormal [[buffer(2)]],
                                       device const float* patchColor [[buffer(3)]],
                                       device const float* patchState [[buffer(4)]],
                                       device float* outPos [[buffer(5)]],
                                       device float* outNormal [[buffer(6)]],
                                       device float* outColor [[buffer(7)]],
                                       device int* outState [[buffer(8)]],
                                       uint patchVertexId [[thread_position_in_grid]])
{
    int wholeVid = int(patchVid[patchVertexId]);
    if (wholeVid < 0)
        return;
    for (uint i = 0; i < 3; ++i) {
        outPos[wholeVid * 3 + i] = patchPos[patchVertexId * 3 + i];
        outNormal[wholeVid * 3 + i] = patchNormal[patchVertexId * 3 + i];
    }
    if (patchColor != nullptr && outColor != nullptr) {
        for (uint i = 0; i < 3; ++i)
            outColor[wholeVid * 3 + i] = patchColor[patchVertexId * 3 + i];
    }
    if (patchState != nullptr && outState != nullptr)
        outState[wholeVid] = int(patchState[patchVertexId]);
}

kernel void updateVertexDataMultiBufer2(device const PatchVertex* patch [[buffer(0)]],
                                        device float* outPos [[buffer(1)]],
                                        device float* outNormal [[buffer(2)]],
                                        device float* outColor [[buffer(3)]],
                                        device int* outState [[buffer(4)]],
                                        device int* outFrameId [[buffer(5)]],
                                        uint patchVertexId [[thread_position_in_grid]])
{
    PatchVertex record = patch[patchVertexId];
    int wholeVid = record.vid[0];
    if (wholeVid < 0)
        return;
    for (uint i = 0; i < 3; ++i) {
        outPos[wholeVid * 3 + i] = record.position[i];
        outNormal[wholeVid * 3 + i] = record.normal[i];
    }
    if (outColor != nullptr) {
        for (uint i = 0; i < 3; ++i)
            outColor[wholeVid * 3 + i] = record.color[i];
    }
    if (outState != nullptr)
        outState[wholeVid] = record.vid[1];
    if (outFrameId != nullptr)
        outFrameId[wholeVid] = record.vid[2];
}
