#pragma once

#include <QList>
#include <QObject>
#include <QPair>
#include <QPointF>
#include <QScopedPointer>
#include <QTimer>
#include <QTouchEvent>
#include <functional>
#include <osgGA/EventQueue>

namespace Vorna {
namespace Orvane {

// Name of the mouse events that the recogniser makes up, so handlers can tell them from real ones.
extern const char* const g_addtionalTouchName;

// One finger's history, for the double tap and long press recogniser.
struct TouchInfo {
    // Limit for differences of clock(), in that function's raw units (processor time, not wall
    // time); kept as it is.
    static constexpr long s_singleClickedTime = 300;
    // Long press timer interval, milliseconds.
    static constexpr int s_longPressTime = 500;
    // Distance limit, item units.
    static constexpr int s_offset = 10;

    TouchInfo() : TouchInfo(-1, QPointF()) {}
    TouchInfo(int id, const QPointF& pos);

    int id;
    QPointF pos; // at the press, item units
    qint64 pressClock;
    qint64 releaseClock = 0;
    bool moved = false;
    bool secondTap = false;
    bool singleClicked = false;
    bool doubleClicked = false;
    bool longPressed = false;
};

// Touch input for a canvas: every touch point goes to the event queue as an osgGA touch point,
// and one finger's double tap or long press becomes a left double click or a right press and
// double click named g_addtionalTouchName. Lives on the thread that delivers the input (the GUI
// thread for the item); its long press timer lives there too.
class TouchTranslator : public QObject
{
    Q_OBJECT
public:
    TouchTranslator(osgGA::EventQueue* queue, std::function<void()> requestFrame);
    ~TouchTranslator() override;

    // The whole of one touch event. `pixelRatio` scales the touch points; `touching` is the
    // owner's flag, true while at least one finger is down (it suppresses the next hover).
    void touchEvent(const QList<QTouchEvent::TouchPoint>& points, double pixelRatio,
                    bool& touching);
    void touchEventPostProcess(bool wasTouching, bool isTouching,
                               const QList<QTouchEvent::TouchPoint>& points);

    // First: the touch id being followed, -1 for none.
    const QPair<int, TouchInfo>& currentTouch() const { return m_touch; }
    bool isLongPressTimerActive() const { return m_longPressTimer && m_longPressTimer->isActive(); }

public slots:
    void onLongPressFinished();

private:
    osg::ref_ptr<osgGA::EventQueue> m_eventQueue;
    std::function<void()> m_requestFrame;
    QPair<int, TouchInfo> m_touch;
    QScopedPointer<QTimer> m_longPressTimer;
};

} // namespace Orvane
} // namespace Vorna
