// The rectangular cut plane without a canvas: its count, placement, sizes, uniforms, colours.
#include "gl_test_support.h"
#include "rect_cut_plane.h"

#include <gtest/gtest.h>
#include <osg/StateSet>
#include <osgGA/EventQueue>

using namespace Vorna::Orvane;
using OrvaneTest::LogCapture;

namespace {

const osg::Vec4f kNormalColor(0.007843138f, 0.53333336f, 0.9411765f, 1.0f);
const osg::Vec4f kHighlightColor(0.24313726f, 1.0f, 0.4745098f, 1.0f);

osg::Vec4f baseColor(osg::Node* handle, unsigned int part)
{
    osg::Vec4f value;
    handle->asGroup()->getChild(part)->getStateSet()->getUniform("baseColor")->get(value);
    return value;
}

void expectNear(const osg::Vec3f& actual, const osg::Vec3f& expected, float tolerance = 1e-5f)
{
    EXPECT_NEAR(actual.x(), expected.x(), tolerance);
    EXPECT_NEAR(actual.y(), expected.y(), tolerance);
    EXPECT_NEAR(actual.z(), expected.z(), tolerance);
}

} // namespace

TEST(RectCutPlaneTest, CountFollowsCreationAndDestruction)
{
    EXPECT_FALSE(RectCutPlane::hasRectCutPlane());
    osg::ref_ptr<RectCutPlane> first = new RectCutPlane(osg::BoundingBox(0, 0, 0, 1, 1, 1));
    EXPECT_TRUE(RectCutPlane::hasRectCutPlane());
    osg::ref_ptr<RectCutPlane> second = new RectCutPlane(osg::BoundingBox(0, 0, 0, 1, 1, 1));
    first = nullptr;
    // Two alive, one deleted.
    EXPECT_TRUE(RectCutPlane::hasRectCutPlane());
    // Hidden still counts.
    second->setNodeMask(0);
    EXPECT_TRUE(RectCutPlane::hasRectCutPlane());
    second = nullptr;
    EXPECT_FALSE(RectCutPlane::hasRectCutPlane());
}

TEST(RectCutPlaneTest, LiesAcrossTheLongestDirectionAtTheBoxCentre)
{
    osg::ref_ptr<RectCutPlane> plane = new RectCutPlane(osg::BoundingBox(0, 0, 0, 1, 4, 2));
    osg::Vec3f center, direction;
    plane->getCutPlaneInfo(center, direction);
    expectNear(center, osg::Vec3f(0.5f, 2.0f, 1.0f));
    EXPECT_NEAR(std::fabs(direction.y()), 1.0f, 1e-6f);
    // The rectangle spans the two other sides: 1 by 2.
    for (int i = 0; i < 4; ++i) {
        const osg::Vec3f world = plane->corner(i) * plane->getMatrix();
        EXPECT_NEAR(std::fabs(world.x() - 0.5f), 0.5f, 1e-5f) << i;
        EXPECT_NEAR(world.y(), 2.0f, 1e-5f) << i;
        EXPECT_NEAR(std::fabs(world.z() - 1.0f), 1.0f, 1e-5f) << i;
    }
    osg::Vec3f selfCenter, selfDirection;
    plane->getCutPlaneInfoSelf(selfCenter, selfDirection);
    expectNear(selfCenter, center);
    expectNear(selfDirection, direction);
}

TEST(RectCutPlaneTest, InvalidBoxGivesAUnitPlaneAboutTheOrigin)
{
    LogCapture log;
    osg::ref_ptr<RectCutPlane> plane = new RectCutPlane(osg::BoundingBox());
    EXPECT_TRUE(log.contains("boundingBox is invalid, so use identity boundingBox"));
    osg::Vec3f center, direction;
    plane->getCutPlaneInfo(center, direction);
    expectNear(center, osg::Vec3f());
    for (int i = 0; i < 4; ++i) {
        EXPECT_FLOAT_EQ(std::fabs(plane->corner(i).x()), 0.5f);
        EXPECT_FLOAT_EQ(std::fabs(plane->corner(i).y()), 0.5f);
        EXPECT_FLOAT_EQ(plane->corner(i).z(), 0.0f);
    }
}

