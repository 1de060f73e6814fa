// Tearing the canvas down in any order: item or window first, a live cloud still fed when the
// canvas goes, the offscreen canvas destroyed mid-frame, the application leaving with operations
// queued. Nothing crashes, and a sanitizer build reports nothing.
#include "canvas3d_item.h"
#include "canvas3d_offscreen.h"
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "incre_point_geomtry_apple.h"
#include "offscreen_test_scene.h"
#include "orvane_operations.h"

#include <QProcess>
#include <QQuickWindow>
#include <gtest/gtest.h>
#include <osg/Geode>

#include <atomic>
#include <thread>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

std::shared_ptr<IncrePatchData> smallPatch(int firstId)
{
    auto patch = std::make_shared<IncrePatchData>();
    patch->vertArr = new osg::Vec3Array;
    patch->normArr = new osg::Vec3Array;
    patch->clrArr = new osg::Vec3Array;
    for (int i = 0; i < 50; ++i) {
        patch->vertArr->push_back(osg::Vec3(0.01f * i, 0.0f, 0.02f * firstId));
        patch->normArr->push_back(osg::Vec3(0, -1, 0));
        patch->clrArr->push_back(osg::Vec3(1, 1, 1));
        patch->patchIdData.push_back((firstId + i) % 100000);
    }
    return patch;
}

// Operations that count how often they ran and how many of them are alive.
struct Tally {
    std::atomic<int> ran{0};
    std::atomic<int> alive{0};
};

class CountedOperation : public OperationBase
{
public:
    explicit CountedOperation(std::shared_ptr<Tally> tally) : m_tally(std::move(tally))
    {
        ++m_tally->alive;
    }
    void doOperation() override { ++m_tally->ran; }

protected:
    ~CountedOperation() override { --m_tally->alive; }

private:
    std::shared_ptr<Tally> m_tally;
};

} // namespace

TEST(CanvasTeardown, ItemBeforeWindowThenWindow)
{
    auto tally = std::make_shared<Tally>();
    {
        CanvasWindow w;
        ASSERT_TRUE(w.show());
        osg::ref_ptr<CanvasBase> canvas = w.item()->getCanvasBase();
        w.item()->setUpdateBlocked(true);
        for (int i = 0; i < 20; ++i)
            canvas->addOperation(new CountedOperation(tally));
        w.destroyItem();
        // A canvas without its item drops what it is given.
        canvas->addOperation(new CountedOperation(tally));
        canvas->frame();
        ASSERT_TRUE(waitUntil([&] { return w.window()->isVisible(); }));
    }
    QCoreApplication::processEvents();
    EXPECT_EQ(tally->ran, 0);
    EXPECT_TRUE(waitUntil([&] { return tally->alive == 0; })) << "queued operations leak";
}

TEST(CanvasTeardown, WindowBeforeItem)
{
    auto* window = new QQuickWindow;
    window->resize(160, 120);
    // Held by the scene only, not owned by the window: the window can go first.
    auto* item = new Canvas3DItem;
    item->setParentItem(window->contentItem());
    item->setSize(QSizeF(160, 120));
    window->show();
    ASSERT_TRUE(waitUntil([&] { return item->isRendererCreated(); }));
    auto tally = std::make_shared<Tally>();
    ASSERT_TRUE(waitUntil([&] {
        item->addOperation(new CountedOperation(tally));
        return tally->ran > 0;
    }));
    osg::ref_ptr<CanvasBase> canvas = item->getCanvasBase();
    delete window;
    QCoreApplication::processEvents();
    canvas->addOperation(new CountedOperation(tally));
    canvas->frame();
    delete item;
    QCoreApplication::processEvents();
    canvas->frame();
    canvas = nullptr;
    EXPECT_TRUE(waitUntil([&] { return tally->alive == 0; })) << "queued operations leak";
}

