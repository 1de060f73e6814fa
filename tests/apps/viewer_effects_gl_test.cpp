// The viewer's effect toggles on a small scene: a wall and a square in front of it, lit from
// the upper left, under a fixed camera; pixels against each other and images against baselines.
#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "fixed_camera_canvas.h"
#include "fxaa_tool.h"
#include "gl_test_support.h"
#include "image_baseline.h"
#include "orvane_singleton.h"
#include "render_info.h"
#include "viewer_effects.h"

#include <gtest/gtest.h>
#include <osg/Geode>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::probe;

namespace {

// A square at depth z facing the camera, in one colour.
osg::ref_ptr<osg::MatrixTransform> square(float half, float z, const osg::Vec3& colour,
                                          float dx = 0.0f, float dy = 0.0f)
{
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> colours = new osg::Vec3Array;
    const osg::Vec2 corners[] = {{-1, -1}, {1, -1}, {1, 1}, {-1, -1}, {1, 1}, {-1, 1}};
    for (const osg::Vec2& c : corners) {
        vertices->push_back(osg::Vec3(dx + c.x() * half, dy + c.y() * half, z));
        normals->push_back(osg::Vec3(0, 0, 1));
        colours->push_back(colour);
    }
    osg::ref_ptr<osg::MatrixTransform> mesh =
        Mesh::create(vertices.get(), normals.get(), colours.get());
    mesh->getOrCreateStateSet()->setAttributeAndModes(
        OrvaneSingleton::instance()->getShaderMgr()->getShader(g_meshColorProgramStr));
    return mesh;
}

osg::ref_ptr<osg::Group> scene()
{
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->addChild(square(1.6f, 0.0f, osg::Vec3(0.8f, 0.8f, 0.8f)));
    // Tilted in image space by its shadow: a diagonal edge for the antialiasing.
    osg::ref_ptr<osg::MatrixTransform> blocker = square(0.35f, 0.6f, osg::Vec3(0.9f, 0.3f, 0.2f));
    blocker->setMatrix(osg::Matrix::rotate(osg::DegreesToRadians(30.0), osg::Vec3(0, 0, 1)));
    group->addChild(blocker.get());
    return group;
}

int luminance(const QColor& c)
{
    return (c.red() * 299 + c.green() * 587 + c.blue() * 114) / 1000;
}

class ViewerEffectsTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_canvas.show()); }

    QImage frame() { return m_canvas.window().grabAfterFrames(3); }

    // The shadow rig under the view's other nodes, if any.
    osg::ref_ptr<osg::Node> shadowRig()
    {
        osg::ref_ptr<osg::Node> rig;
        EXPECT_TRUE(m_canvas.onRenderThread([&](RenderInfo& info) {
            osg::Group* other = ViewMgr::getOther(info.mainView());
            for (unsigned int i = 0; i < other->getNumChildren(); ++i)
                if (other->getChild(i)->getName() == "shadow")
                    rig = other->getChild(i);
        }));
        return rig;
    }

    bool toggle(const std::function<bool(osgViewer::View*)>& body)
    {
        bool on = false;
        EXPECT_TRUE(m_canvas.onRenderThread([&](RenderInfo& info) { on = body(info.mainView()); }));
        return on;
    }

    int children(const std::string& name)
    {
        int found = 0;
        m_canvas.onRenderThread([&](RenderInfo& info) {
            osg::Group* other = ViewMgr::getOther(info.mainView());
            for (unsigned int i = 0; i < other->getNumChildren(); ++i)
                found += other->getChild(i)->getName() == name ? 1 : 0;
        });
        return found;
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
};

