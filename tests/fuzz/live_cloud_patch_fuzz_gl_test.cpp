// Random patches, good and bad, streamed into a live cloud on a canvas: no crash, every bad
// patch answered by its log line, and what comes back equals a model of the last write per id.
#include "fuzz_runs.h"
#include "gl_test_support.h"
#include "incre_point_geomtry_apple.h"
#include "live_cloud_start.h"
#include "orvane_operations.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <memory>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::LogCapture;
using OrvaneTest::waitUntil;

namespace {

constexpr int kIds = 4096;

// Warnings go to the capture only: a million of them on the console helps no one.
void quiet(QtMsgType, const QMessageLogContext&, const QString&) {}

struct Point {
    osg::Vec3 position, normal, color;
    signed char state = 0;
};

enum Kind {
    Good,
    NullPatch,
    NullArray,
    SizeMismatch,
    Empty,
    BadIds,
    KindCount,
};

class PatchFuzz
{
public:
    PatchFuzz(bool rigid, std::mt19937_64& random) : m_rigid(rigid), m_random(random) {}

    // A patch of `kind`; the points it would land are written to `model`.
    std::shared_ptr<IncrePatchData> make(Kind kind, std::vector<Point>& model)
    {
        if (kind == NullPatch)
            return nullptr;
        auto patch = std::make_shared<IncrePatchData>();
        int n = kind == Empty ? 0 : 1 + static_cast<int>(m_random() % 64);
        if (kind != Empty && m_random() % 200 == 0)
            n = 16384 + static_cast<int>(m_random() % 4000); // the two-worker scatter
        patch->vertArr = new osg::Vec3Array;
        patch->normArr = new osg::Vec3Array;
        const bool withColor = m_random() % 4 != 0;
        const bool withState = m_random() % 4 != 0;
        patch->clrArr = withColor ? new osg::Vec3Array : nullptr;
        patch->stateArr = withState ? new osg::ByteArray : nullptr;
        for (int i = 0; i < n; ++i) {
            patch->vertArr->push_back(osg::Vec3(coordinate(), coordinate(), coordinate()));
            patch->normArr->push_back(osg::Vec3(coordinate(), coordinate(), coordinate()));
            if (withColor)
                patch->clrArr->push_back(osg::Vec3(unit(), unit(), unit()));
            if (withState)
                patch->stateArr->push_back(static_cast<GLbyte>(m_random() % 256));
            patch->patchIdData.push_back(kind == BadIds ? wildId() : goodId());
            // Frame ids need not have matrices: such points read a zero matrix in the shader.
            const bool frames = !m_rigid || m_random() % 2;
            if (frames)
                patch->patchFrameIdData.push_back(static_cast<int>(m_random() % 1000003) - 3);
        }
        if (m_rigid && m_random() % 3 == 0 && n > 0)
            patch->patchFrameIdData.resize(m_random() % (2 * n)); // ignored in a rigid scan
        if (kind == NullArray) {
            if (m_random() % 2)
                patch->vertArr = nullptr;
            else
                patch->normArr = nullptr;
        } else if (kind == SizeMismatch) {
            mismatch(*patch, n);
        }
        if (kind == Good || kind == BadIds)
            for (int i = 0; i < n; ++i) {
                const int id = patch->patchIdData[i];
                if (id < 0 || id >= kIds)
                    continue;
                Point& p = model[id];
                p.position = (*patch->vertArr)[i];
                p.normal = (*patch->normArr)[i];
                if (withColor)
                    p.color = (*patch->clrArr)[i];
                // A patch without states clears the states of what it touches.
                p.state = withState ? (*patch->stateArr)[i] : 0;
            }
        return patch;
    }

private:
    float unit() { return static_cast<float>(m_random() % 1000) / 999.0f; }

