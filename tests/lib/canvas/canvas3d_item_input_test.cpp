// Qt input reaching the item becomes osgGA events on its queue, read back without a renderer.
#include "canvas3d_item.h"
#include "gl_test_support.h"

#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using GA = osgGA::GUIEventAdapter;

namespace {

class InputProbe : public Canvas3DItem
{
public:
    using Canvas3DItem::event;
    using Canvas3DItem::hoverMoveEvent;
    using Canvas3DItem::keyPressEvent;
    using Canvas3DItem::keyReleaseEvent;
    using Canvas3DItem::mouseDoubleClickEvent;
    using Canvas3DItem::mouseMoveEvent;
    using Canvas3DItem::mousePressEvent;
    using Canvas3DItem::mouseReleaseEvent;
    using Canvas3DItem::wheelEvent;

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
};

QMouseEvent mouse(QEvent::Type type, QPointF pos, Qt::MouseButton button,
                  Qt::KeyboardModifiers mods = Qt::NoModifier)
{
    return QMouseEvent(type, pos, button, button, mods);
}

QWheelEvent wheel(QPoint angle, Qt::MouseEventSource source)
{
    return QWheelEvent(QPointF(5, 5), QPointF(5, 5), QPoint(), angle, Qt::NoButton, Qt::NoModifier,
                       Qt::NoScrollPhase, false, source);
}

} // namespace

TEST(ItemInputTest, MouseEventsCarryPositionButtonAndModifiers)
{
    InputProbe item;
    auto press = mouse(QEvent::MouseButtonPress, QPointF(10.7, 20.2), Qt::RightButton,
                       Qt::ShiftModifier | Qt::AltModifier);
    item.mousePressEvent(&press);
    auto move = mouse(QEvent::MouseMove, QPointF(12, 22), Qt::NoButton);
    item.mouseMoveEvent(&move);
    auto release = mouse(QEvent::MouseButtonRelease, QPointF(12, 22), Qt::RightButton);
    item.mouseReleaseEvent(&release);
    auto twice = mouse(QEvent::MouseButtonDblClick, QPointF(3, 4), Qt::MiddleButton);
    item.mouseDoubleClickEvent(&twice);

    auto events = item.takeEvents();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0]->getEventType(), GA::PUSH);
    // QMouseEvent::x() rounds to the nearest integer.
    EXPECT_EQ(events[0]->getX(), 11.0f);
    EXPECT_EQ(events[0]->getY(), 20.0f);
    EXPECT_EQ(events[0]->getButton(), GA::RIGHT_MOUSE_BUTTON);
    EXPECT_EQ(events[0]->getModKeyMask(), static_cast<int>(GA::MODKEY_SHIFT | GA::MODKEY_ALT));
    EXPECT_EQ(events[1]->getEventType(), GA::DRAG);
    EXPECT_EQ(events[2]->getEventType(), GA::RELEASE);
    EXPECT_EQ(events[2]->getModKeyMask(), 0);
    EXPECT_EQ(events[3]->getEventType(), GA::DOUBLECLICK);
    EXPECT_EQ(events[3]->getButton(), GA::MIDDLE_MOUSE_BUTTON);
    // Every translated event asks for a frame.
    EXPECT_TRUE(OrvaneTest::waitUntil([&] { return item.remainingFrameBudget() > 0; }, 500));
}

TEST(ItemInputTest, DisabledPressIsIgnoredAndPropagates)
{
    InputProbe item;
    MouseEventControlStruct control;
    control.enablePress = false;
    item.setEnableMouseEvent(control);
    auto press = mouse(QEvent::MouseButtonPress, QPointF(1, 1), Qt::LeftButton);
    press.accept();
    item.mousePressEvent(&press);
    EXPECT_FALSE(press.isAccepted());
    EXPECT_TRUE(item.takeEvents().empty());
}

TEST(ItemInputTest, HoverRepairsALostReleaseAndSkipsStillHovers)
{
    InputProbe item;
    auto press = mouse(QEvent::MouseButtonPress, QPointF(5, 5), Qt::LeftButton);
    item.mousePressEvent(&press);
    item.takeEvents();

    QHoverEvent hover(QEvent::HoverMove, QPointF(40, 30), QPointF(5, 5));
    item.hoverMoveEvent(&hover);
    auto events = item.takeEvents();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0]->getEventType(), GA::RELEASE);
    EXPECT_EQ(events[0]->getButton(), GA::LEFT_MOUSE_BUTTON);
    EXPECT_EQ(events[0]->getX(), 40.0f);
    EXPECT_EQ(events[1]->getEventType(), GA::MOVE);

    QHoverEvent still(QEvent::HoverMove, QPointF(40, 30), QPointF(40, 30));
    item.hoverMoveEvent(&still);
    EXPECT_TRUE(item.takeEvents().empty());
    // A mouse move at the same position is an event all the same.
    auto move = mouse(QEvent::MouseMove, QPointF(40, 30), Qt::NoButton);
    item.mouseMoveEvent(&move);
    EXPECT_EQ(item.takeEvents().size(), 1u);
}

