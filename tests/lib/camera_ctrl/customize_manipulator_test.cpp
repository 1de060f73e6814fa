// The manipulator on a view of its own: synthetic pointer events, projections, fit, bounds.
#include "canvas3d_drawable.h"
#include "canvas3d_view.h"
#include "customize_manipulator.h"
#include "gl_test_support.h"
#include "orvane_singleton.h"
#include "track_view_range.h"
#include "valid_bound_visitor.h"

#include <QSignalSpy>
#include <cmath>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using GA = osgGA::GUIEventAdapter;

namespace {

constexpr int kWidth = 400, kHeight = 300;

osg::Geode* box(const osg::Vec3& centre, float half)
{
    auto* geode = new osg::Geode;
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    for (int i = 0; i < 8; ++i)
        v->push_back(centre + osg::Vec3((i & 1) ? half : -half, (i & 2) ? half : -half,
                                        (i & 4) ? half : -half));
    auto* geometry = new osg::Geometry;
    geometry->setVertexArray(v.get());
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, 8));
    geode->addDrawable(geometry);
    return geode;
}

class ManipulatorTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        view = ViewMgr::createView(nullptr, new osg::Viewport(0, 0, kWidth, kHeight));
        manipulator = dynamic_cast<CustomizeManipulator*>(view->getCameraManipulator());
        ASSERT_TRUE(manipulator);
        ViewMgr::getModel(view.get())->addChild(box(osg::Vec3(), 1.0f));
        manipulator->setNode(view->getSceneData());
        manipulator->home(0.0);
        sync();
    }

    void sync() { manipulator->updateCamera(*view->getCamera()); }

    osg::ref_ptr<GA> event(GA::EventType type, float x, float y, unsigned int buttons, int mods = 0)
    {
        osg::ref_ptr<GA> e = new GA;
        e->setEventType(type);
        e->setInputRange(0, 0, kWidth, kHeight);
        e->setMouseYOrientation(GA::Y_INCREASING_UPWARDS);
        e->setX(x);
        e->setY(y);
        e->setButtonMask(buttons);
        e->setModKeyMask(mods);
        e->setTime(m_time += 0.016);
        if (type == GA::PUSH || type == GA::RELEASE)
            e->setButton(buttons);
        return e;
    }

    // Push at (x0, y0), drag to (x1, y1).
    void drag(float x0, float y0, float x1, float y1, unsigned int buttons, int mods = 0)
    {
        manipulator->handle(*event(GA::PUSH, x0, y0, buttons, mods), *view);
        manipulator->handle(*event(GA::DRAG, x1, y1, buttons, mods), *view);
        // A release within 20 ms of the drag would repeat the movement, as a throw.
        m_time += 0.1;
        manipulator->handle(*event(GA::RELEASE, x1, y1, 0, mods), *view);
        sync();
    }

    osg::Vec3d toWindow(const osg::Vec3d& world) const
    {
        const osg::Camera* c = view->getCamera();
        return world * c->getViewMatrix() * c->getProjectionMatrix() *
               c->getViewport()->computeWindowMatrix();
    }

    osg::ref_ptr<osgViewer::View> view;
    CustomizeManipulator* manipulator = nullptr;
    double m_time = 0.0;
};

} // namespace

TEST_F(ManipulatorTest, LeftAndAltLeftDragsTurnAboutTheRotateCentre)
{
    const osg::Vec3f centre(0.5f, 0.2f, -0.3f);
    manipulator->setRotateCenter(centre);
    for (int mods : {0, static_cast<int>(GA::MODKEY_ALT)}) {
        QSignalSpy rotated(manipulator, &CustomizeManipulator::rotated);
        const osg::Quat before = manipulator->getRotation();
        const osg::Vec3d onScreen = toWindow(centre);
        drag(200, 150, 260, 190, GA::LEFT_MOUSE_BUTTON, mods);
        EXPECT_NE(manipulator->getRotation(), before) << "mods " << mods;
        EXPECT_EQ(rotated.count(), 1);
        const osg::Vec3d after = toWindow(centre);
        // Double-precision projection of a single-precision centre: well under a pixel.
        EXPECT_NEAR(after.x(), onScreen.x(), 1e-3);
        EXPECT_NEAR(after.y(), onScreen.y(), 1e-3);
    }
}

