// The camera's whole-viewport depth read for selections, on a live canvas.
#include "depth_callbacks.h"
#include "depth_readback_scene.h"
#include "selectDepthCallback.h"

#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;

namespace {

// A plane facing the camera rasterises to one depth; 24-bit depth steps are 6e-8.
constexpr float kDepthTolerance = 1e-5f;

} // namespace

TEST(SelectDepthCallbackTest, ReadsTheViewportsDepthOnlyWhileEnabled)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    osg::ref_ptr<osg::Node> quad;
    const float quadDepth = OrvaneTest::showQuadAtKnownDepth(w, quad);
    ASSERT_GT(quadDepth, 0.0f);
    ASSERT_LT(quadDepth, 1.0f);

    SelectDepthCallback* callback = nullptr;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        callback = findPostDrawCallback<SelectDepthCallback>(info.mainView()->getCamera());
    }));
    ASSERT_NE(callback, nullptr) << "the manipulator adds one to its camera";
    EXPECT_FALSE(callback->isReadDepth());
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_EQ(callback->getDepth()->data(), nullptr) << "disabled: nothing read";

    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { callback->setIsReadDepth(true); }));
    // The frame after the switch has drawn and read.
    ASSERT_TRUE(w.run(nullptr));
    const osg::Image* depth = callback->getDepth();
    ASSERT_NE(depth->data(), nullptr);
    EXPECT_EQ(depth->s(), CanvasWindow::kCanvasWidth);
    EXPECT_EQ(depth->t(), CanvasWindow::kHeight);
    const int cx = CanvasWindow::kCanvasWidth / 2, cy = CanvasWindow::kHeight / 2;
    EXPECT_NEAR(OrvaneTest::depthAt(depth, cx, cy), quadDepth, kDepthTolerance);
    EXPECT_FLOAT_EQ(OrvaneTest::depthAt(depth, 1, 1), 1.0f) << "the cleared far plane";

    // Disabled again, a changed scene leaves the last read as it was.
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        callback->setIsReadDepth(false);
        ViewMgr::getModel(info.mainView())->removeChild(quad.get());
    }));
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_NEAR(OrvaneTest::depthAt(callback->getDepth(), cx, cy), quadDepth, kDepthTolerance);
}