TEST(CanvasTeardown, LiveCloudStillFedWhenTheCanvasGoes)
{
    osg::ref_ptr<IncrePointGeometryApple> cloud = new IncrePointGeometryApple(true, false, true);
    std::atomic<bool> stop{false};
    std::atomic<int> pushed{0};
    std::thread producer;
    {
        CanvasWindow w;
        ASSERT_TRUE(w.show());
        // Starting a scan makes its first buffers: slow under a sanitizer, so a long wait.
        auto started = std::make_shared<std::atomic<int>>(0);
        osg::ref_ptr<IncrePointGeometryApple> held = cloud;
        w.item()->addOperation(new LambdaOperation([held, started](RenderInfo& info) {
            *started = held->startScan(ViewMgr::getModel(info.mainView()), true) ? 1 : -1;
        }));
        ASSERT_TRUE(waitUntil([&] { return started->load() != 0; }, 60000));
        ASSERT_EQ(started->load(), 1);
        cloud->setWholeSize(100000);
        osg::ref_ptr<CanvasBase> canvas = w.item()->getCanvasBase();
        producer = std::thread([&, canvas] {
            for (int k = 0; !stop; ++k) {
                cloud->setPatchVertexSize(50);
                cloud->addIncreasePatchData(smallPatch(50 * k));
                canvas->frame();
                ++pushed;
                std::this_thread::yield();
            }
        });
        ASSERT_TRUE(waitUntil([&] { return pushed > 200; }));
        // The window, its item, renderer and viewer go while the producer keeps pushing.
    }
    const int atTeardown = pushed;
    ASSERT_TRUE(waitUntil([&] { return pushed > atTeardown + 200; }));
    stop = true;
    producer.join();
    // The cloud outlives every context: it still takes patches and frees without GL.
    cloud->addIncreasePatchData(smallPatch(0));
    EXPECT_GT(cloud->queuedPatchCount(), 0u);
    cloud = nullptr;
}

TEST(CanvasTeardown, OffscreenCanvasDestroyedWhileAFrameRenders)
{
    for (int round = 0; round < 3; ++round) {
        OrvaneTest::FrameSink sink;
        auto surface = std::make_unique<Canvas3DOffscreenSurface>(160, 120, sink.callback());
        osg::ref_ptr<CanvasBase> canvas = surface->getCanvasBase();
        ASSERT_TRUE(waitUntil([&] { return canvas->isRendererCreated(); }));
        auto started = std::make_shared<std::atomic<bool>>(false);
        auto destroying = std::make_shared<std::atomic<bool>>(false);
        canvas->addOperation(new LambdaOperation([started, destroying](RenderInfo& info) {
            *started = true;
            // Keep the frame busy until the surface is on its way out.
            while (!*destroying)
                std::this_thread::yield();
            ViewMgr::getModel(info.mainView())
                ->addChild(OrvaneTest::makeQuad(-1, -1, 1, 1, osg::Vec4f(1, 0, 0, 1)));
        }));
        ASSERT_TRUE(waitUntil([&] { return started->load(); }));
        *destroying = true;
        surface.reset();
        // The canvas outlives its surface and drops what comes.
        canvas->addOperation(
            new LambdaOperation([](RenderInfo&) { FAIL() << "ran without canvas"; }));
        canvas->frame();
    }
}

TEST(CanvasTeardown, ApplicationExitsWithOperationsQueued)
{
    // A process of its own: what runs after main returns is what is under test.
    QProcess helper;
    helper.setProcessChannelMode(QProcess::MergedChannels);
    helper.start(QStringLiteral(ORVANE_TEARDOWN_HELPER), QStringList());
    ASSERT_TRUE(helper.waitForFinished(OrvaneTest::scaledTimeout(60000)));
    const QString output = QString::fromLocal8Bit(helper.readAll());
    EXPECT_EQ(helper.exitStatus(), QProcess::NormalExit) << qPrintable(output);
    EXPECT_EQ(helper.exitCode(), 0) << qPrintable(output);
    EXPECT_TRUE(output.contains("helper: queued")) << qPrintable(output);
    EXPECT_FALSE(output.contains("Sanitizer")) << qPrintable(output);
    EXPECT_FALSE(output.contains("runtime error")) << qPrintable(output);
}
