// The hidden key sequence typed on a live canvas item: it opens and closes the tuning panel.
#include "debug_handler.h"
#include "gl_test_support.h"
#include "orvane_operations.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QWindow>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

// Presses and releases each key on the item, as QtQuick delivers them with focus on it.
void type(CanvasWindow& w, const QList<Qt::Key>& keys,
          Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    for (Qt::Key key : keys) {
        QKeyEvent press(QEvent::KeyPress, key, modifiers);
        QCoreApplication::sendEvent(w.item(), &press);
        QKeyEvent release(QEvent::KeyRelease, key, modifiers);
        QCoreApplication::sendEvent(w.item(), &release);
    }
}

const QList<Qt::Key> kSequence = {Qt::Key_O, Qt::Key_R, Qt::Key_V, Qt::Key_D, Qt::Key_B, Qt::Key_G};

struct DebugCanvas {
    CanvasWindow w;
    osg::ref_ptr<RenderDebug::DebugHandler> handler = new RenderDebug::DebugHandler;

    bool start() { return w.show() && w.run(new AddEventHandler(handler.get())); }
    // Waits until every key typed so far has been handled: a marker operation runs after the
    // event traversal of the frame that the keys asked for.
    bool sync() { return w.run(nullptr); }
};

} // namespace

TEST(DebugHandlerTest, TheSequenceTypedOnTheItemOpensAndThenClosesThePanel)
{
    OrvaneTest::LogCapture log;
    DebugCanvas c;
    ASSERT_TRUE(c.start());

    type(c.w, kSequence);
    ASSERT_TRUE(c.sync());
    EXPECT_TRUE(c.handler->isPanelOpen());
    EXPECT_TRUE(log.contains("enable render debug"));
    // The panel's owner runs on the application's thread, where a window is open.
    EXPECT_TRUE(waitUntil([&] { return log.contains("enableDebug implemantation"); }));
    EXPECT_FALSE(log.contains("can't find any window"));

    type(c.w, kSequence);
    ASSERT_TRUE(c.sync());
    EXPECT_FALSE(c.handler->isPanelOpen());
    EXPECT_TRUE(log.contains("disable render debug"));
}

TEST(DebugHandlerTest, ShiftHeldOrNotTheSequenceMatches)
{
    DebugCanvas c;
    ASSERT_TRUE(c.start());
    QList<Qt::Key> withShift;
    for (Qt::Key key : kSequence)
        withShift << Qt::Key_Shift << key;
    type(c.w, withShift, Qt::ShiftModifier);
    ASSERT_TRUE(c.sync());
    EXPECT_TRUE(c.handler->isPanelOpen());
}

TEST(DebugHandlerTest, AWrongTryOfTheRightLengthIsForgottenAndANewTryStartsAtOnce)
{
    DebugCanvas c;
    ASSERT_TRUE(c.start());
    type(c.w, {Qt::Key_O, Qt::Key_R, Qt::Key_V, Qt::Key_D, Qt::Key_B, Qt::Key_X});
    ASSERT_TRUE(c.sync());
    EXPECT_FALSE(c.handler->isPanelOpen());
    type(c.w, kSequence);
    ASSERT_TRUE(c.sync());
    EXPECT_TRUE(c.handler->isPanelOpen());
    // A repeated key counts once, so a stutter doesn't spoil the sequence.
    type(c.w, {Qt::Key_O, Qt::Key_O, Qt::Key_R, Qt::Key_V, Qt::Key_D, Qt::Key_B, Qt::Key_G});
    ASSERT_TRUE(c.sync());
    EXPECT_FALSE(c.handler->isPanelOpen());
}

TEST(DebugHandlerTest, ThePanelGoesWithTheCanvasThatOpenedIt)
{
    const int before = QGuiApplication::allWindows().size();
    {
        OrvaneTest::LogCapture log;
        DebugCanvas c;
        ASSERT_TRUE(c.start());
        const int withCanvas = QGuiApplication::allWindows().size();
        type(c.w, kSequence);
        ASSERT_TRUE(c.sync());
        ASSERT_TRUE(waitUntil([&] { return QGuiApplication::allWindows().size() > withCanvas; }))
            << "the panel never opened";
    }
    // The handler went with the canvas's view on the render thread; the panel's window follows
    // on the application's thread.
    EXPECT_TRUE(waitUntil([&] { return QGuiApplication::allWindows().size() == before; }));
}
