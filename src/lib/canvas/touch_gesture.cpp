#include "touch_gesture.h"

#include "canvas_input.h"
#include "orvane_log.h"

#include <cmath>
#include <ctime>

namespace Vorna {
namespace Orvane {

const char* const g_addtionalTouchName = "addtionalTouch";

namespace {
using GA = osgGA::GUIEventAdapter;
} // namespace

TouchInfo::TouchInfo(int touchId, const QPointF& position)
    : id(touchId), pos(position), pressClock(static_cast<qint64>(std::clock()))
{
}

TouchTranslator::TouchTranslator(osgGA::EventQueue* queue, std::function<void()> requestFrame)
    : m_eventQueue(queue), m_requestFrame(std::move(requestFrame)), m_touch(-1, TouchInfo())
{
}

TouchTranslator::~TouchTranslator() = default;

void TouchTranslator::touchEvent(const QList<QTouchEvent::TouchPoint>& points, double pixelRatio,
                                 bool& touching)
{
    osg::ref_ptr<GA> ev;
    int released = 0;
    for (const QTouchEvent::TouchPoint& point : points) {
        const unsigned int id = static_cast<unsigned int>(point.id());
        const float x = static_cast<float>(point.pos().x() * pixelRatio);
        const float y = static_cast<float>(point.pos().y() * pixelRatio);
        switch (point.state()) {
        case Qt::TouchPointPressed:
            if (!ev)
                ev = m_eventQueue->touchBegan(id, GA::TOUCH_BEGAN, x, y);
            else
                ev->addTouchPoint(id, GA::TOUCH_BEGAN, x, y);
            break;
        case Qt::TouchPointMoved:
            if (!ev)
                ev = m_eventQueue->touchMoved(id, GA::TOUCH_MOVED, x, y);
            else
                ev->addTouchPoint(id, GA::TOUCH_MOVED, x, y);
            break;
        case Qt::TouchPointReleased:
            if (!ev)
                ev = m_eventQueue->touchEnded(id, GA::TOUCH_ENDED, x, y, 1);
            else
                ev->addTouchPoint(id, GA::TOUCH_ENDED, x, y);
            ++released;
            break;
        case Qt::TouchPointStationary:
            if (!ev) {
                GA* state = m_eventQueue->getCurrentEventState();
                if (m_eventQueue->getFirstTouchEmulatesMouse()) {
                    state->setX(x);
                    state->setY(y);
                }
                ev = new GA(*state, osg::CopyOp(0));
                ev->setEventType(GA::DRAG);
                ev->setTime(m_eventQueue->getTime());
                ev->addTouchPoint(id, GA::TOUCH_STATIONERY, x, y);
                m_eventQueue->addEvent(ev.get());
            } else {
                ev->addTouchPoint(id, GA::TOUCH_STATIONERY, x, y);
            }
            break;
        }
        // Handlers read the phase from the touch data, not from the event type.
        if (ev)
            ev->setEventType(GA::MOVE);
    }
    const bool wasTouching = touching;
    touching = released != points.size();
    touchEventPostProcess(wasTouching, touching, points);
    if (m_requestFrame)
        m_requestFrame();
}

void TouchTranslator::touchEventPostProcess(bool wasTouching, bool isTouching,
                                            const QList<QTouchEvent::TouchPoint>& points)
{
    if (!m_longPressTimer) {
        m_longPressTimer.reset(new QTimer);
        m_longPressTimer->setSingleShot(true);
        m_longPressTimer->setInterval(TouchInfo::s_longPressTime);
        connect(m_longPressTimer.data(), &QTimer::timeout, this,
                &TouchTranslator::onLongPressFinished);
    }

    if (!wasTouching && isTouching) {
        // The first finger down.
        if (points.size() != 1) {
            m_touch.second.id = -1;
            return;
        }
        const TouchInfo old = m_touch.second;
        const QTouchEvent::TouchPoint& point = points.first();
        m_touch.first = point.id();
        m_touch.second = TouchInfo(point.id(), point.pos());
        TouchInfo& now = m_touch.second;
        if (old.singleClicked && !old.doubleClicked) {
            now.secondTap = true;
            const qint64 sinceRelease = static_cast<qint64>(std::clock()) - old.releaseClock;
            if (sinceRelease < TouchInfo::s_singleClickedTime &&
                std::abs(now.pos.x() - old.pos.x()) < 2 * TouchInfo::s_offset &&
                std::abs(now.pos.y() - old.pos.y()) < 2 * TouchInfo::s_offset) {
                now.doubleClicked = true;
                GA* ev = m_eventQueue->mouseDoubleButtonPress(static_cast<float>(now.pos.x()),
                                                              static_cast<float>(now.pos.y()), 1);
                ev->setName(g_addtionalTouchName);
            }
        }
        if (!old.singleClicked && !old.doubleClicked)
            m_longPressTimer->start();
    } else if (!wasTouching || isTouching) {
        // Fingers still down.
        if (points.size() > 1) {
            // Multi-touch ends any gesture.
            m_touch.first = -1;
            m_touch.second.id = -1;
            m_longPressTimer->stop();
        }
        if (m_touch.first >= 0 && !m_touch.second.moved && !points.isEmpty()) {
            // Signed on purpose: only motion to the right or downwards counts.
            const QPointF d = points.first().pos() - m_touch.second.pos;
            if (d.x() > TouchInfo::s_offset || d.y() > TouchInfo::s_offset)
                m_touch.second.moved = true;
        }
    } else {
        // The last finger up.
        if (m_touch.first >= 0) {
            m_touch.first = -1;
            TouchInfo& now = m_touch.second;
            if (!now.moved) {
                now.releaseClock = static_cast<qint64>(std::clock());
                if (now.releaseClock - now.pressClock < TouchInfo::s_singleClickedTime)
                    now.singleClicked = true;
            }
        }
        m_longPressTimer->stop();
    }
}

void TouchTranslator::onLongPressFinished()
{
    const TouchInfo info = m_touch.second;
    if (info.moved || info.doubleClicked || info.longPressed)
        return;
    m_touch.second.longPressed = true;
    GA* state = m_eventQueue->getCurrentEventState();
    // A synthetic press must not look like a held button, or the next hover would answer it
    // with a release.
    const int buttonMask = state->getButtonMask();
    const float x = static_cast<float>(info.pos.x());
    const float y = static_cast<float>(info.pos.y());
    const unsigned int right = CanvasInput::osgEventButton(Qt::RightButton);
    m_eventQueue->mouseButtonPress(x, y, right)->setName(g_addtionalTouchName);
    m_eventQueue->mouseDoubleButtonPress(x, y, right)->setName(g_addtionalTouchName);
    state->setButtonMask(buttonMask);
    qCDebug(orvane) << "----Long Pressed";
    if (m_requestFrame)
        m_requestFrame();
}

} // namespace Orvane
} // namespace Vorna
