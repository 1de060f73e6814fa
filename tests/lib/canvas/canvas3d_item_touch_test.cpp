// Touch on the item: touch points reach the osgGA queue, and one finger's double tap and long
// press become named mouse events. No renderer: events are read back from the queue.
#include "canvas3d_item.h"
#include "gl_test_support.h"
#include "touch_gesture.h"

#include <QHoverEvent>
#include <QTest>
#include <QTouchEvent>
#include <ctime>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using GA = osgGA::GUIEventAdapter;

namespace {

class TouchProbe : public Canvas3DItem
{
public:
    using Canvas3DItem::hoverMoveEvent;
    using Canvas3DItem::touchEvent;

    std::vector<osg::ref_ptr<GA>> takeEvents()
    {
        osgGA::EventQueue::Events events;
        eventQueue()->takeEvents(events);
        std::vector<osg::ref_ptr<GA>> out;
        for (auto& e : events)
            if (auto* ga = e->asGUIEventAdapter())
                out.push_back(ga);
        return out;
    }

    void touch(QList<QTouchEvent::TouchPoint> points)
    {
        Qt::TouchPointStates states;
        for (const auto& p : points)
            states |= p.state();
        QTouchEvent event(QEvent::TouchUpdate, nullptr, Qt::NoModifier, states, points);
        touchEvent(&event);
    }
    void touch(Qt::TouchPointState state, QPointF pos, int id = 0)
    {
        touch({point(state, pos, id)});
    }
    static QTouchEvent::TouchPoint point(Qt::TouchPointState state, QPointF pos, int id)
    {
        QTouchEvent::TouchPoint p(id);
        p.setState(state);
        p.setPos(pos);
        return p;
    }
};

// Synthetic events the recogniser made, by button and type.
std::vector<osg::ref_ptr<GA>> synthetic(const std::vector<osg::ref_ptr<GA>>& events)
{
    std::vector<osg::ref_ptr<GA>> out;
    for (const auto& e : events)
        if (e->getName() == g_addtionalTouchName)
            out.push_back(e);
    return out;
}

// Longer than the 500 ms long press timer, with room for a loaded machine.
constexpr int kPastLongPressMs = 800;

void burnProcessorTime(std::clock_t ticks)
{
    const std::clock_t start = std::clock();
    volatile unsigned long sink = 0;
    while (std::clock() - start <= ticks)
        sink = sink + 1;
}

} // namespace

TEST(ItemTouchTest, TouchPointsArriveAsMoveEventsWithTheirPhase)
{
    TouchProbe item;
    item.touch(Qt::TouchPointPressed, QPointF(30, 40));
    item.touch(Qt::TouchPointMoved, QPointF(31, 40));
    item.touch({TouchProbe::point(Qt::TouchPointStationary, QPointF(31, 40), 0),
                TouchProbe::point(Qt::TouchPointPressed, QPointF(80, 90), 1)});
    item.touch({TouchProbe::point(Qt::TouchPointReleased, QPointF(31, 40), 0),
                TouchProbe::point(Qt::TouchPointReleased, QPointF(80, 90), 1)});

    auto events = item.takeEvents();
    ASSERT_EQ(events.size(), 4u);
    for (const auto& e : events)
        EXPECT_EQ(e->getEventType(), GA::MOVE);
    ASSERT_TRUE(events[0]->isMultiTouchEvent());
    EXPECT_EQ(events[0]->getTouchData()->get(0).phase, GA::TOUCH_BEGAN);
    EXPECT_EQ(events[0]->getTouchData()->get(0).x, 30.0f);
    EXPECT_EQ(events[1]->getTouchData()->get(0).phase, GA::TOUCH_MOVED);
    ASSERT_EQ(events[2]->getTouchData()->getNumTouchPoints(), 2u);
    EXPECT_EQ(events[2]->getTouchData()->get(0).phase, GA::TOUCH_STATIONERY);
    EXPECT_EQ(events[2]->getTouchData()->get(1).phase, GA::TOUCH_BEGAN);
    EXPECT_EQ(events[2]->getTouchData()->get(1).id, 1u);
    ASSERT_EQ(events[3]->getTouchData()->getNumTouchPoints(), 2u);
    EXPECT_EQ(events[3]->getTouchData()->get(1).phase, GA::TOUCH_ENDED);
    // Every touch event asks for a frame.
    EXPECT_TRUE(OrvaneTest::waitUntil([&] { return item.remainingFrameBudget() > 0; }, 500));
}

TEST(ItemTouchTest, SecondTapInsideTheLimitsGivesANamedLeftDoubleClick)
{
    TouchProbe item;
    // The three calls take far less than 300 ticks of processor time.
    item.touch(Qt::TouchPointPressed, QPointF(30, 40));
    item.touch(Qt::TouchPointReleased, QPointF(30, 40));
    item.touch(Qt::TouchPointPressed, QPointF(49, 21));

    auto named = synthetic(item.takeEvents());
    ASSERT_EQ(named.size(), 1u);
    EXPECT_EQ(named[0]->getEventType(), GA::DOUBLECLICK);
    EXPECT_EQ(named[0]->getButton(), GA::LEFT_MOUSE_BUTTON);
    // Item units of the second press, unscaled.
    EXPECT_EQ(named[0]->getX(), 49.0f);
    EXPECT_EQ(named[0]->getY(), 21.0f);
    EXPECT_TRUE(item.touchTranslator()->currentTouch().second.secondTap);
    EXPECT_TRUE(item.touchTranslator()->currentTouch().second.doubleClicked);
}

