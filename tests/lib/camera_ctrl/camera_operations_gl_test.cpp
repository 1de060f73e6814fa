// Fit and camera operations on a live canvas.
#include "animation_mgr.h"
#include "camera_operations.h"
#include "canvas3d_view.h"
#include "customize_manipulator.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"

#include <QTest>
#include <cmath>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;
using CM = CustomizeManipulator;

namespace {

// Eight points around `centre`: a bound of radius about sqrt(3) * half.
osg::Geode* cube(const osg::Vec3& centre, float half)
{
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    for (int i = 0; i < 8; ++i)
        v->push_back(centre + osg::Vec3((i & 1) ? half : -half, (i & 2) ? half : -half,
                                        (i & 4) ? half : -half));
    auto* geometry = new osg::Geometry;
    geometry->setUseVertexArrayObject(true);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseDisplayList(false);
    geometry->setVertexArray(v.get());
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, 8));
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

class CameraOperationTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(w.show());
        model = cube(osg::Vec3(10, 3, 5), 1.0f);
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->addChild(model.get());
            manipulator = dynamic_cast<CM*>(info.mainView()->getCameraManipulator());
        }));
        ASSERT_TRUE(manipulator);
    }

    // Window position of the model's centre and its projected radius, after a frame.
    osg::Vec3d projectedCentre()
    {
        osg::Vec3d out;
        w.run(nullptr, [&](RenderInfo& info) {
            const osg::Camera* c = info.masterCamera();
            out = model->getBound().center() * c->getViewMatrix() * c->getProjectionMatrix() *
                  c->getViewport()->computeWindowMatrix();
        });
        return out;
    }

    CanvasWindow w;
    osg::ref_ptr<osg::Geode> model;
    CM* manipulator = nullptr;
};

} // namespace

TEST_F(CameraOperationTest, FitCentresTheModelAtOnceAndAnimated)
{
    for (bool animated : {false, true}) {
        ASSERT_TRUE(
            w.run(new LookAtOperation(osg::Vec3f(-50, -50, 0), osg::Vec3f(), osg::Vec3f(0, 0, 1))));
        ASSERT_TRUE(w.run(new FitOperation({model}, nullptr, animated)));
        ASSERT_TRUE(waitUntil([&] { return !AnimationMgr::instance()->isAnimating(manipulator); }));
        ASSERT_TRUE(w.run(nullptr));
        const osg::Vec3d centre = projectedCentre();
        // Centred within a pixel; the whole bound inside the viewport.
        EXPECT_NEAR(centre.x(), CanvasWindow::kCanvasWidth / 2.0, 1.0) << "animated " << animated;
        EXPECT_NEAR(centre.y(), CanvasWindow::kHeight / 2.0, 1.0);
        EXPECT_NEAR(manipulator->getDistance(), model->getBound().radius() * 3.5, 1e-4);
        EXPECT_EQ(manipulator->getRotateCenter(), osg::Vec3f(model->getBound().center()));
    }
}

TEST_F(CameraOperationTest, FitAutoUsesTheProjectionsFitDistance)
{
    ASSERT_TRUE(w.run(new FitOperationAuto(nullptr, false)));
    ASSERT_TRUE(w.run(nullptr));
    const osg::Vec3d centre = projectedCentre();
    EXPECT_NEAR(centre.x(), CanvasWindow::kCanvasWidth / 2.0, 1.0);
    EXPECT_NEAR(centre.y(), CanvasWindow::kHeight / 2.0, 1.0);
    double expected = 0.0;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        expected = manipulator->computeFitDistance(manipulator->getValidBoundingSphere(),
                                                   info.masterCamera());
    }));
    EXPECT_NEAR(manipulator->getDistance(), expected, 1e-6);
}