TEST_F(ManipulatorTest, ModelRadiusOnScreenFollowsThePerspective)
{
    manipulator->setRotateCenter(osg::Vec3f());
    double fovy = 0, aspect = 0, zNear = 0, zFar = 0;
    ASSERT_TRUE(view->getCamera()->getProjectionMatrixAsPerspective(fovy, aspect, zNear, zFar));
    const osg::Vec3d eye = osg::Vec3d() * view->getCamera()->getInverseViewMatrix();
    // A length at the centre's depth, over the half-width that the frustum spans there.
    const double halfWidth = eye.length() * std::tan(osg::DegreesToRadians(fovy / 2)) * aspect;
    for (float radius : {0.5f, 1.0f, 2.0f})
        EXPECT_NEAR(manipulator->getBBoxRadius2D(radius), radius / halfWidth * kWidth / 2, 1e-2)
            << radius;
}

TEST_F(ManipulatorTest, CustomTrackballTurnsOnTheModelsDiscAndClampsOutsideIt)
{
    manipulator->setRotateCenter(osg::Vec3f());
    const osg::Vec3d up =
        osg::Matrixd::transform3x3(osg::Vec3d(0, 1, 0), view->getCamera()->getInverseViewMatrix());
    // The box's bounding sphere, sqrt(3), on screen.
    const float r = manipulator->getBBoxRadius2D(std::sqrt(3.0f));
    ASSERT_GT(r, 10.0f);
    const osg::Vec3d c = toWindow(osg::Vec3d());
    // Pushes at the centre and drags `dx` pixels to the right: the last two events.
    auto turn = [&](float dx) {
        manipulator->handle(*event(GA::PUSH, c.x(), c.y(), GA::LEFT_MOUSE_BUTTON), *view);
        manipulator->handle(*event(GA::DRAG, c.x() + dx, c.y(), GA::LEFT_MOUSE_BUTTON), *view);
        osg::Vec3d axis(9, 9, 9);
        float angle = -1.0f;
        manipulator->rotateTrackballCustom(1.0f, axis, angle);
        manipulator->handle(*event(GA::RELEASE, c.x() + dx, c.y(), 0), *view);
        sync();
        return std::make_pair(axis, angle);
    };
    const auto half = turn(r / 2);
    EXPECT_GT(half.second, 0.0f);
    // A sideways drag turns about the view's up direction.
    EXPECT_NEAR(std::abs(half.first * up), 1.0, 1e-3);
    const auto edge = turn(r);
    EXPECT_GT(edge.second, half.second);
    // Beyond the disc the point is pulled back to its rim.
    const auto far = turn(10 * r);
    EXPECT_NEAR(far.second, edge.second, 1e-5);
}

TEST_F(ManipulatorTest, CustomTrackballWithoutANodeOrBoundLeavesOrLogs)
{
    manipulator->handle(*event(GA::PUSH, 100, 100, GA::LEFT_MOUSE_BUTTON), *view);
    manipulator->handle(*event(GA::DRAG, 150, 100, GA::LEFT_MOUSE_BUTTON), *view);
    manipulator->setNode(nullptr);
    osg::Vec3d axis(1, 2, 3);
    float angle = 0.25f;
    manipulator->rotateTrackballCustom(1.0f, axis, angle);
    EXPECT_EQ(axis, osg::Vec3d(1, 2, 3));
    EXPECT_EQ(angle, 0.25f);

    OrvaneTest::LogCapture log;
    osg::ref_ptr<osg::Group> empty = new osg::Group;
    manipulator->setNode(empty.get());
    manipulator->rotateTrackballCustom(1.0f, axis, angle);
    EXPECT_TRUE(log.contains("rotateTrackballCustom"));
    EXPECT_TRUE(log.contains("Boudingsphere is not valid."));
}

