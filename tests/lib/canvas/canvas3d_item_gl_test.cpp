// The on-screen canvas in a real QQuickWindow under Xvfb: pixels, operations, pacing, blocking.
#include "canvas3d_item.h"
#include "canvas3d_item_canvas.h"
#include "debug_handler.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "render_info.h"

#include <QSignalSpy>
#include <QTest>
#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

// 8-bit framebuffer round trip of a colour given as floats: one step.
constexpr int kColorTolerance = 2;

QColor centreOfCanvas(const QImage& image)
{
    return image.pixelColor(CanvasWindow::kCanvasWidth / 2, CanvasWindow::kHeight / 2);
}

bool hasDebugHandler(osgViewer::View* view)
{
    for (const auto& handler : view->getEventHandlers())
        if (dynamic_cast<RenderDebug::DebugHandler*>(handler.get()))
            return true;
    return false;
}

// What operations write on the render thread while the test polls it: under one lock.
template <typename T> class Shared
{
public:
    template <typename F> auto with(F f)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return f(m_value);
    }
    T value()
    {
        return with([](T& v) { return v; });
    }

private:
    std::mutex m_mutex;
    T m_value{};
};

} // namespace

TEST(Canvas3DItemTest, ClearColourShowsAndQtQuickSiblingStillDraws)
{
    CanvasWindow w;
    const QColor clear(200, 50, 30);
    w.item()->setClearColor(clear);
    ASSERT_TRUE(w.show());
    QImage image;
    EXPECT_TRUE(waitUntil([&] {
        image = w.grab();
        return OrvaneTest::near(centreOfCanvas(image), clear, kColorTolerance);
    })) << qPrintable(centreOfCanvas(image).name());
    // Corners of the canvas too: the scene fills the whole item.
    EXPECT_TRUE(OrvaneTest::near(image.pixelColor(1, 1), clear, kColorTolerance));
    EXPECT_TRUE(OrvaneTest::near(
        image.pixelColor(CanvasWindow::kCanvasWidth - 2, CanvasWindow::kHeight - 2), clear,
        kColorTolerance));
    const QColor sibling =
        image.pixelColor(CanvasWindow::kCanvasWidth + 30, CanvasWindow::kHeight / 2);
    EXPECT_TRUE(OrvaneTest::near(sibling, CanvasWindow::kSiblingColor, kColorTolerance))
        << qPrintable(sibling.name());

    // A later change reaches the pixels through the pacing alone.
    const QColor second(10, 90, 220);
    w.item()->setClearColor(second);
    EXPECT_TRUE(waitUntil(
        [&] { return OrvaneTest::near(centreOfCanvas(w.grab()), second, kColorTolerance); }));
}

TEST(Canvas3DItemTest, OperationsAddedBeforeTheRendererRunInTheFirstFrameInOrder)
{
    OrvaneTest::LogCapture log;
    CanvasWindow w;
    std::vector<int> order;
    bool debugHandlerAlreadyThere = true;
    w.item()->addOperation(new LambdaOperation([&](RenderInfo& info) {
        order.push_back(1);
        debugHandlerAlreadyThere = hasDebugHandler(info.mainView());
    }));
    w.item()->getCanvasBase()->addOperation(
        new LambdaOperation([&](RenderInfo&) { order.push_back(2); }));
    ASSERT_TRUE(w.show());
    ASSERT_TRUE(waitUntil([&] { return order.size() == 2; }));
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    EXPECT_FALSE(debugHandlerAlreadyThere);
    EXPECT_TRUE(waitUntil([&] { return hasDebugHandler(w.item()->mainView()); }));
    EXPECT_TRUE(log.contains("renderer created in createRenderer"));
    EXPECT_TRUE(log.contains("opengl version:"));
    EXPECT_FALSE(w.item()->version().isNull());
    EXPECT_FALSE(w.item()->vendor().isEmpty());
}

