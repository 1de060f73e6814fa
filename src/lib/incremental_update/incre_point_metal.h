#pragma once

#include "incre_whole_data_buffer.h"
#include "metal_vertex_data.h"

namespace MTL {
class Buffer;
class CommandQueue;
class ComputePipelineState;
class Device;
class Library;
} // namespace MTL

namespace Vorna {
namespace Orvane {

// Compute writer of patches into the whole-cloud buffers, over buffers that alias their mapped
// memory. Work is committed without waiting; the caller keeps the mapping until it is done.
// Made and used on the render thread.
class IncrePointMetal
{
public:
    // Compiles the library and both pipelines.
    IncrePointMetal();
    ~IncrePointMetal();
    IncrePointMetal(const IncrePointMetal&) = delete;
    IncrePointMetal& operator=(const IncrePointMetal&) = delete;

    bool updatePatch(IncrePatchData* pPatch, const WholePointBufferData& bufferData);
    bool updatePatch2(IncrePatchData* pPatch, const WholePointBufferData& bufferData);

    MTL::Buffer* makeBufferForGL(void* address, long size);
    bool createWholePointMetalBuffer(const WholePointBufferData& bufferData, MTL::Buffer** pos,
                                     MTL::Buffer** normal, MTL::Buffer** color, MTL::Buffer** state,
                                     MTL::Buffer** frameId);
    bool createPatchtMetalBuffer(IncrePatchData* pPatch, MTL::Buffer** vid, MTL::Buffer** pos,
                                 MTL::Buffer** normal, MTL::Buffer** color, MTL::Buffer** state);
    bool createPatchtMetalBuffer2(IncrePatchData* pPatch, MTL::Buffer** out);

    MTL::CommandQueue* commandQueue() const { return m_commandQueue; }

private:
    void initMetalResource();
    void buildPipelineState();
    // Encodes one dispatch of `pipeline` over the patch and commits it.
    void commitPatch(MTL::ComputePipelineState* pipeline, MTL::Buffer* const* buffers, int count,
                     std::size_t patchCount);

    MTL::Device* m_device = nullptr;
    MTL::CommandQueue* m_commandQueue = nullptr;
    MTL::Library* m_library = nullptr;
    MTL::ComputePipelineState* m_updateVertexDataMultiBufer = nullptr;
    MTL::ComputePipelineState* m_updateVertexDataMultiBufer2 = nullptr;
};

} // namespace Orvane
} // namespace Vorna