TEST_F(ManipulatorTest, AlreadyFitIsSignalledOnlyWhereTheCameraStands)
{
    QSignalSpy fit(manipulator, &CustomizeManipulator::isAlreadyFitState);
    OrvaneTest::LogCapture log;
    const float distance = static_cast<float>(manipulator->getDistance());
    const osg::Vec3f centre = manipulator->getCenter();
    manipulator->checkIsAlreadyFit(distance, centre, true);
    ASSERT_EQ(fit.count(), 1);
    EXPECT_TRUE(fit.at(0).at(0).toBool());
    EXPECT_TRUE(log.contains("=== is already fit ==="));
    // Within 1e-4 of both is the same place.
    manipulator->checkIsAlreadyFit(distance + 5e-5f, centre + osg::Vec3f(5e-5f, 0, 0), false);
    ASSERT_EQ(fit.count(), 2);
    EXPECT_FALSE(fit.at(1).at(0).toBool());

    manipulator->checkIsAlreadyFit(distance + 0.01f, centre, true);
    manipulator->checkIsAlreadyFit(distance, centre + osg::Vec3f(0, 0, 0.01f), true);
    EXPECT_EQ(fit.count(), 2);
    // During a scan only the distance counts.
    OrvaneSingleton::instance()->updateScanStateNoOpe(true);
    manipulator->checkIsAlreadyFit(distance, centre + osg::Vec3f(0, 0, 0.01f), true);
    manipulator->checkIsAlreadyFit(distance + 0.01f, centre, true);
    OrvaneSingleton::instance()->updateScanStateNoOpe(false);
    EXPECT_EQ(fit.count(), 3);
}

TEST_F(ManipulatorTest, GizmoFitRegionSignalsOnlyChanges)
{
    QSignalSpy region(manipulator, &CustomizeManipulator::isMouseInGizemoFitRegion);
    OrvaneTest::LogCapture log;
    EXPECT_FALSE(manipulator->bMouseInGizmoFitRegion());
    manipulator->setMouseInGizemoFitRegion(false);
    EXPECT_EQ(region.count(), 0);
    manipulator->setMouseInGizemoFitRegion(true);
    manipulator->setMouseInGizemoFitRegion(true);
    ASSERT_EQ(region.count(), 1);
    EXPECT_TRUE(region.at(0).at(0).toBool());
    EXPECT_TRUE(manipulator->bMouseInGizmoFitRegion());
    EXPECT_EQ(log.count("setMouseInGizemoFitRegion: in"), 1);
    manipulator->setMouseInGizemoFitRegion(false);
    ASSERT_EQ(region.count(), 2);
    EXPECT_FALSE(region.at(1).at(0).toBool());
    EXPECT_EQ(log.count("setMouseInGizemoFitRegion: out"), 1);
}

TEST_F(ManipulatorTest, ShiftAndCtrlLeftDragsDoNothingAndADisabledButtonIsConsumed)
{
    const osg::Quat before = manipulator->getRotation();
    const osg::Vec3d centreBefore = manipulator->getCenter();
    drag(200, 150, 260, 190, GA::LEFT_MOUSE_BUTTON, GA::MODKEY_SHIFT);
    drag(200, 150, 260, 190, GA::LEFT_MOUSE_BUTTON, GA::MODKEY_CTRL);
    EXPECT_EQ(manipulator->getRotation(), before);
    EXPECT_EQ(manipulator->getCenter(), centreBefore);

    manipulator->setLbDisable();
    manipulator->handle(*event(GA::PUSH, 200, 150, GA::LEFT_MOUSE_BUTTON), *view);
    EXPECT_TRUE(manipulator->handle(*event(GA::DRAG, 260, 190, GA::LEFT_MOUSE_BUTTON), *view));
    EXPECT_EQ(manipulator->getRotation(), before);
    manipulator->setLbEnable();
}

