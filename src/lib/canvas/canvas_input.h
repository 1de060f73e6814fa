#pragma once

#include <QKeyEvent>
#include <QWheelEvent>
#include <osgGA/EventQueue>

namespace Vorna {
namespace Orvane {

// Qt input to osgGA, shared by the on-screen item and the offscreen surface so that handlers
// see the same events from both. Called on the thread that owns the input (the GUI thread for
// the item); the event queue has its own lock.
namespace CanvasInput {

// Left 1, middle 2, right 3, anything else 0.
unsigned int osgEventButton(Qt::MouseButton button);
// Qt key to the code that handlers see: space, fourteen letters in lower case, and the
// modifier and delete keys as X11 keysyms; everything else unchanged.
int osgKey(int qtKey);
// Shift, Control, Alt and Meta as both left and right osgGA modifier bits.
unsigned int osgModKeyMask(Qt::KeyboardModifiers modifiers);
// Sets the mask on the queue's current event state and returns it.
unsigned int applyModifiers(osgGA::EventQueue* queue, const QInputEvent* event);
// A scroll at the position and with the modifiers of the current event state.
void addScrollEvent(osgGA::EventQueue* queue, bool up);
// The part of wheel handling the item and the surface share: a null delta is ignored (false);
// a vertical turn, or a horizontal one of a real wheel, scrolls.
bool translateWheel(osgGA::EventQueue* queue, QWheelEvent* event);
// Key press or release with modifiers; false when the key is filtered out.
bool translateKey(osgGA::EventQueue* queue, QKeyEvent* event, bool press);

} // namespace CanvasInput

} // namespace Orvane
} // namespace Vorna
