// The offscreen canvas: a scene with no window, rendered on its own thread and handed over frame
// by frame as images.
#include "canvas3d_offscreen.h"
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "offscreen_test_scene.h"
#include "orvane_operations.h"
#include "touch_gesture.h"

#include <QTest>
#include <gtest/gtest.h>
#include <thread>

using namespace Vorna::Orvane;
using OrvaneTest::FrameSink;
using OrvaneTest::pixelOf;
using OrvaneTest::waitUntil;
using GA = osgGA::GUIEventAdapter;

namespace
{

constexpr int kWidth = 160;
constexpr int kHeight = 120;
// 8-bit framebuffer round trip of a colour given as floats: one step.
constexpr int kColorTolerance = 2;
const QColor kClear(30, 60, 200);
const QColor kQuad(230, 40, 20);
const QColor kPartner(20, 210, 90);

// Waits until no frame has come for `quietMs`.
bool waitIdle(const FrameSink& sink, int quietMs = 300)
{
    return waitUntil(
        [&] {
            const int before = sink.count();
            QTest::qWait(quietMs);
            return sink.count() == before;
        },
        10000);
}

// Clear colour and two quads side by side, framed by home: the scene's bounds are centred.
void addScene(CanvasBase* canvas, std::atomic<bool>* ran = nullptr)
{
    canvas->addOperation(
        new ClearColorOperation(osg::Vec4f(kClear.redF(), kClear.greenF(), kClear.blueF(), 1.0f)));
    canvas->addOperation(new LambdaOperation([ran](RenderInfo& info) {
        osg::Group* model = ViewMgr::getModel(info.mainView());
        model->addChild(
            OrvaneTest::makeQuad(-1.0f, -1.0f, 0.0f, 1.0f,
                                 osg::Vec4f(kQuad.redF(), kQuad.greenF(), kQuad.blueF(), 1.0f)));
        model->addChild(OrvaneTest::makeQuad(
            0.0f, -1.0f, 1.0f, 1.0f,
            osg::Vec4f(kPartner.redF(), kPartner.greenF(), kPartner.blueF(), 1.0f)));
        if (ran)
            *ran = true;
    }));
    canvas->addOperation(new HomeOperation);
}

// Records what the event traversal hands to handlers of the main view.
class EventRecorder : public osgGA::GUIEventHandler
{
public:
    bool handle(const GA& ea, osgGA::GUIActionAdapter&) override
    {
        if (ea.getEventType() == GA::FRAME)
            return false;
        QMutexLocker lock(&m_mutex);
        m_events.push_back(new GA(ea));
        return false;
    }
    std::vector<osg::ref_ptr<GA>> events() const
    {
        QMutexLocker lock(&m_mutex);
        return m_events;
    }

private:
    mutable QMutex m_mutex;
    std::vector<osg::ref_ptr<GA>> m_events;
};

} // namespace

TEST(OffscreenCanvasTest, RendersASceneAddedThroughOperations)
{
    OrvaneTest::LogCapture log;
    FrameSink sink;
    Canvas3DOffscreenSurface surface(kWidth, kHeight, sink.callback());
    CanvasBase* canvas = surface.getCanvasBase();
    std::atomic<bool> ran{false};
    addScene(canvas, &ran);
    ASSERT_TRUE(waitUntil([&] { return canvas->isRendererCreated(); }));
    ASSERT_TRUE(waitUntil([&] { return ran.load(); }));
    ASSERT_TRUE(waitIdle(sink));

    osg::ref_ptr<osg::Image> image = sink.last();
    ASSERT_TRUE(image.valid());
    EXPECT_EQ(image->s(), kWidth);
    EXPECT_EQ(image->t(), kHeight);
    EXPECT_EQ(image->getPixelFormat(), static_cast<GLenum>(GL_RGB));
    // Home leaves the quads about 35 pixels a unit wide around the centre.
    const QColor left = pixelOf(image.get(), kWidth / 2 - 17, kHeight / 2);
    const QColor right = pixelOf(image.get(), kWidth / 2 + 17, kHeight / 2);
    const QColor corner = pixelOf(image.get(), 2, 2);
    EXPECT_TRUE(OrvaneTest::near(left, kQuad, kColorTolerance)) << qPrintable(left.name());
    EXPECT_TRUE(OrvaneTest::near(right, kPartner, kColorTolerance)) << qPrintable(right.name());
    EXPECT_TRUE(OrvaneTest::near(corner, kClear, kColorTolerance)) << qPrintable(corner.name());

    EXPECT_NE(canvas->mainView(), nullptr);
    EXPECT_EQ(canvas->width(), kWidth);
    EXPECT_EQ(canvas->height(), kHeight);
    EXPECT_EQ(canvas->devicePixelRatio(), 1.0);
    EXPECT_EQ(canvas->getTriggerUpdateType(), -1);
    EXPECT_FALSE(surface.renderer()->version().isNull());
    EXPECT_TRUE(log.contains(">>> opengl version:"));
    EXPECT_TRUE(log.contains(">>> vendor:"));
}

