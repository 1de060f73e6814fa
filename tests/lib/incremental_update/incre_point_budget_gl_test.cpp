// The live cloud under a point budget: thinned while the view moves, whole again on its own
// once it stops, and then the same image as without a budget.
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "incre_point_geomtry_apple.h"
#include "orvane_operations.h"
#include "render_info.h"

#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <osg/Geode>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

#ifndef GL_PRIMITIVES_GENERATED
#define GL_PRIMITIVES_GENERATED 0x8C87
#endif

constexpr int kSide = 40;
constexpr int kPoints = kSide * kSide;
constexpr uint32_t kBudget = 100;

// What one draw of the cloud sent down the pipeline: points counted by the GL, and the view.
struct DrawRecord {
    osg::Matrixd view;
    GLuint points = 0;
};

// Counts the points each draw of the cloud generates, with a query around the draw.
class CountingDraw : public osg::Drawable::DrawCallback
{
public:
    void drawImplementation(osg::RenderInfo& renderInfo,
                            const osg::Drawable* drawable) const override
    {
        QOpenGLExtraFunctions* gl = QOpenGLContext::currentContext()->extraFunctions();
        GLuint query = 0;
        gl->glGenQueries(1, &query);
        gl->glBeginQuery(GL_PRIMITIVES_GENERATED, query);
        drawable->drawImplementation(renderInfo);
        gl->glEndQuery(GL_PRIMITIVES_GENERATED);
        DrawRecord record;
        gl->glGetQueryObjectuiv(query, GL_QUERY_RESULT, &record.points);
        gl->glDeleteQueries(1, &query);
        record.view = renderInfo.getCurrentCamera()->getViewMatrix();
        std::lock_guard<std::mutex> lock(mutex);
        records.push_back(record);
    }

    std::vector<DrawRecord> taken() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return records;
    }

    mutable std::mutex mutex;
    mutable std::vector<DrawRecord> records;
};

// A square grid of points in the plane y = 0, facing the camera on -y. Only every
// `visibleEvery`-th point keeps state 0; the others are deleted (-1).
std::shared_ptr<IncrePatchData> gridPatch(int visibleEvery = 1)
{
    auto patch = std::make_shared<IncrePatchData>();
    patch->vertArr = new osg::Vec3Array;
    patch->normArr = new osg::Vec3Array;
    patch->stateArr = new osg::ByteArray;
    for (int i = 0; i < kPoints; ++i) {
        const float x = -2.0f + 4.0f * (i % kSide) / (kSide - 1);
        const float z = -1.5f + 3.0f * (i / kSide) / (kSide - 1);
        patch->vertArr->push_back(osg::Vec3(x, 0.0f, z));
        patch->normArr->push_back(osg::Vec3(0.0f, -1.0f, 0.0f));
        patch->stateArr->push_back(i % visibleEvery == 0 ? 0 : -1);
        patch->patchIdData.push_back(i);
    }
    return patch;
}

class PointBudgetTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        w.item()->setClearColor(Qt::black);
        ASSERT_TRUE(w.show());
        ASSERT_TRUE(w.lookAt(kEye, osg::Vec3d(), osg::Vec3d(0, 0, 1)));
        cloud = new IncrePointGeometryApple(false, false, true);
        cloud->setBoxValue(osg::Vec3f(-2, -1, -2), osg::Vec3f(2, 1, 2));
        cloud->setDrawCallback(counter.get());
        // Begun as startLiveCloud does, with time for the first buffers on a loaded machine.
        auto started = std::make_shared<std::atomic<bool>>(false);
        osg::ref_ptr<IncrePointGeometryApple> held = cloud;
        w.item()->addOperation(new LambdaOperation([held, started](RenderInfo& info) {
            held->startScan(ViewMgr::getModel(info.mainView()), true);
            *started = true;
        }));
        ASSERT_TRUE(waitUntil([&] { return started->load(); }, 60000));
        ASSERT_TRUE(cloud->isInited());
        cloud->setWholeSize(kPoints);
        cloud->setPatchVertexSize(kPoints);
        cloud->addIncreasePatchData(gridPatch());
        w.item()->frame();
        ASSERT_TRUE(waitUntil(
            [&] { return cloud->queuedPatchCount() == 0 && cloud->drawnPointCount() == kPoints; }));
    }

    // Turns the camera a little about the grid's centre, a frame at a time.
    void orbit(int steps)
    {
        for (int step = 1; step <= steps; ++step) {
            const double angle = 0.05 * step;
            ASSERT_TRUE(w.lookAt(osg::Vec3d(10.0 * std::sin(angle), -10.0 * std::cos(angle), 0.0),
                                 osg::Vec3d(), osg::Vec3d(0, 0, 1)));
        }
    }

    const osg::Vec3d kEye = osg::Vec3d(0.0, -10.0, 0.0);
    CanvasWindow w;
    osg::ref_ptr<CountingDraw> counter = new CountingDraw;
    osg::ref_ptr<IncrePointGeometryApple> cloud;
};

} // namespace

