// The subsurface scattering rig on a wall of two physically based squares, light and dark, that
// meet in a vertical edge, under the fixed camera: the composed frame against the plain one.
#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "render_info.h"
#include "ssss_tool.h"

#include <cstdlib>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::probe;

namespace {

// Off x = 0, where the mesh factory drops vertices.
constexpr float kEdgeX = 0.05f;
// About 4.5 pixels per kernel millimetre at the wall's depth: most of the profile within 15.
constexpr float kUnitsPerMm = 0.1f;

// A square of the wall from x0 to x1, facing the camera, in base colour `front`.
osg::ref_ptr<osg::MatrixTransform> panel(float x0, float x1, const osg::Vec3& front)
{
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec2Array> texCoords = new osg::Vec2Array;
    const osg::Vec2 corners[] = {{x0, -2}, {x1, -2}, {x1, 2}, {x0, -2}, {x1, 2}, {x0, 2}};
    for (const osg::Vec2& c : corners) {
        vertices->push_back(osg::Vec3(c, 0.0f));
        normals->push_back(osg::Vec3(0, 0, 1));
        texCoords->push_back(osg::Vec2());
    }
    osg::ref_ptr<osg::MatrixTransform> mesh =
        Mesh::createPBRTexMesh(vertices.get(), normals.get(), texCoords.get());
    mesh->getOrCreateStateSet()->addUniform(new osg::Uniform("front", front));
    return mesh;
}

struct Wall {
    osg::ref_ptr<osg::Group> group = new osg::Group;
    osg::ref_ptr<osg::MatrixTransform> light;
    osg::ref_ptr<osg::MatrixTransform> dark;

    explicit Wall(float edgeX = kEdgeX)
        : light(panel(-3.0f, edgeX, osg::Vec3(0.9f, 0.9f, 0.9f))),
          dark(panel(edgeX, 3.0f, osg::Vec3(0.1f, 0.1f, 0.1f)))
    {
        // No specular lobe: the composed frame is the blurred diffuse alone.
        osg::StateSet* ss = group->getOrCreateStateSet();
        ss->setAttributeAndModes(ShaderManager::instance()->getShader(g_meshPBRBSDFProgramStr));
        ss->addUniform(new osg::Uniform("specular", 0.0f));
        ss->addUniform(new osg::Uniform("roughnessUniform", 1.0f));
        group->addChild(light.get());
        group->addChild(dark.get());
    }
};

int luminance(const QColor& c)
{
    return (c.red() * 299 + c.green() * 587 + c.blue() * 114) / 1000;
}

class SSSSToolTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_canvas.show()); }

    QImage plain(osg::Node* scene)
    {
        return m_canvas.draw(scene).copy(0, 0, CanvasWindow::kCanvasWidth, CanvasWindow::kHeight);
    }

    // Puts the rig over the model group and grabs the frames it composes.
    QImage composed()
    {
        EXPECT_TRUE(m_canvas.onRenderThread([](RenderInfo& info) {
            osgViewer::View* view = info.mainView();
            ViewMgr::getOther(view)->addChild(
                SSSSTool::createSSSSNode(ViewMgr::getModel(view), kUnitsPerMm).get());
        }));
        return m_canvas.window().grabAfterFrames(3);
    }

    // The first column of the dark side in the plain frame, on the middle row.
    static int edgeColumn(const QImage& image)
    {
        const int y = CanvasWindow::kHeight / 2;
        for (int x = 1; x < image.width(); ++x)
            if (luminance(image.pixelColor(x, y)) < luminance(image.pixelColor(x - 1, y)) - 100)
                return x;
        return -1;
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
};

TEST_F(SSSSToolTest, PixelsOutsideTheMaskKeepThePlainImage)
{
    Wall wall;
    // Both given: a program keeps the last value set, so a default can't be relied on here.
    wall.light->getOrCreateStateSet()->addUniform(new osg::Uniform("bEnableSSSS", false));
    wall.dark->getOrCreateStateSet()->addUniform(new osg::Uniform("bEnableSSSS", true));
    const QImage before = plain(wall.group.get());
    const int edge = edgeColumn(before);
    ASSERT_GT(edge, 20);
    const QImage after = composed();

    // The light side is unmasked: the frame's own pixels come back through the copy, exactly,
    // up to the edge itself although the blur there takes in the dark side.
    for (int y = 0; y < CanvasWindow::kHeight; y += 7)
        for (int x = 0; x < edge; ++x)
            ASSERT_EQ(after.pixel(x, y), before.pixel(x, y)) << x << "," << y;
    // The dark side, masked, takes in light from across the edge: the rig is at work.
    const QPoint beside(edge + 1, CanvasWindow::kHeight / 2);
    EXPECT_GT(luminance(after.pixelColor(beside)), luminance(before.pixelColor(beside)) + 10)
        << OrvaneTest::describe(after.pixelColor(beside));
}

