#include "metal_select_kernels.h"

#include "metal_cpp.h"

// The six kernels of "metal_compute", bound by name to the compute device. Buffers: 0 positions,
// 1 select state (the result), 2 initial state, 3 current state, 4 select area; non-through
// kernels take the depth at 5 and the parameters at 6, through kernels the parameters at 5.

namespace Vorna {
namespace Orvane {
namespace {

using namespace SelectKernel;

template <bool Through, bool PerFace>
void runSelect(const MTL::KernelArguments& args, const MTL::ThreadBlock& block)
{
    const auto* positions = args.buffer<const float>(0);
    auto* selectState = args.buffer<signed char>(1);
    const auto* initialState = args.buffer<const signed char>(2);
    const auto* currentState = args.buffer<const signed char>(3);
    const auto* selectArr = args.buffer<const unsigned char>(4);
    const float* depthArr = Through ? nullptr : args.buffer<const float>(5);
    const ComputeParam& param = *args.buffer<const ComputeParam>(Through ? 5 : 6);
    if (PerFace) {
        for (std::uint64_t f = block.begin; f < block.end; ++f)
            selectFace<Through>(f, positions, selectState, initialState, currentState, selectArr,
                                depthArr, param);
    } else {
        selectVertices<Through>(block.begin, block.end, positions, selectState, initialState,
                                currentState, selectArr, depthArr, param);
    }
}

[[maybe_unused]] const bool s_registered =
    MTL::registerKernel("meshThroughHasIndicesSelect", &runSelect<true, false>) &&
    MTL::registerKernel("meshThroughNoIndicesSelect", &runSelect<true, true>) &&
    MTL::registerKernel("meshNonThroughHasIndicesSelect", &runSelect<false, false>) &&
    MTL::registerKernel("meshNonThroughNoIndicesSelect", &runSelect<false, true>) &&
    MTL::registerKernel("pointsThroughSelect", &runSelect<true, false>) &&
    MTL::registerKernel("pointsNonThroughSelect", &runSelect<false, false>);

} // namespace
} // namespace Orvane
} // namespace Vorna