TEST_F(PointBudgetTest, WhileTheCameraMovesNoFrameDrawsMoreThanTheBudget)
{
    EXPECT_EQ(cloud->pointBudget(), 0u) << "off by default";
    cloud->setPointBudget(kBudget);
    const size_t before = counter->taken().size();
    orbit(6);
    const std::vector<DrawRecord> records = counter->taken();
    int moving = 0;
    for (size_t i = std::max<size_t>(before, 1); i < records.size(); ++i) {
        if (records[i].view == records[i - 1].view)
            continue;
        ++moving;
        EXPECT_LE(records[i].points, kBudget) << "frame " << i;
        // Spread over the cloud, not a handful of points: a stride of 16 leaves exactly 100.
        EXPECT_EQ(records[i].points, kBudget) << "frame " << i;
    }
    EXPECT_GE(moving, 6);
}

TEST_F(PointBudgetTest, WithoutABudgetAMovingCameraDrawsEveryPoint)
{
    const size_t before = counter->taken().size();
    orbit(3);
    const std::vector<DrawRecord> records = counter->taken();
    ASSERT_GT(records.size(), before);
    for (size_t i = before; i < records.size(); ++i)
        EXPECT_EQ(records[i].points, static_cast<GLuint>(kPoints));
}

TEST_F(PointBudgetTest, TheFullFrameFollowsUnaskedAndLooksAsWithoutABudget)
{
    const QImage unbudgeted = w.grab();
    cloud->setPointBudget(kBudget);
    orbit(3);
    ASSERT_TRUE(w.lookAt(kEye, osg::Vec3d(), osg::Vec3d(0, 0, 1)));
    // Nobody asks for a frame from here on. The count is recorded after the draw returns, a
    // moment after the cloud reports it.
    const auto fullDrawRecorded = [&] {
        const std::vector<DrawRecord> records = counter->taken();
        return !records.empty() && records.back().points == static_cast<GLuint>(kPoints);
    };
    ASSERT_TRUE(waitUntil([&] { return cloud->drawnPointCount() == kPoints; }, 60000));
    EXPECT_TRUE(waitUntil(fullDrawRecorded, 5000));
    const QImage full = w.grab();
    ASSERT_EQ(full.size(), unbudgeted.size());
    int differing = 0;
    for (int y = 0; y < full.height(); ++y)
        for (int x = 0; x < full.width(); ++x)
            differing += full.pixel(x, y) != unbudgeted.pixel(x, y) ? 1 : 0;
    EXPECT_EQ(differing, 0);
}

TEST_F(PointBudgetTest, AWakeUpArmedUnderALongerSettleTimeDoesNotHoldBackTheFullFrame)
{
    // Moving under a ten-minute settle time arms a wake-up ten minutes away.
    cloud->setPointBudget(kBudget, 600000);
    orbit(2);
    ASSERT_LT(cloud->drawnPointCount(), static_cast<uint32_t>(kPoints));
    cloud->setPointBudget(kBudget, 100);
    ASSERT_TRUE(w.lookAt(kEye, osg::Vec3d(), osg::Vec3d(0, 0, 1)));
    EXPECT_TRUE(waitUntil([&] { return cloud->drawnPointCount() == kPoints; }, 30000));
}

// Budgets whose stride fits the GL's attribute stride limit (read through strides) and one whose
// stride passes it (read through indices).
class ThinnedDrawTest : public PointBudgetTest, public ::testing::WithParamInterface<uint32_t>
{
};

TEST_P(ThinnedDrawTest, AThinnedFrameDrawsEveryKthPointWithItsOwnAttributes)
{
    const uint32_t budget = GetParam();
    const int every = static_cast<int>((kPoints + budget - 1) / budget);
    // Only the points a thinned frame draws are left visible: a state or position read from
    // another point shows as a difference from the full frame.
    cloud->addIncreasePatchData(gridPatch(every));
    w.item()->frame();
    ASSERT_TRUE(waitUntil([&] { return cloud->queuedPatchCount() == 0; }));
    w.installFrameCounter();
    // Never settles on its own here.
    cloud->setPointBudget(budget, 600000);
    orbit(2);
    const osg::Vec3d eye(10.0 * std::sin(0.1), -10.0 * std::cos(0.1), 0.0);
    ASSERT_TRUE(w.lookAt(eye, osg::Vec3d(), osg::Vec3d(0, 0, 1)));
    // Frames of a still camera stay thinned until the settle time has passed.
    const QImage thinned = w.grabAfterFrames(2);
    ASSERT_EQ(cloud->drawnPointCount(), static_cast<uint32_t>((kPoints + every - 1) / every));
    cloud->setPointBudget(0);
    const QImage full = w.grabAfterFrames(2);
    ASSERT_EQ(cloud->drawnPointCount(), static_cast<uint32_t>(kPoints));
    int lit = 0, differing = 0;
    for (int y = 0; y < full.height(); ++y)
        for (int x = 0; x < full.width(); ++x) {
            lit += qGray(full.pixel(x, y)) > 40 ? 1 : 0;
            differing += full.pixel(x, y) != thinned.pixel(x, y) ? 1 : 0;
        }
    EXPECT_GT(lit, 0);
    EXPECT_EQ(differing, 0);
}

INSTANTIATE_TEST_SUITE_P(StridedAndIndexed, ThinnedDrawTest, ::testing::Values(100u, 5u));
