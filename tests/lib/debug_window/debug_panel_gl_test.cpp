// The tuning panel in a real window: opened by the key sequence on the canvas, its sliders
// relight a mesh on the canvas, and its edge cases stay harmless.
#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "debug_handler.h"
#include "debug_interface.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "orvane_singleton.h"
#include "render_info.h"
#include "ssss_tool.h"
#include "uniform_defaults.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QQuickItem>
#include <QQuickWindow>
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <osg/Camera>
#include <osg/Geode>
#include <osg/Geometry>

using namespace Vorna::Orvane;
using OrvaneTest::FixedCameraCanvas;
using OrvaneTest::LogCapture;
using OrvaneTest::Probe;
using OrvaneTest::probe;
using OrvaneTest::waitUntil;

namespace {

const QString kTitle = QString::fromUtf8("渲染调试窗口 v1.0");
const QList<Qt::Key> kSequence = {Qt::Key_O, Qt::Key_R, Qt::Key_V, Qt::Key_D, Qt::Key_B, Qt::Key_G};
const osg::Vec3 kFront(0.05f, 0.695f, 1.0f);
const osg::Vec3 kToEye(0.0f, 0.0f, 1.0f);
const osg::Vec4 kMainParam(0.5f, 0.5f, 0.15f, 128.0f);
// 8-bit quantisation of the framebuffer plus float rounding in llvmpipe.
constexpr int kTolerance = 2;

void type(OrvaneTest::CanvasWindow& w, const QList<Qt::Key>& keys)
{
    for (Qt::Key key : keys) {
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
        QCoreApplication::sendEvent(w.item(), &press);
        QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier);
        QCoreApplication::sendEvent(w.item(), &release);
    }
}

QQuickWindow* panel()
{
    for (QWindow* window : QGuiApplication::allWindows())
        if (window->title() == kTitle)
            return qobject_cast<QQuickWindow*>(window);
    return nullptr;
}

QQuickItem* findItem(QQuickItem* root, const QString& name)
{
    if (!root)
        return nullptr;
    if (root->objectName() == name)
        return root;
    for (QQuickItem* child : root->childItems())
        if (QQuickItem* found = findItem(child, name))
            return found;
    return nullptr;
}

// A front-facing square at z = 0 drawn by the classic mesh program, which takes the lights
// from the camera; the factories' draw callback brings removed uniforms back to the defaults.
osg::ref_ptr<osg::Node> litSquare()
{
    osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    for (const osg::Vec2& p : {osg::Vec2(-1, -1), osg::Vec2(1, -1), osg::Vec2(1, 1),
                               osg::Vec2(-1, -1), osg::Vec2(1, 1), osg::Vec2(-1, 1)}) {
        positions->push_back(osg::Vec3(p, 0.0f));
        normals->push_back(kToEye);
    }
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setVertexAttribArray(0, positions.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(1, normals.get(), osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, 6));
    geometry->setInitialBound(osg::BoundingBox(-2, -2, -0.1f, 2, 2, 0.1f));
    geometry->setDrawCallback(new UniformDefaultsDrawCallback);
    geometry->getOrCreateStateSet()->setAttributeAndModes(
        OrvaneSingleton::instance()->getShaderMgr()->getShader("mesh"), osg::StateAttribute::ON);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry.get());
    return geode;
}

// The classic front lit by the main light alone, straight on.
osg::Vec3 litFront(const osg::Vec4& param, const Probe& at)
{
    const osg::Vec3 light = OrvaneTest::dirLight(kToEye, param, kToEye, at.P);
    return kFront * (light.x() + light.y() + light.z());
}

class DebugPanelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_canvas.show());
        m_canvas.draw(litSquare().get());
    }

    void TearDown() override
    {
        if (panel())
            toggle();
    }

    OrvaneTest::CanvasWindow& window() { return m_canvas.window(); }

    // Types the sequence on the canvas and waits for the handler to have seen it.
    void toggle()
    {
        const bool wasOpen = panel() != nullptr;
        type(window(), kSequence);
        ASSERT_TRUE(window().run(nullptr));
        ASSERT_TRUE(waitUntil([&] { return (panel() != nullptr) != wasOpen; }));
    }

    // Keeps frames coming until the pixel shows `expected`; the colour last seen.
    QColor settle(const Probe& at, const osg::Vec3& expected)
    {
        QColor seen;
        waitUntil([&] {
            window().item()->frame();
            seen = window().grab().pixelColor(at.pixel);
            return OrvaneTest::near(seen, OrvaneTest::toColor(expected), kTolerance);
        });
        return seen;
    }

    // A few more frames than the one that ran `body`, then the picture.
    QImage afterFrames()
    {
        const int start = window().sceneFrames();
        EXPECT_TRUE(waitUntil([&] {
            window().item()->frame();
            return window().sceneFrames() >= start + 3;
        }));
        return window().grab();
    }

    FixedCameraCanvas m_canvas;
};

} // namespace

