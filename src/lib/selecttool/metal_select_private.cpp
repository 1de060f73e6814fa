#include "metal_select_private.h"

#include "canvas3d_shadermanager.h"
#include "compute_library.h"
#include "metal_cpp.h"
#include "metal_select_kernels.h"
#include "orvane_log.h"

#include <cstdio>
#include <cstring>

namespace Vorna {
namespace Orvane {

namespace {

void releaseObject(NS::Object* object)
{
    if (object)
        object->release();
}

} // namespace

MetalSelectPrivate::MetalSelectPrivate()
{
    initMetalResource();
    buildPipelineState();
}

MetalSelectPrivate::~MetalSelectPrivate()
{
    for (MTL::Buffer* buffer : {m_positionBuffer, m_selectStateBuffer, m_initialStateBuffer,
                                m_currentStateBuffer, m_selectAreaBuffer, m_depthBuffer})
        releaseObject(buffer);
    for (MTL::ComputePipelineState* state :
         {m_meshThroughHasIndices, m_meshThroughNoIndices, m_meshNonThroughHasIndices,
          m_meshNonThroughNoIndices, m_pointsThrough, m_pointsNonThrough})
        releaseObject(state);
    releaseObject(m_library);
    releaseObject(m_commandQueue);
    releaseObject(m_device);
}

void MetalSelectPrivate::initMetalResource()
{
    m_device = MTL::CreateSystemDefaultDevice();
    m_commandQueue = m_device->newCommandQueue();
    m_library = newCatalogueLibrary(m_device, g_metalComputeStr, "MetalSelectPrivate");
}

void MetalSelectPrivate::buildPipelineState()
{
    buildPipelines(m_device, m_library,
                   {{"meshThroughHasIndicesSelect", &m_meshThroughHasIndices},
                    {"meshThroughNoIndicesSelect", &m_meshThroughNoIndices},
                    {"meshNonThroughHasIndicesSelect", &m_meshNonThroughHasIndices},
                    {"meshNonThroughNoIndicesSelect", &m_meshNonThroughNoIndices},
                    {"pointsThroughSelect", &m_pointsThrough},
                    {"pointsNonThroughSelect", &m_pointsNonThrough}},
                   "MetalSelectPrivate");
}

void MetalSelectPrivate::buildBuffer(MTL::Buffer*& buffer, const void* data, std::size_t length)
{
    if (!buffer || buffer->length() != length) {
        releaseObject(buffer);
        buffer = m_device->newBuffer(length, MTL::ResourceStorageModeShared);
    }
    if (buffer && length)
        std::memcpy(buffer->contents(), data, length);
}

bool MetalSelectPrivate::checkParam(const SelectParam& param) const
{
    const std::size_t count = param.vertexCount;
    auto holds = [count](const osg::Array* array) {
        return array && array->getNumElements() >= count;
    };
    if (!holds(param.positions) || !holds(param.selectState) || !holds(param.initialState) ||
        !holds(param.currentState))
        return false;
    if (!param.selectArea || param.viewport.z() <= 0 || param.viewport.w() <= 0)
        return false;
    if (param.dataType != 1 && param.dataType != 2)
        return false;
    if (param.dataType == 1 && !param.hasIndices &&
        std::size_t(param.faceCount) * 3 > std::size_t(param.vertexCount))
        return false;
    const std::size_t pixels = std::size_t(param.viewport.z()) * std::size_t(param.viewport.w());
    return param.isThrough || (param.depth && param.depth->size() >= pixels);
}

void MetalSelectPrivate::selectProcess(SelectParam param,
                                       std::function<void(osg::ByteArray*)> onDone)
{
    qCDebug(orvane) << "m_mutex->lock()";
    m_gate.take();
    if (!m_library || !checkParam(param)) {
        qCWarning(orvane) << "select param is invalid";
        qCDebug(orvane) << "m_mutex->unlock()";
        m_gate.give();
        return;
    }
    NS::AutoreleasePool* pool = NS::AutoreleasePool::alloc()->init();

    const std::size_t count = param.vertexCount;
    const std::size_t pixels = std::size_t(param.viewport.z()) * std::size_t(param.viewport.w());
    buildBuffer(m_positionBuffer, param.positions->getDataPointer(), 12 * count);
    buildBuffer(m_selectStateBuffer, param.selectState->getDataPointer(), count);
    buildBuffer(m_initialStateBuffer, param.initialState->getDataPointer(), count);
    buildBuffer(m_currentStateBuffer, param.currentState->getDataPointer(), count);
    buildBuffer(m_selectAreaBuffer, param.selectArea, pixels);
    if (!param.isThrough)
        buildBuffer(m_depthBuffer, param.depth->getDataPointer(), pixels * 4);

    MTL::CommandBuffer* commandBuffer = m_commandQueue->commandBuffer();
    // The handler keeps this object alive and releases the lock that the caller took.
    std::shared_ptr<MetalSelectPrivate> self = shared_from_this();
    const std::uint32_t vertexCount = param.vertexCount;
    commandBuffer->addCompletedHandler([self, vertexCount, onDone](MTL::CommandBuffer* done) {
        qCDebug(orvane) << "comute time =" << done->GPUEndTime() - done->GPUStartTime();
        MTL::Buffer* result = self->m_selectStateBuffer;
        const std::size_t length = result ? result->length() : 0;
        if (length == vertexCount) {
            const auto* first =
                static_cast<const signed char*>(result ? result->contents() : nullptr);
            osg::ref_ptr<osg::ByteArray> states = new osg::ByteArray(first, first + length);
            if (onDone)
                onDone(states.get());
        } else {
            qCWarning(orvane) << "the size of select buffer is error!";
        }
        qCDebug(orvane) << "m_mutex->unlock()";
        self->m_gate.give();
    });

    ComputeParam computeParam;
    computeParam.erase = param.erase;
    computeParam.coverOther = param.coverOther;
    computeParam.recoverInitial = param.recoverInitial;
    computeParam.vertexCount = param.vertexCount;
    computeParam.faceCount = param.faceCount;
    computeParam.selectStateValue = param.selectStateValue;
    osgMt2SimdMt(param.matModelViewProj, computeParam.matModelViewProj);
    osgMt2SimdMt(param.matModelView, computeParam.matModelView);
    osgMt2SimdMt(param.matProj, computeParam.matProj);
    computeParam.viewport = simd_float4{float(param.viewport.x()), float(param.viewport.y()),
                                        float(param.viewport.z()), float(param.viewport.w())};

    const bool isMesh = param.dataType == 1;
    const bool perFace = isMesh && !param.hasIndices;
    MTL::ComputePipelineState* pipeline = nullptr;
    if (isMesh) {
        if (param.isThrough)
            pipeline = param.hasIndices ? m_meshThroughHasIndices : m_meshThroughNoIndices;
        else
            pipeline = param.hasIndices ? m_meshNonThroughHasIndices : m_meshNonThroughNoIndices;
    } else {
        pipeline = param.isThrough ? m_pointsThrough : m_pointsNonThrough;
    }

    MTL::ComputeCommandEncoder* encoder = commandBuffer->computeCommandEncoder();
    encoder->setComputePipelineState(pipeline);
    encoder->setBuffer(m_positionBuffer, 0, 0);
    encoder->setBuffer(m_selectStateBuffer, 0, 1);
    encoder->setBuffer(m_initialStateBuffer, 0, 2);
    encoder->setBuffer(m_currentStateBuffer, 0, 3);
    encoder->setBuffer(m_selectAreaBuffer, 0, 4);
    if (param.isThrough) {
        encoder->setBytes(&computeParam, sizeof(computeParam), 5);
    } else {
        encoder->setBuffer(m_depthBuffer, 0, 5);
        encoder->setBytes(&computeParam, sizeof(computeParam), 6);
    }
    const NS::UInteger threads = perFace ? param.faceCount : param.vertexCount;
    encoder->dispatchThreads(MTL::Size(threads, 1, 1),
                             MTL::Size(pipeline->maxTotalThreadsPerThreadgroup(), 1, 1));
    encoder->endEncoding();
    commandBuffer->commit();
    pool->release();
}

} // namespace Orvane
} // namespace Vorna