    float coordinate()
    {
        switch (m_random() % 16) {
        case 0:
            return std::numeric_limits<float>::quiet_NaN();
        case 1:
            return std::numeric_limits<float>::infinity();
        case 2:
            return -std::numeric_limits<float>::infinity();
        case 3:
            return std::numeric_limits<float>::max();
        case 4:
            return std::numeric_limits<float>::denorm_min();
        default:
            return static_cast<float>(static_cast<int64_t>(m_random() % 20001) - 10000) / 100.0f;
        }
    }

    int goodId()
    {
        // Overlaps on purpose: the last write must win.
        return static_cast<int>(m_random() % kIds);
    }

    int wildId()
    {
        switch (m_random() % 5) {
        case 0:
            return -1 - static_cast<int>(m_random() % 1000);
        case 1:
            return std::numeric_limits<int>::min();
        case 2:
            return std::numeric_limits<int>::max();
        case 3:
            return (1 << 30) + static_cast<int>(m_random() % 1000);
        default:
            return goodId();
        }
    }

    void mismatch(IncrePatchData& patch, int n)
    {
        const int choices = m_rigid ? 4 : 5;
        const int extra = 1 + static_cast<int>(m_random() % 3);
        const auto resize = [&](auto& array) {
            array.resize(m_random() % 2 && n > 0 ? n - 1 : n + extra);
        };
        switch (m_random() % choices) {
        case 0:
            resize(*patch.normArr);
            break;
        case 1:
            resize(patch.patchIdData);
            break;
        case 2:
            if (!patch.stateArr)
                patch.stateArr = new osg::ByteArray;
            resize(*patch.stateArr);
            break;
        case 3:
            if (!patch.clrArr)
                patch.clrArr = new osg::Vec3Array;
            resize(*patch.clrArr);
            break;
        default:
            resize(patch.patchFrameIdData);
            break;
        }
    }

    bool m_rigid;
    std::mt19937_64& m_random;
};

class LiveCloudPatchFuzz : public ::testing::TestWithParam<bool>
{
protected:
    void SetUp() override
    {
        m_previous = qInstallMessageHandler(quiet);
        ASSERT_TRUE(w.show());
    }
    void TearDown() override { qInstallMessageHandler(m_previous); }

    // Drains the queue: frames until every patch was taken.
    bool drain()
    {
        w.item()->frame();
        return waitUntil(
            [&] {
                if (cloud->queuedPatchCount() == 0)
                    return true;
                w.item()->frame();
                return false;
            },
            60000);
    }

    // One more frame drawn, as patient as drain(): a long run shares a loaded machine.
    bool frameDrawn()
    {
        auto done = std::make_shared<std::atomic<bool>>(false);
        w.item()->addOperation(new LambdaOperation([done](RenderInfo&) { *done = true; }));
        return waitUntil([done] { return done->load(); }, 60000);
    }

    void expectCloudEquals(const std::vector<Point>& model)
    {
        bool ended = false;
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { ended = cloud->endOfIncreUpdate(); }));
        ASSERT_TRUE(ended);
        auto* positions = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(0));
        auto* normals = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(1));
        auto* colors = dynamic_cast<osg::Vec3Array*>(cloud->getVertexAttribArray(2));
        auto* states = dynamic_cast<osg::ByteArray*>(cloud->getVertexAttribArray(4));
        ASSERT_TRUE(positions && normals && colors && states);
        ASSERT_EQ(positions->size(), static_cast<size_t>(kIds));
        // Byte for byte: NaN never equals itself.
        for (int id = 0; id < kIds; ++id) {
            ASSERT_EQ(std::memcmp(&(*positions)[id], &model[id].position, 12), 0) << id;
            ASSERT_EQ(std::memcmp(&(*normals)[id], &model[id].normal, 12), 0) << id;
            ASSERT_EQ(std::memcmp(&(*colors)[id], &model[id].color, 12), 0) << id;
            ASSERT_EQ((*states)[id], model[id].state) << id;
        }
        bool resumed = false;
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { resumed = cloud->beginOfIncreUpdate(); }));
        ASSERT_TRUE(resumed);
    }

    CanvasWindow w;
    osg::ref_ptr<IncrePointGeometryApple> cloud;
    QtMessageHandler m_previous = nullptr;
};

} // namespace

