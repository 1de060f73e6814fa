// The offscreen canvas: a scene with no window, rendered on its own thread and handed over frame
// by frame as images.
#include "canvas3d_offscreen.h"
#include "canvas3d_view.h"
#include "customize_manipulator.h"
#include "gl_test_support.h"
#include "offscreen_capture.h"
#include "offscreen_test_scene.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "touch_gesture.h"

#include <QTest>
#include <algorithm>
#include <gtest/gtest.h>
#include <thread>

using namespace Vorna::Orvane;
using OrvaneTest::FrameSink;
using OrvaneTest::pixelOf;
using OrvaneTest::waitUntil;
using GA = osgGA::GUIEventAdapter;

namespace {

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

TEST(OffscreenCanvasTest, AnOperationAddingToItsOwnCanvasRunsTheNewOneNextFrame)
{
    FrameSink sink;
    Canvas3DOffscreenSurface surface(kWidth, kHeight, sink.callback());
    osg::ref_ptr<CanvasBase> canvas = surface.getCanvasBase();
    std::atomic<int> step{0};
    canvas->addOperation(new LambdaOperation([&](RenderInfo& info) {
        info.canvas->addOperation(new LambdaOperation([&](RenderInfo&) { step = 2; }));
        step = 1;
    }));
    EXPECT_TRUE(waitUntil([&] { return step.load() == 2; }));
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
    // The taps must fall within 300 ticks of the process's processor time, which the render and
    // llvmpipe threads advance too: under a sanitizer a pair can miss, so more pairs follow.
    for (int i = 0; i < 20; ++i) {
        tap(Qt::TouchPointReleased);
        tap(Qt::TouchPointPressed);
    }
    const auto isDoubleTap = [](const osg::ref_ptr<GA>& e) {
        return e->getEventType() == GA::DOUBLECLICK && e->getName() == g_addtionalTouchName;
    };

    std::vector<osg::ref_ptr<GA>> events;
    ASSERT_TRUE(waitUntil([&] {
        events = recorder->events();
        return events.size() >= 5 && std::any_of(events.begin(), events.end(), isDoubleTap);
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
}

TEST(OffscreenCanvasTest, TheFacadeReachesAHeadlessCanvasOnceItIsSetUp)
{
    OrvaneSingleton* facade = OrvaneSingleton::instance();
    FrameSink sink;
    Canvas3DOffscreenSurface surface(kWidth, kHeight, sink.callback());
    CanvasBase* canvas = surface.getCanvasBase();
    addScene(canvas);
    ASSERT_TRUE(waitUntil([&] { return canvas->isRendererCreated(); }));
    EXPECT_EQ(facade->getCanvas(), canvas);

    // An operation added through the façade's canvas runs on the surface's thread.
    std::atomic<bool> ran{false};
    facade->getCanvas()->addOperation(
        new LambdaOperation([&](RenderInfo& info) { ran = info.canvas.get() == canvas; }));
    ASSERT_TRUE(waitUntil([&] { return ran.load(); }));
    ASSERT_TRUE(waitIdle(sink));

    // During a scan the wheel's steps are summed on the manipulator; ending the scan through
    // the façade clears them on the main view of the façade's canvas.
    auto* manipulator =
        dynamic_cast<CustomizeManipulator*>(canvas->mainView()->getCameraManipulator());
    ASSERT_NE(manipulator, nullptr);
    facade->updateScanStateNoOpe(true);
    EXPECT_TRUE(facade->getScanState());
    EXPECT_TRUE(facade->getScanStateChanged());
    QWheelEvent wheel(QPointF(kWidth / 2, kHeight / 2), QPointF(kWidth / 2, kHeight / 2), QPoint(),
                      QPoint(0, -120), Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    surface.wheelEvent(&wheel);
    ASSERT_TRUE(waitUntil([&] { return manipulator->getScanDistanceChange() != 0.0f; }));
    facade->updateScanStateNoOpe(false);
    EXPECT_FALSE(facade->getScanState());
    EXPECT_EQ(manipulator->getScanDistanceChange(), 0.0f);
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

namespace {

// A capture camera over the main view's model, with both capture callbacks after its draw.
struct CaptureRig {
    osg::ref_ptr<osg::Camera> camera;
    osg::ref_ptr<OffscreenCaptureCallback> callback = new OffscreenCaptureCallback;
    osg::ref_ptr<SaveImageDrawCallback> saver = new SaveImageDrawCallback(QString());
    QMutex mutex;
    QImage saved;
    std::atomic<int> finished{0};
    std::atomic<bool> succeeded{false};
    QObject receiver;

    explicit CaptureRig(CanvasBase* canvas)
    {
        QObject::connect(callback.get(), &OffscreenCaptureCallback::captureFinished, &receiver,
                         [this](osg::Camera*, bool ok) {
                             succeeded = ok;
                             ++finished;
                         });
        saver->setImageCallback([this](const QImage& image) {
            QMutexLocker lock(&mutex);
            saved = image;
        });
        std::atomic<bool> built{false};
        canvas->addOperation(new LambdaOperation([this, &built](RenderInfo& info) {
            osgViewer::View* view = info.mainView();
            const OffscreenCapture::CaptureParams params = OffscreenCapture::computeCaptureParams(
                view, 0, 0, kWidth, kHeight, kWidth, kHeight);
            camera = OffscreenCapture::createRTTCamera(*params.viewport, params.viewMatrix,
                                                       params.projectionMatrix);
            saver->setFBO(info.FBO);
            camera->addPostDrawCallback(saver.get());
            camera->addPostDrawCallback(callback.get());
            camera->addChild(ViewMgr::getModel(view));
            ViewMgr::getOther(view)->addChild(camera.get());
            built = true;
        }));
        waitUntil([&] { return built.load(); });
    }

    // Frames the whole view into an output of the given size and waits for the result.
    QImage capture(CanvasBase* canvas, int outWidth, int outHeight)
    {
        const int before = finished;
        canvas->addOperation(new LambdaOperation([=](RenderInfo& info) {
            const auto params = OffscreenCapture::computeCaptureParams(
                info.mainView(), 0, 0, kWidth, kHeight, outWidth, outHeight);
            osg::ref_ptr<osg::Operation> run =
                OffscreenCapture::updateAndRunRTTCamera(camera, params);
            (*run)(info.compViewer());
        }));
        if (!waitUntil([&] { return finished > before; }))
            return QImage();
        return callback->getCaptureImage();
    }
};

// Mean of each scale-by-scale block: what the 1x render samples at the block's centre.
QImage boxDownsample(const QImage& image, int scale)
{
    QImage out(image.width() / scale, image.height() / scale, QImage::Format_RGBA8888);
    for (int y = 0; y < out.height(); ++y)
        for (int x = 0; x < out.width(); ++x) {
            int sum[4] = {0, 0, 0, 0};
            for (int dy = 0; dy < scale; ++dy)
                for (int dx = 0; dx < scale; ++dx) {
                    const QColor c = image.pixelColor(x * scale + dx, y * scale + dy);
                    sum[0] += c.red();
                    sum[1] += c.green();
                    sum[2] += c.blue();
                    sum[3] += c.alpha();
                }
            const int n = scale * scale;
            out.setPixelColor(x, y, QColor(sum[0] / n, sum[1] / n, sum[2] / n, sum[3] / n));
        }
    return out;
}

int channelDistance(const QColor& a, const QColor& b)
{
    return std::max({std::abs(a.red() - b.red()), std::abs(a.green() - b.green()),
                     std::abs(a.blue() - b.blue()), std::abs(a.alpha() - b.alpha())});
}

// True when the 3x3 neighbourhood of (x, y) has one colour: no edge of the scene passes there.
bool uniformAround(const QImage& image, int x, int y)
{
    const QColor c = image.pixelColor(x, y);
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const int nx = std::clamp(x + dx, 0, image.width() - 1);
            const int ny = std::clamp(y + dy, 0, image.height() - 1);
            if (image.pixelColor(nx, ny) != c)
                return false;
        }
    return true;
}

} // namespace

TEST(OffscreenCaptureTest, FourTimesTheSizeShowsTheSameFramingAsOnce)
{
    OrvaneTest::LogCapture log;
    FrameSink sink;
    Canvas3DOffscreenSurface surface(kWidth, kHeight, sink.callback());
    CanvasBase* canvas = surface.getCanvasBase();
    addScene(canvas);
    ASSERT_TRUE(waitUntil([&] { return canvas->isRendererCreated(); }));
    ASSERT_TRUE(waitIdle(sink));
    CaptureRig rig(canvas);

    const QImage once = rig.capture(canvas, kWidth, kHeight);
    ASSERT_EQ(once.size(), QSize(kWidth, kHeight));
    EXPECT_TRUE(rig.succeeded.load());
    // The capture shows what the canvas shows; nothing drawn stays transparent.
    const osg::ref_ptr<osg::Image> frame = sink.last();
    for (int x : {kWidth / 2 - 17, kWidth / 2 + 17}) {
        const QColor expected = pixelOf(frame.get(), x, kHeight / 2);
        EXPECT_TRUE(OrvaneTest::near(once.pixelColor(x, kHeight / 2), expected, kColorTolerance))
            << x << " " << qPrintable(once.pixelColor(x, kHeight / 2).name());
    }
    EXPECT_EQ(once.pixelColor(2, 2).alpha(), 0);
    {
        QMutexLocker lock(&rig.mutex);
        ASSERT_EQ(rig.saved.size(), QSize(kWidth, kHeight));
        EXPECT_TRUE(OrvaneTest::near(rig.saved.pixelColor(kWidth / 2 - 17, kHeight / 2), kQuad,
                                     kColorTolerance));
    }

    constexpr int kScale = 4;
    const QImage big = rig.capture(canvas, kScale * kWidth, kScale * kHeight);
    ASSERT_EQ(big.size(), QSize(kScale * kWidth, kScale * kHeight));
    EXPECT_TRUE(log.contains("rttCamera's viewport changed:"));
    const QImage small = boxDownsample(big, kScale);
    int interior = 0, differing = 0, worstInterior = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const int d = channelDistance(small.pixelColor(x, y), once.pixelColor(x, y));
            if (uniformAround(once, x, y)) {
                ++interior;
                worstInterior = std::max(worstInterior, d);
            }
            differing += d > kColorTolerance ? 1 : 0;
        }
    // Away from edges the two renders agree to the rounding of one 8-bit step per channel.
    EXPECT_LE(worstInterior, kColorTolerance);
    EXPECT_GT(interior, kWidth * kHeight / 2);
    // Edge pixels are partly covered at 4x; they are a thin outline of the quads, under 5%.
    EXPECT_LT(differing, kWidth * kHeight / 20) << differing;
}

TEST(OffscreenCaptureTest, WiderOutputGetsTransparentBandsAndACameraWithoutCallbackLogs)
{
    OrvaneTest::LogCapture log;
    FrameSink sink;
    Canvas3DOffscreenSurface surface(kWidth, kHeight, sink.callback());
    CanvasBase* canvas = surface.getCanvasBase();
    addScene(canvas);
    ASSERT_TRUE(waitUntil([&] { return canvas->isRendererCreated(); }));
    CaptureRig rig(canvas);

    const QImage wide = rig.capture(canvas, 2 * kWidth, kHeight);
    ASSERT_EQ(wide.size(), QSize(2 * kWidth, kHeight));
    const int band = kWidth / 2;
    EXPECT_EQ(wide.pixelColor(5, kHeight / 2).alpha(), 0);
    EXPECT_EQ(wide.pixelColor(2 * kWidth - 5, kHeight / 2).alpha(), 0);
    const QColor inside = wide.pixelColor(band + kWidth / 2 - 17, kHeight / 2);
    EXPECT_TRUE(OrvaneTest::near(inside, kQuad, kColorTolerance)) << qPrintable(inside.name());
    EXPECT_EQ(inside.alpha(), 255);

    std::atomic<bool> ran{false};
    canvas->addOperation(new LambdaOperation([&](RenderInfo& info) {
        osg::ref_ptr<osg::Camera> bare = new osg::Camera;
        const auto params = OffscreenCapture::computeCaptureParams(info.mainView(), 0, 0, kWidth,
                                                                   kHeight, kWidth, kHeight);
        osg::ref_ptr<osg::Operation> run = OffscreenCapture::updateAndRunRTTCamera(bare, params);
        (*run)(info.compViewer());
        ran = true;
    }));
    ASSERT_TRUE(waitUntil([&] { return ran.load(); }));
    EXPECT_TRUE(
        log.contains("can't find OffscreenCaptureCallback in rttCamera's PostDrawCallbacks"));
}
