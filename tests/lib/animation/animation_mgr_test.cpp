// Animation book-keeping against a canvas that records what frames it was asked for.
#include "animation_mgr.h"
#include "canvas3d_view.h"
#include "model_animation.h"
#include "render_info.h"

#include <QSignalSpy>
#include <cmath>
#include <gtest/gtest.h>
#include <osgUtil/UpdateVisitor>
#include <osgViewer/CompositeViewer>

using namespace Vorna::Orvane;

namespace {

class RecordingCanvas : public CanvasBase
{
public:
    std::vector<float> framings;
    void addOperation(osg::ref_ptr<osg::Operation>) override {}
    void addOperations(std::vector<osg::ref_ptr<osg::Operation>>&) override {}
    void frame() override {}
    void framing(float seconds) override { framings.push_back(seconds); }
    osgViewer::View* mainView() override { return nullptr; }
    void setUpdateBlocked(bool) override {}
    void setSamples(int) override {}
    void setMaxFrameRate(float) override {}
    double devicePixelRatio() const override { return 1.0; }
    double width() const override { return 1.0; }
    double height() const override { return 1.0; }
    QSize getScreenSize() const override { return QSize(); }
};

// Runs the update callbacks of `node` at simulation time `t`.
void updateAt(osg::Node* node, double t)
{
    osg::ref_ptr<osgUtil::UpdateVisitor> visitor = new osgUtil::UpdateVisitor;
    osg::ref_ptr<osg::FrameStamp> stamp = new osg::FrameStamp;
    stamp->setSimulationTime(t);
    visitor->setFrameStamp(stamp.get());
    node->accept(*visitor);
}

struct BareCanvasViewer {
    osg::ref_ptr<RecordingCanvas> canvas = new RecordingCanvas;
    osg::ref_ptr<osgViewer::CompositeViewer> viewer = new osgViewer::CompositeViewer;
    osg::ref_ptr<RenderInfo> info = new RenderInfo;
    BareCanvasViewer()
    {
        info->canvas = canvas;
        info->compViewer(viewer.get());
        viewer->setUserData(info.get());
    }
    void run(osg::ref_ptr<osg::Operation> op) { (*op)(viewer.get()); }
};

} // namespace

// Declared first: the longest animation ever seen is remembered for the whole process.
TEST(AnimationMgrTest, FramesCoverTheLongestAnimationSeenAndEndWithOneFrame)
{
    osg::ref_ptr<RecordingCanvas> canvas = new RecordingCanvas;
    osg::ref_ptr<osg::Node> a = new osg::Node, b = new osg::Node;
    QSignalSpy finished(AnimationMgr::instance(), &AnimationMgr::animationFinished);
    AnimationMgr::instance()->addAnimation(canvas.get(), a.get(), 10.0f);
    AnimationMgr::instance()->addAnimation(canvas.get(), b.get(), 1.0f);
    ASSERT_EQ(canvas->framings.size(), 2u);
    EXPECT_FLOAT_EQ(canvas->framings[0], 13.0f);
    EXPECT_FLOAT_EQ(canvas->framings[1], 13.0f);

    AnimationMgr::instance()->finishAnimation(a.get());
    EXPECT_EQ(canvas->framings.size(), 2u) << "b still runs";
    AnimationMgr::instance()->finishAnimation(b.get());
    ASSERT_EQ(canvas->framings.size(), 3u);
    EXPECT_FLOAT_EQ(canvas->framings[2], 0.0f);
    EXPECT_EQ(finished.count(), 2);

    // Unknown objects give no signal.
    AnimationMgr::instance()->finishAnimation(a.get());
    EXPECT_EQ(finished.count(), 2);
}

TEST(AnimationMgrTest, ReAddingAnObjectNeedsOneFinishOnly)
{
    osg::ref_ptr<RecordingCanvas> canvas = new RecordingCanvas;
    osg::ref_ptr<osg::Node> a = new osg::Node;
    AnimationMgr::instance()->addAnimation(canvas.get(), a.get(), 1.0f);
    AnimationMgr::instance()->addAnimation(canvas.get(), a.get(), 2.0f);
    EXPECT_TRUE(AnimationMgr::instance()->isAnimating(a.get()));
    AnimationMgr::instance()->finishAnimation(a.get());
    EXPECT_FALSE(AnimationMgr::instance()->isAnimating(a.get()));
    EXPECT_FLOAT_EQ(canvas->framings.back(), 0.0f);
}