TEST_F(CameraOperationTest, EmptyListDoesNothingAndInvalidBoundsWarn)
{
    OrvaneTest::LogCapture log;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { manipulator->setDistance(std::nan("")); }));
    ASSERT_TRUE(w.run(new FitOperation({}, nullptr, false)));
    EXPECT_TRUE(std::isnan(manipulator->getDistance())) << "an empty fit repairs nothing";

    osg::ref_ptr<osg::Node> empty = new osg::Group;
    ASSERT_TRUE(w.run(new FitOperation({empty}, nullptr, false)));
    EXPECT_TRUE(log.contains("camera manipulator's distance is nan, so reset"));
    EXPECT_TRUE(log.contains("bounding sphere is invalid, so return"));
    EXPECT_DOUBLE_EQ(manipulator->getDistance(), 100.0);
}

TEST_F(CameraOperationTest, NanRepairOfEachField)
{
    OrvaneTest::LogCapture log;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        const double nan = std::nan("");
        manipulator->setRotation(osg::Quat(nan, 0, 0, 1));
        manipulator->setCenter(osg::Vec3d(0, nan, 0));
        osg::Camera* camera = info.masterCamera();
        osg::Matrixd bad;
        bad(0, 0) = nan;
        camera->setViewMatrix(bad);
        camera->setProjectionMatrix(bad);
        FitOperationAuto::restoreIfExistNanValue(info.mainView());
        double fov, aspect, n, f;
        EXPECT_TRUE(camera->getProjectionMatrixAsPerspective(fov, aspect, n, f));
        EXPECT_NEAR(fov, 40.0, 1e-6);
        EXPECT_NEAR(n, 1.0, 1e-6);
        EXPECT_NEAR(f, 10000.0, 1e-3);
        EXPECT_EQ(manipulator->getRotation(), osg::Quat());
        EXPECT_EQ(manipulator->getCenter(), osg::Vec3d());
    }));
    for (const char* line :
         {"camera manipulator's rotation is nan, so reset",
          "camera manipulator's center is nan, so reset", "camera's view matrix is nan, so reset",
          "camera's projection matrix is nan, so reset"})
        EXPECT_TRUE(log.contains(line)) << line;
}

TEST_F(CameraOperationTest, UpdateCameraKeepsDistanceZeroAndJumpsWithoutTime)
{
    OrvaneTest::LogCapture log;
    ASSERT_TRUE(w.run(new FitOperation({model}, nullptr, false)));
    const double distance = manipulator->getDistance();
    UpdateCameraOperation::Param param;
    param.center = osg::Vec3f(1, 2, 3);
    param.distance = 0.0f;
    param.animationTime = 0.0f;
    param.rotation = osg::Quat(osg::PI_4, osg::Z_AXIS);
    osg::ref_ptr<UpdateCameraOperation> op = new UpdateCameraOperation(param);
    EXPECT_EQ(op->getName(), "updateCamera");
    ASSERT_TRUE(w.run(op.get()));
    EXPECT_DOUBLE_EQ(manipulator->getDistance(), distance);
    EXPECT_EQ(manipulator->getCenter(), osg::Vec3d(1, 2, 3));
    EXPECT_FALSE(AnimationMgr::instance()->isAnimating(manipulator));
    EXPECT_TRUE(log.contains("animation time is less than 0, no animation"));
}

TEST_F(CameraOperationTest, NamedDirectionsGiveTheirEyeDirectionAndUp)
{
    struct Case {
        CM::DirectionType type;
        osg::Vec3d look, up;
    };
    const Case cases[] = {{CM::Front, {0, 1, 0}, {0, 0, 1}}, {CM::Back, {0, -1, 0}, {0, 0, 1}},
                          {CM::Left, {1, 0, 0}, {0, 0, 1}},  {CM::Right, {-1, 0, 0}, {0, 0, 1}},
                          {CM::Top, {0, 0, -1}, {0, 1, 0}},  {CM::Bottom, {0, 0, 1}, {0, -1, 0}}};
    for (const Case& c : cases) {
        ASSERT_TRUE(w.run(manipulator->setCameraDirectionTypeOperation(c.type, false)));
        const osg::Matrixd rotation = osg::Matrixd::rotate(manipulator->getRotation());
        const osg::Vec3d look = osg::Vec3d(0, 0, -1) * rotation;
        const osg::Vec3d up = osg::Vec3d(0, 1, 0) * rotation;
        EXPECT_NEAR((look - c.look).length(), 0.0, 1e-6) << "direction " << c.type;
        EXPECT_NEAR((up - c.up).length(), 0.0, 1e-6) << "direction " << c.type;
    }
}

