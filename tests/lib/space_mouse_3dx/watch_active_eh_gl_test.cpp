// The depth of the square around the screen centre, read after the camera draws when asked.
#include "depth_readback_scene.h"
#include "watch_active_eh.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;

namespace {

// A plane facing the camera rasterises to one depth; 24-bit depth steps are 6e-8.
constexpr float kDepthTolerance = 1e-5f;

} // namespace

TEST(ScreenCenterPostDrawCallbackTest, ReadsTheCentreSquareWhenAskedAndLogsWithoutACamera)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    osg::ref_ptr<osg::Node> quad;
    const float quadDepth = OrvaneTest::showQuadAtKnownDepth(w, quad);
    ASSERT_GT(quadDepth, 0.0f);

    osg::ref_ptr<ScreenCenterPostDrawCallback> callback;
    osg::ref_ptr<ScreenCenterPostDrawCallback> orphan = new ScreenCenterPostDrawCallback(nullptr);
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        osg::Camera* camera = info.mainView()->getCamera();
        callback = new ScreenCenterPostDrawCallback(camera);
        camera->addPostDrawCallback(callback.get());
    }));
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_EQ(callback->depthImage()->data(), nullptr) << "not asked: nothing read";

    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { callback->needReadPixels(true); }));
    ASSERT_TRUE(w.run(nullptr));
    const osg::Image* depth = callback->depthImage();
    ASSERT_NE(depth->data(), nullptr);
    // A quarter of the longer side, square.
    const int side = std::max(CanvasWindow::kCanvasWidth, CanvasWindow::kHeight) / 4;
    EXPECT_EQ(depth->s(), side);
    EXPECT_EQ(depth->t(), side);
    // At this distance the quad is smaller than the square: the middle of the square is on
    // it, the corners on the cleared far plane.
    EXPECT_NEAR(OrvaneTest::depthAt(depth, side / 2, side / 2), quadDepth, kDepthTolerance);
    EXPECT_FLOAT_EQ(OrvaneTest::depthAt(depth, 0, 0), 1.0f);

    OrvaneTest::LogCapture log;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        orphan->needReadPixels(true);
        info.mainView()->getCamera()->addPostDrawCallback(orphan.get());
    }));
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_TRUE(log.contains("m_pCamera is nullptr"));
    EXPECT_EQ(orphan->depthImage()->data(), nullptr);
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        info.mainView()->getCamera()->removePostDrawCallback(orphan.get());
        info.mainView()->getCamera()->removePostDrawCallback(callback.get());
    }));
}