TEST_F(SSSSToolTest, AFlatMaskedAreaKeepsItsColourAndAHardEdgeSoftens)
{
    Wall wall;
    const QImage before = plain(wall.group.get());
    const int edge = edgeColumn(before);
    ASSERT_GT(edge, 20);
    const QImage after = composed();

    // Far from the edge the profile, which sums to one, averages a nearly flat colour: the
    // shading drifts by under a level across the kernel, plus 8-bit rounding of each frame.
    for (const QPoint& flat : {probe(-1.4f, 0.8f).pixel, probe(-1.2f, -0.9f).pixel,
                               probe(1.4f, 0.8f).pixel, probe(1.2f, -0.9f).pixel})
        EXPECT_TRUE(OrvaneTest::near(after.pixelColor(flat), before.pixelColor(flat), 2))
            << flat.x() << "," << flat.y() << " " << OrvaneTest::describe(after.pixelColor(flat))
            << " vs " << OrvaneTest::describe(before.pixelColor(flat));

    // Beside the edge each side moves toward the other, red the furthest, as skin scatters it.
    const int y = CanvasWindow::kHeight / 2;
    const QColor darkBefore = before.pixelColor(edge + 1, y);
    const QColor darkAfter = after.pixelColor(edge + 1, y);
    const QColor lightBefore = before.pixelColor(edge - 2, y);
    const QColor lightAfter = after.pixelColor(edge - 2, y);
    EXPECT_GT(luminance(darkAfter), luminance(darkBefore) + 20)
        << OrvaneTest::describe(darkAfter) << " vs " << OrvaneTest::describe(darkBefore);
    EXPECT_LT(luminance(lightAfter), luminance(lightBefore) - 20)
        << OrvaneTest::describe(lightAfter) << " vs " << OrvaneTest::describe(lightBefore);
    EXPECT_GT(darkAfter.red() - darkBefore.red(), darkAfter.blue() - darkBefore.blue());
    // Still an edge: the two sides stay apart.
    EXPECT_GT(luminance(lightAfter), luminance(darkAfter));
}

TEST_F(SSSSToolTest, AHorizontalEdgeSoftensInTheSecondPass)
{
    // The wall turned a quarter: light below, dark above, so that only the blur along y, the
    // pass over the frame, can cross the edge.
    Wall wall;
    osg::ref_ptr<osg::MatrixTransform> turned = new osg::MatrixTransform(
        osg::Matrix::rotate(osg::DegreesToRadians(90.0), osg::Vec3(0, 0, 1)));
    turned->addChild(wall.group.get());
    const QImage before = plain(turned.get());
    const QImage after = composed();

    const int x = CanvasWindow::kCanvasWidth / 2;
    int edge = -1;
    for (int y = 1; y < CanvasWindow::kHeight && edge < 0; ++y)
        if (std::abs(luminance(before.pixelColor(x, y)) - luminance(before.pixelColor(x, y - 1))) >
            100)
            edge = y;
    ASSERT_GT(edge, 10);
    const bool darkAbove =
        luminance(before.pixelColor(x, edge - 1)) < luminance(before.pixelColor(x, edge));
    const QPoint darkSide(x, darkAbove ? edge - 2 : edge + 1);
    const QPoint lightSide(x, darkAbove ? edge + 1 : edge - 2);
    EXPECT_GT(luminance(after.pixelColor(darkSide)), luminance(before.pixelColor(darkSide)) + 20)
        << OrvaneTest::describe(after.pixelColor(darkSide));
    EXPECT_LT(luminance(after.pixelColor(lightSide)), luminance(before.pixelColor(lightSide)) - 20)
        << OrvaneTest::describe(after.pixelColor(lightSide));
}

TEST_F(SSSSToolTest, TheImagesFollowTheCanvasWhenItIsResized)
{
    // Off centre, so that images left at the old size would put the edge elsewhere.
    Wall wall(-0.6f);
    wall.light->getOrCreateStateSet()->addUniform(new osg::Uniform("bEnableSSSS", false));
    wall.dark->getOrCreateStateSet()->addUniform(new osg::Uniform("bEnableSSSS", true));
    plain(wall.group.get());
    composed();

    constexpr int kSide = 100;
    CanvasWindow& window = m_canvas.window();
    auto grab = [&] { return window.grabAfterFrames(3, kSide, kSide); };
    window.item()->setSize(QSizeF(kSide, kSide));
    const QImage after = grab();
    EXPECT_TRUE(m_canvas.onRenderThread([](RenderInfo& info) {
        osg::Group* other = ViewMgr::getOther(info.mainView());
        for (unsigned int i = other->getNumChildren(); i-- > 0;)
            if (other->getChild(i)->getName() == "ssss")
                other->removeChild(i);
    }));
    const QImage before = grab();
    const int edge = edgeColumn(before);
    ASSERT_GT(edge, 10);

    for (int y = 0; y < kSide; y += 7)
        for (int x = 0; x < edge; ++x)
            ASSERT_EQ(after.pixel(x, y), before.pixel(x, y)) << x << "," << y;
    const QPoint beside(edge + 1, CanvasWindow::kHeight / 2);
    EXPECT_GT(luminance(after.pixelColor(beside)), luminance(before.pixelColor(beside)) + 10)
        << OrvaneTest::describe(after.pixelColor(beside));
}

} // namespace
