// The marker programs on a live canvas: two rings cut out of a quad, and one colour when the
// target is too small on screen for both.
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"

#include <gtest/gtest.h>
#include <osg/Camera>
#include <osg/Geode>
#include <osg/Geometry>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

// 44.8 pixels per unit at the origin: 120 rows over 2 * 5 * tan(15 degrees).
constexpr double kPixelsPerUnit = 44.78;
const QPoint kCentre(CanvasWindow::kCanvasWidth / 2, CanvasWindow::kHeight / 2);
const osg::Vec4f kOuter(1, 0, 0, 1);
const osg::Vec4f kInner(1, 1, 1, 1);

std::string describe(const QColor& c)
{
    return "(" + std::to_string(c.red()) + ", " + std::to_string(c.green()) + ", " +
           std::to_string(c.blue()) + ")";
}

osg::Geometry* markerGeometry(bool geometryStage, float outer)
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    auto* vertices = new osg::Vec3Array;
    if (geometryStage) {
        vertices->push_back(osg::Vec3());
        geometry->setVertexArray(vertices);
        geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, 1));
    } else {
        for (const osg::Vec3& p : {osg::Vec3(-outer, -outer, 0), osg::Vec3(outer, -outer, 0),
                                   osg::Vec3(-outer, outer, 0), osg::Vec3(outer, outer, 0)})
            vertices->push_back(p);
        geometry->setVertexArray(vertices);
        geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_STRIP, 0, 4));
    }
    // A single point has no extent of its own: give it the disc's, or it is culled as too small.
    geometry->setInitialBound(osg::BoundingBox(-outer, -outer, -outer, outer, outer, outer));
    osg::StateSet* ss = geometry->getOrCreateStateSet();
    ss->setAttributeAndModes(OrvaneSingleton::instance()->getShaderMgr()->getShader(
                                 geometryStage ? "marker" : "marker_nogeom"),
                             osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("frontExternalColor", kOuter));
    ss->addUniform(new osg::Uniform("frontInnerColor", kInner));
    ss->addUniform(new osg::Uniform("normal", osg::Vec3f(0, 0, geometryStage ? 0.0f : 1.0f)));
    return geometry;
}

class MarkerShadingTest : public ::testing::TestWithParam<bool>
{
protected:
    void SetUp() override { ASSERT_TRUE(m_canvas.show()); }

    QImage draw(float outer, float inner)
    {
        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        osg::Geometry* geometry = markerGeometry(GetParam(), outer);
        geometry->getStateSet()->addUniform(new osg::Uniform("radius", osg::Vec2f(outer, inner)));
        geode->addDrawable(geometry);
        m_last = m_canvas.draw(geode.get());
        return m_last;
    }

    void expectPixel(const QImage& image, QPoint offset, const QColor& wanted)
    {
        // Flat colours: exact but for 8-bit rounding.
        const QColor actual = image.pixelColor(kCentre + offset);
        EXPECT_TRUE(OrvaneTest::near(actual, wanted, 1))
            << "at offset (" << offset.x() << ", " << offset.y() << "): " << describe(actual)
            << ", expected " << describe(wanted);
    }

    void TearDown() override
    {
        if (HasFailure() && !m_last.isNull())
            m_last.save(QString("marker_%1.png").arg(GetParam() ? "geom" : "nogeom"));
        m_canvas.close();
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
    QImage m_last;
};

TEST_P(MarkerShadingTest, InnerDiscOuterRingNothingBeyond)
{
    // Outer radius 22 pixels, inner 11.
    const QImage image = draw(0.5f, 0.25f);
    expectPixel(image, QPoint(0, 0), Qt::white);
    expectPixel(image, QPoint(6, -5), Qt::white);
    expectPixel(image, QPoint(0, 16), Qt::red);
    expectPixel(image, QPoint(-12, 12), Qt::red);
    // Inside the quad's corner but outside the disc.
    expectPixel(image, QPoint(18, 18), Qt::black);
    expectPixel(image, QPoint(0, 27), Qt::black);
}

TEST_P(MarkerShadingTest, TooSmallInnerDiameterShowsOneColour)
{
    // Inner diameter: ceil(0.03 * 2 * 44.8) = 3 pixels, under the threshold of 4.
    QImage image = draw(0.3f, 0.03f);
    expectPixel(image, QPoint(8, 0), Qt::white);
    expectPixel(image, QPoint(0, -9), Qt::white);
    // ceil(0.04 * 2 * 44.8) = 4 pixels: not below the threshold, both rings show.
    image = draw(0.3f, 0.04f);
    expectPixel(image, QPoint(8, 0), Qt::red);
    expectPixel(image, QPoint(0, 0), Qt::white);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutGeometryStage, MarkerShadingTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "marker" : "marker_nogeom";
                         });

} // namespace