TEST(RectCutPlaneTest, UpdateSizeRefusesAnInvalidBoxAndTakesExplicitSides)
{
    osg::ref_ptr<RectCutPlane> plane = new RectCutPlane(osg::BoundingBox(-1, -2, -1, 1, 2, 1));
    LogCapture log;
    plane->updateSize(osg::BoundingBox(), true, 0, 0);
    EXPECT_TRUE(log.contains("boundingBox is invalid, so return"));
    EXPECT_FLOAT_EQ(std::fabs(plane->corner(0).x()), 1.0f);

    plane->updateSize(osg::BoundingBox(-1, -2, -1, 1, 2, 1), false, 3.0f, 5.0f);
    EXPECT_EQ(plane->corner(0), osg::Vec3f(-1.5f, -2.5f, 0));
    EXPECT_EQ(plane->corner(3), osg::Vec3f(1.5f, 2.5f, 0));
    // The parts are rebuilt: four fresh spheres under the plane.
    for (int i = 0; i < 4; ++i)
        EXPECT_GT(plane->sphereNode(i)->getNumParents(), 0u) << i;
}

TEST(RectCutPlaneTest, RecomputeKeepsThePlaneWhereItWasRelativeToTheBox)
{
    osg::ref_ptr<RectCutPlane> plane = new RectCutPlane(osg::BoundingBox(-1, -2, -1, 1, 2, 1));
    osg::Matrix moved = plane->getMatrix();
    moved.setTrans(0, 0.5, 0);
    plane->setMatrix(moved);
    plane->updateSize(osg::BoundingBox(9, 8, 9, 11, 12, 11), true, 0, 0);
    osg::Vec3f center, direction;
    plane->getCutPlaneInfo(center, direction);
    expectNear(center, osg::Vec3f(10, 10.5f, 10));
    EXPECT_NEAR(std::fabs(direction.y()), 1.0f, 1e-6f);
}

TEST(RectCutPlaneTest, PublishesThePlaneAsCutUniforms)
{
    osg::ref_ptr<RectCutPlane> plane =
        new RectCutPlane(osg::BoundingBox(-1, -1, -3, 1, 1, 3), 3.0f);
    osg::ref_ptr<osg::StateSet> ss = new osg::StateSet;
    plane->addCutUniforms(ss.get());
    osg::Vec3f direction, center;
    float index = 0;
    ss->getUniform("direction")->get(direction);
    ss->getUniform("center")->get(center);
    ss->getUniform("selectIndex")->get(index);
    expectNear(direction, osg::Vec3f(0, 0, 1));
    expectNear(center, osg::Vec3f());
    EXPECT_FLOAT_EQ(index, 3.0f);

    plane->setMatrix(osg::Matrix::rotate(osg::PI_2, osg::Vec3d(0, 1, 0)) *
                     osg::Matrix::translate(0, 0, 1));
    plane->updateCutUniforms();
    plane->setSelectIndex(2.0f);
    ss->getUniform("direction")->get(direction);
    ss->getUniform("center")->get(center);
    ss->getUniform("selectIndex")->get(index);
    expectNear(direction, osg::Vec3f(1, 0, 0));
    expectNear(center, osg::Vec3f(0, 0, 1));
    EXPECT_FLOAT_EQ(index, 2.0f);

    plane->removeCutUniforms(ss.get());
    EXPECT_EQ(ss->getUniform("direction"), nullptr);
}

TEST(RectCutPlaneTest, HighlightColoursBothNodesOfAHandle)
{
    osg::ref_ptr<RectCutPlane> plane = new RectCutPlane(osg::BoundingBox(-1, -1, -1, 1, 1, 1));
    EXPECT_EQ(baseColor(plane->sphereNode(2), 0), kNormalColor);
    plane->setSphereColorByHighlight(2, true);
    EXPECT_EQ(baseColor(plane->sphereNode(2), 0), kHighlightColor);
    osg::Vec4f faint = kHighlightColor;
    faint.a() *= 0.5f;
    EXPECT_EQ(baseColor(plane->sphereNode(2), 1), faint);
    EXPECT_EQ(baseColor(plane->sphereNode(1), 0), kNormalColor);
    plane->setArrowColorByHighlight(true);
    EXPECT_EQ(baseColor(plane->arrowNode(), 0), kHighlightColor);
    plane->setArrowColorByHighlight(false);
    plane->setSphereColorByHighlight(2, false);
    EXPECT_EQ(baseColor(plane->arrowNode(), 0), kNormalColor);
    EXPECT_EQ(baseColor(plane->sphereNode(2), 0), kNormalColor);
    // Out of range: nothing to colour, nothing breaks.
    plane->setSphereColorByHighlight(4, true);
}

