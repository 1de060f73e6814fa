// The whole-cloud buffers on a real context: growth policy, parking, restoring, read-back.
#include "failing_whole_buffer.h"
#include "gl_test_support.h"
#include "incre_whole_data_buffer.h"

#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <cstring>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;

namespace {

class WholeBufferTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_surface.create();
        if (!m_context.create() || !m_context.makeCurrent(&m_surface))
            GTEST_SKIP() << "no OpenGL context";
        gl = m_context.versionFunctions<QOpenGLFunc>();
        if (!gl || !gl->initializeOpenGLFunctions())
            GTEST_SKIP() << "no OpenGL 4.1 functions";
    }
    void TearDown() override
    {
        if (buffer)
            buffer->release();
        m_context.doneCurrent();
    }

    std::vector<float> fetch(int index, int count)
    {
        std::vector<float> out(static_cast<size_t>(count) * 3);
        EXPECT_TRUE(buffer->fetchAttrib(index, count, reinterpret_cast<char*>(out.data())));
        return out;
    }

    QOffscreenSurface m_surface;
    QOpenGLContext m_context;
    QOpenGLFunc* gl = nullptr;
    std::shared_ptr<IncrePtCommonWholeBuffer> buffer = std::make_shared<IncrePtCommonWholeBuffer>();
};

// Vertices that a buffer made for `vertices` holds: its bytes are rounded up to 4096.
qint64 capacityFor(qint64 vertices)
{
    return (vertices * 12 + 4095) / 4096 * 4096 / 12;
}

osg::ref_ptr<osg::Vec3Array> ramp(int n, float base)
{
    osg::ref_ptr<osg::Vec3Array> a = new osg::Vec3Array;
    for (int i = 0; i < n; ++i)
        a->push_back(osg::Vec3(base + i, base - i, 0.5f * i));
    return a;
}

} // namespace

TEST_F(WholeBufferTest, InitialBuffersAreZeroedAndRoundedTo4096)
{
    ASSERT_TRUE(buffer->init(true, gl));
    EXPECT_EQ(buffer->capacity(), 60002304 / 12);
    for (int index = 0; index < WDBI_AttribBufNum; ++index)
        EXPECT_NE(buffer->getBuf(index), 0u) << index;
    const std::vector<float> start = fetch(WDBI_Position, 1000);
    EXPECT_EQ(std::count(start.begin(), start.end(), 0.0f), 3000);

    OrvaneTest::LogCapture log;
    EXPECT_TRUE(buffer->init(true, gl));
    EXPECT_TRUE(log.contains("Already initialized"));
    EXPECT_EQ(buffer->getBuf(7), 0u);
    EXPECT_TRUE(log.contains("Failed, bufIndex < 0 || bufIndex >= WDBI_AttribBufNum, bufIndex is"));
}

TEST_F(WholeBufferTest, GrowthIsStrictAdditiveAndKeepsTheData)
{
    ASSERT_TRUE(buffer->init(false, gl));
    EXPECT_EQ(buffer->getBuf(WDBI_Color), 0u);
    osg::ref_ptr<osg::Vec3Array> points = ramp(100, 1.0f);
    ASSERT_TRUE(buffer->wholeUpdate(points, points, nullptr, nullptr));

    EXPECT_EQ(buffer->autoResizeByVertNum(true, 4999999, 0), RR_NoChange);
    // Required equal to the capacity still grows: by two million in an incremental update.
    const qint64 capacity = buffer->capacity();
    EXPECT_EQ(buffer->autoResizeByVertNum(true, static_cast<uint>(capacity) - 1, 1), RR_Resized);
    EXPECT_EQ(buffer->capacity(), capacityFor(capacity + 2000000));
    EXPECT_EQ(buffer->getBuf(WDBI_Color), 0u);

    // A whole update grows by 20,000 only.
    const qint64 grown = buffer->capacity();
    EXPECT_EQ(buffer->autoResizeByVertNum(false, static_cast<uint>(grown) + 5, 0), RR_Resized);
    EXPECT_EQ(buffer->capacity(), capacityFor(grown + 5 + 20000));

    // The points are kept and everything past them, old room and new, still reads as zero.
    const std::vector<float> back = fetch(WDBI_Position, static_cast<int>(grown) + 100);
    for (int i = 0; i < 100; ++i)
        EXPECT_FLOAT_EQ(back[i * 3], 1.0f + i) << i;
    EXPECT_EQ(std::count(back.begin() + 300, back.end(), 0.0f),
              static_cast<std::ptrdiff_t>(back.size()) - 300);
}

TEST_F(WholeBufferTest, OverflowingRequestsFailAndChangeNothing)
{
    ASSERT_TRUE(buffer->init(true, gl));
    OrvaneTest::LogCapture log;
    const GLuint position = buffer->getBuf(WDBI_Position);
    EXPECT_EQ(buffer->autoResizeByVertNum(true, 4000000000u, 400000000u), RR_Failed);
    EXPECT_TRUE(log.contains("vertex count overflow, whole:"));
    EXPECT_EQ(buffer->autoResizeByVertNum(false, 4294967295u - 10000u, 0), RR_Failed);
    EXPECT_TRUE(log.contains("expanded vertex count overflow, required:"));
    EXPECT_EQ(buffer->getBuf(WDBI_Position), position);
    EXPECT_EQ(buffer->capacity(), capacityFor(5000000));
}

