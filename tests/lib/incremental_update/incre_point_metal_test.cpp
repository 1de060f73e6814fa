#include "incre_point_metal.h"
#include "metal_cpp.h"

#include <QCoreApplication>
#include <QMutex>
#include <QStringList>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>

using namespace Vorna::Orvane;

namespace {

QMutex g_logMutex;
QStringList g_log;

void captureMessage(QtMsgType, const QMessageLogContext&, const QString& message)
{
    QMutexLocker lock(&g_logMutex);
    g_log << message;
}

int logCount(const QString& text)
{
    QMutexLocker lock(&g_logMutex);
    int n = 0;
    for (const QString& line : g_log)
        n += line.contains(text) ? 1 : 0;
    return n;
}

// Page-aligned, page-multiple areas standing in for the mapped GL buffers of a cloud.
struct WholeCloud {
    static constexpr std::size_t kVertices = 2048;
    struct Free {
        void operator()(void* p) const { std::free(p); }
    };
    std::unique_ptr<float, Free> position, normal, color;
    std::unique_ptr<signed char, Free> state;
    std::unique_ptr<int, Free> frameId;
    WholePointBufferData data;

    template <typename T> static T* area(std::size_t bytes)
    {
        void* p = nullptr;
        if (posix_memalign(&p, 4096, bytes) != 0)
            return nullptr;
        std::memset(p, 0, bytes);
        return static_cast<T*>(p);
    }

    WholeCloud()
    {
        const std::size_t vec3Bytes = kVertices * 12; // 6 pages
        position.reset(area<float>(vec3Bytes));
        normal.reset(area<float>(vec3Bytes));
        color.reset(area<float>(vec3Bytes));
        state.reset(area<signed char>(4096)); // rounded up to a page, as the cloud's buffers are
        frameId.reset(area<int>(kVertices * 4));
        data.position = position.get();
        data.normal = normal.get();
        data.color = color.get();
        data.state = state.get();
        data.frameId = frameId.get();
        data.positionBytes = data.normalBytes = data.colorBytes = vec3Bytes;
        data.stateBytes = 4096;
        data.frameIdBytes = kVertices * 4;
        data.hasColor = data.hasState = data.hasFrameId = true;
    }

    osg::Vec3 positionOf(std::size_t v) const
    {
        const float* p = position.get() + 3 * v;
        return osg::Vec3(p[0], p[1], p[2]);
    }
};

std::shared_ptr<IncrePatchData> makePatch(const std::vector<int>& ids)
{
    auto patch = std::make_shared<IncrePatchData>();
    patch->vertArr = new osg::Vec3Array;
    patch->normArr = new osg::Vec3Array;
    patch->clrArr = new osg::Vec3Array;
    patch->stateArr = new osg::ByteArray;
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const float f = float(i + 1);
        patch->vertArr->push_back(osg::Vec3(f, f + 0.25f, f + 0.5f));
        patch->normArr->push_back(osg::Vec3(0.0f, 0.0f, f));
        patch->clrArr->push_back(osg::Vec3(f / 10.0f, 0.5f, 1.0f));
        patch->stateArr->push_back(static_cast<signed char>(i % 3 + 1));
        patch->patchIdData.push_back(ids[i]);
        patch->patchFrameIdData.push_back(int(i) + 100);
    }
    return patch;
}

// The writer commits without waiting; work on one queue runs in order, so an empty command
// buffer committed after it completes after it.
void waitForWriter(IncrePointMetal& writer)
{
    NS::AutoreleasePool* pool = NS::AutoreleasePool::alloc()->init();
    MTL::CommandBuffer* fence = writer.commandQueue()->commandBuffer();
    fence->commit();
    fence->waitUntilCompleted();
    pool->release();
}

class IncrePointMetalTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QMutexLocker lock(&g_logMutex);
        g_log.clear();
    }
};

TEST_F(IncrePointMetalTest, BuildsBothPipelinesFromTheCatalogue)
{
    IncrePointMetal writer;
    EXPECT_EQ(logCount("shader library is null!"), 0);
    EXPECT_EQ(logCount("device is null or shader library is null!"), 0);
    ASSERT_NE(writer.commandQueue(), nullptr);
}

