// Translation of Qt pointer, wheel, key and touch events into the item's osgGA event queue. GUI
// thread; the render thread takes the events in the next frame's event traversal.
#include "canvas3d_item.h"

#include "canvas_input.h"
#include "touch_gesture.h"

#include <QNativeGestureEvent>
#include <QQuickWindow>

namespace Vorna {
namespace Orvane {

unsigned int Canvas3DItem::getOsgEventButton(Qt::MouseButton button)
{
    return CanvasInput::osgEventButton(button);
}

int Canvas3DItem::getOsgKey(QKeyEvent* event)
{
    return CanvasInput::osgKey(event->key());
}

void Canvas3DItem::setKeyboardModifiers(QInputEvent* event)
{
    m_modKeyMask = CanvasInput::applyModifiers(m_eventQueue.get(), event);
}

void Canvas3DItem::setMouseEventData(QMouseEvent* event)
{
    const double dpr = window() ? window()->devicePixelRatio() : 1.0;
    m_mousePos.set(static_cast<float>(event->x() * dpr), static_cast<float>(event->y() * dpr));
    m_mouseButton = getOsgEventButton(event->button());
    frame();
}

void Canvas3DItem::setHoverEventData(QHoverEvent* event)
{
    const double dpr = window() ? window()->devicePixelRatio() : 1.0;
    m_mousePos.set(static_cast<float>(static_cast<int>(event->pos().x()) * dpr),
                   static_cast<float>(static_cast<int>(event->pos().y()) * dpr));
    m_mouseButton = 0;
    frame();
}

bool Canvas3DItem::prepareMouseEvent(QMouseEvent* event, bool enabled)
{
    if (!enabled) {
        event->ignore();
        return false;
    }
    setMouseEventData(event);
    setKeyboardModifiers(event);
    return true;
}

void Canvas3DItem::mousePressEvent(QMouseEvent* event)
{
    if (prepareMouseEvent(event, m_mouseControl.enablePress))
        m_eventQueue->mouseButtonPress(m_mousePos.x(), m_mousePos.y(), m_mouseButton);
}

void Canvas3DItem::mouseReleaseEvent(QMouseEvent* event)
{
    if (prepareMouseEvent(event, m_mouseControl.enableRelease))
        m_eventQueue->mouseButtonRelease(m_mousePos.x(), m_mousePos.y(), m_mouseButton);
}

void Canvas3DItem::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (prepareMouseEvent(event, m_mouseControl.enableDoubleClick))
        m_eventQueue->mouseDoubleButtonPress(m_mousePos.x(), m_mousePos.y(), m_mouseButton);
}

void Canvas3DItem::mouseMoveEvent(QMouseEvent* event)
{
    if (prepareMouseEvent(event, m_mouseControl.enableMove))
        m_eventQueue->mouseMotion(m_mousePos.x(), m_mousePos.y());
}

void Canvas3DItem::hoverMoveEvent(QHoverEvent* event)
{
    static QPointF lastPoint;
    if (event->posF() == lastPoint)
        return;
    lastPoint = event->posF();
    if (m_skipNextHover) {
        m_skipNextHover = false;
        return;
    }
    setHoverEventData(event);
    setKeyboardModifiers(event);
    // A hover proves that nothing is pressed: repair releases that never reached the item.
    const unsigned int buttons = m_eventQueue->getCurrentEventState()->getButtonMask();
    for (unsigned int bit = 0; bit < 3; ++bit)
        if (buttons & (1u << bit))
            m_eventQueue->mouseButtonRelease(m_mousePos.x(), m_mousePos.y(), bit + 1);
    m_eventQueue->mouseMotion(m_mousePos.x(), m_mousePos.y());
}

void Canvas3DItem::addScrollEvent(bool up)
{
    CanvasInput::addScrollEvent(m_eventQueue.get(), up);
}

void Canvas3DItem::wheelEvent(QWheelEvent* event)
{
    if (!m_mouseControl.enableWheel) {
        event->ignore();
        return;
    }
    const bool synthesized = event->source() != Qt::MouseEventNotSynthesized;
    if (!m_enable2FingerScrollZoom && m_currentKey != m_keyScrollAddition &&
        m_currentKey != static_cast<unsigned int>(Qt::Key_Shift) && synthesized) {
        event->ignore();
        return;
    }
    if (CanvasInput::translateWheel(m_eventQueue.get(), event))
        frame();
}

bool Canvas3DItem::event(QEvent* e)
{
    if (m_enable2FingerScrollZoom || m_currentKey == m_keyScrollAddition) {
        if (auto* gesture = dynamic_cast<QNativeGestureEvent*>(e)) {
            addScrollEvent(gesture->value() > 0);
            frame();
        }
    }
    return QQuickFramebufferObject::event(e);
}

void Canvas3DItem::translateKeyEvent(QKeyEvent* event, bool press)
{
    if (!isVisible())
        return;
    if (!CanvasInput::translateKey(m_eventQueue.get(), event, press))
        return;
    m_currentKey = press ? static_cast<unsigned int>(event->key()) : 0;
    m_modKeyMask = CanvasInput::osgModKeyMask(event->modifiers());
    frame();
}

void Canvas3DItem::keyPressEvent(QKeyEvent* event)
{
    translateKeyEvent(event, true);
}

void Canvas3DItem::keyReleaseEvent(QKeyEvent* event)
{
    translateKeyEvent(event, false);
}

void Canvas3DItem::touchEvent(QTouchEvent* event)
{
    const double dpr = window() ? window()->devicePixelRatio() : 1.0;
    m_touch->touchEvent(event->touchPoints(), dpr, m_skipNextHover);
}

void Canvas3DItem::onLongPressFinished()
{
    m_touch->onLongPressFinished();
}

} // namespace Orvane
} // namespace Vorna
