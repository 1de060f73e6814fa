#pragma once

#include <cmath>
#include <cstdint>

// The two clouds the frame figures are taken on, generated patch by patch so that the canvas
// and the plain program see the same points. Positions lie in the cube [-1, 1]^3; normals are
// unit length; colours are in [0, 1].
namespace ScanScenes {

constexpr int kPatch = 100000;

// The camera of both: looking at the origin from distance 3.46 with a 60-degree field of view.
constexpr float kEye = 2.0f;
constexpr float kFovy = 60.0f;

struct Random {
    uint64_t s;
    explicit Random(uint64_t seed) : s(seed * 0x9E3779B97F4A7C15ull + 1) {}
    // xorshift64*, in [0, 1).
    float next()
    {
        s ^= s >> 12;
        s ^= s << 25;
        s ^= s >> 27;
        return static_cast<float>((s * 0x2545F4914F6CDD1Dull) >> 40) * (1.0f / 16777216.0f);
    }
    float signedNext() { return 2.0f * next() - 1.0f; }
};

// Patch `index` of a scanner-like stream: a blob about 0.1 wide somewhere in the cube, or
// (blob false) points spread over the whole cube. Arrays hold three floats a point.
inline void fillPatch(bool blob, int index, int count, float* position, float* normal,
                      float* colour)
{
    Random random(static_cast<uint64_t>(index) + (blob ? 1 : 1000003));
    float centre[3] = {0.0f, 0.0f, 0.0f};
    const float spread = blob ? 0.05f : 1.0f;
    if (blob)
        for (float& c : centre)
            c = 0.95f * random.signedNext();
    const float tint[3] = {0.3f + 0.7f * random.next(), 0.3f + 0.7f * random.next(),
                           0.3f + 0.7f * random.next()};
    for (int i = 0; i < count; ++i) {
        float n[3];
        float length = 0.0f;
        for (int k = 0; k < 3; ++k) {
            position[3 * i + k] = centre[k] + spread * random.signedNext();
            n[k] = random.signedNext();
            length += n[k] * n[k];
        }
        const float inverse = length > 1e-12f ? 1.0f / std::sqrt(length) : 1.0f;
        for (int k = 0; k < 3; ++k) {
            normal[3 * i + k] = n[k] * inverse;
            colour[3 * i + k] = tint[k] * (0.8f + 0.2f * random.next());
        }
    }
}

} // namespace ScanScenes