TEST_F(CameraOperationTest, AnimationKeepsFramesComingUntilItEndsAndNoLonger)
{
    w.installFrameCounter();
    ASSERT_TRUE(w.run(manipulator->setCameraDirectionTypeOperation(CM::Left, true)));
    EXPECT_TRUE(AnimationMgr::instance()->isAnimating(manipulator));
    ASSERT_TRUE(waitUntil([&] { return !AnimationMgr::instance()->isAnimating(manipulator); }));
    // The end leaves one frame period, then the canvas falls idle.
    ASSERT_TRUE(waitUntil([&] { return w.item()->remainingFrameBudget() == 0; }));
    QTest::qWait(100);
    const int idle = w.sceneFrames();
    QTest::qWait(600);
    EXPECT_EQ(w.sceneFrames(), idle);
    const osg::Vec3d look = osg::Vec3d(0, 0, -1) * osg::Matrixd::rotate(manipulator->getRotation());
    EXPECT_NEAR((look - osg::Vec3d(1, 0, 0)).length(), 0.0, 1e-5);
}

TEST_F(CameraOperationTest, ProjectionTypeAndLeftButtonFunction)
{
    ASSERT_TRUE(w.run(new SetViewProjectionType(1)));
    EXPECT_EQ(manipulator->getManipulatorType(), CM::Orthographic);
    ASSERT_TRUE(w.run(new SetViewProjectionType(0)));
    EXPECT_EQ(manipulator->getManipulatorType(), CM::Perspective);
    ASSERT_TRUE(w.run(new SetCameraLBFuncOperation(1)));
    EXPECT_TRUE(manipulator->getIsMoving());
    ASSERT_TRUE(w.run(new SetCameraLBFuncOperation(2)));
    EXPECT_FALSE(manipulator->getIsMoving());
}

TEST_F(CameraOperationTest, RangeBoxLineIsAddedUpdatedAndRemoved)
{
    const osg::BoundingBox box(-1, -1, -1, 1, 1, 1);
    const auto frame = [&]() -> osg::Node* {
        osg::Group* other = ViewMgr::getOther(w.item()->mainView());
        for (unsigned int i = 0; i < other->getNumChildren(); ++i)
            if (other->getChild(i)->getName() == "range_box_line")
                return other->getChild(i);
        return nullptr;
    };
    // The render thread culls the scene and computes its bounds lazily: look there. -1: no frame.
    const auto radius = [&] {
        float found = -1.0f;
        EXPECT_TRUE(w.run(nullptr, [&](RenderInfo&) {
            if (osg::Node* node = frame())
                found = node->getBound().radius();
        }));
        return found;
    };
    ASSERT_TRUE(w.run(new RangeBoxLineOperation(true, box)));
    EXPECT_NEAR(radius(), std::sqrt(3.0), 1e-5);
    ASSERT_TRUE(w.run(new RangeBoxLineOperation(true, osg::BoundingBox(-2, -2, -2, 2, 2, 2))));
    EXPECT_NEAR(radius(), 2.0 * std::sqrt(3.0), 1e-5);
    ASSERT_TRUE(w.run(new RangeBoxLineOperation(false, box)));
    EXPECT_EQ(radius(), -1.0f);
}

TEST_F(CameraOperationTest, FitByScreenCoordPutsTheCentreThere)
{
    osgViewer::View* view = w.item()->mainView();
    OrvaneSingleton::instance()->setFitByScreenCoord(view, true, osg::Vec2f(40, 30));
    ASSERT_TRUE(w.run(new FitOperation({model}, nullptr, false)));
    ASSERT_TRUE(w.run(nullptr));
    const osg::Vec3d centre = projectedCentre();
    // Window coordinates, y up.
    EXPECT_NEAR(centre.x(), 40.0, 1.0);
    EXPECT_NEAR(centre.y(), 30.0, 1.0);
    OrvaneSingleton::instance()->setFitByScreenCoord(view, false, osg::Vec2f());
}