TEST_F(DebugPanelTest, TheSequenceOpensThePanelWindowAndTypingItAgainClosesIt)
{
    LogCapture log;
    toggle();
    QQuickWindow* w = panel();
    ASSERT_NE(w, nullptr);
    EXPECT_TRUE(log.contains("enable render debug"));
    EXPECT_FALSE(log.contains("can't find any window"));
    EXPECT_EQ(w->size(), QSize(900, 800));
    EXPECT_EQ(w->minimumSize(), QSize(500, 500));
    EXPECT_EQ(w->position(), QPoint(100, 50));
    EXPECT_EQ(w->color(), QColor("#f5f5f5"));
    EXPECT_TRUE(w->isVisible());
    for (const char* name : {"lightPanel", "bsdfPanel", "pointPanel", "light0_diff", "front_x",
                             "point_ufPointSizeVariable"})
        EXPECT_NE(findItem(w->contentItem(), name), nullptr) << name;

    // The panel beside the canvas, for a person to look at.
    ASSERT_TRUE(waitUntil([&] { return w->isExposed(); }));
    const QImage canvas = window().grab();
    const QImage shown = w->grabWindow();
    QImage both(canvas.width() + 16 + shown.width(), std::max(canvas.height(), shown.height()),
                QImage::Format_ARGB32);
    both.fill(Qt::white);
    QPainter painter(&both);
    painter.drawImage(0, 0, canvas);
    painter.drawImage(canvas.width() + 16, 0, shown);
    painter.end();
    EXPECT_TRUE(both.save(QCoreApplication::applicationDirPath() + "/debug_panel.png"));

    toggle();
    EXPECT_EQ(panel(), nullptr);
    EXPECT_TRUE(log.contains("disable render debug"));
}

TEST_F(DebugPanelTest, ALightSliderRelightsTheMeshAtOnceAndClosingKeepsIt)
{
    const Probe at = probe(0.3f, 0.2f);
    EXPECT_EQ(settle(at, litFront(kMainParam, at)), OrvaneTest::toColor(litFront(kMainParam, at)))
        << "defaults before the panel";

    toggle();
    QQuickItem* diffuse = findItem(panel()->contentItem(), "light0_diff");
    ASSERT_NE(diffuse, nullptr);
    diffuse->setProperty("value", 0.1);
    const osg::Vec4 dimmer(0.5f, 0.1f, 0.15f, 128.0f);
    const QColor lit = settle(at, litFront(dimmer, at));
    EXPECT_TRUE(OrvaneTest::near(lit, OrvaneTest::toColor(litFront(dimmer, at)), kTolerance))
        << OrvaneTest::describe(lit);

    // A second light of the rig, from its own slider: light 1 adds its ambient term.
    QQuickItem* ambient = findItem(panel()->contentItem(), "light1_amb");
    ASSERT_NE(ambient, nullptr);
    ambient->setProperty("value", 0.25);
    const osg::Vec3 withSecond = litFront(dimmer, at) + kFront * 0.25f;
    const QColor both = settle(at, withSecond);
    EXPECT_TRUE(OrvaneTest::near(both, OrvaneTest::toColor(withSecond), kTolerance))
        << OrvaneTest::describe(both);

    // Closing the panel keeps what it set.
    toggle();
    EXPECT_TRUE(OrvaneTest::near(afterFrames().pixelColor(at.pixel),
                                 OrvaneTest::toColor(withSecond), kTolerance));

    // Reset brings the shaders' defaults back.
    RenderDebug::DebugInterface dbg;
    dbg.reset();
    const QColor reset = settle(at, litFront(kMainParam, at));
    EXPECT_TRUE(OrvaneTest::near(reset, OrvaneTest::toColor(litFront(kMainParam, at)), kTolerance))
        << OrvaneTest::describe(reset);
}