TEST_F(ViewerEffectsTest, ShadowFallsBehindTheBlockerAndGoesAwayAgain)
{
    const QImage plain =
        m_canvas.draw(scene().get()).copy(0, 0, CanvasWindow::kCanvasWidth, CanvasWindow::kHeight);
    ASSERT_TRUE(toggle([](osgViewer::View* view) { return ViewerEffects::toggleShadow(view); }));
    EXPECT_EQ(children("shadow"), 1);
    const QImage shadowed = frame();

    // The light comes from the upper left: the wall to the lower right of the square is dark.
    const QPoint inShadow = probe(0.55f, -0.45f).pixel;
    const QPoint farLit = probe(-1.2f, 1.2f).pixel;
    const QPoint onBlocker = probe(0.0f, 0.0f, 0.6f).pixel;
    EXPECT_LT(luminance(shadowed.pixelColor(inShadow)),
              luminance(plain.pixelColor(inShadow)) * 6 / 10)
        << "shadowed " << OrvaneTest::describe(shadowed.pixelColor(inShadow));
    // Visibility 1 keeps the colour; 8-bit round trip through the copied frame.
    EXPECT_TRUE(OrvaneTest::near(shadowed.pixelColor(farLit), plain.pixelColor(farLit), 1));
    EXPECT_TRUE(OrvaneTest::near(shadowed.pixelColor(onBlocker), plain.pixelColor(onBlocker), 1));
    // PCSS noise moves single pixels by a few levels between drivers; the shape must stay.
    EXPECT_TRUE(OrvaneTest::matchesBaseline(shadowed, "viewer_shadow_scene", {48, 1.5}));

    EXPECT_FALSE(toggle([](osgViewer::View* view) { return ViewerEffects::toggleShadow(view); }));
    EXPECT_TRUE(m_canvas.onRenderThread([](RenderInfo&) {}));
    EXPECT_EQ(children("shadow"), 0);
    const QImage after = frame();
    EXPECT_TRUE(OrvaneTest::near(after.pixelColor(inShadow), plain.pixelColor(inShadow), 0));
}

TEST_F(ViewerEffectsTest, FxaaSoftensEdgesAndKeepsFlatAreas)
{
    const QImage plain =
        m_canvas.draw(scene().get()).copy(0, 0, CanvasWindow::kCanvasWidth, CanvasWindow::kHeight);
    ASSERT_TRUE(toggle(
        [](osgViewer::View* view) { return ViewerEffects::toggleScreenPass(view, "fxaa_rect"); }));
    EXPECT_EQ(children("fxaa_rect"), 1);
    const QImage smoothed = frame();

    int changed = 0;
    for (int y = 0; y < smoothed.height(); ++y)
        for (int x = 0; x < smoothed.width(); ++x)
            changed += smoothed.pixel(x, y) != plain.pixel(x, y) ? 1 : 0;
    // Only the square's outline changes: a few hundred of 19200 pixels.
    EXPECT_GT(changed, 20);
    EXPECT_LT(changed, 2000);
    for (const QPoint& flat : {probe(-1.2f, 1.2f).pixel, probe(0.0f, 0.0f, 0.6f).pixel})
        EXPECT_EQ(smoothed.pixel(flat), plain.pixel(flat));
    // Deterministic pass: only driver rounding may differ.
    EXPECT_TRUE(OrvaneTest::matchesBaseline(smoothed, "viewer_fxaa_scene", {8, 0.2}));

    EXPECT_FALSE(toggle(
        [](osgViewer::View* view) { return ViewerEffects::toggleScreenPass(view, "fxaa_rect"); }));
    EXPECT_EQ(children("fxaa_rect"), 0);
}

TEST_F(ViewerEffectsTest, ScreenPassesStepAsideOnAMultisampledCanvas)
{
    m_canvas.window().item()->setSamples(4);
    const QImage plain =
        m_canvas.draw(scene().get()).copy(0, 0, CanvasWindow::kCanvasWidth, CanvasWindow::kHeight);
    OrvaneTest::LogCapture log;
    ASSERT_TRUE(toggle(
        [](osgViewer::View* view) { return ViewerEffects::toggleScreenPass(view, "fxaa_rect"); }));
    const QImage after = frame();
    EXPECT_GE(log.count("MSAA enabled, so return 0"), 1);
    EXPECT_TRUE(log.contains("can't find fbo's color texture"));
    EXPECT_EQ(after, plain);
}

