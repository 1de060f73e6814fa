#pragma once

namespace Vorna {
namespace Orvane {

// One patch point as the kernel's PatchVertex reads it; 64 bytes.
struct MetalVertexData {
    float position[4] = {};
    float normal[4] = {};
    float color[4] = {};
    int vid[4] = {}; // whole-cloud vertex id, state, frame id, unused
};

static_assert(sizeof(MetalVertexData) == 64, "MetalVertexData is the kernel's 64-byte record");

} // namespace Orvane
} // namespace Vorna