TEST(RectCutPlaneTest, EventsWithoutAViewAreIgnored)
{
    struct NoView : osgGA::GUIActionAdapter {
        void requestRedraw() override {}
        void requestContinuousUpdate(bool) override {}
        void requestWarpPointer(float, float) override {}
    } adapter;
    osg::ref_ptr<RectCutPlane> plane = new RectCutPlane(osg::BoundingBox(-1, -1, -1, 1, 1, 1));
    osg::ref_ptr<osgGA::EventQueue> queue = new osgGA::EventQueue;
    osg::ref_ptr<osgGA::GUIEventAdapter> press = queue->mouseButtonPress(10, 10, 1);
    EXPECT_FALSE(plane->handle(*press, adapter));
    EXPECT_FALSE(press->getHandled());
    const osg::Matrix before = plane->getMatrix();
    osg::ref_ptr<osgGA::GUIEventAdapter> drag = queue->mouseMotion(40, 40);
    EXPECT_FALSE(plane->handle(*drag, adapter));
    EXPECT_EQ(plane->getMatrix(), before);
}

namespace {

// The projector with its cylinder taken away, as a broken setup would leave it.
struct ProjectorWithoutCylinder : RectCutPlaneSpace::MyProjector {
    ProjectorWithoutCylinder() : MyProjector(70.0) { _cylinder = nullptr; }
};

} // namespace

TEST(RectCutPlaneProjectorTest, MissingCylinderWarnsAndFails)
{
    LogCapture log;
    osg::ref_ptr<ProjectorWithoutCylinder> projector = new ProjectorWithoutCylinder;
    osgManipulator::PointerInfo pointer;
    osg::Vec3d point;
    EXPECT_FALSE(projector->project(pointer, point));
    EXPECT_TRUE(log.contains("Warning: Invalid cylinder. CylinderProjector::project() failed."));
}

TEST(RectCutPlaneProjectorTest, TurnsAcrossTheAxisWithinTheAngle)
{
    osg::ref_ptr<osg::Cylinder> cylinder = new osg::Cylinder(osg::Vec3f(), 1.0f, 1.0f);
    const double sine = std::sin(osg::DegreesToRadians(70.0));
    osg::Vec3d start, end;
    bool parallel = true;
    auto planeFor = [&](double degreesFromAxis) {
        const double a = osg::DegreesToRadians(degreesFromAxis);
        const osg::Vec3d eye(std::sin(a), 0.0, -std::cos(a));
        return RectCutPlaneSpace::computeIntersectionPlane(eye, osg::Matrix(), osg::Vec3d(0, 0, 1),
                                                           *cylinder, start, end, parallel, sine);
    };
    // Looking along the axis, and still at 60 degrees from it: the plane across the axis.
    for (double degrees : {0.0, 60.0}) {
        const osg::Plane plane = planeFor(degrees);
        EXPECT_FALSE(parallel) << degrees;
        EXPECT_NEAR(std::fabs(plane.getNormal().z()), 1.0, 1e-9) << degrees;
    }
    // Beyond 70 degrees: the plane through the axis, facing the eye.
    const osg::Plane side = planeFor(85.0);
    EXPECT_TRUE(parallel);
    EXPECT_NEAR(side.getNormal().z(), 0.0, 1e-9);
    EXPECT_NEAR(std::fabs(side.getNormal().x()), 1.0, 1e-9);
    EXPECT_EQ(end - start, osg::Vec3d(0, 0, 1));
}

TEST(RectCutPlaneProjectorTest, LineHelpers)
{
    osg::Vec3d hit;
    EXPECT_TRUE(RectCutPlaneSpace::getPlaneLineIntersection(
        osg::Vec4d(0, 0, 1, -2), osg::Vec3d(1, 1, 0), osg::Vec3d(1, 1, 4), hit));
    EXPECT_EQ(hit, osg::Vec3d(1, 1, 2));
    // Parallel to the plane: no point.
    EXPECT_FALSE(RectCutPlaneSpace::getPlaneLineIntersection(
        osg::Vec4d(0, 0, 1, -2), osg::Vec3d(0, 0, 0), osg::Vec3d(1, 0, 0), hit));
    EXPECT_EQ(RectCutPlaneSpace::computeClosestPointOnLine(osg::Vec3d(0, 0, 0), osg::Vec3d(2, 0, 0),
                                                           osg::Vec3d(1, 5, 3)),
              osg::Vec3d(1, 0, 0));
    // A frame turned a quarter about z sees the world's x as its -y.
    const osg::Vec3d local = RectCutPlaneSpace::getLocalEyeDirection(
        osg::Vec3d(1, 0, 0), osg::Matrix::rotate(osg::PI_2, osg::Vec3d(0, 0, 1)));
    EXPECT_NEAR(local.y(), -1.0, 1e-9);
}