TEST(ItemTouchTest, SecondTapTooFarOrTooLateGivesNoDoubleClick)
{
    TouchProbe item;
    item.touch(Qt::TouchPointPressed, QPointF(30, 40));
    item.touch(Qt::TouchPointReleased, QPointF(30, 40));
    // 2 x 10 units is already outside: the limit is strictly below.
    item.touch(Qt::TouchPointPressed, QPointF(50, 40));
    item.touch(Qt::TouchPointReleased, QPointF(50, 40));
    EXPECT_TRUE(synthetic(item.takeEvents()).empty());
    EXPECT_TRUE(item.touchTranslator()->currentTouch().second.secondTap);

    TouchProbe late;
    late.touch(Qt::TouchPointPressed, QPointF(30, 40));
    late.touch(Qt::TouchPointReleased, QPointF(30, 40));
    // The limit counts processor time in clock() units, not wall time.
    burnProcessorTime(TouchInfo::s_singleClickedTime);
    late.touch(Qt::TouchPointPressed, QPointF(30, 40));
    EXPECT_TRUE(synthetic(late.takeEvents()).empty());
}

TEST(ItemTouchTest, LongPressGivesANamedRightPressAndDoubleClick)
{
    OrvaneTest::LogCapture log;
    TouchProbe item;
    item.touch(Qt::TouchPointPressed, QPointF(30, 40));
    item.takeEvents();
    const int maskBefore = item.eventQueue()->getCurrentEventState()->getButtonMask();
    QTest::qWait(kPastLongPressMs);

    auto named = synthetic(item.takeEvents());
    ASSERT_EQ(named.size(), 2u);
    EXPECT_EQ(named[0]->getEventType(), GA::PUSH);
    EXPECT_EQ(named[0]->getButton(), GA::RIGHT_MOUSE_BUTTON);
    EXPECT_EQ(named[0]->getX(), 30.0f);
    EXPECT_EQ(named[1]->getEventType(), GA::DOUBLECLICK);
    EXPECT_EQ(named[1]->getButton(), GA::RIGHT_MOUSE_BUTTON);
    // The synthetic press leaves no right button held.
    EXPECT_EQ(item.eventQueue()->getCurrentEventState()->getButtonMask(), maskBefore);
    EXPECT_EQ(log.count("----Long Pressed"), 1);
    item.touch(Qt::TouchPointReleased, QPointF(30, 40));
}

TEST(ItemTouchTest, MovingRightCancelsTheLongPressButMovingLeftDoesNot)
{
    TouchProbe right;
    right.touch(Qt::TouchPointPressed, QPointF(30, 40));
    right.touch(Qt::TouchPointMoved, QPointF(41, 40));
    TouchProbe left;
    left.touch(Qt::TouchPointPressed, QPointF(130, 40));
    left.touch(Qt::TouchPointMoved, QPointF(30, 40));
    QTest::qWait(kPastLongPressMs);

    EXPECT_TRUE(synthetic(right.takeEvents()).empty());
    EXPECT_TRUE(right.touchTranslator()->currentTouch().second.moved);
    // Only motion to the right or downwards counts, as the recogniser has always done.
    EXPECT_EQ(synthetic(left.takeEvents()).size(), 2u);
    EXPECT_FALSE(left.touchTranslator()->currentTouch().second.moved);
}

TEST(ItemTouchTest, TwoFingersInOneEventStartNoGesture)
{
    TouchProbe item;
    item.touch({TouchProbe::point(Qt::TouchPointPressed, QPointF(30, 40), 0),
                TouchProbe::point(Qt::TouchPointPressed, QPointF(60, 40), 1)});
    EXPECT_EQ(item.touchTranslator()->currentTouch().second.id, -1);
    EXPECT_FALSE(item.touchTranslator()->isLongPressTimerActive());
    QTest::qWait(kPastLongPressMs);
    item.touch({TouchProbe::point(Qt::TouchPointReleased, QPointF(30, 40), 0),
                TouchProbe::point(Qt::TouchPointReleased, QPointF(60, 40), 1)});
    // Nor does the two-finger tap count as the first of a double tap.
    item.touch(Qt::TouchPointPressed, QPointF(30, 40));
    EXPECT_TRUE(synthetic(item.takeEvents()).empty());
    item.touch(Qt::TouchPointReleased, QPointF(30, 40));
}

TEST(ItemTouchTest, HoverIsSkippedOnceWhileAFingerIsDown)
{
    TouchProbe item;
    item.touch(Qt::TouchPointPressed, QPointF(30, 40));
    item.takeEvents();
    QHoverEvent first(QEvent::HoverMove, QPointF(31, 40), QPointF(30, 40));
    item.hoverMoveEvent(&first);
    EXPECT_TRUE(item.takeEvents().empty());
    QHoverEvent second(QEvent::HoverMove, QPointF(32, 40), QPointF(31, 40));
    item.hoverMoveEvent(&second);
    EXPECT_FALSE(item.takeEvents().empty());

    item.touch(Qt::TouchPointReleased, QPointF(32, 40));
    item.takeEvents();
    QHoverEvent after(QEvent::HoverMove, QPointF(33, 40), QPointF(32, 40));
    item.hoverMoveEvent(&after);
    EXPECT_FALSE(item.takeEvents().empty());
}
