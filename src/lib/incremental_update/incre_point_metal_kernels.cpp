#include "metal_cpp.h"
#include "metal_vertex_data.h"

#include <cstring>

// The two kernels of "incre_point_metal_compute". Accesses past a buffer's end are dropped and
// read as "no target": the dispatch may run threads beyond the patch, and the state is written
// as int over a byte-per-vertex buffer; on this device neither may touch foreign memory.

namespace Vorna {
namespace Orvane {
namespace {

template <typename T>
bool readAt(const MTL::KernelArguments& args, int index, std::uint64_t element, T& out)
{
    if (!args.isBound(index) || (element + 1) * sizeof(T) > args.length[index])
        return false;
    std::memcpy(&out, args.buffer<const unsigned char>(index) + element * sizeof(T), sizeof(T));
    return true;
}

template <typename T>
void writeAt(const MTL::KernelArguments& args, int index, std::uint64_t element, T value)
{
    if (!args.isBound(index) || (element + 1) * sizeof(T) > args.length[index])
        return;
    std::memcpy(args.buffer<unsigned char>(index) + element * sizeof(T), &value, sizeof(T));
}

// Float to int as the GPU converts: NaN gives 0, out-of-range values saturate.
int toInt(float value)
{
    if (value != value)
        return 0;
    if (value >= 2147483647.0f)
        return 2147483647;
    if (value <= -2147483648.0f)
        return -2147483647 - 1;
    return static_cast<int>(value);
}

void copyThree(const MTL::KernelArguments& args, int from, std::uint64_t src, int to,
               std::uint64_t dst)
{
    for (std::uint64_t i = 0; i < 3; ++i) {
        float value = 0.0f;
        readAt(args, from, src * 3 + i, value);
        writeAt(args, to, dst * 3 + i, value);
    }
}

void updateVertexDataMultiBufer(const MTL::KernelArguments& args, const MTL::ThreadBlock& block)
{
    for (std::uint64_t t = block.begin; t < block.end; ++t) {
        float id = -1.0f;
        if (!readAt(args, 0, t, id))
            continue;
        // The ids arrive as raw int bits and are read as float, as the kernel declares them.
        const int wholeVid = toInt(id);
        if (wholeVid < 0)
            continue;
        copyThree(args, 1, t, 5, wholeVid);
        copyThree(args, 2, t, 6, wholeVid);
        if (args.isBound(3) && args.isBound(7))
            copyThree(args, 3, t, 7, wholeVid);
        if (args.isBound(4) && args.isBound(8)) {
            float state = 0.0f;
            readAt(args, 4, t, state);
            writeAt(args, 8, wholeVid, toInt(state));
        }
    }
}

void updateVertexDataMultiBufer2(const MTL::KernelArguments& args, const MTL::ThreadBlock& block)
{
    for (std::uint64_t t = block.begin; t < block.end; ++t) {
        MetalVertexData record;
        if (!readAt(args, 0, t, record) || record.vid[0] < 0)
            continue;
        const std::uint64_t wholeVid = static_cast<std::uint64_t>(record.vid[0]);
        for (std::uint64_t i = 0; i < 3; ++i) {
            writeAt(args, 1, wholeVid * 3 + i, record.position[i]);
            writeAt(args, 2, wholeVid * 3 + i, record.normal[i]);
            writeAt(args, 3, wholeVid * 3 + i, record.color[i]);
        }
        writeAt(args, 4, wholeVid, record.vid[1]);
        writeAt(args, 5, wholeVid, record.vid[2]);
    }
}

[[maybe_unused]] const bool s_registered =
    MTL::registerKernel("updateVertexDataMultiBufer", &updateVertexDataMultiBufer) &&
    MTL::registerKernel("updateVertexDataMultiBufer2", &updateVertexDataMultiBufer2);

} // namespace
} // namespace Orvane
} // namespace Vorna
