// Depth under the cursor and zoom about it, on a live canvas with a wall facing the camera.
#include "canvas3d_drawable.h"
#include "canvas3d_view.h"
#include "customize_manipulator.h"
#include "depth_callbacks.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"

#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>
#include <osg/Program>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;
using GA = osgGA::GUIEventAdapter;

namespace {

const char* const kVertex = R"(#version 410 core
uniform mat4 osg_ModelViewProjectionMatrix;
layout(location = 0) in vec3 vPosition;
void main() { gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0); }
)";
const char* const kFragment = R"(#version 410 core
out vec4 color;
void main() { color = vec4(0.9, 0.6, 0.2, 1.0); }
)";

// A 4 x 4 wall in the plane y = 0, facing the home camera, which looks along +y.
osg::MatrixTransform* wall()
{
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    for (const osg::Vec3& p : {osg::Vec3(-2, 0, -2), osg::Vec3(2, 0, -2), osg::Vec3(2, 0, 2),
                               osg::Vec3(-2, 0, -2), osg::Vec3(2, 0, 2), osg::Vec3(-2, 0, 2)})
        v->push_back(p);
    osg::MatrixTransform* mt = Mesh::create(v.get(), nullptr, static_cast<osg::Array*>(nullptr));
    auto* program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::VERTEX, kVertex));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, kFragment));
    mt->getOrCreateStateSet()->setAttributeAndModes(program);
    return mt;
}

struct CameraState {
    osg::Matrixd toWindow;
    double distance = 0.0;
};

class ZoomTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(w.show());
        ASSERT_TRUE(w.run(OrvaneSingleton::instance()->addGroup(new osg::Group)));
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->addChild(wall());
        }));
        w.item()->home();
        // Two frames: the second draws with the home camera.
        ASSERT_TRUE(w.run(nullptr));
        ASSERT_TRUE(w.run(nullptr));
    }

    CameraState camera()
    {
        CameraState state;
        w.run(nullptr, [&](RenderInfo& info) {
            osg::Camera* c = info.masterCamera();
            state.toWindow = c->getViewMatrix() * c->getProjectionMatrix() *
                             c->getViewport()->computeWindowMatrix();
            state.distance =
                static_cast<CustomizeManipulator*>(info.mainView()->getCameraManipulator())
                    ->getDistance();
        });
        return state;
    }

    // Moves the pointer (item pixels, y down) and turns the wheel there.
    void wheel(float x, float y, GA::ScrollingMotion motion)
    {
        w.item()->eventQueue()->mouseMotion(x, y);
        w.item()->eventQueue()->mouseScroll(motion);
        w.item()->frame();
        ASSERT_TRUE(w.run(nullptr));
    }

    // The point of the wall (y = 0) under window pixel (x, y up).
    static osg::Vec3d wallPointUnder(const CameraState& state, double x, double y)
    {
        const osg::Matrixd inverse = osg::Matrixd::inverse(state.toWindow);
        const osg::Vec3d a = osg::Vec3d(x, y, 0.0) * inverse, b = osg::Vec3d(x, y, 1.0) * inverse;
        const double t = a.y() / (a.y() - b.y());
        return a + (b - a) * t;
    }

    CanvasWindow w;
};

} // namespace

TEST_F(ZoomTest, DepthUnderTheCursorIsTheWallsDepth)
{
    for (int samples : {0, 4}) {
        w.item()->getCanvasBase()->setSamples(samples);
        ASSERT_TRUE(w.run(nullptr));
        const float x = 100, y = 40; // item pixels, y down
        w.item()->eventQueue()->mouseMotion(x, y);
        w.item()->frame();
        ASSERT_TRUE(w.run(nullptr));
        ASSERT_TRUE(w.run(nullptr));
        float depth = 1.0f;
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
            depth =
                findPostDrawCallback<ReadMousePosPostDrawCallback>(info.masterCamera())->getDepth();
        }));
        const CameraState state = camera();
        const double windowY = CanvasWindow::kHeight - y;
        const osg::Vec3d onWall = wallPointUnder(state, x, windowY);
        const double expected = (onWall * state.toWindow).z();
        // A 24-bit depth buffer, and the pixel centre rather than its corner.
        EXPECT_NEAR(depth, expected, 2e-3) << "samples " << samples;
        EXPECT_LT(depth, 1.0f);
    }
}