TEST(Canvas3DItemTest, OperationFromAWorkerThreadReachesAnIdleCanvas)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    // Let the start-up budget run out so that nothing but the new operation asks for a frame.
    ASSERT_TRUE(waitUntil([&] { return w.item()->remainingFrameBudget() == 0; }));
    QTest::qWait(200);

    std::atomic<bool> ran{false};
    osg::ref_ptr<CanvasBase> canvas = w.item()->getCanvasBase();
    std::thread worker(
        [&] { canvas->addOperation(new LambdaOperation([&](RenderInfo&) { ran = true; })); });
    worker.join();
    EXPECT_TRUE(waitUntil([&] { return ran.load(); }));
}

TEST(Canvas3DItemTest, AnOperationAddingToItsOwnCanvasRunsTheNewOneNextFrame)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    // The queue is locked while it runs: adding straight to it from inside would never return.
    Shared<std::vector<int>> order;
    const auto push = [&](int n) { order.with([n](std::vector<int>& o) { o.push_back(n); }); };
    w.item()->getCanvasBase()->addOperation(new LambdaOperation([&](RenderInfo& info) {
        push(1);
        info.canvas->addOperation(new LambdaOperation([&](RenderInfo&) { push(3); }));
        push(2);
    }));
    EXPECT_TRUE(waitUntil([&] { return order.value().size() == 3; }));
    EXPECT_EQ(order.value(), (std::vector<int>{1, 2, 3}));
}

TEST(Canvas3DItemTest, AddOperationsWrapsThemInOneMultiOperation)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    Shared<std::vector<int>> order;
    const auto push = [&](int n) { order.with([n](std::vector<int>& o) { o.push_back(n); }); };
    std::vector<osg::ref_ptr<osg::Operation>> ops{
        new LambdaOperation([&](RenderInfo&) { push(1); }), nullptr,
        new LambdaOperation([&](RenderInfo&) { push(3); })};
    w.item()->getCanvasBase()->addOperations(ops);
    EXPECT_TRUE(waitUntil([&] { return order.value().size() == 2; }));
    EXPECT_EQ(order.value(), (std::vector<int>{1, 3}));

    // An empty vector still goes in as one MultiOperation and asks for a frame.
    std::vector<osg::ref_ptr<osg::Operation>> none;
    w.item()->getCanvasBase()->setUpdateBlocked(true);
    const size_t before = w.item()->operationQueue()->getNumOperationsInQueue();
    w.item()->getCanvasBase()->addOperations(none);
    EXPECT_EQ(w.item()->operationQueue()->getNumOperationsInQueue(), before + 1);
    w.item()->getCanvasBase()->setUpdateBlocked(false);
}

TEST(Canvas3DItemTest, IdleCanvasRendersNoSceneFrameAndFrameWakesIt)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    w.installFrameCounter();
    ASSERT_TRUE(waitUntil([&] { return w.sceneFrames() > 0; }));
    ASSERT_TRUE(waitUntil([&] { return w.item()->remainingFrameBudget() == 0; }));
    QTest::qWait(100);

    const int idleStart = w.sceneFrames();
    QTest::qWait(2000);
    EXPECT_EQ(w.sceneFrames(), idleStart) << "scene frames rendered while idle";

    w.item()->frame();
    EXPECT_TRUE(waitUntil([&] { return w.sceneFrames() > idleStart; }));
    ASSERT_TRUE(waitUntil([&] { return w.item()->remainingFrameBudget() == 0; }));

    // framing(0) still arms one frame period.
    const int beforeFraming = w.sceneFrames();
    w.item()->framing(0.0f);
    EXPECT_GT(w.item()->remainingFrameBudget(), 0);
    EXPECT_TRUE(waitUntil([&] { return w.sceneFrames() > beforeFraming; }));
}

TEST(Canvas3DItemTest, FramingKeepsFramesComingForItsDuration)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    w.installFrameCounter();
    ASSERT_TRUE(waitUntil([&] { return w.item()->remainingFrameBudget() == 0; }));
    const int start = w.sceneFrames();
    w.item()->framing(0.5f);
    QTest::qWait(250);
    const int midway = w.sceneFrames();
    EXPECT_GT(midway, start + 1);
    ASSERT_TRUE(waitUntil([&] { return w.item()->remainingFrameBudget() == 0; }, 3000));
    QTest::qWait(300);
    const int after = w.sceneFrames();
    QTest::qWait(500);
    EXPECT_EQ(w.sceneFrames(), after);
}

