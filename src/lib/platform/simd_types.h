#pragma once

// The vector types the compute kernels share with the host, laid out as the GPU expects them.
struct alignas(16) simd_float4 {
    float x, y, z, w;
    float& operator[](int i) { return (&x)[i]; }
    float operator[](int i) const { return (&x)[i]; }
};

struct alignas(16) simd_float4x4 {
    simd_float4 columns[4];
};

static_assert(sizeof(simd_float4) == 16, "simd_float4 must match the kernels' float4");
static_assert(sizeof(simd_float4x4) == 64, "simd_float4x4 must match the kernels' float4x4");