TEST_F(ManipulatorTest, RightDragPansByTheFrustumWidth)
{
    double l, r, b, t, n, f;
    ASSERT_TRUE(view->getCamera()->getProjectionMatrixAsFrustum(l, r, b, t, n, f));
    const osg::Quat rotation = manipulator->getRotation();
    const osg::Vec3d before = manipulator->getCenter();
    QSignalSpy moved(manipulator, &CustomizeManipulator::moved);
    drag(200, 150, 240, 150, GA::RIGHT_MOUSE_BUTTON);
    EXPECT_EQ(moved.count(), 1);

    const double w0 =
        std::abs(manipulator->getDistance() * std::tan(osg::DegreesToRadians(40.0 / 2.0)) * 2.0);
    const double w = std::max({r - l, w0, 0.2 * std::abs(f - n)});
    const double dx = 40.0 / kWidth * 2.0; // normalised x spans [-1, 1]
    const osg::Vec3d expected =
        before + osg::Vec3d(dx * w * -0.5, 0.0, 0.0) * osg::Matrixd::rotate(rotation);
    // The pan reaches the centre through single-precision arguments.
    EXPECT_NEAR((manipulator->getCenter() - expected).length(), 0.0,
                1e-6 * expected.length() + 1e-4);
    EXPECT_EQ(manipulator->getRotation(), rotation);
}

TEST_F(ManipulatorTest, DuringAScanOnlyTheWheelWorks)
{
    OrvaneSingleton::instance()->updateScanStateNoOpe(true);
    const osg::Quat before = manipulator->getRotation();
    const double distance = manipulator->getDistance();
    manipulator->handle(*event(GA::PUSH, 200, 150, GA::LEFT_MOUSE_BUTTON), *view);
    EXPECT_FALSE(manipulator->handle(*event(GA::DRAG, 260, 190, GA::LEFT_MOUSE_BUTTON), *view));
    EXPECT_EQ(manipulator->getRotation(), before);

    osg::ref_ptr<GA> wheel = event(GA::SCROLL, 200, 150, 0);
    wheel->setScrollingMotion(GA::SCROLL_DOWN);
    const osg::Vec3d centre = manipulator->getCenter();
    EXPECT_TRUE(manipulator->handle(*wheel, *view));
    EXPECT_GT(manipulator->getDistance(), distance);
    // In perspective a scan keeps the orbit centre and sums what zooming changed.
    EXPECT_EQ(manipulator->getCenter(), centre);
    EXPECT_NEAR(manipulator->getScanDistanceChange(), manipulator->getDistance() - distance, 1e-4);
    OrvaneSingleton::instance()->updateScanStateNoOpe(false);
}

TEST_F(ManipulatorTest, FitDistanceAndHomeLookAlongY)
{
    const osg::BoundingSphere sphere(osg::Vec3(1, 2, 3), 2.0f);
    double l, r, b, t, n, f;
    ASSERT_TRUE(view->getCamera()->getProjectionMatrixAsFrustum(l, r, b, t, n, f));
    const double h = std::min(std::abs(r - l) / n * 0.5, std::abs(t - b) / n * 0.5);
    EXPECT_NEAR(manipulator->computeFitDistance(sphere, view->getCamera()),
                2.0 / std::sin(std::atan2(h, 1.0)), 1e-9);
    EXPECT_EQ(manipulator->computeFitDistance(osg::BoundingSphere(), view->getCamera()), 0.0);
    EXPECT_EQ(manipulator->computeFitDistance(sphere, nullptr), 0.0);
    osg::ref_ptr<osg::Camera> ortho = new osg::Camera;
    ortho->setProjectionMatrixAsOrtho(-1, 1, -1, 1, 1, 10);
    EXPECT_NEAR(manipulator->computeFitDistance(sphere, ortho.get()), 2.0 * 2.923, 1e-9);

    manipulator->computeHomePosition(view->getCamera(), false);
    osg::Vec3d eye, centre, up;
    manipulator->getHomePosition(eye, centre, up);
    const osg::BoundingSphere bound = view->getSceneData()->getBound();
    EXPECT_NEAR((centre - osg::Vec3d(bound.center())).length(), 0.0, 1e-6);
    EXPECT_NEAR(eye.x(), centre.x(), 1e-9);
    // The home eye is formed from a single-precision centre.
    EXPECT_NEAR(centre.y() - eye.y(), manipulator->computeFitDistance(bound, view->getCamera()),
                1e-5);
    EXPECT_EQ(up, osg::Vec3d(0, 0, 1));
}

