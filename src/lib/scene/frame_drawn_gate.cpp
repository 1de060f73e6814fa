#include "frame_drawn_gate.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <QTimer>
#include <vector>

namespace Vorna {
namespace Orvane {

namespace {

// One per camera, left in its final-draw chain: taking a callback out of the chain while the
// chain runs isn't safe, and an empty list costs nothing.
class OpenGatesCallback : public osg::Camera::DrawCallback
{
public:
    void add(std::shared_ptr<FrameDrawnGate> gate)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_gates.push_back(std::move(gate));
    }

    void operator()(osg::RenderInfo&) const override
    {
        std::vector<std::shared_ptr<FrameDrawnGate>> gates;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            gates.swap(m_gates);
        }
        for (const std::shared_ptr<FrameDrawnGate>& gate : gates)
            gate->open();
    }

    ~OpenGatesCallback() override
    {
        // The camera went before drawing again: nobody may wait for it.
        for (const std::shared_ptr<FrameDrawnGate>& gate : m_gates)
            gate->open();
    }

private:
    mutable std::mutex m_mutex;
    mutable std::vector<std::shared_ptr<FrameDrawnGate>> m_gates;
};

OpenGatesCallback* findOrAddCallback(osg::Camera* camera)
{
    for (osg::Callback* cb = camera->getFinalDrawCallback(); cb; cb = cb->getNestedCallback())
        if (auto* found = dynamic_cast<OpenGatesCallback*>(cb))
            return found;
    auto* callback = new OpenGatesCallback;
    camera->addFinalDrawCallback(callback);
    return callback;
}

} // namespace

void FrameDrawnGate::openAfterDraw(const std::shared_ptr<FrameDrawnGate>& gate, osg::Camera* camera)
{
    if (!camera) {
        gate->open();
        return;
    }
    findOrAddCallback(camera)->add(gate);
}

void FrameDrawnGate::open()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_open)
        return;
    m_open = true;
    m_opened.notify_all();
    if (m_loop)
        QMetaObject::invokeMethod(m_loop, "quit", Qt::QueuedConnection);
}

bool FrameDrawnGate::isOpen() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_open;
}

bool FrameDrawnGate::wait(int timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_open)
        return true;
    QCoreApplication* app = QCoreApplication::instance();
    if (!app || QThread::currentThread() != app->thread())
        return m_opened.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                 [this] { return m_open; });

    // Blocking here would stop the frame we wait for: the scene graph syncs with this thread.
    QEventLoop loop;
    m_loop = &loop;
    lock.unlock();
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    lock.lock();
    m_loop = nullptr;
    return m_open;
}

FrameDrawnTicket::~FrameDrawnTicket()
{
    if (!m_handedOver)
        m_gate->open();
}

void FrameDrawnTicket::openAfterDraw(osg::Camera* camera)
{
    m_handedOver = true;
    FrameDrawnGate::openAfterDraw(m_gate, camera);
}

} // namespace Orvane
} // namespace Vorna