// Stands for a scene that takes longer to draw than a frame period, such as a large cloud.
class SlowFrameCallback : public osg::Camera::DrawCallback
{
public:
    explicit SlowFrameCallback(std::shared_ptr<std::atomic<bool>> drawing)
        : m_drawing(std::move(drawing))
    {
    }
    void operator()(osg::RenderInfo&) const override
    {
        *m_drawing = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        *m_drawing = false;
    }

private:
    std::shared_ptr<std::atomic<bool>> m_drawing;
};

// Waits until the window has swapped `count` more times: the pacing ticks that follow.
// The signal comes on the render thread, so a shared atomic counts it, not a QSignalSpy.
bool waitForSwaps(QQuickWindow* window, int count)
{
    auto swaps = std::make_shared<std::atomic<int>>(0);
    const QMetaObject::Connection connection =
        QObject::connect(window, &QQuickWindow::frameSwapped, [swaps] { ++*swaps; });
    const bool swapped = waitUntil([&] { return swaps->load() >= count; });
    QObject::disconnect(connection);
    return swapped;
}

TEST(Canvas3DItemTest, ASlowFrameAskedForOnceIsDrawnOnce)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    w.installFrameCounter();
    auto drawing = std::make_shared<std::atomic<bool>>(false);
    w.item()->addOperation(new LambdaOperation([drawing](RenderInfo& info) {
        info.masterCamera()->addFinalDrawCallback(new SlowFrameCallback(drawing));
    }));
    ASSERT_TRUE(waitUntil([&] { return w.sceneFrames() > 0; }));
    ASSERT_TRUE(waitUntil([&] { return w.item()->remainingFrameBudget() == 0; }));
    ASSERT_TRUE(waitForSwaps(w.window(), 3));

    for (int request = 1; request <= 3; ++request) {
        const int before = w.sceneFrames();
        w.item()->frame();
        ASSERT_TRUE(waitUntil([&] { return w.sceneFrames() > before; }));
        ASSERT_TRUE(waitUntil([&] { return w.item()->remainingFrameBudget() == 0; }));
        ASSERT_TRUE(waitForSwaps(w.window(), 3));
        EXPECT_EQ(w.sceneFrames(), before + 1) << "request " << request;
    }

    // Asked for while the slow frame is being drawn: drawn in the frame after it.
    const int before = w.sceneFrames();
    std::atomic<bool> ran{false};
    w.item()->frame();
    ASSERT_TRUE(waitUntil([&] { return drawing->load(); }));
    w.item()->addOperation(new LambdaOperation([&](RenderInfo&) { ran = true; }));
    EXPECT_TRUE(waitUntil([&] { return ran.load(); }));
    EXPECT_TRUE(waitUntil([&] { return w.sceneFrames() >= before + 2; }));
}

TEST(Canvas3DItemTest, BlockedCanvasQueuesAndUnblockingRunsAllInOneFrame)
{
    OrvaneTest::LogCapture log;
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    w.installFrameCounter();
    ASSERT_TRUE(waitUntil([&] { return w.sceneFrames() > 0; }));
    CanvasBase* canvas = w.item()->getCanvasBase();

    canvas->setUpdateBlocked(true);
    canvas->setUpdateBlocked(true);
    EXPECT_TRUE(canvas->isUpdateBlocked());
    EXPECT_EQ(log.count("setUpdateBlocked:"), 2);

    const int blockedAt = w.sceneFrames();
    Shared<std::vector<int>> framesSeen;
    for (int i = 0; i < 3; ++i)
        canvas->addOperation(new LambdaOperation([&](RenderInfo&) {
            const int frame = w.sceneFrames();
            framesSeen.with([frame](std::vector<int>& seen) { seen.push_back(frame); });
        }));
    QTest::qWait(500);
    EXPECT_TRUE(framesSeen.value().empty());
    EXPECT_EQ(w.sceneFrames(), blockedAt);
    EXPECT_GE(w.item()->operationQueue()->getNumOperationsInQueue(), 3u);

    canvas->setUpdateBlocked(false);
    EXPECT_FALSE(canvas->isUpdateBlocked());
    ASSERT_TRUE(waitUntil([&] { return framesSeen.value().size() == 3; }));
    const std::vector<int> seen = framesSeen.value();
    EXPECT_EQ(seen[0], seen[2]) << "queued operations ran in different frames";
}