TEST_F(WholeBufferTest, ParkingAndRestoringKeepTheCapacityAndLoadTheHostCloud)
{
    ASSERT_TRUE(buffer->init(true, gl));
    ASSERT_EQ(buffer->autoResizeByVertNum(true, 5000192, 0), RR_Resized);
    const qint64 capacity = buffer->capacity();
    OrvaneTest::LogCapture log;
    ASSERT_TRUE(buffer->delBufAndRecordSize());
    EXPECT_EQ(buffer->getBuf(WDBI_Position), 0u);
    EXPECT_TRUE(log.contains("m_buffArr.size() != WDBI_AttribBufNum, return 0"));
    EXPECT_FALSE(buffer->delBufAndRecordSize());
    EXPECT_EQ(buffer->parkedCapacity(), capacity);

    osg::ref_ptr<osg::Vec3Array> points = ramp(50, 2.0f), colours = ramp(50, 7.0f);
    osg::ref_ptr<osg::ByteArray> states = new osg::ByteArray(50);
    (*states)[3] = -1;
    (*states)[4] = 5;
    EXPECT_FALSE(buffer->restorePreBuf(points, points, nullptr, states));
    EXPECT_TRUE(log.contains("Invalid colour array 1 !!"));
    EXPECT_FALSE(buffer->restorePreBuf(points, ramp(49, 0), colours, states));
    EXPECT_TRUE(log.contains("Invalid position or normal or state array !!"));
    EXPECT_EQ(buffer->getBuf(WDBI_Position), 0u) << "a refused restore leaves no buffers";

    ASSERT_TRUE(buffer->restorePreBuf(points, points, colours, states));
    EXPECT_EQ(buffer->capacity(), capacityFor(capacity));
    const std::vector<float> colourBack = fetch(WDBI_Color, 50);
    EXPECT_FLOAT_EQ(colourBack[3 * 10], 17.0f);
    std::vector<signed char> stateBack(50);
    ASSERT_TRUE(buffer->fetchAttrib(WDBI_State, 50, reinterpret_cast<char*>(stateBack.data())));
    EXPECT_EQ(stateBack[3], -1);
    EXPECT_EQ(stateBack[4], 5);
}

TEST_F(WholeBufferTest, RestoringMoreThanTheParkedCapacityFails)
{
    ASSERT_TRUE(buffer->init(false, gl));
    ASSERT_TRUE(buffer->wholeUpdate(ramp(10, 0), ramp(10, 0), nullptr, nullptr));
    ASSERT_TRUE(buffer->delBufAndRecordSize());
    const qint64 parked = buffer->parkedCapacity();
    osg::ref_ptr<osg::Vec3Array> tooMany = new osg::Vec3Array(static_cast<unsigned>(parked + 1));
    osg::ref_ptr<osg::ByteArray> states = new osg::ByteArray(static_cast<unsigned>(parked + 1));
    OrvaneTest::LogCapture log;
    EXPECT_FALSE(buffer->restorePreBuf(tooMany, tooMany, nullptr, states));
    EXPECT_TRUE(log.contains("Failed, m_preBufSize < needWriteEleNum !!"));
    EXPECT_EQ(buffer->getBuf(WDBI_Position), 0u);
}

TEST_F(WholeBufferTest, ReadBackRefusesWhatItCannotServe)
{
    OrvaneTest::LogCapture log;
    char dst[12];
    EXPECT_FALSE(buffer->fetchAttrib(WDBI_Position, 1, dst));
    EXPECT_TRUE(log.contains("Failed, not initialized !!"));
    ASSERT_TRUE(buffer->init(false, gl));
    EXPECT_FALSE(buffer->fetchAttrib(9, 1, dst));
    EXPECT_TRUE(log.contains("Invalid bufIndex:"));
    EXPECT_FALSE(buffer->fetchAttrib(WDBI_Position, 0, dst));
    EXPECT_TRUE(log.contains("Failed, fetchVertNum <= 0, fetchVertNum:"));
    const int before = log.lines().size();
    EXPECT_FALSE(buffer->fetchAttrib(WDBI_Color, 1, dst));
    EXPECT_EQ(log.lines().size(), before) << "no colour buffer, no message";
    std::vector<char> big(static_cast<size_t>(capacityFor(5000000) + 1) * 12);
    EXPECT_FALSE(
        buffer->fetchAttrib(WDBI_Position, static_cast<int>(capacityFor(5000000)) + 1, big.data()));
    EXPECT_TRUE(log.contains("buffer is smaller than requested read size"));
}

