// The live cloud on a canvas: a producer thread streams patches while frames are drawn, and
// what comes back after the scan equals what was sent.
#include "canvas3d_view.h"
#include "failing_whole_buffer.h"
#include "gl_test_support.h"
#include "incre_point_geomtry_apple.h"
#include "live_cloud_start.h"
#include "orvane_operations.h"

#include <QTest>
#include <gtest/gtest.h>
#include <osg/Geode>
#include <thread>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

std::shared_ptr<IncrePatchData> makePatch(int firstId, int count, bool withColor, int frame = -1)
{
    auto patch = std::make_shared<IncrePatchData>();
    patch->vertArr = new osg::Vec3Array;
    patch->normArr = new osg::Vec3Array;
    patch->clrArr = withColor ? new osg::Vec3Array : nullptr;
    patch->stateArr = new osg::ByteArray;
    for (int i = 0; i < count; ++i) {
        const int id = firstId + i;
        patch->vertArr->push_back(osg::Vec3(0.001f * id + 0.5f, 1.0f, 0.002f * id));
        patch->normArr->push_back(osg::Vec3(0, -1, 0));
        if (withColor)
            patch->clrArr->push_back(osg::Vec3(0.1f, 0.2f, (id % 10) * 0.1f));
        patch->stateArr->push_back(static_cast<GLbyte>(id % 3));
        patch->patchIdData.push_back(id);
        if (frame >= 0)
            patch->patchFrameIdData.push_back(frame);
    }
    return patch;
}

class LiveCloudTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(w.show()); }

    // `made`, when given, is the cloud to start; it must match `withColor`.
    void start(bool rigid, bool withColor = true, bool basicLighting = true,
               IncrePointGeometryApple* made = nullptr)
    {
        cloud = made ? made : new IncrePointGeometryApple(withColor, false, basicLighting);
        OrvaneTest::startLiveCloud(w, cloud.get(), rigid);
        ASSERT_TRUE(cloud->isInited());
    }

    // Streams `patches` patches of `size` points from another thread, one frame each.
    void stream(int patches, int size, bool withColor, bool rigid)
    {
        std::thread producer([&] {
            for (int k = 0; k < patches; ++k) {
                cloud->setWholeSize(static_cast<uint32_t>((k + 1) * size));
                cloud->setPatchVertexSize(size);
                if (!rigid)
                    cloud->setFrameMatrix({{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}});
                cloud->addIncreasePatchData(
                    makePatch(k * size, size, withColor, rigid ? -1 : k % 3));
                w.item()->getCanvasBase()->frame();
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        });
        producer.join();
        w.item()->frame();
        ASSERT_TRUE(waitUntil([&] { return cloud->queuedPatchCount() == 0; }, 20000));
    }

    bool end()
    {
        bool ended = false;
        w.run(nullptr, [&](RenderInfo&) { ended = cloud->endOfIncreUpdate(); });
        return ended;
    }

    void expectCloud(int count, bool withColor)
    {
        auto* positions = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(0));
        auto* normals = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(1));
        auto* states = dynamic_cast<osg::ByteArray*>(cloud->getVertexAttribArray(4));
        ASSERT_TRUE(positions && normals && states);
        ASSERT_EQ(static_cast<int>(positions->size()), count);
        const auto sent = makePatch(0, count, withColor);
        for (int i = 0; i < count; ++i) {
            ASSERT_EQ((*positions)[i], (*sent->vertArr)[i]) << i;
            ASSERT_EQ((*normals)[i], (*sent->normArr)[i]) << i;
            ASSERT_EQ((*states)[i], (*sent->stateArr)[i]) << i;
        }
        auto* colors = cloud->getNumVertexAttribArrays() > 2
                           ? dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(2))
                           : nullptr;
        if (withColor) {
            ASSERT_TRUE(colors);
            for (int i = 0; i < count; ++i)
                ASSERT_EQ((*colors)[i], (*sent->clrArr)[i]) << i;
        }
    }

    // Capacity of the position buffer; GL queries need the render thread.
    qint64 capacity()
    {
        qint64 value = 0;
        w.run(nullptr, [&](RenderInfo&) {
            value = std::static_pointer_cast<IncrePtCommonWholeBuffer>(cloud->wholeDataBuffer())
                        ->capacity();
        });
        return value;
    }

    // A streamed cloud lights pixels of the canvas, with the classic or the material program,
    // and nothing fails on the way.
    void expectStreamedCloudShows(bool basicLighting)
    {
        OrvaneTest::LogCapture log;
        w.item()->setClearColor(Qt::black);
        start(true, false, basicLighting);
        stream(4, 500, false, true);
        // The cloud's bound is what the host says it is.
        cloud->setBoxValue(osg::Vec3f(0.5f, 1.0f, 0.0f), osg::Vec3f(2.5f, 1.0f, 4.0f));
        w.item()->home();
        ASSERT_TRUE(w.run(nullptr));
        EXPECT_TRUE(waitUntil([&] {
            const QImage image = w.grab();
            int lit = 0;
            for (int y = 0; y < CanvasWindow::kHeight; ++y)
                for (int x = 0; x < CanvasWindow::kCanvasWidth; ++x)
                    lit += qGray(image.pixel(x, y)) > 20 ? 1 : 0;
            return lit > 50;
        }));
        EXPECT_FALSE(log.contains("failed")) << qPrintable(log.lines().join("\n"));
    }

    CanvasWindow w;
    osg::ref_ptr<IncrePointGeometryApple> cloud;
};