TEST(OffscreenCanvasTest, ResizeChangesTheImageSizeAndAZeroSideIsIgnored)
{
    FrameSink sink;
    Canvas3DOffscreenSurface surface(kWidth, kHeight, sink.callback());
    CanvasBase* canvas = surface.getCanvasBase();
    addScene(canvas);
    ASSERT_TRUE(waitUntil([&] { return canvas->isRendererCreated(); }));

    QResizeEvent grow(QSize(200, 100), QSize(kWidth, kHeight));
    surface.resizeEvent(&grow);
    ASSERT_TRUE(waitUntil([&] {
        osg::ref_ptr<osg::Image> image = sink.last();
        return image && image->s() == 200 && image->t() == 100;
    }));
    EXPECT_EQ(canvas->width(), 200);
    ASSERT_TRUE(waitIdle(sink));
    // The new framebuffer is drawn whole: the clear colour reaches the far corner.
    osg::ref_ptr<osg::Image> image = sink.last();
    EXPECT_TRUE(OrvaneTest::near(pixelOf(image.get(), 198, 98), kClear, kColorTolerance));

    QResizeEvent flat(QSize(0, 80), QSize(200, 100));
    surface.resizeEvent(&flat);
    QMetaObject::invokeMethod(surface.renderer(), "resize", Qt::QueuedConnection, Q_ARG(int, 150),
                              Q_ARG(int, 0));
    const int before = sink.count();
    canvas->frame();
    ASSERT_TRUE(waitUntil([&] { return sink.count() > before; }));
    image = sink.last();
    EXPECT_EQ(image->s(), 200);
    EXPECT_EQ(image->t(), 100);
    EXPECT_EQ(canvas->height(), 100);
}

TEST(OffscreenCanvasTest, IdleRendersNothingAndFramingZeroDrawsExactlyOneMoreFrame)
{
    FrameSink sink;
    Canvas3DOffscreenSurface surface(kWidth, kHeight, sink.callback());
    CanvasBase* canvas = surface.getCanvasBase();
    ASSERT_TRUE(waitUntil([&] { return canvas->isRendererCreated(); }));
    ASSERT_TRUE(waitIdle(sink));
    const int idle = sink.count();
    EXPECT_GE(idle, 1) << "initialisation renders one frame";

    canvas->framing(0.0f);
    ASSERT_TRUE(waitUntil([&] { return sink.count() > idle; }));
    QTest::qWait(300);
    EXPECT_EQ(sink.count(), idle + 1);

    canvas->frame();
    ASSERT_TRUE(waitUntil([&] { return sink.count() > idle + 1; }));
    QTest::qWait(300);
    EXPECT_EQ(sink.count(), idle + 2);
}

