#include "incre_point_metal.h"

#include "canvas3d_shadermanager.h"
#include "compute_library.h"
#include "metal_cpp.h"
#include "orvane_log.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace Vorna {
namespace Orvane {

namespace {

void releaseAll(std::initializer_list<MTL::Buffer*> buffers)
{
    for (MTL::Buffer* buffer : buffers) {
        if (buffer)
            buffer->release();
    }
}

} // namespace

IncrePointMetal::IncrePointMetal()
{
    initMetalResource();
    buildPipelineState();
}

IncrePointMetal::~IncrePointMetal()
{
    if (m_updateVertexDataMultiBufer2)
        m_updateVertexDataMultiBufer2->release();
    if (m_updateVertexDataMultiBufer)
        m_updateVertexDataMultiBufer->release();
    if (m_library)
        m_library->release();
    if (m_commandQueue)
        m_commandQueue->release();
    if (m_device)
        m_device->release();
}

void IncrePointMetal::initMetalResource()
{
    m_device = MTL::CreateSystemDefaultDevice();
    m_commandQueue = m_device->newCommandQueue();
    m_library = newCatalogueLibrary(m_device, g_increPointMetalComputeStr, "IncrePointMetal");
}

void IncrePointMetal::buildPipelineState()
{
    buildPipelines(m_device, m_library,
                   {{"updateVertexDataMultiBufer", &m_updateVertexDataMultiBufer},
                    {"updateVertexDataMultiBufer2", &m_updateVertexDataMultiBufer2}},
                   "IncrePointMetal");
}

MTL::Buffer* IncrePointMetal::makeBufferForGL(void* address, long size)
{
    if (!m_device || size <= 0)
        return nullptr;
    return m_device->newBuffer(address, static_cast<NS::UInteger>(size),
                               MTL::ResourceStorageModeShared, nullptr);
}

bool IncrePointMetal::createWholePointMetalBuffer(const WholePointBufferData& bufferData,
                                                  MTL::Buffer** pos, MTL::Buffer** normal,
                                                  MTL::Buffer** color, MTL::Buffer** state,
                                                  MTL::Buffer** frameId)
{
    *pos = makeBufferForGL(bufferData.position, bufferData.positionBytes);
    if (!*pos) {
        qCWarning(orvane) << "posBuf is invalid";
        return false;
    }
    *normal = makeBufferForGL(bufferData.normal, bufferData.normalBytes);
    if (!*normal) {
        qCWarning(orvane) << "normalBuf is invalid";
        return false;
    }
    if (bufferData.hasColor) {
        *color = makeBufferForGL(bufferData.color, bufferData.colorBytes);
        if (!*color) {
            qCWarning(orvane) << "colorBuf is invalid";
            return false;
        }
    }
    if (bufferData.hasState) {
        *state = makeBufferForGL(bufferData.state, bufferData.stateBytes);
        if (!*state) {
            qCWarning(orvane) << "stateBuf is invalid";
            return false;
        }
    }
    if (bufferData.hasFrameId) {
        *frameId = makeBufferForGL(bufferData.frameId, bufferData.frameIdBytes);
        if (!*frameId) {
            qCWarning(orvane) << "frameIdBuf is invalid";
            return false;
        }
    }
    return true;
}

bool IncrePointMetal::createPatchtMetalBuffer(IncrePatchData* pPatch, MTL::Buffer** vid,
                                              MTL::Buffer** pos, MTL::Buffer** normal,
                                              MTL::Buffer** color, MTL::Buffer** state)
{
    if (!pPatch) {
        qCWarning(orvane) << "pPatch is null!";
        return false;
    }
    auto makeFilled = [this](const void* data, std::size_t bytes) -> MTL::Buffer* {
        MTL::Buffer* buffer = m_device->newBuffer(bytes, MTL::ResourceStorageModeManaged);
        if (buffer && data)
            std::memcpy(buffer->contents(), data, bytes);
        return buffer;
    };
    *vid = makeFilled(pPatch->patchIdData.data(), pPatch->patchIdData.size() * 4);
    *pos = pPatch->vertArr
               ? makeFilled(pPatch->vertArr->getDataPointer(), pPatch->vertArr->getTotalDataSize())
               : nullptr;
    *normal = pPatch->normArr ? makeFilled(pPatch->normArr->getDataPointer(),
                                           pPatch->normArr->getTotalDataSize())
                              : nullptr;
    *color = pPatch->clrArr
                 ? makeFilled(pPatch->clrArr->getDataPointer(), pPatch->clrArr->getTotalDataSize())
                 : nullptr;
    *state = pPatch->stateArr ? makeFilled(pPatch->stateArr->getDataPointer(),
                                           pPatch->stateArr->getTotalDataSize())
                              : nullptr;
    return true;
}

bool IncrePointMetal::createPatchtMetalBuffer2(IncrePatchData* pPatch, MTL::Buffer** out)
{
    if (!pPatch) {
        qCWarning(orvane) << "pPatch is null!";
        return false;
    }
    const std::size_t count = pPatch->patchIdData.size();
    std::vector<MetalVertexData> records(count);
    for (std::size_t i = 0; i < count; ++i) {
        MetalVertexData& record = records[i];
        const osg::Vec3& p = (*pPatch->vertArr)[i];
        const osg::Vec3& n = (*pPatch->normArr)[i];
        for (int k = 0; k < 3; ++k) {
            record.position[k] = p[k];
            record.normal[k] = n[k];
        }
        if (pPatch->clrArr) {
            const osg::Vec3& c = (*pPatch->clrArr)[i];
            for (int k = 0; k < 3; ++k)
                record.color[k] = c[k];
        }
        record.vid[0] = pPatch->patchIdData[i];
        if (pPatch->stateArr)
            record.vid[1] = (*pPatch->stateArr)[i];
        if (!pPatch->patchFrameIdData.empty())
            record.vid[2] = pPatch->patchFrameIdData[i];
    }
    *out = m_device->newBuffer(count * sizeof(MetalVertexData), MTL::ResourceStorageModeManaged);
    if (*out)
        std::memcpy((*out)->contents(), records.data(), count * sizeof(MetalVertexData));
    return true;
}

void IncrePointMetal::commitPatch(MTL::ComputePipelineState* pipeline, MTL::Buffer* const* buffers,
                                  int count, std::size_t patchCount)
{
    MTL::CommandBuffer* commandBuffer = m_commandQueue->commandBuffer();
    commandBuffer->setLabel(
        NS::String::string("update vertex data by compute shader", NS::UTF8StringEncoding));
    MTL::ComputeCommandEncoder* encoder = commandBuffer->computeCommandEncoder();
    encoder->setComputePipelineState(pipeline);
    for (int i = 0; i < count; ++i)
        encoder->setBuffer(buffers[i], 0, i);
    const NS::UInteger width =
        std::min<NS::UInteger>(pipeline->maxTotalThreadsPerThreadgroup(), 1024);
    const NS::UInteger groups = std::max<NS::UInteger>(patchCount / width, 1);
    encoder->dispatchThreadgroups(MTL::Size(groups, 1, 1), MTL::Size(width, 1, 1));
    encoder->endEncoding();
    commandBuffer->commit();
}

bool IncrePointMetal::updatePatch(IncrePatchData* pPatch, const WholePointBufferData& bufferData)
{
    NS::AutoreleasePool* pool = NS::AutoreleasePool::alloc()->init();
    bool done = false;
    if (!pPatch) {
        qCWarning(orvane) << "pPatch null!";
    } else if (!bufferData.position || !bufferData.normal) {
        qCWarning(orvane) << "bufferData is invalid";
    } else if (m_updateVertexDataMultiBufer) {
        MTL::Buffer *outPos = nullptr, *outNormal = nullptr, *outColor = nullptr,
                    *outState = nullptr, *outFrameId = nullptr;
        MTL::Buffer *vid = nullptr, *pos = nullptr, *normal = nullptr, *color = nullptr,
                    *state = nullptr;
        if (createWholePointMetalBuffer(bufferData, &outPos, &outNormal, &outColor, &outState,
                                        &outFrameId) &&
            createPatchtMetalBuffer(pPatch, &vid, &pos, &normal, &color, &state)) {
            MTL::Buffer* const buffers[] = {vid,    pos,       normal,   color,   state,
                                            outPos, outNormal, outColor, outState};
            commitPatch(m_updateVertexDataMultiBufer, buffers, 9, pPatch->patchIdData.size());
            done = true;
        }
        releaseAll(
            {outPos, outNormal, outColor, outState, outFrameId, vid, pos, normal, color, state});
    }
    pool->release();
    return done;
}

bool IncrePointMetal::updatePatch2(IncrePatchData* pPatch, const WholePointBufferData& bufferData)
{
    NS::AutoreleasePool* pool = NS::AutoreleasePool::alloc()->init();
    bool done = false;
    if (!pPatch) {
        qCWarning(orvane) << "pPatch null!";
    } else if (!bufferData.position || !bufferData.normal) {
        qCWarning(orvane) << "bufferData is invalid";
    } else if (m_updateVertexDataMultiBufer2) {
        MTL::Buffer *outPos = nullptr, *outNormal = nullptr, *outColor = nullptr,
                    *outState = nullptr, *outFrameId = nullptr, *patch = nullptr;
        if (createWholePointMetalBuffer(bufferData, &outPos, &outNormal, &outColor, &outState,
                                        &outFrameId) &&
            createPatchtMetalBuffer2(pPatch, &patch)) {
            MTL::Buffer* const buffers[] = {patch,    outPos,   outNormal,
                                            outColor, outState, outFrameId};
            commitPatch(m_updateVertexDataMultiBufer2, buffers, 6, pPatch->patchIdData.size());
            done = true;
        }
        releaseAll({outPos, outNormal, outColor, outState, outFrameId, patch});
    }
    pool->release();
    return done;
}

} // namespace Orvane
} // namespace Vorna
