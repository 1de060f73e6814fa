// The viewer's see-through key on a live canvas: T moves the meshes into the transparent model
// group and back, [ and ] change how much of the background shows through.
#include "viewer_transparent.h"

#include "canvas3d_item.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "render_info.h"

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Point>

using namespace Vorna::Orvane;
using OrvaneTest::describe;
using OrvaneTest::probe;
using OrvaneTest::toColor;

namespace {

// 8-bit quantisation of the framebuffer, plus float rounding of exp and log in the shaders.
constexpr int kTolerance = 2;
const QColor kClear(51, 77, 102);
// What the transparent passes make of a surface facing the eye with the default grey.
const osg::Vec3 kGrey(0.5f, 0.5f, 0.5f);

osg::ref_ptr<osg::Geometry> geometryOf(GLenum mode, float z)
{
    osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    const osg::Vec2 corners[6] = {{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}};
    for (const osg::Vec2& c : corners) {
        positions->push_back(osg::Vec3(c.x() * 2.0f - 1.0f, c.y() * 2.0f - 1.0f, z));
        normals->push_back(osg::Vec3(0.0f, 0.0f, 1.0f));
    }
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setVertexAttribArray(0, positions.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(1, normals.get(), osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(mode, 0, 6));
    geometry->setInitialBound(osg::BoundingBox(-1, -1, z - 0.01f, 1, 1, z + 0.01f));
    return geometry;
}

osg::ref_ptr<osg::Geode> model(GLenum mode, float z, const std::string& program)
{
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometryOf(mode, z).get());
    geode->getOrCreateStateSet()->setAttributeAndModes(
        ShaderManager::instance()->getShader(program), osg::StateAttribute::ON);
    return geode;
}

osg::Vec3 clearColor()
{
    return osg::Vec3(kClear.redF(), kClear.greenF(), kClear.blueF());
}

class ViewerTransparencyTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_canvas.show());
        m_canvas.window().item()->setClearColor(kClear);
        ASSERT_TRUE(m_canvas.onRenderThread([this](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->addChild(m_mesh.get());
            ViewMgr::getModel(info.mainView())->addChild(m_points.get());
            info.mainView()->addEventHandler(m_keys.get());
        }));
    }

    // Queues the key on the view, whose next event traversal hands it to the handler: an
    // operation may not add operations itself, as the handler does.
    void press(int key)
    {
        ASSERT_TRUE(m_canvas.onRenderThread(
            [key](RenderInfo& info) { info.mainView()->getEventQueue()->keyPress(key); }));
        afterFrames();
    }

    QImage afterFrames()
    {
        OrvaneTest::CanvasWindow& w = m_canvas.window();
        const int start = w.sceneFrames();
        EXPECT_TRUE(OrvaneTest::waitUntil([&] {
            w.item()->frame();
            return w.sceneFrames() >= start + 3;
        }));
        return w.grab();
    }

    void expectPixel(const QImage& image, const QPoint& at, const osg::Vec3& expected)
    {
        const QColor actual = image.pixelColor(at);
        EXPECT_TRUE(OrvaneTest::near(actual, toColor(expected), kTolerance))
            << "at (" << at.x() << ", " << at.y() << "): " << describe(actual) << ", expected "
            << describe(toColor(expected));
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
    osg::ref_ptr<ViewerTransparency> m_keys = new ViewerTransparency(0.5f);
    osg::ref_ptr<osg::Node> m_mesh = model(GL_TRIANGLES, 0.0f, g_meshProgramStr);
    osg::ref_ptr<osg::Node> m_points = model(GL_POINTS, 0.5f, g_pointProgramStr);
};

TEST_F(ViewerTransparencyTest, TMakesTheMeshesSeeThroughAndPutsThemBack)
{
    const QImage before = afterFrames();
    press('t');
    const QImage seeThrough = afterFrames();
    EXPECT_TRUE(m_keys->seeThrough());
    const QPoint centre = probe(0.1f, -0.1f).pixel;
    // Half the grey surface, half the background behind it.
    expectPixel(seeThrough, centre, kGrey * 0.5f + clearColor() * 0.5f);
    ASSERT_TRUE(m_canvas.onRenderThread([&](RenderInfo& info) {
        osg::Group* root = ViewMgr::getRoot(info.mainView());
        ASSERT_EQ(root->getNumChildren(), 1u);
        EXPECT_EQ(root->getChild(0)->getName(), "transGroup");
        // The points stay opaque where they were; the mesh went to the transparent group.
        osg::Group* model = ViewMgr::getModel(info.mainView());
        ASSERT_EQ(model->getNumChildren(), 1u);
        EXPECT_EQ(model->getChild(0), m_points.get());
        EXPECT_EQ(m_mesh->getParent(0)->getParent(0), ViewMgr::getTransModel(info.mainView()));
    }));

    press('[');
    EXPECT_FLOAT_EQ(m_keys->opacity(), 0.4f);
    expectPixel(afterFrames(), centre, kGrey * 0.4f + clearColor() * 0.6f);
    press(']');
    press(']');
    EXPECT_FLOAT_EQ(m_keys->opacity(), 0.6f);
    expectPixel(afterFrames(), centre, kGrey * 0.6f + clearColor() * 0.4f);

    press('t');
    const QImage after = afterFrames();
    EXPECT_FALSE(m_keys->seeThrough());
    ASSERT_TRUE(m_canvas.onRenderThread([&](RenderInfo& info) {
        osg::Group* model = ViewMgr::getModel(info.mainView());
        ASSERT_EQ(model->getNumChildren(), 2u);
        EXPECT_EQ(ViewMgr::getTransModel(info.mainView())->getNumChildren(), 0u);
        EXPECT_EQ(m_mesh->getParent(0), model);
        EXPECT_EQ(m_mesh->getNumParents(), 1u);
    }));
    // The same nodes and state as before: the same pixels.
    EXPECT_EQ(after.pixelColor(centre), before.pixelColor(centre));
}

TEST_F(ViewerTransparencyTest, OpacityStaysWithinItsRange)
{
    for (int i = 0; i < 12; ++i)
        press(']');
    EXPECT_FLOAT_EQ(m_keys->opacity(), 0.9f);
    for (int i = 0; i < 12; ++i)
        press('[');
    EXPECT_FLOAT_EQ(m_keys->opacity(), 0.1f);
}

} // namespace