TEST(OffscreenCanvasTest, OperationFromAWorkerThreadRunsOnTheCanvasThread)
{
    FrameSink sink;
    Canvas3DOffscreenSurface surface(kWidth, kHeight, sink.callback());
    osg::ref_ptr<CanvasBase> canvas = surface.getCanvasBase();
    ASSERT_TRUE(waitUntil([&] { return canvas->isRendererCreated(); }));
    std::atomic<bool> ran{false};
    std::atomic<bool> onGuiThread{true};
    QThread* gui = QThread::currentThread();
    std::thread worker([&] {
        canvas->addOperation(new LambdaOperation([&](RenderInfo&) {
            onGuiThread = QThread::currentThread() == gui;
            ran = true;
        }));
    });
    worker.join();
    ASSERT_TRUE(waitUntil([&] { return ran.load(); }));
    EXPECT_FALSE(onGuiThread.load());
}

TEST(OffscreenCanvasTest, InputOnTheSurfaceReachesHandlersAsOnTheItem)
{
    FrameSink sink;
    Canvas3DOffscreenSurface surface(kWidth, kHeight, sink.callback());
    CanvasBase* canvas = surface.getCanvasBase();
    osg::ref_ptr<EventRecorder> recorder = new EventRecorder;
    canvas->addOperation(new AddEventHandler(recorder.get()));
    ASSERT_TRUE(waitUntil([&] { return canvas->isRendererCreated(); }));

    QMouseEvent press(QEvent::MouseButtonPress, QPointF(40, 30), Qt::RightButton, Qt::RightButton,
                      Qt::ControlModifier);
    surface.mousePressEvent(&press);
    QKeyEvent key(QEvent::KeyPress, Qt::Key_Q, Qt::NoModifier);
    surface.keyPressEvent(&key);
    // A double tap, its second tap named as a synthetic left double click.
    auto tap = [&](Qt::TouchPointState state) {
        QTouchEvent::TouchPoint p(0);
        p.setState(state);
        p.setPos(QPointF(70, 50));
        QTouchEvent event(QEvent::TouchUpdate, nullptr, Qt::NoModifier, state, {p});
        surface.touchEvent(&event);
    };
    tap(Qt::TouchPointPressed);
    tap(Qt::TouchPointReleased);
    tap(Qt::TouchPointPressed);

    std::vector<osg::ref_ptr<GA>> events;
    ASSERT_TRUE(waitUntil([&] {
        events = recorder->events();
        return events.size() >= 5;
    }));
    EXPECT_EQ(events[0]->getEventType(), GA::PUSH);
    EXPECT_EQ(events[0]->getButton(), GA::RIGHT_MOUSE_BUTTON);
    EXPECT_EQ(events[0]->getX(), 40.0f);
    // The viewer hands handlers y growing upwards, over the input range 0..height-1.
    EXPECT_EQ(events[0]->getY(), static_cast<float>(kHeight - 1 - 30));
    EXPECT_EQ(events[0]->getModKeyMask(), static_cast<int>(GA::MODKEY_CTRL));
    EXPECT_EQ(events[1]->getEventType(), GA::KEYDOWN);
    EXPECT_EQ(events[1]->getKey(), 'q');
    EXPECT_EQ(events[2]->getEventType(), GA::MOVE);
    EXPECT_TRUE(events[2]->isMultiTouchEvent());
    bool doubleTap = false;
    for (const auto& e : events)
        doubleTap |= e->getEventType() == GA::DOUBLECLICK && e->getName() == g_addtionalTouchName;
    EXPECT_TRUE(doubleTap);
}

TEST(OffscreenCanvasTest, CanvasOutlivesItsSurfaceAsAStub)
{
    osg::ref_ptr<CanvasBase> canvas;
    {
        FrameSink sink;
        Canvas3DOffscreenSurface surface(kWidth, kHeight, sink.callback());
        canvas = surface.getCanvasBase();
        ASSERT_TRUE(waitUntil([&] { return canvas->isRendererCreated(); }));
        // Frames still wanted when the surface goes must not keep anything alive.
        canvas->framing(5.0f);
    }
    canvas->addOperation(new LambdaOperation([](RenderInfo&) { FAIL() << "ran without canvas"; }));
    canvas->frame();
    canvas->setMaxFrameRate(30.0f);
    EXPECT_EQ(canvas->width(), 1.0);
    EXPECT_EQ(canvas->height(), 1.0);
    QTest::qWait(100);
}
