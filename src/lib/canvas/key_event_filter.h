#pragma once

#include <QObject>

class QKeyEvent;

namespace Vorna {
namespace Orvane {

// Lets the canvas hear every key of its window, focused or not; the event goes on unchanged.
// GUI thread.
class KeyEventFilter : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

signals:
    void keyPressed(QKeyEvent* event);
    void keyReleased(QKeyEvent* event);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};

} // namespace Orvane
} // namespace Vorna
