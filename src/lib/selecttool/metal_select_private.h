#pragma once

#include "metal_select.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace MTL {
class Buffer;
class CommandQueue;
class ComputePipelineState;
class Device;
class Library;
} // namespace MTL

namespace Vorna {
namespace Orvane {

// One selection at a time: taken by the caller of selectProcess and given back on the completion
// thread once the result is out. A mutex may only be unlocked by the thread that locked it.
class SelectGate
{
public:
    void take()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_free.wait(lock, [this] { return !m_busy; });
        m_busy = true;
    }
    void give()
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_busy = false;
        }
        m_free.notify_one();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_free;
    bool m_busy = false;
};

// Device objects and retained input buffers of MetalSelect.
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
    SelectGate m_gate;
};

} // namespace Orvane
} // namespace Vorna