TEST(Canvas3DItemTest, UnblockingAloneAsksForOneFrame)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    w.installFrameCounter();
    ASSERT_TRUE(waitUntil([&] { return w.sceneFrames() > 0; }));
    w.item()->setUpdateBlocked(true);
    ASSERT_TRUE(waitUntil([&] { return w.item()->remainingFrameBudget() == 0; }));
    QTest::qWait(100);
    const int before = w.sceneFrames();
    w.item()->setUpdateBlocked(false);
    EXPECT_TRUE(waitUntil([&] { return w.sceneFrames() > before; }));
}

TEST(Canvas3DItemTest, CaptureOperationCopiesThePreviousFrame)
{
    CanvasWindow w;
    const QColor clear(40, 160, 200);
    w.item()->setClearColor(clear);
    ASSERT_TRUE(w.show());
    ASSERT_TRUE(waitUntil(
        [&] { return OrvaneTest::near(centreOfCanvas(w.grab()), clear, kColorTolerance); }));
    osg::ref_ptr<CaptureOperation> capture = new CaptureOperation;
    w.item()->addOperation(capture.get());
    ASSERT_TRUE(waitUntil([&] { return !capture->image().isNull(); }));
    EXPECT_EQ(capture->image().size(), QSize(CanvasWindow::kCanvasWidth, CanvasWindow::kHeight));
    EXPECT_TRUE(OrvaneTest::near(
        capture->image().pixelColor(CanvasWindow::kCanvasWidth / 2, CanvasWindow::kHeight / 2),
        clear, kColorTolerance));
}

TEST(Canvas3DItemTest, SetSamplesMakesANewFramebufferAndStillDraws)
{
    CanvasWindow w;
    const QColor clear(220, 220, 30);
    w.item()->setClearColor(clear);
    ASSERT_TRUE(w.show());
    std::atomic<RenderInfo*> info{nullptr};
    w.item()->addOperation(new LambdaOperation([&](RenderInfo& i) { info = &i; }));
    ASSERT_TRUE(waitUntil([&] { return info.load() != nullptr; }));
    QSignalSpy fboChanged(info.load(), &RenderInfo::fboChanged);
    w.item()->getCanvasBase()->setSamples(4);
    EXPECT_EQ(w.item()->getCanvasBase()->getNumSamples(), 4u);
    EXPECT_TRUE(waitUntil([&] { return fboChanged.count() > 0; }));
    EXPECT_TRUE(waitUntil(
        [&] { return OrvaneTest::near(centreOfCanvas(w.grab()), clear, kColorTolerance); }));
}

TEST(Canvas3DItemTest, ResizeReachesTheViewportAndZeroSizeIsIgnored)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    w.item()->setSize(QSizeF(100, 80));
    Shared<osg::Vec4f> viewport;
    const auto readViewport = [&] {
        w.item()->addOperation(new LambdaOperation([&](RenderInfo& info) {
            const osg::Viewport* vp = info.masterCamera()->getViewport();
            const osg::Vec4f read(vp->x(), vp->y(), vp->width(), vp->height());
            viewport.with([&read](osg::Vec4f& v) { v = read; });
        }));
    };
    readViewport();
    EXPECT_TRUE(
        waitUntil([&] { return viewport.value().z() == 100 && viewport.value().w() == 80; }));

    w.item()->setSize(QSizeF(0, 0));
    QTest::qWait(100);
    viewport.with([](osg::Vec4f& v) { v = osg::Vec4f(); });
    readViewport();
    EXPECT_TRUE(waitUntil([&] { return viewport.value().z() > 0; }));
    EXPECT_EQ(viewport.value().z(), 100);
    EXPECT_EQ(viewport.value().w(), 80);
}