TEST_F(ManipulatorTest, ProjectionSwitchKeepsTheVisibleSize)
{
    const auto visibleHeight = [&]() {
        // The world height that spans the viewport at the orbit centre.
        const osg::Vec3d c = manipulator->getCenter();
        const osg::Vec3d up =
            osg::Vec3d(0, 1, 0) * osg::Matrixd::rotate(manipulator->getRotation());
        const double y0 = toWindow(c).y(), y1 = toWindow(c + up).y();
        return kHeight / std::abs(y1 - y0);
    };
    bool perspectiveReported = true;
    manipulator->setProjectionHandle([&](bool perspective) { perspectiveReported = perspective; });
    const double perspectiveHeight = visibleHeight();
    manipulator->setManipulatorType(CustomizeManipulator::Orthographic);
    sync();
    EXPECT_FALSE(perspectiveReported);
    double l, r, b, t, n, f;
    EXPECT_TRUE(view->getCamera()->getProjectionMatrixAsOrtho(l, r, b, t, n, f));
    EXPECT_NEAR(visibleHeight() / perspectiveHeight, 1.0, 1e-3);

    manipulator->setManipulatorType(CustomizeManipulator::Perspective);
    sync();
    EXPECT_TRUE(perspectiveReported);
    EXPECT_TRUE(view->getCamera()->getProjectionMatrixAsFrustum(l, r, b, t, n, f));
    EXPECT_NEAR(visibleHeight() / perspectiveHeight, 1.0, 1e-3);
}

TEST_F(ManipulatorTest, NanDistanceAndCentreAreRepaired)
{
    OrvaneTest::LogCapture log;
    manipulator->setDistance(std::nan(""));
    manipulator->avoidDistanceNan();
    EXPECT_TRUE(log.contains("camera _distance is nan, reset _distance"));
    EXPECT_NEAR(
        manipulator->getDistance(),
        manipulator->computeFitDistance(view->getSceneData()->getBound(), view->getCamera()), 1e-9);

    const osg::Vec3f saved(0.1f, 0.2f, 0.3f);
    manipulator->setCenter(osg::Vec3d(std::nan(""), 0, 0));
    osg::ref_ptr<GA> at = event(GA::SCROLL, 200, 150, 0);
    manipulator->avoidCenterNanWhenZoom(*at, saved, 1.0f);
    EXPECT_TRUE(log.contains("reset _center"));
    EXPECT_FALSE(std::isnan(manipulator->getCenter().x()));
    // A scale of 1 puts the centre back where it was.
    EXPECT_NEAR((manipulator->getCenter() - osg::Vec3d(saved)).length(), 0.0, 1e-5);
}

TEST_F(ManipulatorTest, UpdateCameraSignalsChangesOnly)
{
    QSignalSpy changed(manipulator, &CustomizeManipulator::changed);
    QSignalSpy updated(manipulator, &CustomizeManipulator::updated);
    sync();
    sync();
    EXPECT_EQ(updated.count(), 2);
    EXPECT_EQ(changed.count(), 0);
    manipulator->setDistance(manipulator->getDistance() * 2.0);
    sync();
    EXPECT_EQ(changed.count(), 1);
}

TEST_F(ManipulatorTest, OperatorTableDefaults)
{
    using CM = CustomizeManipulator;
    EXPECT_EQ(manipulator->operatorOf({0, GA::LEFT_MOUSE_BUTTON}), CM::Rotate);
    EXPECT_EQ(manipulator->operatorOf({GA::MODKEY_ALT, GA::LEFT_MOUSE_BUTTON}), CM::Rotate);
    EXPECT_EQ(manipulator->operatorOf({0, GA::RIGHT_MOUSE_BUTTON}), CM::Move);
    EXPECT_EQ(manipulator->operatorOf({GA::MODKEY_META, GA::LEFT_MOUSE_BUTTON}), CM::Move);
    EXPECT_FALSE(manipulator->getIsMoving());
    manipulator->setMove();
    EXPECT_TRUE(manipulator->getIsMoving());
    manipulator->setRotate();
}