TEST_F(DebugPanelTest, ColourAndGenericSettersReachTheCameraUniforms)
{
    toggle();
    QQuickItem* red = findItem(panel()->contentItem(), "front_x");
    ASSERT_NE(red, nullptr);
    red->setProperty("value", 0.8);
    QQuickItem* variable = findItem(panel()->contentItem(), "point_ufPointSizeVariable");
    ASSERT_NE(variable, nullptr);
    variable->setProperty("value", 0.6);

    const Probe at = probe(-0.4f, 0.1f);
    const osg::Vec3 redder(0.8f, kFront.y(), kFront.z());
    const osg::Vec3 light = OrvaneTest::dirLight(kToEye, kMainParam, kToEye, at.P);
    const osg::Vec3 expected = redder * (light.x() + light.y() + light.z());
    const QColor seen = settle(at, expected);
    EXPECT_TRUE(OrvaneTest::near(seen, OrvaneTest::toColor(expected), kTolerance))
        << OrvaneTest::describe(seen);

    float pointVariable = 0.0f;
    ASSERT_TRUE(window().run(nullptr, [&](RenderInfo& info) {
        if (osg::Uniform* u =
                info.masterCamera()->getOrCreateStateSet()->getUniform("ufPointSizeVariable"))
            u->get(pointVariable);
    }));
    EXPECT_FLOAT_EQ(pointVariable, 0.6f);

    // The live cloud's dump is asked for on the camera, where the cloud looks for it.
    RenderDebug::DebugInterface dbg;
    dbg.saveIncreData();
    bool dumpWanted = false;
    ASSERT_TRUE(window().run(nullptr, [&](RenderInfo& info) {
        if (osg::Uniform* u =
                info.masterCamera()->getOrCreateStateSet()->getUniform("saveIncreData"))
            u->get(dumpWanted);
    }));
    EXPECT_TRUE(dumpWanted);
}

TEST_F(DebugPanelTest, ThePanelsResetBringsSceneAndSlidersBackToTheDefaults)
{
    toggle();
    QQuickItem* diffuse = findItem(panel()->contentItem(), "light0_diff");
    QQuickItem* red = findItem(panel()->contentItem(), "front_x");
    ASSERT_NE(diffuse, nullptr);
    ASSERT_NE(red, nullptr);
    diffuse->setProperty("value", 0.2);
    red->setProperty("value", 0.9);
    const Probe at = probe(0.2f, 0.4f);
    const osg::Vec3 light = OrvaneTest::dirLight(kToEye, {0.5f, 0.2f, 0.15f, 128.0f}, kToEye, at.P);
    const osg::Vec3 changed =
        osg::Vec3(0.9f, kFront.y(), kFront.z()) * (light.x() + light.y() + light.z());
    EXPECT_TRUE(OrvaneTest::near(settle(at, changed), OrvaneTest::toColor(changed), kTolerance));

    ASSERT_TRUE(QMetaObject::invokeMethod(panel(), "resetAll"));
    const QColor reset = settle(at, litFront(kMainParam, at));
    EXPECT_TRUE(OrvaneTest::near(reset, OrvaneTest::toColor(litFront(kMainParam, at)), kTolerance))
        << OrvaneTest::describe(reset);
    EXPECT_DOUBLE_EQ(diffuse->property("value").toDouble(), 0.5);
    EXPECT_NEAR(red->property("value").toDouble(), 0.05, 1e-6);
}

TEST_F(DebugPanelTest, ResetRightAfterStartRemovesNothingAndChangesNothing)
{
    const Probe at = probe(0.0f, 0.0f);
    const QColor before = afterFrames().pixelColor(at.pixel);
    unsigned int uniformsBefore = 0;
    ASSERT_TRUE(window().run(nullptr, [&](RenderInfo& info) {
        uniformsBefore = info.masterCamera()->getOrCreateStateSet()->getUniformList().size();
    }));

    RenderDebug::DebugInterface dbg;
    dbg.reset();
    const QColor after = afterFrames().pixelColor(at.pixel);
    EXPECT_EQ(after, before);
    EXPECT_TRUE(OrvaneTest::near(after, OrvaneTest::toColor(litFront(kMainParam, at)), kTolerance));
    unsigned int uniformsAfter = 0;
    ASSERT_TRUE(window().run(nullptr, [&](RenderInfo& info) {
        uniformsAfter = info.masterCamera()->getOrCreateStateSet()->getUniformList().size();
    }));
    EXPECT_EQ(uniformsAfter, uniformsBefore);
}

TEST_F(DebugPanelTest, TargetsThatDoNotExistYetLogAndLeaveThePictureAlone)
{
    LogCapture log;
    const Probe at = probe(0.1f, -0.3f);
    const QColor before = afterFrames().pixelColor(at.pixel);
    RenderDebug::DebugInterface dbg;
    dbg.setPBRBrightness(2.0f, 0);
    dbg.setMetallic(1.0f, 3);
    dbg.enableViewDatum(true);
    const QColor after = afterFrames().pixelColor(at.pixel);
    EXPECT_TRUE(log.contains("setPBRBrightness"));
    EXPECT_TRUE(log.contains("setMetallic"));
    EXPECT_EQ(log.count("There is no pbr mesh loaded!!"), 2);
    EXPECT_TRUE(log.contains("enableViewDatum"));
    EXPECT_EQ(after, before);
}