TEST_F(ZoomTest, WheelZoomsAboutThePointUnderTheCursor)
{
    // The first step in finds no depth image yet and is refused; it asks for one.
    const float x = 110, y = 35;
    wheel(x, y, GA::SCROLL_UP);
    const CameraState before = camera();
    const double windowY = CanvasWindow::kHeight - y;
    const osg::Vec3d anchor = wallPointUnder(before, x, windowY);
    QSignalSpy scaled(OrvaneSingleton::instance(), &OrvaneSingleton::cameraScaled);
    wheel(x, y, GA::SCROLL_UP);
    const CameraState after = camera();
    EXPECT_TRUE(waitUntil([&] { return scaled.count() == 1; }));
    EXPECT_LT(after.distance, before.distance);
    const osg::Vec3d moved = anchor * after.toWindow;
    // The depth of the anchor comes from a 24-bit buffer: within a pixel.
    EXPECT_NEAR(moved.x(), x, 1.0);
    EXPECT_NEAR(moved.y(), windowY, 1.0);
}

TEST_F(ZoomTest, ZoomingOutStopsAtTheMinimumScreenRadius)
{
    OrvaneTest::LogCapture log;
    for (int i = 0; i < 80 && !log.contains("zoom blocked by min screen radius"); ++i)
        wheel(80, 60, GA::SCROLL_DOWN);
    EXPECT_TRUE(log.contains("zoom blocked by min screen radius"));
    // The wall's bounding radius on screen stays at or above 20 pixels.
    float screenRadius = 0.0f;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        auto* m = static_cast<CustomizeManipulator*>(info.mainView()->getCameraManipulator());
        screenRadius =
            m->getBoundingSphereScreenRadius(info.mainView()->getSceneData()->getBound());
    }));
    EXPECT_GE(screenRadius, 20.0f * 0.9f) << "one wheel step may cross the limit by its factor";
}

TEST_F(ZoomTest, DraggingThroughTheItemTurnsTheCameraAndTellsTheFacade)
{
    QSignalSpy rotated(OrvaneSingleton::instance(), &OrvaneSingleton::cameraRotated);
    QSignalSpy moved(OrvaneSingleton::instance(), &OrvaneSingleton::cameraMoved);
    const CameraState before = camera();
    osgGA::EventQueue* queue = w.item()->eventQueue();
    queue->mouseButtonPress(80, 60, 1);
    queue->mouseMotion(100, 70);
    queue->mouseButtonRelease(100, 70, 1);
    queue->mouseButtonPress(80, 60, 3);
    queue->mouseMotion(90, 60);
    queue->mouseButtonRelease(90, 60, 3);
    w.item()->frame();
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_TRUE(waitUntil([&] { return rotated.count() > 0 && moved.count() > 0; }));
    EXPECT_NE(camera().toWindow, before.toWindow);
}

TEST_F(ZoomTest, AltOneClickPicksTheRotateCentreOnTheSurface)
{
    const float x = 60, y = 50;
    osgGA::EventQueue* queue = w.item()->eventQueue();
    // The pointer's depth is read after a frame with the pointer there.
    queue->mouseMotion(x, y);
    w.item()->frame();
    ASSERT_TRUE(w.run(nullptr));
    ASSERT_TRUE(w.run(nullptr));
    const CameraState state = camera();
    queue->keyPress('1');
    queue->getCurrentEventState()->setModKeyMask(GA::MODKEY_ALT);
    queue->mouseButtonPress(x, y, 1);
    queue->mouseButtonRelease(x, y, 1);
    queue->keyRelease('1');
    queue->getCurrentEventState()->setModKeyMask(0);
    w.item()->frame();
    ASSERT_TRUE(w.run(nullptr));
    osg::Vec3f centre;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        centre = static_cast<CustomizeManipulator*>(info.mainView()->getCameraManipulator())
                     ->getRotateCenter();
    }));
    const osg::Vec3d expected = wallPointUnder(state, x, CanvasWindow::kHeight - y);
    // The depth comes from the pixel whose corner the pointer names: within a pixel or two.
    const double pixel =
        (wallPointUnder(state, x + 1, CanvasWindow::kHeight - y) - expected).length();
    EXPECT_NEAR((osg::Vec3d(centre) - expected).length(), 0.0, 2.0 * pixel);
}