// A cloud whose whole-cloud buffers can be made to fail their growth.
class CloudWithFailingBuffers : public IncrePointGeometryApple
{
public:
    CloudWithFailingBuffers() : IncrePointGeometryApple(false, false, true) {}
    std::shared_ptr<OrvaneTest::FailingWholeBuffer> buffers =
        std::make_shared<OrvaneTest::FailingWholeBuffer>();

protected:
    std::shared_ptr<IncrePtDataWholeBuffer> createWholeDataBuffer() override { return buffers; }
};

} // namespace

TEST_F(LiveCloudTest, RigidScanStreamedFromAThreadComesBackExactly)
{
    start(true);
    stream(20, 500, true, true);
    ASSERT_TRUE(end());
    EXPECT_FALSE(cloud->isRunning());
    expectCloud(10000, true);
}

TEST_F(LiveCloudTest, NonRigidScanKeepsFrameLocalPositions)
{
    start(false);
    stream(12, 300, true, false);
    ASSERT_TRUE(end());
    expectCloud(3600, true);
}

TEST_F(LiveCloudTest, GrowthKeepsTheCloudAndAPausedScanResumesWithItsCapacity)
{
    start(true, false);
    stream(4, 250, false, true);
    const qint64 before = capacity();
    ASSERT_GT(before, 0);
    // A point far past the initial capacity forces a grow before it can land.
    const int far = static_cast<int>(before) + 100;
    cloud->setWholeSize(static_cast<uint32_t>(far + 1));
    cloud->setPatchVertexSize(1);
    cloud->addIncreasePatchData(makePatch(far, 1, false));
    w.item()->frame();
    ASSERT_TRUE(waitUntil([&] { return cloud->queuedPatchCount() == 0; }, 30000));
    const qint64 grown = capacity();
    EXPECT_GT(grown, before);

    ASSERT_TRUE(end());
    auto* positions = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(0));
    ASSERT_EQ(static_cast<int>(positions->size()), far + 1);
    const auto sent = makePatch(0, 1000, false);
    EXPECT_EQ((*positions)[999], (*sent->vertArr)[999]);
    EXPECT_EQ((*positions)[far], (*makePatch(far, 1, false)->vertArr)[0]);
    EXPECT_EQ((*positions)[far - 1], osg::Vec3()) << "never written";

    // Resuming puts the cloud back into GPU buffers at the parked capacity.
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { EXPECT_TRUE(cloud->beginOfIncreUpdate()); }));
    EXPECT_EQ(capacity(), grown);
    ASSERT_TRUE(end());
    positions = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(0));
    EXPECT_EQ((*positions)[far], (*makePatch(far, 1, false)->vertArr)[0]);
}

