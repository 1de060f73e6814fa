#include "canvas_input.h"

#include <cstdlib>

namespace Vorna {
namespace Orvane {
namespace CanvasInput {

namespace {
using GA = osgGA::GUIEventAdapter;
// The toolkit's Escape code; Qt's Escape never equals it, so Escape is not filtered.
constexpr int kOsgEscape = 0xFF1B;
} // namespace

unsigned int osgEventButton(Qt::MouseButton button)
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

int osgKey(int key)
{
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

unsigned int osgModKeyMask(Qt::KeyboardModifiers modifiers)
{
    unsigned int mask = 0;
    if (modifiers & Qt::ShiftModifier)
        mask |= GA::MODKEY_SHIFT;
    if (modifiers & Qt::ControlModifier)
        mask |= GA::MODKEY_CTRL;
    if (modifiers & Qt::AltModifier)
        mask |= GA::MODKEY_ALT;
    if (modifiers & Qt::MetaModifier)
        mask |= GA::MODKEY_META;
    return mask;
}

unsigned int applyModifiers(osgGA::EventQueue* queue, const QInputEvent* event)
{
    const unsigned int mask = osgModKeyMask(event->modifiers());
    queue->getCurrentEventState()->setModKeyMask(mask);
    return mask;
}

void addScrollEvent(osgGA::EventQueue* queue, bool up)
{
    // Position and modifiers are those of the current state: scrolling changes neither.
    osg::ref_ptr<GA> scroll = new GA(*queue->getCurrentEventState(), osg::CopyOp(0));
    scroll->setEventType(GA::SCROLL);
    scroll->setScrollingMotion(up ? GA::SCROLL_UP : GA::SCROLL_DOWN);
    queue->addEvent(scroll.get());
}

bool translateWheel(osgGA::EventQueue* queue, QWheelEvent* event)
{
    const QPoint angle = event->angleDelta();
    if (angle.isNull()) {
        event->ignore();
        return false;
    }
    const bool synthesized = event->source() != Qt::MouseEventNotSynthesized;
    const bool vertical = std::abs(angle.y()) >= std::abs(angle.x());
    if (vertical || !synthesized)
        addScrollEvent(queue, (vertical ? angle.y() : angle.x()) >= 1);
    return true;
}

bool translateKey(osgGA::EventQueue* queue, QKeyEvent* event, bool press)
{
    const int key = osgKey(event->key());
    if (key == kOsgEscape)
        return false;
    applyModifiers(queue, event);
    if (press)
        queue->keyPress(key, 0);
    else
        queue->keyRelease(key, 0);
    return true;
}

} // namespace CanvasInput
} // namespace Orvane
} // namespace Vorna
