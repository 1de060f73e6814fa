#include <metal_stdlib>
using namespace metal;

struct ComputeParam {
    bool erase;
    bool coverOther;
    bool recoverInitial;
    uint vertexCount;
    uint faceCount;
    int selectStateValue;
    float4x4 matModelViewProj;
    float4x4 matModelView;
    float4x4 matProj;
    float4 viewport;
};

constant bool enableRangeInterpolation = true;

// Window position with the viewport's lower left as origin; (-1, -1) off the viewport.
static float2 point3dToScreen2d(float3 p, constant ComputeParam& param)
{
    float4 clip = param.matModelViewProj * float4(p, 1.0);
    float3 ndc = clip.xyz / clip.w;
    float2 q = (ndc.xy + 1.0) / 2.0;
    if (q.x < 0.0 || q.x > 1.0 || q.y < 0.0 || q.y > 1.0)
        return float2(-1.0, -1.0);
    return param.viewport.xy + q * param.viewport.zw;
}

static bool isInSelectArea(float2 pos, constant ComputeParam& param, device const uchar* selectArr)
{
    uint width = uint(param.viewport.z);
    uint height = uint(param.viewport.w);
    uint idx = uint(pos.y) * width + uint(pos.x);
    if (idx >= width * height)
        return false;
    return selectArr[idx] == 255;
}

// Samples past the border take the nearest pixel of the image.
static float depthBilinearInterpolation(float2 posF, int2 posI, int width, int height,
                                        device const float* depthArr, float floorOrCeil)
{
    posI = clamp(posI, int2(0, 0), int2(width - 1, height - 1));
    int x = posI.x;
    int y = posI.y;
    float p00 = depthArr[y * width + x];
    if (x == width - 1 && y == height - 1)
        return p00;
    float2 t = floorOrCeil * (posF - float2(posI));
    if (x == width - 1) {
        float p01 = depthArr[(y + 1) * width + x];
        float v = p00 + t.y * (p01 - p00);
        return max(max(v, p00), p01);
    }
    if (y == height - 1) {
        float p10 = depthArr[y * width + x + 1];
        float v = p00 + t.x * (p10 - p00);
        return max(max(v, p00), p10);
    }
    float p10 = depthArr[y * width + x + 1];
    float p01 = depthArr[(y + 1) * width + x];
    float p11 = depthArr[(y + 1) * width + x + 1];
    float bottom = p00 + t.x * (p10 - p00);
    float top = p01 + t.x * (p11 - p01);
    float v = bottom + t.y * (top - bottom);
    return max(max(v, max(p00, p10)), max(p01, p11));
}

static bool isBlockedInDepth(float zInView, float2 pos2d, constant ComputeParam& param,
                             device const float* depthArr)
{
    int width = int(param.viewport.z);
    int height = int(param.viewport.w);
    float finalDepth;
    if (enableRangeInterpolation) {
        finalDepth = -INFINITY;
        for (int i = -1; i <= 1; ++i) {
            for (int j = -1; j <= 1; ++j) {
                float2 pos = pos2d + float2(i, j);
                float below = depthBilinearInterpolation(pos, int2(floor(pos)), width, height,
                                                         depthArr, 1.0);
                float above = depthBilinearInterpolation(pos, int2(ceil(pos)), width, height,
                                                         depthArr, -1.0);
                finalDepth = max(finalDepth, max(below, above));
            }
        }
    } else {
        finalDepth = depthBilinearInterpolation(pos2d, int2(floor(pos2d)), width, height,
                                                depthArr, 1.0);
    }
    finalDepth = 2.0 * finalDepth - 1.0;
    float depthInView = -param.matProj[3][2] / (param.matProj[2][2] + finalDepth);
    // Farther than the surface by more than 0.01.
    return -zInView - 0.01 > -depthInView;
}

// The rule for one vertex; `out` is written only where the rule says so.
static void selectOne(uint vid, device const packed_float3* positions, device char* selectState,
                      device const char* initialState, device const char* currentState,
                      device const uchar* selectArr, device const float* depthArr,
                      constant ComputeParam& param, bool through)
{
    char old = currentState[vid];
    if (old < 0) {
        selectState[vid] = old;
        return;
    }
    float3 p = float3(positions[vid]);
    float2 pos2d = point3dToScreen2d(p, param);
    if (pos2d.x < 0.0) {
        selectState[vid] = old;
        return;
    }
    bool inArea = isInSelectArea(pos2d, param, selectArr);
    if (!param.erase) {
        bool hit = inArea;
        if (hit && !through) {
            float zInView = (param.matModelView * float4(p, 1.0)).z;
            hit = !isBlockedInDepth(zInView, pos2d - float2(0.5, 0.5), param, depthArr);
        }
        if (hit) {
            if (old == 0 || (old > 0 && param.coverOther))
                selectState[vid] = char(param.selectStateValue);
        } else {
            selectState[vid] = old;
        }
    } else {
        if (inArea) {
            if (old == param.selectStateValue && param.recoverInitial)
                selectState[vid] = initialState[vid];
        } else {
            selectState[vid] = old;
        }
    }
}

