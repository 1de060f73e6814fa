// Small geometry makers: what they build, checked on the arrays and primitives.
#include "circle_geom_maker.h"
#include "invalid_bounds.h"
#include "line_geom_maker.h"
#include "sphere_geom_maker.h"

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/LineWidth>
#include <osg/ShapeDrawable>

using namespace Vorna::Orvane;

namespace {
std::vector<unsigned> indicesOf(osg::Geometry* g)
{
    auto* e = static_cast<osg::DrawElementsUShort*>(g->getPrimitiveSet(0));
    return std::vector<unsigned>(e->begin(), e->end());
}
} // namespace

TEST(LineGeomMakerTest, HiddenWithoutPointsAndClosedWhenLooped)
{
    osg::ref_ptr<osg::Geometry> line = LineGeomMaker::createLineGeometry(false);
    EXPECT_EQ(line->getNodeMask(), 0u);
    EXPECT_EQ(line->getPrimitiveSet(0)->getMode(), static_cast<GLenum>(GL_LINES));
    const auto* colors = static_cast<osg::Vec4Array*>(line->getColorArray());
    EXPECT_EQ(colors->front(), osg::Vec4f(0.88f, 0, 0, 1));

    for (int i = 0; i < 3; ++i)
        LineGeomMaker::addLinePoint(line.get(), osg::Vec3f(i, 0, 0));
    EXPECT_NE(line->getNodeMask(), 0u);
    EXPECT_EQ(indicesOf(line.get()), (std::vector<unsigned>{0, 1, 1, 2}));
    LineGeomMaker::setLoop(line.get(), true);
    EXPECT_EQ(indicesOf(line.get()), (std::vector<unsigned>{0, 1, 1, 2, 2, 0}));
    bool loop = false;
    EXPECT_TRUE(line->getUserValue("loop", loop));
    EXPECT_TRUE(loop);

    LineGeomMaker::setWidth(line.get(), 3.0f);
    auto* width = dynamic_cast<osg::LineWidth*>(
        line->getStateSet()->getAttribute(osg::StateAttribute::LINEWIDTH));
    ASSERT_TRUE(width);
    EXPECT_FLOAT_EQ(width->getWidth(), 3.0f);

    LineGeomMaker::clearLinePoint(line.get());
    EXPECT_EQ(line->getNodeMask(), 0u);
    EXPECT_TRUE(indicesOf(line.get()).empty());
}

TEST(CircleGeomMakerTest, NoCircleForTwoSegmentsOrFewer)
{
    EXPECT_EQ(CircleGeomMaker::createCircleGeometry(osg::Vec3f(), 2), nullptr);
    osg::ref_ptr<osg::Geometry> circle = CircleGeomMaker::createCircleGeometry(osg::Vec3f(), 8);
    ASSERT_TRUE(circle);
    EXPECT_EQ(circle->getPrimitiveSet(0)->getMode(), static_cast<GLenum>(GL_TRIANGLE_FAN));
    auto* vertices = static_cast<osg::Vec3Array*>(circle->getVertexArray());
    EXPECT_EQ(vertices->front(), osg::Vec3f());
    for (unsigned i = 1; i < vertices->size(); ++i)
        EXPECT_NEAR((*vertices)[i].length(), 1.0f, 1e-6f);
    CircleGeomMaker::setColor(circle.get(), osg::Vec4f(0, 1, 0, 1));
    CircleGeomMaker::setAlpha(circle.get(), 0.25f);
    EXPECT_EQ(static_cast<osg::Vec4Array*>(circle->getColorArray())->front(),
              osg::Vec4f(0, 1, 0, 0.25f));
    osg::ref_ptr<osg::Program> program = CircleGeomMaker::createCircleProgram();
    EXPECT_EQ(program->getNumShaders(), 0u);
}

TEST(InvalidBoundsTest, CallbacksKeepNodesOutOfBounds)
{
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(CircleGeomMaker::createCircleGeometry(osg::Vec3f(5, 5, 5), 16));
    EXPECT_TRUE(geode->getBound().valid());
    geode->setComputeBoundingSphereCallback(new InvalidComputeBoundingSphere);
    geode->dirtyBound();
    EXPECT_FALSE(geode->getBound().valid());
    osg::Drawable* drawable = geode->getDrawable(0);
    drawable->setComputeBoundingBoxCallback(new InvalidComputeBoundingBox);
    drawable->dirtyBound();
    EXPECT_FALSE(drawable->getBoundingBox().valid());
}

TEST(SphereGeomMakerTest, RedShapeRecolouredInPlace)
{
    osg::ref_ptr<osg::Geometry> sphere =
        SphereGeomMaker::createSphereGeometry(osg::Vec3f(1, 2, 3), 0.5f);
    auto* shape = dynamic_cast<osg::ShapeDrawable*>(sphere.get());
    ASSERT_NE(shape, nullptr);
    EXPECT_EQ(shape->getColor(), osg::Vec4(1, 0, 0, 1));
    EXPECT_TRUE(shape->getUseVertexArrayObject());
    const osg::BoundingBox box = sphere->getBoundingBox();
    EXPECT_NEAR(box.center().y(), 2.0f, 1e-4f);
    EXPECT_NEAR(box.xMax() - box.xMin(), 1.0f, 1e-3f);
    SphereGeomMaker::setColor(sphere.get(), osg::Vec4f(0, 0, 1, 1));
    EXPECT_EQ(shape->getColor(), osg::Vec4(0, 0, 1, 1));
}