TEST(ModelAnimationTest, MovesAlongThePathAndEndsJustAfterIt)
{
    BareCanvasViewer v;
    osg::ref_ptr<osg::MatrixTransform> mt = new osg::MatrixTransform;
    const osg::Matrixd start = osg::Matrixd::translate(0, 0, 0);
    const osg::Matrixd end =
        osg::Matrixd::rotate(osg::PI_2, osg::Z_AXIS) * osg::Matrixd::translate(10, 0, 0);
    osg::ref_ptr<ModelSingleAnimationOperation> op =
        new ModelSingleAnimationOperation(mt.get(), start, end, 1.0f, true);
    EXPECT_EQ(op->getName(), "model single animation");
    v.run(op.get());
    EXPECT_TRUE(AnimationMgr::instance()->isAnimating(mt.get()));

    updateAt(mt.get(), 100.0);
    EXPECT_NEAR(mt->getMatrix().getTrans().x(), 0.0, 1e-9);
    updateAt(mt.get(), 100.5);
    EXPECT_NEAR(mt->getMatrix().getTrans().x(), 5.0, 1e-6);
    updateAt(mt.get(), 101.05);
    EXPECT_NEAR(mt->getMatrix().getTrans().x(), 10.0, 1e-6);
    EXPECT_TRUE(AnimationMgr::instance()->isAnimating(mt.get())) << "ends 0.1 s after the path";
    updateAt(mt.get(), 101.11);
    EXPECT_FALSE(AnimationMgr::instance()->isAnimating(mt.get()));
    EXPECT_FLOAT_EQ(v.canvas->framings.back(), 0.0f);
}

TEST(ModelAnimationTest, CancelJumpsToTheEndPose)
{
    BareCanvasViewer v;
    osg::ref_ptr<osg::MatrixTransform> mt = new osg::MatrixTransform;
    const osg::Matrixd end = osg::Matrixd::translate(3, 4, 5);
    v.run(new ModelSingleAnimationOperation(mt.get(), osg::Matrixd(), end, 2.0f));
    updateAt(mt.get(), 0.0);
    updateAt(mt.get(), 0.5);
    v.run(new CancelModelAnimationOperation(mt.get()));
    EXPECT_EQ(mt->getUpdateCallback(), nullptr);
    EXPECT_NEAR((mt->getMatrix().getTrans() - osg::Vec3d(3, 4, 5)).length(), 0.0, 1e-9);
    EXPECT_FALSE(AnimationMgr::instance()->isAnimating(mt.get()));

    // Without a callback the transform stays and the manager still hears the end.
    osg::ref_ptr<osg::MatrixTransform> still = new osg::MatrixTransform;
    AnimationMgr::instance()->addAnimation(v.canvas.get(), still.get(), 1.0f);
    v.run(new CancelModelAnimationOperation(still.get()));
    EXPECT_TRUE(still->getMatrix().isIdentity());
    EXPECT_FALSE(AnimationMgr::instance()->isAnimating(still.get()));
}

TEST(ModelAnimationTest, SlerpTakesTheShortArc)
{
    const osg::Quat from, to(osg::PI_2, osg::Z_AXIS);
    osg::Quat half;
    slerpTest(half, 0.5f, from, to);
    const osg::Vec3d x = half * osg::Vec3d(1, 0, 0);
    EXPECT_NEAR(std::atan2(x.y(), x.x()), osg::PI_4, 1e-6);
    // -to is the same rotation; the result must not take the long way.
    slerpTest(half, 0.5f, from, -to);
    const osg::Vec3d y = half * osg::Vec3d(1, 0, 0);
    EXPECT_NEAR(std::atan2(y.y(), y.x()), osg::PI_4, 1e-6);
}