// One face of a triangle soup; one result for its three vertices.
static void selectFace(uint fid, device const packed_float3* positions, device char* selectState,
                       device const char* initialState, device const char* currentState,
                       device const uchar* selectArr, device const float* depthArr,
                       constant ComputeParam& param, bool through)
{
    uint v0 = fid * 3;
    for (uint k = 0; k < 3; ++k) {
        char state = currentState[v0 + k];
        if (state < 0) {
            selectState[v0] = selectState[v0 + 1] = selectState[v0 + 2] = state;
            return;
        }
    }
    char old = currentState[v0];
    for (uint k = 0; k < 3; ++k) {
        float3 p = float3(positions[v0 + k]);
        float2 pos2d = point3dToScreen2d(p, param);
        if (pos2d.x < 0.0) {
            char own = currentState[v0 + k];
            selectState[v0] = selectState[v0 + 1] = selectState[v0 + 2] = own;
            return;
        }
        if (!isInSelectArea(pos2d, param, selectArr)) {
            selectState[v0] = selectState[v0 + 1] = selectState[v0 + 2] = old;
            continue;
        }
        if (param.erase) {
            if (old == param.selectStateValue && param.recoverInitial) {
                char initial = initialState[v0];
                selectState[v0] = selectState[v0 + 1] = selectState[v0 + 2] = initial;
            }
            return;
        }
        bool hit = true;
        if (!through) {
            float zInView = (param.matModelView * float4(p, 1.0)).z;
            hit = !isBlockedInDepth(zInView, pos2d - float2(0.5, 0.5), param, depthArr);
        }
        if (hit) {
            if (old == 0 || (old > 0 && param.coverOther)) {
                char value = char(param.selectStateValue);
                selectState[v0] = selectState[v0 + 1] = selectState[v0 + 2] = value;
            }
        } else {
            selectState[v0] = selectState[v0 + 1] = selectState[v0 + 2] = old;
        }
        return;
    }
}

kernel void meshThroughHasIndicesSelect(device const packed_float3* positions [[buffer(0)]],
                                        device char* selectState [[buffer(1)]],
                                        device const char* initialState [[buffer(2)]],
                                        device const char* currentState [[buffer(3)]],
                                        device const uchar* selectArr [[buffer(4)]],
                                        constant ComputeParam& param [[buffer(5)]],
                                        uint vid [[thread_position_in_grid]])
{
    selectOne(vid, positions, selectState, initialState, currentState, selectArr, nullptr, param,
              true);
}

kernel void meshThroughNoIndicesSelect(device const packed_float3* positions [[buffer(0)]],
                                       device char* selectState [[buffer(1)]],
                                       device const char* initialState [[buffer(2)]],
                                       device const char* currentState [[buffer(3)]],
                                       device const uchar* selectArr [[buffer(4)]],
                                       constant ComputeParam& param [[buffer(5)]],
                                       uint fid [[thread_position_in_grid]])
{
    selectFace(fid, positions, selectState, initialState, currentState, selectArr, nullptr, param,
               true);
}

kernel void meshNonThroughHasIndicesSelect(device const packed_float3* positions [[buffer(0)]],
                                           device char* selectState [[buffer(1)]],
                                           device const char* initialState [[buffer(2)]],
                                           device const char* currentState [[buffer(3)]],
                                           device const uchar* selectArr [[buffer(4)]],
                                           device const float* depthArr [[buffer(5)]],
                                           constant ComputeParam& param [[buffer(6)]],
                                           uint vid [[thread_position_in_grid]])
{
    selectOne(vid, positions, selectState, initialState, currentState, selectArr, depthArr, param,
              false);
}

kernel void meshNonThroughNoIndicesSelect(device const packed_float3* positions [[buffer(0)]],
                                          device char* selectState [[buffer(1)]],
                                          device const char* initialState [[buffer(2)]],
                                          device const char* currentState [[buffer(3)]],
                                          device const uchar* selectArr [[buffer(4)]],
                                          device const float* depthArr [[buffer(5)]],
                                          constant ComputeParam& param [[buffer(6)]],
                                          uint fid [[thread_position_in_grid]])
{
    selectFace(fid, positions, selectState, initialState, currentState, selectArr, depthArr, param,
               false);
}

kernel void pointsThroughSelect(device const packed_float3* positions [[buffer(0)]],
                                device char* selectState [[buffer(1)]],
                                device const char* initialState [[buffer(2)]],
                                device const char* currentState [[buffer(3)]],
                                device const uchar* selectArr [[buffer(4)]],
                                constant ComputeParam& param [[buffer(5)]],
                                uint vid [[thread_position_in_grid]])
{
    selectOne(vid, positions, selectState, initialState, currentState, selectArr, nullptr, param,
              true);
}

kernel void pointsNonThroughSelect(device const packed_float3* positions [[buffer(0)]],
                                   device char* selectState [[buffer(1)]],
                                   device const char* initialState [[buffer(2)]],
                                   device const char* currentState [[buffer(3)]],
                                   device const uchar* selectArr [[buffer(4)]],
                                   device const float* depthArr [[buffer(5)]],
                                   constant ComputeParam& param [[buffer(6)]],
                                   uint vid [[thread_position_in_grid]])
{
    selectOne(vid, positions, selectState, initialState, currentState, selectArr, depthArr, param,
              false);
}