TEST(CanvasStubTest, EveryCallIsHarmlessOnceTheItemIsGone)
{
    OrvaneTest::LogCapture log;
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    osg::ref_ptr<CanvasBase> canvas = w.item()->getCanvasBase();
    osgViewer::View* view = canvas->mainView();
    ASSERT_NE(view, nullptr);
    w.destroyItem();
    EXPECT_TRUE(log.contains("Canvas item destroyed"));

    bool ran = false;
    canvas->addOperation(new LambdaOperation([&](RenderInfo&) { ran = true; }));
    std::vector<osg::ref_ptr<osg::Operation>> ops{new LambdaOperation([&](RenderInfo&) {})};
    canvas->addOperations(ops);
    canvas->frame();
    canvas->framing(1.0f);
    canvas->setUpdateBlocked(true);
    canvas->setSamples(8);
    canvas->setMaxFrameRate(30.0f);
    canvas->execRunnable(nullptr);
    EXPECT_FALSE(canvas->isUpdateBlocked());
    EXPECT_EQ(canvas->getNumSamples(), 0u);
    EXPECT_FLOAT_EQ(canvas->getMaxFrameRate(), -1.0f);
    EXPECT_DOUBLE_EQ(canvas->devicePixelRatio(), 1.0);
    EXPECT_DOUBLE_EQ(canvas->width(), 1.0);
    EXPECT_DOUBLE_EQ(canvas->height(), 1.0);
    EXPECT_EQ(canvas->getScreenSize(), QSize());
    EXPECT_EQ(canvas->getTriggerUpdateType(), -1);
    QTest::qWait(200);
    EXPECT_FALSE(ran);
}

TEST(CanvasStubTest, CallsFromAWorkerWhileTheItemDiesNeverCrash)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    osg::ref_ptr<CanvasBase> canvas = w.item()->getCanvasBase();
    std::atomic<bool> stop{false};
    std::thread worker([&] {
        while (!stop) {
            canvas->addOperation(new LambdaOperation([](RenderInfo&) {}));
            canvas->frame();
            canvas->width();
        }
    });
    QTest::qWait(100);
    w.destroyItem();
    QTest::qWait(100);
    stop = true;
    worker.join();
    EXPECT_DOUBLE_EQ(canvas->width(), 1.0);
}

TEST(CanvasContractTest, RendererCreatedFiresOnceAndRatesReachTheItem)
{
    CanvasWindow w;
    QSignalSpy canvasSignal(w.item()->getCanvasBase(), &CanvasBase::rendererCreated);
    QSignalSpy itemSignal(w.item(), &Canvas3DItem::rendererCreated);
    ASSERT_TRUE(w.show());
    EXPECT_EQ(canvasSignal.count(), 1);
    EXPECT_EQ(itemSignal.count(), 1);
    w.item()->getCanvasBase()->setRendererCreated();
    EXPECT_EQ(canvasSignal.count(), 1);

    CanvasBase* canvas = w.item()->getCanvasBase();
    EXPECT_EQ(canvas->getTriggerUpdateType(), Canvas3DItem::FrameSwappedTrigger);
    EXPECT_DOUBLE_EQ(canvas->width(), CanvasWindow::kCanvasWidth);
    EXPECT_DOUBLE_EQ(canvas->height(), CanvasWindow::kHeight);
    EXPECT_FALSE(canvas->getScreenSize().isEmpty());
    // The effective rate, not the stored field.
    EXPECT_FLOAT_EQ(canvas->getMaxFrameRate(), static_cast<float>(w.item()->maxFrame()));

    w.item()->setTriggerUpdateType(Canvas3DItem::TimerTrigger);
    QSignalSpy maxFrameChanged(w.item(), &Canvas3DItem::maxFrameChanged);
    canvas->setMaxFrameRate(59.9f);
    EXPECT_EQ(w.item()->maxFrame(), 59);
    EXPECT_EQ(maxFrameChanged.count(), 1);
    canvas->setMaxFrameRate(59.0f);
    EXPECT_EQ(maxFrameChanged.count(), 1);

    // Timer pacing still draws.
    w.installFrameCounter();
    EXPECT_TRUE(waitUntil([&] { return w.sceneFrames() > 0; }));
}
