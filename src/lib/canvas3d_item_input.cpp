// Translation of Qt pointer, wheel and key events into the item's osgGA event queue. GUI thread;
// the render thread takes the events in the next frame's event traversal.
#include "canvas3d_item.h"

#include <QNativeGestureEvent>
#include <QQuickWindow>

namespace Vorna {
namespace Orvane {

namespace {
using GA = osgGA::GUIEventAdapter;
// The toolkit's Escape code; Qt's Escape never equals it, so Escape is not filtered.
constexpr int kOsgEscape = 0xFF1B;
} // namespace

unsigned int Canvas3DItem::getOsgEventButton(Qt::MouseButton button)
{
    switch (button) {
    case Qt::LeftButton:
        return 1;
    case Qt::MiddleButton:
        return 2;
    case Qt::RightButton:
        return 3;
    default:
        return 0;
    }
}

int Canvas3DItem::getOsgKey(QKeyEvent* event)
{
    const int key = event->key();
    switch (key) {
    case Qt::Key_Space:
        return 0x20;
    case Qt::Key_D:
    case Qt::Key_E:
    case Qt::Key_H:
    case Qt::Key_I:
    case Qt::Key_K:
    case Qt::Key_M:
    case Qt::Key_N:
    case Qt::Key_O:
    case Qt::Key_Q:
    case Qt::Key_R:
    case Qt::Key_S:
    case Qt::Key_T:
    case Qt::Key_W:
    case Qt::Key_Z:
        return key - Qt::Key_A + 'a';
    case Qt::Key_Delete:
        return 0xFFFF;
    case Qt::Key_Shift:
        return 0xFFE1;
    case Qt::Key_Control:
        return 0xFFE3;
    case Qt::Key_Alt:
        return 0xFFE9;
    default:
        return key;
    }
}

void Canvas3DItem::setKeyboardModifiers(QInputEvent* event)
{
    const Qt::KeyboardModifiers modifiers = event->modifiers();
    unsigned int mask = 0;
    if (modifiers & Qt::ShiftModifier)
        mask |= GA::MODKEY_SHIFT;
    if (modifiers & Qt::ControlModifier)
        mask |= GA::MODKEY_CTRL;
    if (modifiers & Qt::AltModifier)
        mask |= GA::MODKEY_ALT;
    if (modifiers & Qt::MetaModifier)
        mask |= GA::MODKEY_META;
    m_modKeyMask = mask;
    m_eventQueue->getCurrentEventState()->setModKeyMask(mask);
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
    // Position and modifiers are those of the current state: scrolling changes neither.
    osg::ref_ptr<GA> scroll = new GA(*m_eventQueue->getCurrentEventState(), osg::CopyOp(0));
    scroll->setEventType(GA::SCROLL);
    scroll->setScrollingMotion(up ? GA::SCROLL_UP : GA::SCROLL_DOWN);
    m_eventQueue->addEvent(scroll.get());
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
    const QPoint angle = event->angleDelta();
    if (angle.isNull()) {
        event->ignore();
        return;
    }
    const bool vertical = std::abs(angle.y()) >= std::abs(angle.x());
    if (vertical || !synthesized)
        addScrollEvent((vertical ? angle.y() : angle.x()) >= 1);
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
    const int key = getOsgKey(event);
    if (key == kOsgEscape)
        return;
    m_currentKey = press ? static_cast<unsigned int>(event->key()) : 0;
    setKeyboardModifiers(event);
    if (press)
        m_eventQueue->keyPress(key, 0);
    else
        m_eventQueue->keyRelease(key, 0);
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

} // namespace Orvane
} // namespace Vorna
