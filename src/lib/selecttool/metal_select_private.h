#pragma once

#include "metal_select.h"

#include <QMutex>

#include <functional>
#include <memory>

namespace MTL {
class Buffer;
class CommandQueue;
class ComputePipelineState;
class Device;
class Library;
} // namespace MTL

namespace Vorna {
namespace Orvane {

// Device objects and retained input buffers of MetalSelect. The mutex is taken by the caller of
// selectProcess and given back on the completion thread once the result is out.
class MetalSelectPrivate : public std::enable_shared_from_this<MetalSelectPrivate>
{
public:
    MetalSelectPrivate();
    ~MetalSelectPrivate();
    MetalSelectPrivate(const MetalSelectPrivate&) = delete;
    MetalSelectPrivate& operator=(const MetalSelectPrivate&) = delete;

    void selectProcess(SelectParam param, std::function<void(osg::ByteArray*)> onDone);

private:
    void initMetalResource();
    void buildPipelineState();
    // Reuses `buffer` when its length is `length`, else replaces it; then copies `data` in.
    void buildBuffer(MTL::Buffer*& buffer, const void* data, std::size_t length);
    bool checkParam(const SelectParam& param) const;

    MTL::Device* m_device = nullptr;
    MTL::CommandQueue* m_commandQueue = nullptr;
    MTL::Library* m_library = nullptr;
    MTL::ComputePipelineState* m_meshThroughHasIndices = nullptr;
    MTL::ComputePipelineState* m_meshThroughNoIndices = nullptr;
    MTL::ComputePipelineState* m_meshNonThroughHasIndices = nullptr;
    MTL::ComputePipelineState* m_meshNonThroughNoIndices = nullptr;
    MTL::ComputePipelineState* m_pointsThrough = nullptr;
    MTL::ComputePipelineState* m_pointsNonThrough = nullptr;
    MTL::Buffer* m_positionBuffer = nullptr;
    MTL::Buffer* m_selectStateBuffer = nullptr;
    MTL::Buffer* m_initialStateBuffer = nullptr;
    MTL::Buffer* m_currentStateBuffer = nullptr;
    MTL::Buffer* m_selectAreaBuffer = nullptr;
    MTL::Buffer* m_depthBuffer = nullptr;
    std::shared_ptr<QMutex> m_mutex = std::make_shared<QMutex>();
};

} // namespace Orvane
} // namespace Vorna
