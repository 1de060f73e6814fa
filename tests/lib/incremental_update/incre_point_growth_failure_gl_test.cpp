// Growth of the live cloud refused at the first, the second and the last of its buffers: each
// time the cloud keeps drawing what fits, the patch waits in the queue, and once memory is back
// every point lands where it was sent.
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "incre_point_geomtry_apple.h"
#include "live_cloud_start.h"
#include "orvane_operations.h"

#include <gtest/gtest.h>

#include <atomic>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::LogCapture;
using OrvaneTest::waitUntil;

namespace {

osg::Vec3 positionOf(int id)
{
    return osg::Vec3(0.001f * (id % 1000), 1.0f, 0.000001f * id);
}

std::shared_ptr<IncrePatchData> patchAt(int firstId, int count)
{
    auto patch = std::make_shared<IncrePatchData>();
    patch->vertArr = new osg::Vec3Array;
    patch->normArr = new osg::Vec3Array;
    patch->clrArr = new osg::Vec3Array;
    patch->stateArr = new osg::ByteArray;
    for (int i = 0; i < count; ++i) {
        patch->vertArr->push_back(positionOf(firstId + i));
        patch->normArr->push_back(osg::Vec3(0, -1, 0));
        patch->clrArr->push_back(osg::Vec3(0.5f, 0.25f, 1.0f));
        patch->stateArr->push_back(static_cast<GLbyte>(1 + i % 3));
        patch->patchIdData.push_back(firstId + i);
    }
    return patch;
}

// Refuses, while `refuse` holds, the allocation of attribute `failIndex` (position, normal,
// colour, state) in every attempt to make the buffers, as a GPU out of memory would.
class RefusingWholeBuffer : public IncrePtCommonWholeBuffer
{
public:
    std::atomic<bool> refuse{false};
    int failIndex = 0;

protected:
    bool allocateZeroed(int index, GLuint buffer, qint64 bytes) override
    {
        if (refuse && index == failIndex)
            return false;
        return IncrePtCommonWholeBuffer::allocateZeroed(index, buffer, bytes);
    }
};

class CloudWithFailingBuffers : public IncrePointGeometryApple
{
public:
    CloudWithFailingBuffers() : IncrePointGeometryApple(true, false, true) {}
    std::shared_ptr<RefusingWholeBuffer> buffers = std::make_shared<RefusingWholeBuffer>();

protected:
    std::shared_ptr<IncrePtDataWholeBuffer> createWholeDataBuffer() override { return buffers; }
};

} // namespace

TEST(LiveCloudGrowthFailure, RefusedAtAnyBufferKeepsEveryPointDrawnAndQueued)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    osg::ref_ptr<CloudWithFailingBuffers> cloud = new CloudWithFailingBuffers;
    OrvaneTest::startLiveCloud(w, cloud.get(), true);
    ASSERT_TRUE(cloud->isInited());
    // The value is shared: a frame that comes after a timed-out wait must not write to a
    // stack that is gone.
    const auto capacity = [&] {
        auto value = std::make_shared<std::atomic<qint64>>(-1);
        osg::ref_ptr<CloudWithFailingBuffers> held = cloud;
        w.item()->addOperation(new LambdaOperation(
            [value, held](RenderInfo&) { *value = held->buffers->capacity(); }));
        // Frames that grow the cloud by millions of points are slow under a sanitizer.
        EXPECT_TRUE(waitUntil([&] { return value->load() >= 0; }, 60000)) << "no frame";
        return value->load();
    };
    const auto drain = [&] {
        w.item()->frame();
        return waitUntil(
            [&] {
                w.item()->frame();
                return cloud->queuedPatchCount() == 0;
            },
            60000);
    };
    cloud->setWholeSize(1000);
    cloud->setPatchVertexSize(1000);
    cloud->addIncreasePatchData(patchAt(0, 1000));
    ASSERT_TRUE(drain());

    std::vector<int> sent = {0};
    // Position, normal, colour, state: refused at the first, the second and the last.
    for (int failAt : {0, 1, 3}) {
        SCOPED_TRACE(failAt);
        const qint64 before = capacity();
        ASSERT_GT(before, 0);
        LogCapture log;
        cloud->buffers->failIndex = failAt;
        cloud->buffers->refuse = true;
        const int far = static_cast<int>(before) + 10;
        cloud->setWholeSize(static_cast<uint32_t>(far + 100));
        cloud->setPatchVertexSize(100);
        cloud->addIncreasePatchData(patchAt(far, 100));
        ASSERT_TRUE(waitUntil(
            [&] {
                w.item()->frame();
                return log.contains("whole point buffer resize failed");
            },
            60000));
        EXPECT_EQ(cloud->queuedPatchCount(), 1u) << "the patch waits for room";
        EXPECT_EQ(capacity(), before) << "the old buffers stay";
        EXPECT_TRUE(waitUntil([&] {
            w.item()->frame();
            return log.contains("draw point count is limited by buffer capacity");
        })) << "what fits is still drawn";
        // Refused on every frame, logged once.
        ASSERT_TRUE(w.run(nullptr));
        EXPECT_EQ(cloud->queuedPatchCount(), 1u);
        // The next try has the memory.
        cloud->buffers->refuse = false;
        ASSERT_TRUE(drain());
        EXPECT_GT(capacity(), before);
        EXPECT_EQ(log.count("whole point buffer resize failed"), 1);
        sent.push_back(far);
    }

    bool ended = false;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { ended = cloud->endOfIncreUpdate(); }));
    ASSERT_TRUE(ended);
    auto* positions = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(0));
    auto* states = dynamic_cast<osg::ByteArray*>(cloud->getVertexAttribArray(4));
    ASSERT_TRUE(positions && states);
    for (size_t k = 0; k < sent.size(); ++k) {
        const int first = sent[k];
        const int count = k == 0 ? 1000 : 100;
        for (int i = 0; i < count; ++i) {
            ASSERT_EQ((*positions)[first + i], positionOf(first + i)) << first + i;
            ASSERT_EQ((*states)[first + i], 1 + i % 3) << first + i;
        }
    }
}
