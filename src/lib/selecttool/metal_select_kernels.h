#pragma once

// The selection rule of the "metal_compute" kernels, one inline function per step, shared by
// the kernels registered with the compute device and by the benchmark's plain loop.

#include "simd_types.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace Vorna {
namespace Orvane {

// Parameters sent to every selection kernel with setBytes; the kernels' struct of the same name.
struct ComputeParam {
    bool erase = false;
    bool coverOther = true;
    bool recoverInitial = false;
    std::uint32_t vertexCount = 0;
    std::uint32_t faceCount = 0;
    std::int32_t selectStateValue = 1;
    simd_float4x4 matModelViewProj = {};
    simd_float4x4 matModelView = {};
    simd_float4x4 matProj = {};
    simd_float4 viewport = {}; // x, y, width, height
};

static_assert(sizeof(ComputeParam) == 224, "ComputeParam is a wire format of 224 bytes");

namespace SelectKernel {

struct Float2 {
    float x;
    float y;
};

// m x (x, y, z, 1) with column-major m.
inline simd_float4 transform(const simd_float4x4& m, float x, float y, float z)
{
    const simd_float4* c = m.columns;
    return simd_float4{c[0].x * x + c[1].x * y + c[2].x * z + c[3].x,
                       c[0].y * x + c[1].y * y + c[2].y * z + c[3].y,
                       c[0].z * x + c[1].z * y + c[2].z * z + c[3].z,
                       c[0].w * x + c[1].w * y + c[2].w * z + c[3].w};
}

// Window position of p, origin at the viewport's lower left; (-1, -1) and false outside it.
inline bool point3dToScreen2d(const float* p, const ComputeParam& param, Float2& out)
{
    const simd_float4 clip = transform(param.matModelViewProj, p[0], p[1], p[2]);
    const float qx = (clip.x / clip.w + 1.0f) / 2.0f;
    const float qy = (clip.y / clip.w + 1.0f) / 2.0f;
    const bool inside = qx >= 0.0f && qx <= 1.0f && qy >= 0.0f && qy <= 1.0f;
    const simd_float4& vp = param.viewport;
    out.x = inside ? vp.x + qx * vp.z : -1.0f;
    out.y = inside ? vp.y + qy * vp.w : -1.0f;
    return inside;
}

inline bool isInSelectArea(Float2 pos, const ComputeParam& param, const unsigned char* selectArr)
{
    const std::uint32_t width = static_cast<std::uint32_t>(param.viewport.z);
    const std::uint32_t height = static_cast<std::uint32_t>(param.viewport.w);
    const std::uint32_t idx =
        static_cast<std::uint32_t>(pos.y) * width + static_cast<std::uint32_t>(pos.x);
    return idx < width * height && selectArr[idx] == 255;
}

// Samples beyond the image take its nearest pixel: the 3 x 3 window reaches past the border.
inline float depthBilinearInterpolation(Float2 posF, int x, int y, int width, int height,
                                        const float* depthArr, float floorOrCeil)
{
    x = std::min(std::max(x, 0), width - 1);
    y = std::min(std::max(y, 0), height - 1);
    const float* row = depthArr + static_cast<std::ptrdiff_t>(y) * width;
    const float p00 = row[x];
    const bool rightEdge = x == width - 1;
    const bool topEdge = y == height - 1;
    if (rightEdge && topEdge)
        return p00;
    const float tx = floorOrCeil * (posF.x - static_cast<float>(x));
    const float ty = floorOrCeil * (posF.y - static_cast<float>(y));
    if (rightEdge) {
        const float p01 = row[x + width];
        const float v = p00 + ty * (p01 - p00);
        return std::max(std::max(v, p00), p01);
    }
    if (topEdge) {
        const float p10 = row[x + 1];
        const float v = p00 + tx * (p10 - p00);
        return std::max(std::max(v, p00), p10);
    }
    const float p10 = row[x + 1];
    const float p01 = row[x + width];
    const float p11 = row[x + width + 1];
    const float bottom = p00 + tx * (p10 - p00);
    const float top = p01 + tx * (p11 - p01);
    const float v = bottom + ty * (top - bottom);
    return std::max(std::max(v, std::max(p00, p10)), std::max(p01, p11));
}

// The general case of depthBilinearInterpolation, for windows known to lie inside the image.
inline float depthBilinearInterior(Float2 posF, int x, int y, int width, const float* depthArr,
                                   float floorOrCeil)
{
    const float* row = depthArr + static_cast<std::ptrdiff_t>(y) * width + x;
    const float p00 = row[0], p10 = row[1], p01 = row[width], p11 = row[width + 1];
    const float tx = floorOrCeil * (posF.x - static_cast<float>(x));
    const float ty = floorOrCeil * (posF.y - static_cast<float>(y));
    const float bottom = p00 + tx * (p10 - p00);
    const float top = p01 + tx * (p11 - p01);
    const float v = bottom + ty * (top - bottom);
    return std::max(std::max(v, std::max(p00, p10)), std::max(p01, p11));
}

// pos2d is the window position less half a pixel; zInView the vertex's view-space z.
inline bool isBlockedInDepth(float zInView, Float2 pos2d, const ComputeParam& param,
                             const float* depthArr)
{
    const int width = static_cast<int>(param.viewport.z);
    const int height = static_cast<int>(param.viewport.w);
    // Most vertices see a window that touches no edge: there the edge tests can go.
    const bool interior = pos2d.x - 1.0f >= 0.0f && pos2d.y - 1.0f >= 0.0f &&
                          pos2d.x + 1.0f < static_cast<float>(width - 2) &&
                          pos2d.y + 1.0f < static_cast<float>(height - 2);
    float finalDepth = -INFINITY;
    for (int i = -1; i <= 1; ++i) {
        for (int j = -1; j <= 1; ++j) {
            const Float2 pos{pos2d.x + static_cast<float>(i), pos2d.y + static_cast<float>(j)};
            const int fx = static_cast<int>(std::floor(pos.x));
            const int fy = static_cast<int>(std::floor(pos.y));
            const int cx = static_cast<int>(std::ceil(pos.x));
            const int cy = static_cast<int>(std::ceil(pos.y));
            float below, above;
            if (interior) {
                below = depthBilinearInterior(pos, fx, fy, width, depthArr, 1.0f);
                above = depthBilinearInterior(pos, cx, cy, width, depthArr, -1.0f);
            } else {
                below = depthBilinearInterpolation(pos, fx, fy, width, height, depthArr, 1.0f);
                above = depthBilinearInterpolation(pos, cx, cy, width, height, depthArr, -1.0f);
            }
            finalDepth = std::max(finalDepth, std::max(below, above));
        }
    }
    finalDepth = 2.0f * finalDepth - 1.0f;
    const simd_float4x4& proj = param.matProj;
    const float depthInView = -proj.columns[3].z / (proj.columns[2].z + finalDepth);
    return -zInView - 0.01f > -depthInView;
}

inline float viewZ(const float* p, const ComputeParam& param)
{
    const simd_float4* c = param.matModelView.columns;
    return c[0].z * p[0] + c[1].z * p[1] + c[2].z * p[2] + c[3].z;
}

// One vertex of the per-vertex kernels. `prior` is what the result buffer holds already.
template <bool Through>
inline signed char selectVertex(const float* p, signed char old, signed char prior,
                                signed char initial, const ComputeParam& param,
                                const unsigned char* selectArr, const float* depthArr)
{
    Float2 pos;
    const bool inViewport = point3dToScreen2d(p, param, pos);
    const bool inArea = inViewport && isInSelectArea(pos, param, selectArr);
    const int ssv = param.selectStateValue;
    bool hit = inArea;
    if (!Through && inArea && !param.erase)
        hit =
            !isBlockedInDepth(viewZ(p, param), Float2{pos.x - 0.5f, pos.y - 0.5f}, param, depthArr);
    // Selecting: 0 always, other states only when covering them.
    const bool takes = old == 0 || (old > 0 && param.coverOther);
    const signed char selecting = hit ? (takes ? static_cast<signed char>(ssv) : prior) : old;
    const bool recovers = old == ssv && param.recoverInitial;
    const signed char erasing = inArea ? (recovers ? initial : prior) : old;
    const signed char chosen = param.erase ? erasing : selecting;
    // Deleted vertices and those off the viewport keep their state.
    return (old < 0 || !inViewport) ? old : chosen;
}

template <bool Through>
inline void selectVertices(std::uint64_t begin, std::uint64_t end, const float* positions,
                           signed char* selectState, const signed char* initialState,
                           const signed char* currentState, const unsigned char* selectArr,
                           const float* depthArr, const ComputeParam& param)
{
    for (std::uint64_t i = begin; i < end; ++i) {
        selectState[i] = selectVertex<Through>(positions + 3 * i, currentState[i], selectState[i],
                                               initialState[i], param, selectArr, depthArr);
    }
}

// One face of a triangle soup: vertices 3f, 3f + 1, 3f + 2 share one result.
template <bool Through>
inline void selectFace(std::uint64_t f, const float* positions, signed char* selectState,
                       const signed char* initialState, const signed char* currentState,
                       const unsigned char* selectArr, const float* depthArr,
                       const ComputeParam& param)
{
    const std::uint64_t v0 = 3 * f;
    signed char* out = selectState + v0;
    const signed char* cur = currentState + v0;
    auto setAll = [out](signed char state) { out[0] = out[1] = out[2] = state; };
    for (int k = 0; k < 3; ++k) {
        if (cur[k] < 0) {
            setAll(cur[k]);
            return;
        }
    }
    const signed char old = cur[0];
    const int ssv = param.selectStateValue;
    for (int k = 0; k < 3; ++k) {
        const float* p = positions + 3 * (v0 + k);
        Float2 pos;
        if (!point3dToScreen2d(p, param, pos)) {
            setAll(cur[k]);
            return;
        }
        if (!isInSelectArea(pos, param, selectArr)) {
            setAll(old);
            continue;
        }
        if (param.erase) {
            if (old == ssv && param.recoverInitial)
                setAll(initialState[v0]);
        } else if (Through || !isBlockedInDepth(viewZ(p, param), Float2{pos.x - 0.5f, pos.y - 0.5f},
                                                param, depthArr)) {
            if (old == 0 || (old > 0 && param.coverOther))
                setAll(static_cast<signed char>(ssv));
        } else {
            setAll(old);
        }
        return;
    }
}

} // namespace SelectKernel
} // namespace Orvane
} // namespace Vorna
