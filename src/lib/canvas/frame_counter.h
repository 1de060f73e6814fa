#pragma once

#include <atomic>
#include <memory>
#include <osg/Camera>

namespace Vorna {
namespace Orvane {

// Counts the frames a camera draws; the count is shared so other threads can read it.
// Install as a final draw callback on the render thread.
class FrameCounterCallback : public osg::Camera::DrawCallback
{
public:
    explicit FrameCounterCallback(std::shared_ptr<std::atomic<int>> count)
        : m_count(std::move(count))
    {
    }
    void operator()(osg::RenderInfo&) const override { ++*m_count; }

private:
    std::shared_ptr<std::atomic<int>> m_count;
};

} // namespace Orvane
} // namespace Vorna
