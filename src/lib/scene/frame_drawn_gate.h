#pragma once

// Lets a caller wait until an operation it added to a canvas has run and the frame it ran in
// has been drawn. The operation, on the render thread, hands the gate to the camera; any other
// thread waits.
#include <condition_variable>
#include <memory>
#include <mutex>
#include <osg/Camera>

class QEventLoop;

namespace Vorna {
namespace Orvane {

class FrameDrawnGate
{
public:
    // Render thread, inside the operation: opens after `camera` has drawn this frame. Without a
    // camera it opens at once.
    static void openAfterDraw(const std::shared_ptr<FrameDrawnGate>& gate, osg::Camera* camera);

    void open();
    bool isOpen() const;

    // Returns once open, or false after `timeoutMs`. On the application's thread events keep
    // flowing meanwhile (QtQuick renders at that thread's request), user input excepted.
    bool wait(int timeoutMs);

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_opened;
    bool m_open = false;
    QEventLoop* m_loop = nullptr;
};

// Carried by the operation: opens the gate if the operation goes without having handed it to
// a camera, as when a canvas whose item is gone drops it.
class FrameDrawnTicket
{
public:
    explicit FrameDrawnTicket(std::shared_ptr<FrameDrawnGate> gate) : m_gate(std::move(gate)) {}
    ~FrameDrawnTicket();
    FrameDrawnTicket(const FrameDrawnTicket&) = delete;
    FrameDrawnTicket& operator=(const FrameDrawnTicket&) = delete;

    // Render thread.
    void openAfterDraw(osg::Camera* camera);

private:
    std::shared_ptr<FrameDrawnGate> m_gate;
    bool m_handedOver = false;
};

} // namespace Orvane
} // namespace Vorna