namespace {

// Two physically based panels, light and dark, meeting at x = 0.05, under the scattering rig.
osg::ref_ptr<osg::Group> scatteringEdge()
{
    osg::ref_ptr<osg::Group> group = new osg::Group;
    osg::StateSet* ss = group->getOrCreateStateSet();
    ss->setAttributeAndModes(
        OrvaneSingleton::instance()->getShaderMgr()->getShader(g_meshPBRBSDFProgramStr));
    ss->addUniform(new osg::Uniform("specular", 0.0f));
    ss->addUniform(new osg::Uniform("roughnessUniform", 1.0f));
    for (float x0 : {-3.0f, 0.05f}) {
        const float x1 = x0 < 0.0f ? 0.05f : 3.0f;
        osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
        osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
        osg::ref_ptr<osg::Vec2Array> texCoords = new osg::Vec2Array;
        for (const osg::Vec2& c : {osg::Vec2(x0, -2), osg::Vec2(x1, -2), osg::Vec2(x1, 2),
                                   osg::Vec2(x0, -2), osg::Vec2(x1, 2), osg::Vec2(x0, 2)}) {
            vertices->push_back(osg::Vec3(c, 0.0f));
            normals->push_back(kToEye);
            texCoords->push_back(osg::Vec2());
        }
        osg::ref_ptr<osg::MatrixTransform> mesh =
            Mesh::createPBRTexMesh(vertices.get(), normals.get(), texCoords.get());
        const float grey = x0 < 0.0f ? 0.9f : 0.1f;
        mesh->getOrCreateStateSet()->addUniform(
            new osg::Uniform("front", osg::Vec3(grey, grey, grey)));
        group->addChild(mesh.get());
    }
    return group;
}

int luminance(const QColor& c)
{
    return (c.red() * 299 + c.green() * 587 + c.blue() * 114) / 1000;
}

} // namespace

TEST_F(DebugPanelTest, TheScatterWidthSliderSetsTheUniformTheBlurReads)
{
    m_canvas.draw(scatteringEdge().get());
    ASSERT_TRUE(window().run(nullptr, [](RenderInfo& info) {
        osgViewer::View* view = info.mainView();
        // A tenth of a world unit per kernel millimetre: about 4.5 pixels at the default width.
        ViewMgr::getOther(view)->addChild(
            SSSSTool::createSSSSNode(ViewMgr::getModel(view), 0.1f).get());
    }));
    const QImage wide = afterFrames();
    const Probe edge = probe(0.05f, 0.0f);
    // Three pixels into the dark side: well inside the default profile's reach.
    const QPoint beside(edge.pixel.x() + 3, edge.pixel.y());

    toggle();
    QQuickItem* width = findItem(panel()->contentItem(), "sssWidth");
    ASSERT_NE(width, nullptr);
    EXPECT_NEAR(width->property("value").toDouble(), 0.0125, 1e-6);
    width->setProperty("value", 0.1);
    float value = 0.0f;
    ASSERT_TRUE(window().run(nullptr, [&](RenderInfo& info) {
        if (osg::Uniform* u = info.masterCamera()->getOrCreateStateSet()->getUniform("sssWidth"))
            u->get(value);
    }));
    EXPECT_FLOAT_EQ(value, 0.1f);

    // Eight times the width divides the blur's reach by eight: the dark pixel takes in much
    // less of the light side.
    const QImage narrow = afterFrames();
    EXPECT_LT(luminance(narrow.pixelColor(beside)), luminance(wide.pixelColor(beside)) - 10)
        << OrvaneTest::describe(narrow.pixelColor(beside)) << " vs "
        << OrvaneTest::describe(wide.pixelColor(beside));
}

// Runs without any window of its own: the canvases of the tests above are gone.
TEST(DebugPanelNoWindowTest, WithNoWindowOpenThePanelLogsAndMakesNothing)
{
    QCoreApplication::processEvents();
    ASSERT_TRUE(QGuiApplication::allWindows().isEmpty());
    LogCapture log;
    RenderDebug::DebugUI ui;
    ui.enableDebug();
    EXPECT_TRUE(log.contains("enableDebug implemantation"));
    EXPECT_TRUE(log.contains("can't find any window"));
    EXPECT_EQ(ui.window(), nullptr);
    EXPECT_TRUE(QGuiApplication::allWindows().isEmpty());
}