TEST_F(IncrePointMetalTest, InterleavedPatchLandsAtItsVertexIds)
{
    IncrePointMetal writer;
    WholeCloud cloud;
    auto patch = makePatch({5, 100, -1, 2047});
    ASSERT_TRUE(writer.updatePatch2(patch.get(), cloud.data));
    waitForWriter(writer);

    EXPECT_EQ(cloud.positionOf(5), osg::Vec3(1.0f, 1.25f, 1.5f));
    EXPECT_EQ(cloud.positionOf(100), osg::Vec3(2.0f, 2.25f, 2.5f));
    EXPECT_EQ(cloud.positionOf(2047), osg::Vec3(4.0f, 4.25f, 4.5f));
    EXPECT_EQ(cloud.normal.get()[3 * 100 + 2], 2.0f);
    EXPECT_FLOAT_EQ(cloud.color.get()[3 * 5], 0.1f);
    EXPECT_EQ(cloud.frameId.get()[5], 100);
    EXPECT_EQ(cloud.frameId.get()[2047], 103);
    // The point without a target (-1) was written nowhere: vertex 0 stays zero.
    EXPECT_EQ(cloud.positionOf(0), osg::Vec3());
    // The kernel writes the state as an int, four bytes from byte 4 x id of the byte-wide area;
    // id 2047 lies past the area's end and is dropped.
    int state5 = 0;
    std::memcpy(&state5, cloud.state.get() + 4 * 5, 4);
    EXPECT_EQ(state5, 1);
    int state100 = 0;
    std::memcpy(&state100, cloud.state.get() + 4 * 100, 4);
    EXPECT_EQ(state100, 2);
}

TEST_F(IncrePointMetalTest, DispatchCoversWholeThreadgroupsOnly)
{
    // 1025 points: one threadgroup of 1024, so the last point gets no thread.
    IncrePointMetal writer;
    WholeCloud cloud;
    std::vector<int> ids(1025);
    for (int i = 0; i < 1025; ++i)
        ids[i] = i;
    auto patch = makePatch(ids);
    ASSERT_TRUE(writer.updatePatch2(patch.get(), cloud.data));
    waitForWriter(writer);
    EXPECT_EQ(cloud.positionOf(1023), osg::Vec3(1024.0f, 1024.25f, 1024.5f));
    EXPECT_EQ(cloud.positionOf(1024), osg::Vec3());
}

TEST_F(IncrePointMetalTest, SeparateBuffersReadTheIdsAsFloat)
{
    // The ids' int bits read as float are tiny numbers: every point lands on vertex 0.
    IncrePointMetal writer;
    WholeCloud cloud;
    auto patch = makePatch({5});
    ASSERT_TRUE(writer.updatePatch(patch.get(), cloud.data));
    waitForWriter(writer);
    EXPECT_EQ(cloud.positionOf(0), osg::Vec3(1.0f, 1.25f, 1.5f));
    EXPECT_EQ(cloud.positionOf(5), osg::Vec3());
}

TEST_F(IncrePointMetalTest, BadInputIsLoggedAndRefused)
{
    IncrePointMetal writer;
    WholeCloud cloud;
    auto patch = makePatch({1});

    EXPECT_FALSE(writer.updatePatch(nullptr, cloud.data));
    EXPECT_FALSE(writer.updatePatch2(nullptr, cloud.data));
    EXPECT_EQ(logCount("pPatch null!"), 2);

    WholePointBufferData noPosition = cloud.data;
    noPosition.position = nullptr;
    EXPECT_FALSE(writer.updatePatch(patch.get(), noPosition));
    EXPECT_FALSE(writer.updatePatch2(patch.get(), noPosition));
    EXPECT_EQ(logCount("bufferData is invalid"), 2);

    // Memory that a buffer cannot alias: not page-aligned, or not a whole number of pages.
    WholePointBufferData unaligned = cloud.data;
    unaligned.position = cloud.position.get() + 1;
    EXPECT_FALSE(writer.updatePatch2(patch.get(), unaligned));
    EXPECT_EQ(logCount("posBuf is invalid"), 1);
    WholePointBufferData shortNormal = cloud.data;
    shortNormal.normalBytes = 100;
    EXPECT_FALSE(writer.updatePatch2(patch.get(), shortNormal));
    EXPECT_EQ(logCount("normalBuf is invalid"), 1);
    WholePointBufferData noColor = cloud.data;
    noColor.color = nullptr;
    EXPECT_FALSE(writer.updatePatch2(patch.get(), noColor));
    EXPECT_EQ(logCount("colorBuf is invalid"), 1);
    WholePointBufferData noState = cloud.data;
    noState.state = nullptr;
    EXPECT_FALSE(writer.updatePatch2(patch.get(), noState));
    EXPECT_EQ(logCount("stateBuf is invalid"), 1);
    WholePointBufferData noFrameId = cloud.data;
    noFrameId.frameId = nullptr;
    EXPECT_FALSE(writer.updatePatch2(patch.get(), noFrameId));
    EXPECT_EQ(logCount("frameIdBuf is invalid"), 1);

    MTL::Buffer* out = nullptr;
    EXPECT_FALSE(writer.createPatchtMetalBuffer2(nullptr, &out));
    MTL::Buffer *vid = nullptr, *pos = nullptr, *normal = nullptr, *color = nullptr,
                *state = nullptr;
    EXPECT_FALSE(writer.createPatchtMetalBuffer(nullptr, &vid, &pos, &normal, &color, &state));
    EXPECT_EQ(logCount("pPatch is null!"), 2);

    // Nothing was written by the refused calls.
    waitForWriter(writer);
    EXPECT_EQ(cloud.positionOf(1), osg::Vec3());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(captureMessage);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