TEST_F(ViewerEffectsTest, EnableShadowOnlyEverRemovesTheRig)
{
    m_canvas.draw(scene().get());
    CanvasBase* canvas = m_canvas.window().item()->getCanvasBase();
    ASSERT_TRUE(toggle([](osgViewer::View* view) { return ViewerEffects::toggleShadow(view); }));
    OrvaneSingleton::instance()->enableShadow(canvas, true, false);
    EXPECT_TRUE(m_canvas.onRenderThread([](RenderInfo&) {}));
    EXPECT_EQ(children("shadow"), 1);
    OrvaneSingleton::instance()->enableShadow(canvas, false, false);
    EXPECT_TRUE(m_canvas.onRenderThread([](RenderInfo&) {}));
    EXPECT_EQ(children("shadow"), 0);
    // Nothing left to remove: nothing happens.
    OrvaneSingleton::instance()->enableShadow(canvas, false, false);
    EXPECT_TRUE(m_canvas.onRenderThread([](RenderInfo&) {}));
    EXPECT_EQ(children("shadow"), 0);
}

TEST_F(ViewerEffectsTest, EnableShadowThatWaitsReturnsWithTheFrameWithoutTheRigDrawn)
{
    m_canvas.draw(scene().get());
    CanvasWindow& window = m_canvas.window();
    CanvasBase* canvas = window.item()->getCanvasBase();
    ASSERT_TRUE(toggle([](osgViewer::View* view) { return ViewerEffects::toggleShadow(view); }));
    osg::ref_ptr<osg::Node> rig = shadowRig();
    ASSERT_TRUE(rig.valid());

    // Blocked updates draw nothing: the call comes back without waiting and the rig stays
    // until a frame runs the removal.
    canvas->setUpdateBlocked(true);
    OrvaneSingleton::instance()->enableShadow(canvas, false, true);
    EXPECT_EQ(rig->getNumParents(), 1u);
    canvas->setUpdateBlocked(false);
    EXPECT_TRUE(m_canvas.onRenderThread([](RenderInfo&) {}));
    EXPECT_EQ(rig->getNumParents(), 0u);

    // Waiting: back only once a frame has run the removal and been drawn, with nothing else
    // asked of the canvas in between.
    ASSERT_TRUE(toggle([](osgViewer::View* view) { return ViewerEffects::toggleShadow(view); }));
    rig = shadowRig();
    ASSERT_TRUE(rig.valid());
    const int before = window.sceneFrames();
    OrvaneSingleton::instance()->enableShadow(canvas, false, true);
    EXPECT_EQ(rig->getNumParents(), 0u);
    EXPECT_GT(window.sceneFrames(), before);
}

TEST_F(ViewerEffectsTest, ShadowMaskMarksNodesAgainstTheModelsOverride)
{
    osg::ref_ptr<osg::Group> models = scene();
    m_canvas.draw(models.get());
    OrvaneSingleton::instance()->setShadowMask(models, false);
    bool modelValue = true;
    bool childValue = true;
    unsigned int modelMode = 0;
    unsigned int childMode = 0;
    EXPECT_TRUE(m_canvas.onRenderThread([&](RenderInfo& info) {
        const osg::StateSet::RefUniformPair* onModel = ViewMgr::getModel(info.mainView())
                                                           ->getOrCreateStateSet()
                                                           ->getUniformPair("bEnableShadow");
        const osg::StateSet::RefUniformPair* onChild =
            models->getChild(1)->getOrCreateStateSet()->getUniformPair("bEnableShadow");
        if (onModel) {
            onModel->first->get(modelValue);
            modelMode = onModel->second;
        }
        if (onChild) {
            onChild->first->get(childValue);
            childMode = onChild->second;
        }
    }));
    EXPECT_TRUE(modelValue);
    // The state set keeps the override and protection bits of the mode.
    EXPECT_TRUE(modelMode & osg::StateAttribute::OVERRIDE);
    EXPECT_FALSE(childValue);
    EXPECT_TRUE(childMode & osg::StateAttribute::PROTECTED);

    // In the mask the marked children keep their own value against the override: with the
    // rig on, the wall (a marked child) takes no shadow.
    EXPECT_EQ(children("shadow"), 0);
    ASSERT_TRUE(toggle([](osgViewer::View* view) { return ViewerEffects::toggleShadow(view); }));
    const QImage masked = frame();
    EXPECT_FALSE(toggle([](osgViewer::View* view) { return ViewerEffects::toggleShadow(view); }));
    EXPECT_TRUE(m_canvas.onRenderThread([](RenderInfo&) {}));
    const QImage plain = frame();
    const QPoint inShadow = probe(0.55f, -0.45f).pixel;
    EXPECT_TRUE(OrvaneTest::near(masked.pixelColor(inShadow), plain.pixelColor(inShadow), 1));
}