TEST_F(LiveCloudTest, FailedGrowthKeepsThePatchesAndTheCloudForTheNextFrame)
{
    osg::ref_ptr<CloudWithFailingBuffers> failing = new CloudWithFailingBuffers;
    start(true, false, true, failing.get());
    stream(2, 100, false, true);
    const qint64 before = capacity();

    OrvaneTest::LogCapture log;
    failing->buffers->failAlways = true;
    const int far = static_cast<int>(before) + 100;
    cloud->setWholeSize(static_cast<uint32_t>(far + 1));
    cloud->setPatchVertexSize(1);
    cloud->addIncreasePatchData(makePatch(far, 1, false));
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(w.run(nullptr));
    EXPECT_EQ(log.count("whole point buffer resize failed; skip update and draw available points"),
              1)
        << "once, though tried each frame";
    EXPECT_EQ(cloud->queuedPatchCount(), 1u) << "the patch waits for room";
    EXPECT_EQ(capacity(), before);
    EXPECT_EQ(log.count("draw point count is limited by buffer capacity"), 1)
        << "the points that fit are still drawn";

    failing->buffers->failAlways = false;
    w.item()->frame();
    ASSERT_TRUE(waitUntil([&] { return cloud->queuedPatchCount() == 0; }, 30000));
    EXPECT_GT(capacity(), before);
    ASSERT_TRUE(end());
    auto* positions = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(0));
    ASSERT_EQ(static_cast<int>(positions->size()), far + 1);
    EXPECT_EQ((*positions)[199], (*makePatch(199, 1, false)->vertArr)[0]);
    EXPECT_EQ((*positions)[far], (*makePatch(far, 1, false)->vertArr)[0]);
}

TEST_F(LiveCloudTest, BadIdsAreDroppedPointByPointWithOneWarning)
{
    start(true, false);
    OrvaneTest::LogCapture log;
    auto patch = makePatch(0, 10, false);
    patch->patchIdData[3] = -1;
    patch->patchIdData[4] = 2000000000;
    cloud->setWholeSize(10);
    cloud->setPatchVertexSize(10);
    cloud->addIncreasePatchData(patch);
    w.item()->frame();
    ASSERT_TRUE(waitUntil([&] { return cloud->queuedPatchCount() == 0; }));
    EXPECT_EQ(log.count("patch contains invalid vertex ids"), 1);
    ASSERT_TRUE(end());
    auto* positions = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(0));
    EXPECT_EQ((*positions)[5], (*patch->vertArr)[5]);
    EXPECT_EQ((*positions)[3], osg::Vec3());
}

TEST_F(LiveCloudTest, RunsRepeatsAndBadIdsInOneLargePatchLandInPatchOrder)
{
    // Large enough to be written by two threads: a run of new ids, scattered rewrites of them,
    // a second run broken by two bad ids, and a repeat whose later entry must win.
    constexpr int kCount = 40000, kCloud = 30000;
    std::vector<int> ids(kCount);
    for (int i = 0; i < kCount; ++i) {
        if (i < 20000)
            ids[i] = i;
        else if (i < 30000)
            ids[i] = (i * 7919) % 20000;
        else
            ids[i] = 20000 + (i - 30000);
    }
    ids[35000] = -5;
    ids[36000] = 2000000000;
    // Too large as well, but on the lower side of the threads' split, and later in the patch.
    ids[37000] = 500000000;
    ids[kCount - 1] = 20000;
    auto patch = std::make_shared<IncrePatchData>();
    patch->vertArr = new osg::Vec3Array;
    patch->normArr = new osg::Vec3Array;
    patch->stateArr = new osg::ByteArray;
    for (int i = 0; i < kCount; ++i) {
        // Each entry tells itself apart by its position.
        patch->vertArr->push_back(osg::Vec3(static_cast<float>(i), 1.0f, 0.5f));
        patch->normArr->push_back(osg::Vec3(0, -1, 0));
        patch->stateArr->push_back(static_cast<GLbyte>(1 + i % 3));
    }
    patch->patchIdData = ids;
    std::vector<int> winner(kCloud, -1);
    for (int i = 0; i < kCount; ++i)
        if (ids[i] >= 0 && ids[i] < kCloud)
            winner[ids[i]] = i;

    start(true, false);
    OrvaneTest::LogCapture log;
    cloud->setWholeSize(kCloud);
    cloud->setPatchVertexSize(kCount);
    cloud->addIncreasePatchData(patch);
    w.item()->frame();
    ASSERT_TRUE(waitUntil([&] { return cloud->queuedPatchCount() == 0; }));
    EXPECT_EQ(log.count("patch contains invalid vertex ids"), 1);
    EXPECT_TRUE(log.contains("invalidVid: 1 lastInvalidVid: -5"));
    EXPECT_TRUE(log.contains("tooLargeVid: 2 lastTooLargeVid: 500000000"));
    ASSERT_TRUE(end());
    auto* positions = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(0));
    auto* states = dynamic_cast<osg::ByteArray*>(cloud->getVertexAttribArray(4));
    ASSERT_TRUE(positions && states);
    ASSERT_EQ(static_cast<int>(positions->size()), kCloud);
    for (int id = 0; id < kCloud; ++id) {
        // The ids the bad entries displaced are never written.
        if (winner[id] < 0) {
            ASSERT_EQ((*positions)[id], osg::Vec3()) << id;
            continue;
        }
        ASSERT_EQ((*positions)[id].x(), static_cast<float>(winner[id])) << id;
        ASSERT_EQ((*states)[id], 1 + winner[id] % 3) << id;
    }
}