TEST(ValidBoundsTest, MarkedAndAbsoluteContentIsLeftOut)
{
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(box(osg::Vec3(), 1.0f));
    osg::ref_ptr<osg::Group> gizmo = new osg::Group;
    gizmo->setUserValue("valid_bounding_sphere", false);
    gizmo->addChild(box(osg::Vec3(100, 0, 0), 1.0f));
    root->addChild(gizmo.get());
    osg::ref_ptr<osg::MatrixTransform> hud = new osg::MatrixTransform;
    hud->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    hud->addChild(box(osg::Vec3(0, 100, 0), 1.0f));
    root->addChild(hud.get());

    ValidBoundSphereVisitor sphereVisitor;
    root->accept(sphereVisitor);
    const osg::BoundingSphere sphere = sphereVisitor.getBoundingSphere();
    ASSERT_TRUE(sphere.valid());
    EXPECT_NEAR(sphere.center().length(), 0.0, 1e-5);
    EXPECT_LT(sphere.radius(), 2.0f);

    ValidBoundBoxVisitor boxVisitor;
    hud->accept(boxVisitor);
    EXPECT_FALSE(boxVisitor.getBoundingBox().valid());

    osg::ref_ptr<osg::Group> onlyGizmo = new osg::Group;
    onlyGizmo->addChild(gizmo.get());
    ValidBoundSphereVisitor none;
    onlyGizmo->accept(none);
    EXPECT_FALSE(none.getBoundingSphere().valid());
}

TEST(ValidBoundsTest, RadiusUserValueReplacesTheComputedOneWhenPositive)
{
    osg::ref_ptr<osg::Geode> geode = box(osg::Vec3(), 1.0f);
    geode->getDrawable(0)->setUserValue("radius", 5.0f);
    ValidBoundSphereVisitor visitor;
    geode->accept(visitor);
    EXPECT_FLOAT_EQ(visitor.getBoundingSphere().radius(), 5.0f);

    geode->getDrawable(0)->setUserValue("radius", 0.0f);
    ValidBoundSphereVisitor ignored;
    geode->accept(ignored);
    EXPECT_NEAR(ignored.getBoundingSphere().radius(), std::sqrt(3.0f), 1e-5);
}

TEST(TrackViewRangeTest, PointsBetweenTheSectionsAreInRange)
{
    osg::ref_ptr<TrackViewRange> range = new TrackViewRange;
    ASSERT_TRUE(range->build());
    EXPECT_TRUE(range->isPtInViewRange(osg::Vec3f(0, 0, -2500)));
    EXPECT_TRUE(range->isPtInViewRange(osg::Vec3f(1500, 1000, -3500)));
    EXPECT_FALSE(range->isPtInViewRange(osg::Vec3f(0, 0, -1000))) << "nearer than section 0";
    EXPECT_FALSE(range->isPtInViewRange(osg::Vec3f(0, 0, -4500))) << "beyond section 2";
    EXPECT_FALSE(range->isPtInViewRange(osg::Vec3f(2500, 0, -3500)));
    // Track type 1 is wider at the far end.
    ASSERT_TRUE(range->switchTrackType(1));
    EXPECT_TRUE(range->isPtInViewRange(osg::Vec3f(2500, 0, -3900)));
    EXPECT_FALSE(range->switchTrackType(2));
    EXPECT_EQ(range->trackType(), 1);

    // The object's own placement moves the volume.
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(range.get());
    range->setMatrix(osg::Matrix::translate(0, 0, -1000));
    EXPECT_TRUE(range->isPtInViewRange(osg::Vec3f(0, 0, -3500)));
    EXPECT_FALSE(range->isPtInViewRange(osg::Vec3f(0, 0, -2500)));

    // Bad sections are refused; the volume is an aid, left out of fits.
    EXPECT_FALSE(range->setCrossSection(0, 3, 100, 1, 1));
    EXPECT_FALSE(range->setCrossSection(0, 0, -1, 1, 1));
    EXPECT_FALSE(range->setCrossSection(0, 0, 100, 0, 1));
    ValidBoundSphereVisitor visitor;
    root->accept(visitor);
    EXPECT_FALSE(visitor.getBoundingSphere().valid());
}