TEST_F(ViewerEffectsTest, KeysToggleTheEffects)
{
    m_canvas.draw(scene().get());
    osg::ref_ptr<ViewerEffects> keys = new ViewerEffects;
    osgViewer::View* view = nullptr;
    EXPECT_TRUE(m_canvas.onRenderThread([&](RenderInfo& info) { view = info.mainView(); }));
    ASSERT_NE(view, nullptr);
    // The handler only reads the view's record and queues the toggle, as from the event
    // traversal; here it runs on the test's thread, outside the operation being drained.
    auto press = [&](int key) {
        osg::ref_ptr<osgGA::GUIEventAdapter> event = new osgGA::GUIEventAdapter;
        event->setEventType(osgGA::GUIEventAdapter::KEYDOWN);
        event->setKey(key);
        const bool taken = keys->handle(*event, *view);
        // The toggle runs as an operation of its own, before this one.
        EXPECT_TRUE(m_canvas.onRenderThread([](RenderInfo&) {}));
        return taken;
    };
    // H, N, and O arrive lower-case from the item, A and P upper-case.
    EXPECT_TRUE(press('h'));
    EXPECT_EQ(children("shadow"), 1);
    EXPECT_TRUE(press('A'));
    EXPECT_EQ(children("fxaa_rect"), 1);
    EXPECT_TRUE(press('n'));
    EXPECT_EQ(children("denoise_rect"), 1);
    EXPECT_TRUE(press('h'));
    EXPECT_EQ(children("shadow"), 0);
    EXPECT_TRUE(press('A'));
    EXPECT_EQ(children("fxaa_rect"), 0);
    EXPECT_FALSE(press('x'));
}

TEST_F(ViewerEffectsTest, MaterialKeyDrawsTheModelsWithThePhysicallyBasedProgram)
{
    const QImage plain =
        m_canvas.draw(scene().get()).copy(0, 0, CanvasWindow::kCanvasWidth, CanvasWindow::kHeight);
    ASSERT_TRUE(toggle([](osgViewer::View* view) { return ViewerEffects::togglePbr(view); }));
    EXPECT_EQ(children("ssss"), 1);
    const QImage pbr = frame();
    // The default base colour is the mesh blue (0.05, 0.695, 1.0), lit from the eye.
    const QColor wall = pbr.pixelColor(probe(-1.2f, 1.2f).pixel);
    EXPECT_GT(wall.blue(), wall.red() + 100) << OrvaneTest::describe(wall);
    EXPECT_NE(wall, plain.pixelColor(probe(-1.2f, 1.2f).pixel));
    // The composed skin image: the blurred diffuse plus the specular highlight, which the
    // diffuse target alone lacks. The jittered taps differ by a level or two between drivers.
    EXPECT_TRUE(OrvaneTest::matchesBaseline(pbr, "viewer_pbr_scene", {12, 0.5}));
    EXPECT_FALSE(toggle([](osgViewer::View* view) { return ViewerEffects::togglePbr(view); }));
    EXPECT_EQ(children("ssss"), 0);
    const QImage back = frame();
    EXPECT_EQ(back.pixelColor(probe(-1.2f, 1.2f).pixel),
              plain.pixelColor(probe(-1.2f, 1.2f).pixel));
}

} // namespace