TEST_F(LiveCloudTest, LargePatchesTakenInOneFrameLandInQueueOrder)
{
    // Two threads share a frame's patches by id; two patches over different id ranges rewrite
    // the same ids, and the later patch must win every one of them.
    constexpr int kCloud = 60000;
    const auto patchOf = [](int firstId, int count, float tag) {
        auto patch = std::make_shared<IncrePatchData>();
        patch->vertArr = new osg::Vec3Array;
        patch->normArr = new osg::Vec3Array;
        for (int i = 0; i < count; ++i) {
            patch->vertArr->push_back(osg::Vec3(tag, static_cast<float>(firstId + i), 0.5f));
            patch->normArr->push_back(osg::Vec3(0, -1, 0));
            patch->patchIdData.push_back(firstId + i);
        }
        return patch;
    };
    start(true, false);
    cloud->setWholeSize(kCloud);
    cloud->setPatchVertexSize(kCloud);
    // Both queued inside one operation, so that the frame after it takes them together.
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
        cloud->addIncreasePatchData(patchOf(0, 40000, 1.0f));
        cloud->addIncreasePatchData(patchOf(20000, 40000, 2.0f));
    }));
    w.item()->frame();
    ASSERT_TRUE(waitUntil([&] { return cloud->queuedPatchCount() == 0; }));
    ASSERT_TRUE(end());
    auto* positions = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(0));
    ASSERT_TRUE(positions);
    ASSERT_EQ(static_cast<int>(positions->size()), kCloud);
    for (int id = 0; id < kCloud; ++id) {
        ASSERT_EQ((*positions)[id].x(), id < 20000 ? 1.0f : 2.0f) << id;
        ASSERT_EQ((*positions)[id].y(), static_cast<float>(id)) << id;
    }
}

TEST_F(LiveCloudTest, MismatchedPatchesAreDroppedAndTheOthersLand)
{
    start(true, false);
    OrvaneTest::LogCapture log;
    auto bad = makePatch(0, 10, false);
    bad->normArr->pop_back();
    cloud->setWholeSize(20);
    cloud->addIncreasePatchData(bad);
    cloud->addIncreasePatchData(makePatch(10, 10, false));
    cloud->addIncreasePatchData(nullptr);
    w.item()->frame();
    ASSERT_TRUE(waitUntil([&] { return cloud->queuedPatchCount() == 0; }));
    EXPECT_TRUE(log.contains("Unexpected patchData size, vertex:"));
    EXPECT_TRUE(log.contains("patch is nullptr !!"));
    ASSERT_TRUE(end());
    auto* positions = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(0));
    EXPECT_EQ((*positions)[15], (*makePatch(10, 10, false)->vertArr)[5]);
    EXPECT_EQ((*positions)[5], osg::Vec3());
}

TEST_F(LiveCloudTest, PointLimitLogsOnceAndTheCloudStillDraws)
{
    start(true, false);
    stream(2, 100, false, true);
    OrvaneTest::LogCapture log;
    cloud->setWholeSize(IncrePointGeometryApple::kMaxPointCount + 1);
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(w.run(nullptr));
    EXPECT_EQ(log.count("point count exceeds limit; skip update and draw available points"), 1);
    EXPECT_EQ(log.count("draw point count is limited by buffer capacity"), 1);
    cloud->setWholeSize(200);
    ASSERT_TRUE(end());
}

TEST_F(LiveCloudTest, PausingAnEmptyCloudFailsAndKeepsRunning)
{
    start(true, false);
    OrvaneTest::LogCapture log;
    EXPECT_FALSE(end());
    EXPECT_TRUE(log.contains("End, wholeSize == 0 !!"));
    EXPECT_TRUE(log.contains("End, fetchAttribFromBuffer failed !!"));
    EXPECT_TRUE(cloud->isRunning());
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { EXPECT_TRUE(cloud->beginOfIncreUpdate()); }));
    EXPECT_TRUE(log.contains("End, Already Running"));
}

TEST_F(LiveCloudTest, StreamedPointsShowOnTheCanvas)
{
    expectStreamedCloudShows(true);
}

TEST_F(LiveCloudTest, MaterialLightingProgramDrawsTheCloudToo)
{
    expectStreamedCloudShows(false);
}