TEST_F(WholeBufferTest, WholeUpdateChecksItsArraysAndGrowsToFit)
{
    ASSERT_TRUE(buffer->init(true, gl));
    OrvaneTest::LogCapture log;
    EXPECT_FALSE(buffer->wholeUpdate(ramp(5, 0), ramp(4, 0), nullptr, nullptr));
    EXPECT_TRUE(log.contains("Failed, invalid position or normal array !!"));
    EXPECT_FALSE(buffer->wholeUpdate(ramp(5, 0), ramp(5, 0), ramp(4, 0), nullptr));
    EXPECT_TRUE(log.contains("Failed, invalid color array !!"));
    EXPECT_TRUE(buffer->wholeUpdate(ramp(5, 3.0f), ramp(5, 0), ramp(5, 0), nullptr));
    EXPECT_TRUE(log.contains("dataPtr is null, bufIndex: 3"));
    EXPECT_FLOAT_EQ(fetch(WDBI_Position, 5)[12], 7.0f);
}

TEST_F(WholeBufferTest, FailedGrowthKeepsTheOldBuffersAndTheirData)
{
    auto failing = std::make_shared<OrvaneTest::FailingWholeBuffer>();
    buffer = failing;
    ASSERT_TRUE(buffer->init(true, gl));
    ASSERT_TRUE(buffer->wholeUpdate(ramp(100, 1.0f), ramp(100, 0), ramp(100, 5.0f), nullptr));
    GLuint before[WDBI_AttribBufNum];
    for (int index = 0; index < WDBI_AttribBufNum; ++index)
        before[index] = buffer->getBuf(index);
    const qint64 capacity = buffer->capacity();

    // The third of the four new buffers can't be had.
    failing->failAt = failing->allocations + 2;
    const size_t firstNew = failing->asked.size();
    OrvaneTest::LogCapture log;
    EXPECT_EQ(buffer->autoResizeByVertNum(true, static_cast<uint>(capacity), 10), RR_Failed);
    EXPECT_TRUE(
        log.contains("temporary buffer initialization allocation failed, new vertex count:"));
    for (int index = 0; index < WDBI_AttribBufNum; ++index)
        EXPECT_EQ(buffer->getBuf(index), before[index]) << index;
    EXPECT_EQ(buffer->capacity(), capacity);
    ASSERT_EQ(failing->asked.size(), firstNew + 3);
    for (size_t i = firstNew; i < failing->asked.size(); ++i)
        EXPECT_FALSE(gl->glIsBuffer(failing->asked[i])) << "temporary " << i << " freed";
    const std::vector<float> positions = fetch(WDBI_Position, 100);
    const std::vector<float> colours = fetch(WDBI_Color, 100);
    for (int i = 0; i < 100; ++i) {
        EXPECT_FLOAT_EQ(positions[i * 3], 1.0f + i) << i;
        EXPECT_FLOAT_EQ(colours[i * 3], 5.0f + i) << i;
    }

    // The same request succeeds once memory is there again, with the data carried over.
    failing->failAt = -1;
    EXPECT_EQ(buffer->autoResizeByVertNum(true, static_cast<uint>(capacity), 10), RR_Resized);
    EXPECT_GT(buffer->capacity(), capacity);
    EXPECT_FLOAT_EQ(fetch(WDBI_Position, 100)[99 * 3], 100.0f);
}

// A scan parked and resumed many times must not keep the memory of the buffers it let go.
TEST_F(WholeBufferTest, ParkedBuffersGiveTheirMemoryBack)
{
#ifdef ORVANE_SANITIZED
    GTEST_SKIP() << "the sanitizer's allocator keeps freed memory in quarantine";
#endif
    ASSERT_TRUE(buffer->init(true, gl));
    const auto fill = [&] {
        const GLsizeiptr bytes = static_cast<GLsizeiptr>(buffer->capacity()) * 12;
        for (int index : {WDBI_Position, WDBI_Normal, WDBI_Color}) {
            gl->glBindBuffer(GL_ARRAY_BUFFER, buffer->getBuf(index));
            void* data = gl->glMapBufferRange(GL_ARRAY_BUFFER, 0, bytes, GL_MAP_WRITE_BIT);
            ASSERT_NE(data, nullptr);
            std::memset(data, 1, static_cast<size_t>(bytes));
            gl->glUnmapBuffer(GL_ARRAY_BUFFER);
        }
        gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    };
    osg::ref_ptr<osg::Vec3Array> one = ramp(1, 1.0f);
    osg::ref_ptr<osg::ByteArray> state = new osg::ByteArray(1);
    double afterFirstPark = 0.0;
    for (int cycle = 0; cycle < 4; ++cycle) {
        if (cycle > 0) {
            ASSERT_TRUE(buffer->restorePreBuf(one, one, one, state));
        }
        fill();
        const double filled = OrvaneTest::residentMiB();
        ASSERT_TRUE(buffer->delBufAndRecordSize());
        const double parked = OrvaneTest::residentMiB();
        // Three 5M-point float arrays are 172 MiB; a driver may keep a little back.
        EXPECT_GT(filled - parked, 150.0) << "cycle " << cycle;
        if (cycle == 0) {
            afterFirstPark = parked;
        } else {
            EXPECT_LT(parked - afterFirstPark, 32.0) << "cycle " << cycle;
        }
    }
}
