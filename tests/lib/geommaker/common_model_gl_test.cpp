// Scene aids drawn on a live canvas: pixels of the width line, the sphere aid, text and arrows.
#include "canvas3d_view.h"
#include "common_model.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "orvane_operations.h"

#include <gtest/gtest.h>
#include <osg/Camera>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

// Flat colours through 8 bits: one step of rounding.
constexpr int kTolerance = 1;

QColor toColor(const osg::Vec4f& c)
{
    return QColor::fromRgbF(c.r(), c.g(), c.b());
}

std::string describe(const QColor& c)
{
    return "(" + std::to_string(c.red()) + ", " + std::to_string(c.green()) + ", " +
           std::to_string(c.blue()) + ")";
}

int countNear(const QImage& image, const QColor& colour, int tolerance)
{
    int n = 0;
    for (int y = 0; y < CanvasWindow::kHeight; ++y)
        for (int x = 0; x < CanvasWindow::kCanvasWidth; ++x)
            n += OrvaneTest::near(image.pixelColor(x, y), colour, tolerance) ? 1 : 0;
    return n;
}

class CommonModelDrawTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_canvas.show()); }

    // Shows the node alone in the model group and grabs the window after a few frames.
    QImage draw(osg::Node* node)
    {
        QImage image = m_canvas.draw(node);
        m_lastImage = image;
        return image;
    }

    void expectPixel(const QImage& image, QPoint at, const QColor& wanted, int tolerance)
    {
        const QColor actual = image.pixelColor(at);
        EXPECT_TRUE(OrvaneTest::near(actual, wanted, tolerance))
            << "at (" << at.x() << ", " << at.y() << "): " << describe(actual) << ", expected "
            << describe(wanted);
    }

    void TearDown() override
    {
        if (HasFailure() && !m_lastImage.isNull())
            m_lastImage.save(
                QString("common_model_%1.png")
                    .arg(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
    QImage m_lastImage;
};

const QPoint kCentre(CanvasWindow::kCanvasWidth / 2, CanvasWindow::kHeight / 2);

TEST_F(CommonModelDrawTest, WidthLineIsTenUnitsOfItsResolutionWide)
{
    const osg::Vec4f red(1, 0, 0, 1);
    // With the canvas's own size as resolution, 10 units are 10 pixels: 5 to each side.
    const QImage image =
        draw(CommonModel::createWidthLine({{-1, 0, 0}, {1, 0, 0}}, red, 10, false,
                                          CanvasWindow::kCanvasWidth, CanvasWindow::kHeight));
    for (int dy : {-4, -2, 0, 2, 3})
        expectPixel(image, kCentre + QPoint(0, dy), toColor(red), kTolerance);
    for (int dy : {-7, 7})
        expectPixel(image, kCentre + QPoint(0, dy), Qt::black, 0);
    // Past the ends nothing is drawn.
    expectPixel(image, QPoint(5, kCentre.y()), Qt::black, 0);
}

TEST_F(CommonModelDrawTest, WidthLineIsThinInTheDefaultResolution)
{
    const osg::Vec4f green(0, 1, 0, 1);
    // 10 units of 1800 rows are a third of a pixel of 120.
    const QImage image =
        draw(CommonModel::createWidthLine({{-1, 0.01f, 0}, {1, 0.01f, 0}}, green, 10, false));
    int rows = 0;
    for (int y = 0; y < CanvasWindow::kHeight; ++y) {
        int lit = 0;
        for (int x = 0; x < CanvasWindow::kCanvasWidth; ++x)
            lit += OrvaneTest::near(image.pixelColor(x, y), toColor(green), 60) ? 1 : 0;
        // The line is 90 pixels long on the canvas.
        if (lit > 0)
            EXPECT_NEAR(lit, 90, 2) << "row " << y;
        rows += lit > 0 ? 1 : 0;
    }
    EXPECT_EQ(rows, 1);
}

TEST_F(CommonModelDrawTest, SteepWidthLineWidensSideways)
{
    const osg::Vec4f blue(0, 0, 1, 1);
    const QImage image =
        draw(CommonModel::createWidthLine({{0, -1, 0}, {0, 1, 0}}, blue, 10, false,
                                          CanvasWindow::kCanvasWidth, CanvasWindow::kHeight));
    for (int dx : {-4, 0, 3})
        expectPixel(image, kCentre + QPoint(dx, 0), toColor(blue), kTolerance);
    for (int dx : {-7, 7})
        expectPixel(image, kCentre + QPoint(dx, 0), Qt::black, 0);
}

TEST_F(CommonModelDrawTest, UnlitSphereAidShowsItsColour)
{
    const osg::Vec4f colour(0.2f, 0.4f, 0.8f, 1.0f);
    const QImage image =
        draw(CommonModel::createShpere(osg::Vec3f(), 0.5f, colour, true, false, false));
    expectPixel(image, kCentre, toColor(colour), kTolerance);
    expectPixel(image, kCentre + QPoint(10, 5), toColor(colour), kTolerance);
    expectPixel(image, QPoint(5, 5), Qt::black, 0);
}

TEST_F(CommonModelDrawTest, LitSphereAidIsBrightestFacingTheEye)
{
    const osg::Vec4f colour(0.2f, 0.4f, 0.5f, 1.0f);
    const QImage image = draw(CommonModel::createShpere(osg::Vec3f(), 0.8f, colour));
    const QColor middle = image.pixelColor(kCentre);
    // Facing the eye: ambient, full diffuse and most of the highlight, capped at 1.
    EXPECT_GT(middle.blueF(), 0.5 * 1.1);
    EXPECT_LE(std::abs(middle.redF() / middle.blueF() - 0.4), 0.05);
    // Towards the rim the diffuse term falls off.
    const QColor rim = image.pixelColor(kCentre + QPoint(13, 0));
    EXPECT_LT(rim.blue(), middle.blue());
    EXPECT_GT(rim.blue(), 0);
}

TEST_F(CommonModelDrawTest, TextDrawsItsGlyphsInItsColour)
{
    const osg::Vec4f yellow(1, 1, 0, 1);
    const QImage image = draw(CommonModel::createText("HHHH", yellow, 24, nullptr));
    // Glyph edges are antialiased; the strokes' cores are the colour itself.
    const int lit = countNear(image, toColor(yellow), 40);
    EXPECT_GT(lit, 30);
    EXPECT_LT(lit, CanvasWindow::kCanvasWidth * CanvasWindow::kHeight / 4);
}

TEST_F(CommonModelDrawTest, CoordFrameDrawsItsConesAndShaftsInTheModelGroup)
{
    CommonModel::CoordFrameCreateInfo info;
    info.light = false;
    info.shaftRatio = 0.05f;
    const QImage image = draw(CommonModel::createCoordFrame(info));
    EXPECT_GT(countNear(image, Qt::red, kTolerance), 20);
    EXPECT_GT(countNear(image, Qt::green, kTolerance), 20);
    // z points at the eye: only its cone's base disc shows, under the other axes' roots.
    EXPECT_GT(countNear(image, Qt::blue, kTolerance), 5);
}

TEST_F(CommonModelDrawTest, ClipPlaneDrawsItsOutlineAndArrow)
{
    osg::BoundingBox box(-1, -1, -0.5f, 1, 1, 0.5f);
    osg::ref_ptr<osg::Node> plane = CommonModel::createClipPlane(box);
    // Tilted a little so the arrow along its normal shows as more than a dot.
    osg::ref_ptr<osg::MatrixTransform> tilt =
        new osg::MatrixTransform(osg::Matrix::rotate(0.5, osg::Vec3d(1, 0, 0)));
    tilt->addChild(plane.get());
    const QImage image = draw(tilt.get());
    const QColor outline = toColor(osg::Vec4f(0.007843138f, 0.53333336f, 0.9411765f, 1.0f));
    // The outline and the lit arrow share the blue; the translucent plane adds 10% white.
    EXPECT_GT(countNear(image, outline, 30), 40);
    const QColor inside = image.pixelColor(kCentre + QPoint(-20, 10));
    EXPECT_NEAR(inside.red(), 26, 3);
}

} // namespace