TEST(ItemInputTest, WheelScrollsVerticallyAndHorizontalTrackpadDoesNot)
{
    InputProbe item;
    auto up = wheel(QPoint(0, 120), Qt::MouseEventNotSynthesized);
    item.wheelEvent(&up);
    auto down = wheel(QPoint(0, -120), Qt::MouseEventNotSynthesized);
    item.wheelEvent(&down);
    auto sidewaysPad = wheel(QPoint(60, 0), Qt::MouseEventSynthesizedBySystem);
    item.wheelEvent(&sidewaysPad);
    auto sidewaysWheel = wheel(QPoint(60, 0), Qt::MouseEventNotSynthesized);
    item.wheelEvent(&sidewaysWheel);
    auto none = wheel(QPoint(0, 0), Qt::MouseEventNotSynthesized);
    item.wheelEvent(&none);

    auto events = item.takeEvents();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0]->getEventType(), GA::SCROLL);
    EXPECT_EQ(events[0]->getScrollingMotion(), GA::SCROLL_UP);
    EXPECT_EQ(events[1]->getScrollingMotion(), GA::SCROLL_DOWN);
    EXPECT_EQ(events[2]->getScrollingMotion(), GA::SCROLL_UP);
}

TEST(ItemInputTest, TrackpadZoomNeedsTheAdditionKeyWhenTwoFingerZoomIsOff)
{
    InputProbe item;
    item.setEnable2FingerScrollZoomOnTrackpad(false);
    auto pad = wheel(QPoint(0, 120), Qt::MouseEventSynthesizedBySystem);
    item.wheelEvent(&pad);
    EXPECT_TRUE(item.takeEvents().empty());
    auto realWheel = wheel(QPoint(0, 120), Qt::MouseEventNotSynthesized);
    item.wheelEvent(&realWheel);
    EXPECT_EQ(item.takeEvents().size(), 1u);

    QKeyEvent alt(QEvent::KeyPress, Qt::Key_Alt, Qt::AltModifier);
    item.keyPressEvent(&alt);
    item.takeEvents();
    item.wheelEvent(&pad);
    EXPECT_EQ(item.takeEvents().size(), 1u);
    QNativeGestureEvent pinch(Qt::ZoomNativeGesture, nullptr, QPointF(1, 1), QPointF(1, 1),
                              QPointF(1, 1), 0.5, 0, 0);
    item.event(&pinch);
    auto events = item.takeEvents();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]->getScrollingMotion(), GA::SCROLL_UP);
}

TEST(ItemInputTest, KeysArriveWithTheTranslatedCodes)
{
    struct Case {
        Qt::Key key;
        Qt::KeyboardModifiers mods;
        int expected;
    };
    const Case cases[] = {
        {Qt::Key_Q, Qt::NoModifier, 0x71},       {Qt::Key_Q, Qt::ShiftModifier, 0x71},
        {Qt::Key_A, Qt::NoModifier, 0x41},       {Qt::Key_Space, Qt::NoModifier, 0x20},
        {Qt::Key_1, Qt::NoModifier, '1'},        {Qt::Key_Delete, Qt::NoModifier, 0xFFFF},
        {Qt::Key_Shift, Qt::NoModifier, 0xFFE1}, {Qt::Key_Control, Qt::NoModifier, 0xFFE3},
        {Qt::Key_Alt, Qt::NoModifier, 0xFFE9},   {Qt::Key_Escape, Qt::NoModifier, Qt::Key_Escape}};
    InputProbe item;
    item.setVisible(true);
    for (const Case& c : cases) {
        QKeyEvent press(QEvent::KeyPress, c.key, c.mods);
        item.keyPressEvent(&press);
        QKeyEvent release(QEvent::KeyRelease, c.key, c.mods);
        item.keyReleaseEvent(&release);
        auto events = item.takeEvents();
        ASSERT_EQ(events.size(), 2u);
        EXPECT_EQ(events[0]->getEventType(), GA::KEYDOWN);
        EXPECT_EQ(events[0]->getKey(), c.expected) << "Qt key " << c.key;
        EXPECT_EQ(events[1]->getEventType(), GA::KEYUP);
    }
    item.setVisible(false);
    QKeyEvent hidden(QEvent::KeyPress, Qt::Key_Q, Qt::NoModifier);
    item.keyPressEvent(&hidden);
    EXPECT_TRUE(item.takeEvents().empty());
}
