// Reference targets built by MarkerPoint and EcodedPoint, drawn on a live canvas under the fixed
// camera: the rings of a plain target from both sides, the arcs of a coded one, and the bytes of
// the coded pattern's uniform block.
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "markerpoint.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <osg/AutoTransform>
#include <osg/MatrixTransform>
#include <utility>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;

namespace {

// 44.8 pixels per unit at the origin: 120 rows over 2 * 5 * tan(15 degrees).
constexpr double kPixelsPerUnit = 44.78;
const QPoint kCentre(CanvasWindow::kCanvasWidth / 2, CanvasWindow::kHeight / 2);

// Where the point at `ratio` of `radius` in the direction `degrees` lands; image rows grow down.
QPoint onDisc(float radius, float ratio, float degrees)
{
    const double a = osg::DegreesToRadians(double(degrees));
    const double d = radius * ratio * kPixelsPerUnit;
    return kCentre + QPoint(int(std::lround(d * std::cos(a))), -int(std::lround(d * std::sin(a))));
}

class AidsPixelTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_canvas.show()); }
    void TearDown() override
    {
        if (HasFailure() && !m_last.isNull())
            m_last.save(QString("aids_%1.png")
                            .arg(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        m_canvas.close();
    }

    QImage draw(osg::Node* node)
    {
        m_last = m_canvas.draw(node);
        return m_last;
    }

    void expectPixel(const QImage& image, QPoint at, const QColor& wanted, int tolerance)
    {
        const QColor actual = image.pixelColor(at);
        EXPECT_TRUE(OrvaneTest::near(actual, wanted, tolerance))
            << "at (" << at.x() << ", " << at.y() << "): " << OrvaneTest::describe(actual)
            << ", expected " << OrvaneTest::describe(wanted);
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
    QImage m_last;
};

class MarkerPointTest : public AidsPixelTest, public ::testing::WithParamInterface<bool>
{
protected:
    // Outer radius 22 pixels, inner 11; red outside, white inside.
    static MarkerParam param()
    {
        MarkerParam p;
        p.normal = osg::Vec3f(0, 0, 1);
        p.frontExternalColor = osg::Vec4f(1, 0, 0, 1);
        p.frontInnerColor = osg::Vec4f(1, 1, 1, 1);
        p.backExternalColor = osg::Vec4f(0, 0, 1, 1);
        p.backInnerColor = osg::Vec4f(0, 1, 0, 1);
        p.radius = osg::Vec2f(0.5f, 0.25f);
        return p;
    }

    void expectRings(const QImage& image)
    {
        // Flat colours: exact but for 8-bit rounding.
        expectPixel(image, kCentre, Qt::white, 1);
        expectPixel(image, kCentre + QPoint(6, -5), Qt::white, 1);
        expectPixel(image, kCentre + QPoint(0, 16), Qt::red, 1);
        expectPixel(image, kCentre + QPoint(-12, 12), Qt::red, 1);
        // In the quad's corner, outside the disc.
        expectPixel(image, kCentre + QPoint(18, 18), Qt::black, 1);
        expectPixel(image, kCentre + QPoint(0, 27), Qt::black, 1);
    }
};

TEST_P(MarkerPointTest, RingsInTheirColoursFacingTheCamera)
{
    expectRings(draw(MarkerPoint::createMarkerPoint(param(), GetParam()).get()));
}

TEST_P(MarkerPointTest, RingsInTheFrontColoursFromBehind)
{
    // Turned away from the camera: the back colours go unused.
    osg::ref_ptr<osg::MatrixTransform> turned =
        new osg::MatrixTransform(osg::Matrix::rotate(osg::PI, osg::Vec3(0, 1, 0)));
    turned->addChild(MarkerPoint::createMarkerPoint(param(), GetParam()));
    expectRings(draw(turned.get()));
}

TEST_P(MarkerPointTest, TransparentOnlyWithAnAlphaBelowOne)
{
    auto hint = [this](const MarkerParam& p) {
        osg::ref_ptr<osg::Geode> geode = MarkerPoint::createMarkerPoint(p, GetParam());
        const osg::StateSet* ss = geode->getDrawable(0)->getStateSet();
        return std::make_pair(ss->getRenderingHint(), ss->getMode(GL_BLEND));
    };
    EXPECT_EQ(hint(param()).first, osg::StateSet::DEFAULT_BIN);
    MarkerParam p = param();
    p.backInnerColor.a() = 0.9f;
    EXPECT_EQ(hint(p).first, osg::StateSet::TRANSPARENT_BIN);
    EXPECT_TRUE(hint(p).second & osg::StateAttribute::ON);
}

TEST_P(MarkerPointTest, BoundHasTheOuterRadius)
{
    osg::ref_ptr<osg::Geode> geode = MarkerPoint::createMarkerPoint(param(), GetParam());
    const osg::BoundingBox box = geode->getDrawable(0)->getBoundingBox();
    EXPECT_NEAR(box.xMax(), 0.5, 1e-6);
    EXPECT_NEAR(box.zMin(), -0.5, 1e-6);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutGeometryStage, MarkerPointTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "geometry_stage" : "quad";
                         });

using MarkerPointNoNormalTest = MarkerPointTest;

TEST_F(MarkerPointNoNormalTest, FacesTheCameraFromAnyAngle)
{
    MarkerParam p = param();
    p.normal = osg::Vec3f(0, 0, 0);
    // Turned edge-on to the camera, yet the disc is built facing it.
    osg::ref_ptr<osg::MatrixTransform> turned =
        new osg::MatrixTransform(osg::Matrix::rotate(osg::PI_2, osg::Vec3(0, 1, 0)));
    turned->addChild(MarkerPoint::createMarkerPoint(p, true));
    expectRings(draw(turned.get()));
}

EcodedPointParam codedParam()
{
    EcodedPointParam p;
    p.radius = 1.0f;
    p.innerRadiusRatio = 0.2f;
    p.medialRadiusRatio = 0.5f;
    p.externalRadiusRatio = 0.9f;
    p.outermostRadiusRatio = 1.0f;
    p.fragments = {{0.0f, 60.0f}, {120.0f, 200.0f}, {270.0f, 300.0f}};
    return p;
}

using EcodedPointPixelTest = AidsPixelTest;

TEST_F(EcodedPointPixelTest, ArcsMatchTheCode)
{
    const EcodedPointParam p = codedParam();
    const QImage image = draw(EcodedPoint::createEcodedPoint(p).get());
    // Flat white on the black background: exact but for 8-bit rounding, 2 to spare for edges.
    expectPixel(image, kCentre, Qt::white, 2);
    for (float ratio : {0.6f, 0.7f, 0.8f}) {
        for (float deg : {10.0f, 30.0f, 50.0f, 130.0f, 160.0f, 190.0f, 275.0f, 285.0f, 295.0f})
            expectPixel(image, onDisc(p.radius, ratio, deg), Qt::white, 2);
        for (float deg : {75.0f, 90.0f, 105.0f, 215.0f, 240.0f, 260.0f, 315.0f, 340.0f})
            expectPixel(image, onDisc(p.radius, ratio, deg), Qt::black, 2);
    }
    // The gap between the dot and the arcs, and beyond the disc.
    for (float deg : {30.0f, 160.0f, 285.0f}) {
        expectPixel(image, onDisc(p.radius, 0.35f, deg), Qt::black, 2);
        expectPixel(image, onDisc(p.radius, 1.1f, deg), Qt::black, 2);
    }
}

TEST_F(EcodedPointPixelTest, LabelAtTheRimAwayFromTheViewCentre)
{
    EcodedPointParam p = codedParam();
    p.text = "42";
    osg::ref_ptr<osg::Group> target = EcodedPoint::createEcodedPoint(p);
    auto* mt = dynamic_cast<osg::MatrixTransform*>(target->getChild(1)->asGroup()->getChild(0));
    ASSERT_TRUE(mt);
    // Right of the view's centre: the label goes to the right-hand rim.
    osg::ref_ptr<osg::MatrixTransform> place =
        new osg::MatrixTransform(osg::Matrix::translate(1.2, 0, 0));
    place->addChild(target);
    OrvaneTest::LogCapture log;
    UpdateEcodedPointTextMatrixCallback::needEcodeLog = true;
    draw(place.get());
    UpdateEcodedPointTextMatrixCallback::needEcodeLog = false;
    const osg::Vec3d t = mt->getMatrix().getTrans();
    EXPECT_NEAR(t.x(), 1.0, 1e-5);
    EXPECT_NEAR(t.y(), 0.0, 1e-5);
    EXPECT_TRUE(log.contains("updateMatCb, txt:"));
    EXPECT_TRUE(log.contains(", wolrdMat:"));
}

TEST(EcodedPointTest, UniformBlockLayout)
{
    EcodedPointParam p = codedParam();
    for (int i = 0; i < 14; ++i)
        p.fragments.push_back({float(i), float(i) + 0.5f});
    osg::ref_ptr<osg::UniformBufferBinding> binding = EcodedPoint::createEcodedUBO(p);
    ASSERT_TRUE(binding);
    EXPECT_EQ(binding->getIndex(), 0u);
    EXPECT_EQ(binding->getSize(), 272);
    const auto* bytes = dynamic_cast<const osg::UByteArray*>(binding->getBufferData());
    ASSERT_TRUE(bytes);
    ASSERT_EQ(bytes->size(), 272u);
    const unsigned char* data = &(*bytes)[0];
    auto f = [data](int offset) {
        float v;
        std::memcpy(&v, data + offset, sizeof(v));
        return v;
    };
    auto n = [data](int offset) {
        int v;
        std::memcpy(&v, data + offset, sizeof(v));
        return v;
    };
    EXPECT_EQ(f(0), 1.0f);
    EXPECT_EQ(f(4), 0.2f);
    EXPECT_EQ(f(8), 0.5f);
    EXPECT_EQ(f(12), 0.9f);
    EXPECT_EQ(f(16), 1.0f);
    // 17 asked for, 15 fit.
    EXPECT_EQ(n(20), 15);
    EXPECT_EQ(f(32), 0.0f);
    EXPECT_EQ(f(36), 60.0f);
    EXPECT_EQ(f(32 + 16), 120.0f);
    EXPECT_EQ(f(36 + 16), 200.0f);
    EXPECT_EQ(f(32 + 16 * 14), 11.0f);
    EXPECT_EQ(f(36 + 16 * 14), 11.5f);
}

TEST(EcodedPointTest, LabelOnlyWithText)
{
    EcodedPointParam p = codedParam();
    EXPECT_EQ(EcodedPoint::createEcodedPoint(p)->getNumChildren(), 1u);
    p.text = "17";
    osg::ref_ptr<osg::Group> group = EcodedPoint::createEcodedPoint(p);
    ASSERT_EQ(group->getNumChildren(), 2u);
    auto* turn = dynamic_cast<osg::AutoTransform*>(group->getChild(1));
    ASSERT_TRUE(turn);
    auto* mt = dynamic_cast<osg::MatrixTransform*>(turn->getChild(0));
    ASSERT_TRUE(mt);
    EXPECT_TRUE(dynamic_cast<UpdateEcodedPointTextMatrixCallback*>(mt->getUpdateCallback()));
    // Starts at the rim above the centre.
    EXPECT_NEAR(mt->getMatrix().getTrans().y(), 1.0, 1e-6);
}

} // namespace