TEST_P(LiveCloudPatchFuzz, EveryBadPatchIsLoggedAndTheCloudEqualsTheModel)
{
    const bool rigid = GetParam();
    cloud = new IncrePointGeometryApple(true, false, true);
    OrvaneTest::startLiveCloud(w, cloud.get(), rigid);
    ASSERT_TRUE(cloud->isInited());
    cloud->setWholeSize(kIds);
    // A size past the limit draws the whole 5M-point first buffer, seconds a frame under a
    // sanitizer; thinned, those frames cost what the others do. The real cloud stays unthinned.
    cloud->setPointBudget(kIds, 600000);

    auto random = OrvaneFuzz::generator();
    random.discard(rigid ? 1 : 2);
    PatchFuzz fuzz(rigid, random);
    std::vector<Point> model(kIds);
    OrvaneFuzz::Figure figure(rigid ? "live_cloud_patch_rigid" : "live_cloud_patch_nonrigid");
    const std::uint64_t total = OrvaneFuzz::runs(3000);
    constexpr int kBatch = 256;
    int batches = 0;
    while (figure.inputs < total) {
        LogCapture log;
        int expected[KindCount] = {};
        // Patch sizes are growth hints only; a negative one counts as none.
        const int hints[] = {0, 64, -5, 1000000};
        cloud->setPatchVertexSize(hints[random() % 4]);
        if (!rigid && random() % 2) {
            std::vector<std::array<float, 16>> matrices(random() % 9);
            for (auto& m : matrices)
                m = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
            cloud->setFrameMatrix(matrices);
        }
        // Now and then the producer names a cloud past the limit: the queue waits, one line.
        const bool pastLimit = ++batches % 16 == 0;
        if (pastLimit)
            cloud->setWholeSize(IncrePointGeometryApple::kMaxPointCount + 1 +
                                static_cast<uint32_t>(random() % 1000));
        for (int k = 0; k < kBatch && figure.inputs < total; ++k, ++figure.inputs) {
            const Kind kind = static_cast<Kind>(random() % KindCount);
            auto patch = fuzz.make(kind, model);
            // A bad-id patch whose ids all happened to be good is a good one.
            if (kind == BadIds && std::all_of(patch->patchIdData.begin(), patch->patchIdData.end(),
                                              [](int id) { return id >= 0 && id < kIds; }))
                ++expected[Good];
            else
                ++expected[kind];
            cloud->addIncreasePatchData(std::move(patch));
        }
        if (pastLimit) {
            ASSERT_TRUE(frameDrawn());
            ASSERT_TRUE(frameDrawn());
            EXPECT_GT(cloud->queuedPatchCount(), 0u) << "the patches wait for a size that fits";
            cloud->setWholeSize(kIds);
        }
        ASSERT_TRUE(drain());
        EXPECT_EQ(log.count("patch is nullptr !!"), expected[NullPatch]);
        EXPECT_EQ(log.count("Unexpected patchData, vertArr:"), expected[NullArray]);
        EXPECT_EQ(log.count("Unexpected patchData size, vertex:"), expected[SizeMismatch]);
        EXPECT_EQ(log.count("Unexpected vertPathDataSize:"), expected[Empty]);
        EXPECT_EQ(log.count("patch contains invalid vertex ids"), expected[BadIds]);
        EXPECT_EQ(log.count("point count exceeds limit"), pastLimit ? 1 : 0);
        EXPECT_FALSE(log.contains("resize failed")) << qPrintable(log.lines().join("\n"));
        if (::testing::Test::HasFailure())
            return;
        // Pausing and resuming now and then: the cloud survives the round trip.
        if (batches % 64 == 0) {
            expectCloudEquals(model);
            figure.progress();
        }
    }
    expectCloudEquals(model);
}

INSTANTIATE_TEST_SUITE_P(RigidAndNonRigid, LiveCloudPatchFuzz, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "Rigid" : "NonRigid";
                         });
