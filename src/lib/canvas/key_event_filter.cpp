#include "key_event_filter.h"

#include <QKeyEvent>

namespace Vorna {
namespace Orvane {

bool KeyEventFilter::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::KeyPress)
        emit keyPressed(static_cast<QKeyEvent*>(event));
    else if (event->type() == QEvent::KeyRelease)
        emit keyReleased(static_cast<QKeyEvent*>(event));
    return QObject::eventFilter(watched, event);
}

} // namespace Orvane
} // namespace Vorna
