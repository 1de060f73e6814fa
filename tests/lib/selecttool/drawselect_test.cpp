// The draw tools driven by osgGA events on a view with a 400 x 300 viewport: the protocol, the
// recorded and their order, modifier masks, radius limits, and the line tool.
#include "customize_manipulator.h"
#include "drawline.h"
#include "drawselect.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <gtest/gtest.h>
#include <osgGA/TrackballManipulator>
#include <osgViewer/View>

#include <string>
#include <vector>

using namespace Vorna::Orvane;
using GA = osgGA::GUIEventAdapter;

namespace {

QStringList g_log;
QtMessageHandler g_previousHandler = nullptr;

void captureMessage(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    g_log << message;
    if (g_previousHandler)
        g_previousHandler(type, context, message);
}

constexpr int kWidth = 400;
constexpr int kHeight = 300;

// A view as the canvas makes it, its events in window pixels with rows from the bottom.
class DrawFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        view = new osgViewer::View;
        view->getCamera()->setViewport(0, 0, kWidth, kHeight);
        view->getCamera()->setProjectionMatrixAsPerspective(30.0, double(kWidth) / kHeight, 1.0,
                                                            100.0);
        view->getCamera()->setViewMatrixAsLookAt(osg::Vec3d(0, 0, 10), osg::Vec3d(),
                                                 osg::Vec3d(0, 1, 0));
        view->setCameraManipulator(new CustomizeManipulator, false);
        overlay = new osg::Group;
        manipulator.reset(new DrawManipulator(view.get()));
    }

    osg::ref_ptr<GA> event(GA::EventType type, float x, float y, int buttonMask = 0,
                           int modKeyMask = 0)
    {
        osg::ref_ptr<GA> ea = new GA;
        ea->setEventType(type);
        ea->setInputRange(0, 0, kWidth, kHeight);
        ea->setMouseYOrientation(GA::Y_INCREASING_UPWARDS);
        ea->setX(x);
        ea->setY(y);
        ea->setButtonMask(buttonMask);
        ea->setModKeyMask(modKeyMask);
        if (type == GA::PUSH || type == GA::RELEASE || type == GA::DOUBLECLICK)
            ea->setButton(buttonMask ? buttonMask : GA::LEFT_MOUSE_BUTTON);
        return ea;
    }

    bool send(GA::EventType type, float x, float y, int buttonMask = 0, int modKeyMask = 0)
    {
        return manipulator->handle(*event(type, x, y, buttonMask, modKeyMask), *view);
    }

    bool scroll(GA::ScrollingMotion motion, int modKeyMask)
    {
        osg::ref_ptr<GA> ea = event(GA::SCROLL, 10, 10, 0, modKeyMask);
        ea->setScrollingMotion(motion);
        return manipulator->handle(*ea, *view);
    }

    // Records the object's recorded in the order they come.
    void record(DrawObject* object)
    {
        QObject::connect(object, &DrawObject::entered, [this] { recorded << "entered"; });
        QObject::connect(object, &DrawObject::exited, [this] { recorded << "exited"; });
        QObject::connect(object, &DrawObject::started, [this] { recorded << "started"; });
        QObject::connect(object, &DrawObject::updated, [this] { recorded << "updated"; });
        QObject::connect(object, &DrawObject::canceled, [this] { recorded << "canceled"; });
        QObject::connect(object, &DrawObject::finished, [this] { recorded << "finished"; });
    }

    template <typename T> T* use(T* object)
    {
        manipulator->setDrawObject(QSharedPointer<DrawObject>(object));
        record(object);
        return object;
    }

    osg::ref_ptr<osgViewer::View> view;
    osg::ref_ptr<osg::Group> overlay;
    std::unique_ptr<DrawManipulator> manipulator;
    QStringList recorded;
};

std::vector<osg::Vec2f> points(DrawObject* object)
{
    std::vector<osg::Vec2f> out;
    if (osg::Vec3Array* v = object->getVertexArray())
        for (const osg::Vec3f& p : *v)
            out.emplace_back(p.x(), p.y());
    return out;
}

// ---- the manipulator's protocol

TEST_F(DrawFixture, RectangleStrokeSignalsInOrderAndFinishesWhileTheFigureExists)
{
    auto* rect = use(new DrawRectangle(overlay.get()));
    ASSERT_TRUE(manipulator->setAcceptedModKeyMask(GA::MODKEY_LEFT_SHIFT));

    std::size_t pointsAtFinish = 0;
    unsigned int childrenAtFinish = 0;
    QObject::connect(rect, &DrawObject::finished, [&] {
        pointsAtFinish = points(rect).size();
        childrenAtFinish = overlay->getNumChildren();
    });

    // Without Shift the drag belongs to the camera.
    EXPECT_FALSE(send(GA::PUSH, 50, 60, GA::LEFT_MOUSE_BUTTON));
    EXPECT_FALSE(send(GA::RELEASE, 50, 60));
    EXPECT_TRUE(recorded.isEmpty());

    send(GA::MOVE, 50, 60, 0, GA::MODKEY_LEFT_SHIFT);
    EXPECT_TRUE(manipulator->isDrawMode());
    EXPECT_TRUE(send(GA::PUSH, 50, 60, GA::LEFT_MOUSE_BUTTON, GA::MODKEY_LEFT_SHIFT));
    EXPECT_EQ(points(rect), (std::vector<osg::Vec2f>{{50, 60}, {50, 58}, {52, 58}, {52, 60}}));
    EXPECT_TRUE(send(GA::DRAG, 150, 160, GA::LEFT_MOUSE_BUTTON, GA::MODKEY_LEFT_SHIFT));
    EXPECT_EQ(points(rect), (std::vector<osg::Vec2f>{{50, 60}, {50, 160}, {150, 160}, {150, 60}}));
    EXPECT_EQ(rect->drawNodes().front()->getName(), "DrawObject");
    EXPECT_EQ(overlay->getNumChildren(), 1u);
    EXPECT_TRUE(send(GA::RELEASE, 150, 160, 0, GA::MODKEY_LEFT_SHIFT));

    EXPECT_EQ(recorded, (QStringList{"entered", "started", "updated", "finished"}));
    EXPECT_EQ(pointsAtFinish, 4u);
    EXPECT_EQ(childrenAtFinish, 1u);
    EXPECT_EQ(overlay->getNumChildren(), 0u) << "the figure goes once the finish is out";
    EXPECT_FALSE(manipulator->isDrawing());

    // Letting Shift go leaves draw mode.
    send(GA::MOVE, 10, 10);
    EXPECT_FALSE(manipulator->isDrawMode());
    EXPECT_EQ(recorded.last(), "exited");
}

TEST_F(DrawFixture, LeftAndRightTogetherCancelTheFigure)
{
    auto* lasso = use(new DrawLasso(overlay.get()));
    send(GA::PUSH, 10, 10, GA::LEFT_MOUSE_BUTTON);
    send(GA::DRAG, 20, 10, GA::LEFT_MOUSE_BUTTON);
    send(GA::DRAG, 20, 30, GA::LEFT_MOUSE_BUTTON);
    EXPECT_EQ(points(lasso).size(), 3u);
    EXPECT_TRUE(send(GA::PUSH, 20, 30, GA::LEFT_MOUSE_BUTTON | GA::RIGHT_MOUSE_BUTTON));
    EXPECT_FALSE(manipulator->isDrawing());
    EXPECT_EQ(recorded.last(), "canceled");
    EXPECT_FALSE(recorded.contains("finished"));
    EXPECT_EQ(overlay->getNumChildren(), 0u);
    // Releasing both buttons afterwards finishes nothing.
    EXPECT_FALSE(send(GA::RELEASE, 20, 30));
    EXPECT_FALSE(recorded.contains("finished"));
}

TEST_F(DrawFixture, AltLeavesDrawModeAndMasksAreChecked)
{
    use(new DrawLasso(overlay.get()));
    ASSERT_TRUE(manipulator->setAcceptedModKeyMask(GA::MODKEY_SHIFT));
    EXPECT_FALSE(manipulator->setAcceptedModKeyMask(16));
    EXPECT_EQ(manipulator->acceptedModKeyMask(), int(GA::MODKEY_SHIFT));

    int switches = 0;
    QObject::connect(manipulator.get(), &DrawManipulator::modKeySwitched, [&] { ++switches; });
    send(GA::PUSH, 10, 10, GA::LEFT_MOUSE_BUTTON, GA::MODKEY_LEFT_SHIFT);
    send(GA::DRAG, 30, 10, GA::LEFT_MOUSE_BUTTON, GA::MODKEY_LEFT_SHIFT);
    EXPECT_TRUE(manipulator->isDrawing());
    EXPECT_EQ(switches, 1);
    send(GA::DRAG, 30, 10, GA::LEFT_MOUSE_BUTTON, GA::MODKEY_RIGHT_SHIFT);
    EXPECT_EQ(switches, 2) << "left to right Shift is a switch";

    // Alt with Shift: a mask above 15 with bits outside the accepted ones.
    send(GA::DRAG, 40, 10, GA::LEFT_MOUSE_BUTTON, GA::MODKEY_LEFT_SHIFT | GA::MODKEY_LEFT_ALT);
    EXPECT_FALSE(manipulator->isDrawMode());
    EXPECT_FALSE(manipulator->isDrawing());
    EXPECT_EQ(recorded.last(), "exited");
    EXPECT_EQ(overlay->getNumChildren(), 0u);
}

TEST_F(DrawFixture, DragOutsideTheViewIsClampedToTheLastPixel)
{
    auto* lasso = use(new DrawLasso(overlay.get()));
    send(GA::PUSH, 100, 100, GA::LEFT_MOUSE_BUTTON);
    send(GA::DRAG, 1000, 120, GA::LEFT_MOUSE_BUTTON);
    send(GA::DRAG, -50, -70, GA::LEFT_MOUSE_BUTTON);
    send(GA::DRAG, 30, 5000, GA::LEFT_MOUSE_BUTTON);
    EXPECT_EQ(points(lasso),
              (std::vector<osg::Vec2f>{{100, 100}, {kWidth - 1, 120}, {0, 0}, {30, kHeight - 1}}));
}

TEST_F(DrawFixture, RowsCountFromTheBottomWhateverTheEventsOrientation)
{
    auto* lasso = use(new DrawLasso(overlay.get()));
    osg::ref_ptr<GA> down = event(GA::PUSH, 100, 40, GA::LEFT_MOUSE_BUTTON);
    down->setMouseYOrientation(GA::Y_INCREASING_DOWNWARDS);
    manipulator->handle(*down, *view);
    EXPECT_EQ(points(lasso), (std::vector<osg::Vec2f>{{100, kHeight - 40}}));
}

TEST_F(DrawFixture, DisabledOrEmptyManipulatorTakesNothing)
{
    EXPECT_FALSE(send(GA::PUSH, 10, 10, GA::LEFT_MOUSE_BUTTON)) << "no object";
    auto* lasso = use(new DrawLasso(overlay.get()));
    send(GA::PUSH, 10, 10, GA::LEFT_MOUSE_BUTTON);
    manipulator->setEnable(false);
    EXPECT_EQ(recorded.last(), "exited");
    EXPECT_FALSE(manipulator->isDrawing());
    EXPECT_FALSE(send(GA::DRAG, 20, 20, GA::LEFT_MOUSE_BUTTON));
    EXPECT_EQ(points(lasso).size(), 0u);
}

TEST_F(DrawFixture, KeyCallbackGetsTheKey)
{
    static int s_key = 0;
    manipulator->setKeyCallback([](int key) { s_key = key; });
    osg::ref_ptr<GA> ea = event(GA::KEYDOWN, 0, 0);
    ea->setKey('q');
    EXPECT_FALSE(manipulator->handle(*ea, *view));
    EXPECT_EQ(s_key, 'q');
}

TEST_F(DrawFixture, ACameraThatIsNotOursIsLoggedOnReset)
{
    use(new DrawLasso(overlay.get()));
    view->setCameraManipulator(new osgGA::TrackballManipulator, false);
    g_log.clear();
    send(GA::PUSH, 10, 10, GA::LEFT_MOUSE_BUTTON);
    send(GA::RELEASE, 10, 10);
    EXPECT_TRUE(g_log.contains("camera manipulator isn't CustomizeManipulator"));
    g_log.clear();
    view->setCameraManipulator(new CustomizeManipulator, false);
    send(GA::PUSH, 10, 10, GA::LEFT_MOUSE_BUTTON);
    send(GA::RELEASE, 10, 10);
    EXPECT_FALSE(g_log.contains("camera manipulator isn't CustomizeManipulator"));
}

// ---- the family

TEST_F(DrawFixture, PointFinishesUnderFourPixelsAndLeavesEventsToTheCamera)
{
    use(new DrawPoint(overlay.get()));
    EXPECT_FALSE(send(GA::PUSH, 100, 100, GA::LEFT_MOUSE_BUTTON));
    EXPECT_FALSE(send(GA::DRAG, 103.9f, 100, GA::LEFT_MOUSE_BUTTON));
    EXPECT_FALSE(send(GA::RELEASE, 103.9f, 100));
    EXPECT_EQ(recorded.last(), "finished");

    recorded.clear();
    send(GA::PUSH, 100, 100, GA::LEFT_MOUSE_BUTTON);
    send(GA::DRAG, 100, 104.0f, GA::LEFT_MOUSE_BUTTON);
    send(GA::RELEASE, 100, 104.0f);
    EXPECT_EQ(recorded.last(), "canceled");
    EXPECT_FALSE(recorded.contains("finished"));
}

TEST_F(DrawFixture, PolygonGrowsByClicksAndEndsOnADoubleClick)
{
    auto* polygon = use(new DrawMultiSegment(overlay.get()));
    // One click and a double click: two points, not a polygon.
    send(GA::PUSH, 10, 10, GA::LEFT_MOUSE_BUTTON);
    send(GA::RELEASE, 10, 10);
    EXPECT_EQ(points(polygon).size(), 2u);
    send(GA::MOVE, 50, 12);
    EXPECT_EQ(points(polygon).back(), osg::Vec2f(50, 12)) << "the rubber band follows";
    send(GA::DOUBLECLICK, 50, 12, GA::LEFT_MOUSE_BUTTON);
    send(GA::RELEASE, 50, 12);
    EXPECT_FALSE(recorded.contains("finished"));
    EXPECT_EQ(recorded.count("started"), 1);

    // Further corners, then a double click on the last.
    send(GA::PUSH, 50, 12, GA::LEFT_MOUSE_BUTTON);
    send(GA::RELEASE, 50, 12);
    send(GA::MOVE, 40, 60);
    send(GA::PUSH, 40, 60, GA::LEFT_MOUSE_BUTTON);
    send(GA::RELEASE, 40, 60);
    EXPECT_EQ(recorded.count("started"), 1) << "later corners start nothing new";
    std::vector<osg::Vec2f> atFinish;
    QObject::connect(polygon, &DrawObject::finished, [&] { atFinish = points(polygon); });
    send(GA::DOUBLECLICK, 40, 60, GA::LEFT_MOUSE_BUTTON);
    send(GA::RELEASE, 40, 60);
    EXPECT_EQ(recorded.last(), "finished");
    ASSERT_GE(atFinish.size(), 3u);
    EXPECT_EQ(atFinish.front(), osg::Vec2f(10, 10));
    EXPECT_EQ(atFinish.back(), osg::Vec2f(40, 60));
    EXPECT_EQ(overlay->getNumChildren(), 0u);
}

TEST_F(DrawFixture, BrushStampsAlongTheStrokeAndKeepsItsRadiusLimits)
{
    auto* brush = use(new DrawBrush(overlay.get()));
    int radiusSignals = 0;
    int scrows = 0;
    QObject::connect(brush, &DrawBrush::radiusChanged, [&] { ++radiusSignals; });
    QObject::connect(brush, &DrawObject::scrowed, [&] { ++scrows; });
    ASSERT_TRUE(manipulator->setAcceptedModKeyMask(GA::MODKEY_SHIFT));

    send(GA::MOVE, 100, 100, 0, GA::MODKEY_LEFT_SHIFT);
    ASSERT_EQ(brush->drawNodes().size(), 1u) << "the cursor disc";
    EXPECT_TRUE(brush->setRadius(10.0f));
    EXPECT_FLOAT_EQ(brush->getRadius(), 10.0f);
    EXPECT_FALSE(brush->setRadius(3.9f));
    EXPECT_FALSE(brush->setRadius(200.5f));
    EXPECT_FLOAT_EQ(brush->getRadius(), 10.0f);
    EXPECT_EQ(radiusSignals, 1);

    EXPECT_TRUE(scroll(GA::SCROLL_UP, GA::MODKEY_LEFT_SHIFT));
    EXPECT_FLOAT_EQ(brush->getRadius(), 15.0f);
    EXPECT_TRUE(scroll(GA::SCROLL_DOWN, GA::MODKEY_LEFT_SHIFT));
    EXPECT_FLOAT_EQ(brush->getRadius(), 10.0f);

    // Stroke of 40 pixels at radius 10: 1 + 1.5 x |40 - 10| / 10 = 5 stamps, evenly spaced.
    send(GA::PUSH, 100, 100, GA::LEFT_MOUSE_BUTTON, GA::MODKEY_LEFT_SHIFT);
    send(GA::DRAG, 140, 100, GA::LEFT_MOUSE_BUTTON, GA::MODKEY_LEFT_SHIFT);
    std::vector<osg::Matrixd> stamps;
    brush->getAllMatrix(stamps);
    ASSERT_EQ(stamps.size(), 6u);
    for (std::size_t k = 0; k < stamps.size(); ++k) {
        EXPECT_NEAR(stamps[k].getTrans().x(), 100.0 + 8.0 * k, 1e-4);
        EXPECT_NEAR(stamps[k](0, 0), 10.0, 1e-6);
    }
    EXPECT_EQ(overlay->getNumChildren(), 6u);
    std::size_t stampsAtFinish = 0;
    QObject::connect(brush, &DrawObject::finished, [&] {
        std::vector<osg::Matrixd> m;
        brush->getAllMatrix(m);
        stampsAtFinish = m.size();
    });
    send(GA::RELEASE, 140, 100, 0, GA::MODKEY_LEFT_SHIFT);
    EXPECT_EQ(stampsAtFinish, 6u);
    EXPECT_EQ(brush->drawNodes().size(), 1u) << "the cursor stays";

    // At the upper limit a scroll up is refused silently.
    ASSERT_TRUE(brush->setRadius(200.0f));
    radiusSignals = 0;
    scrows = 0;
    EXPECT_TRUE(scroll(GA::SCROLL_UP, GA::MODKEY_LEFT_SHIFT));
    EXPECT_FLOAT_EQ(brush->getRadius(), 200.0f);
    EXPECT_EQ(radiusSignals, 0);

    // A later brush starts at the size the last one ended with.
    DrawBrush next(overlay.get());
    EXPECT_FLOAT_EQ(next.getRadius(), 200.0f);
    ASSERT_TRUE(brush->setRadius(20.0f));
    EXPECT_FLOAT_EQ(next.getRadius(), 20.0f);

    // Without the accepted modifier the wheel is the camera's.
    manipulator->setAcceptedModKeyMask(0);
    EXPECT_FALSE(scroll(GA::SCROLL_UP, 0));
}

TEST_F(DrawFixture, CylinderFollowsTheMouseAndADoubleClickArmsTheFinish)
{
    auto* cylinder = use(new DrawCylinder(overlay.get()));
    EXPECT_FLOAT_EQ(cylinder->getRadius(), 50.0f);
    send(GA::MOVE, 100, 100);
    EXPECT_EQ(cylinder->getFirstMatrix().getTrans(), osg::Vec3d(100, 100, 0));
    EXPECT_FALSE(send(GA::PUSH, 120, 100, GA::LEFT_MOUSE_BUTTON)) << "not consumed";
    EXPECT_FALSE(send(GA::DRAG, 130, 110, GA::LEFT_MOUSE_BUTTON));
    EXPECT_EQ(cylinder->getFirstMatrix().getTrans(), osg::Vec3d(130, 110, 0));
    send(GA::RELEASE, 130, 110);
    EXPECT_FALSE(recorded.contains("finished"));
    EXPECT_FALSE(cylinder->setRadius(201.0f));
    EXPECT_TRUE(cylinder->setRadius(30.0f));
    EXPECT_NEAR(cylinder->getFirstMatrix()(0, 0), 30.0, 1e-6);

    send(GA::DOUBLECLICK, 130, 110, GA::LEFT_MOUSE_BUTTON);
    send(GA::RELEASE, 130, 110);
    EXPECT_EQ(recorded.last(), "finished");
}

TEST_F(DrawFixture, SphereSitsOnTheSurfaceUnderTheMouse)
{
    osg::ref_ptr<osg::Group> scene = new osg::Group;
    view->setSceneData(scene.get());
    auto* sphere = use(new DrawSphere(scene.get()));
    float depth = 1.0f;
    sphere->setDepthReader([&](const osg::Vec2f&) { return depth; });
    EXPECT_FLOAT_EQ(sphere->getRadius(), 3.0f);

    send(GA::MOVE, 200, 150);
    EXPECT_FALSE(sphere->valid()) << "nothing under the mouse";

    depth = 0.9f;
    send(GA::MOVE, 250, 100);
    ASSERT_TRUE(sphere->valid());
    // Back through the camera the centre lands on the mouse at that depth.
    osg::Camera* camera = view->getCamera();
    const osg::Matrixd vpw = camera->getViewMatrix() * camera->getProjectionMatrix() *
                             camera->getViewport()->computeWindowMatrix();
    const osg::Vec3d window = sphere->getFirstMatrix().getTrans() * vpw;
    EXPECT_NEAR(window.x(), 250.0, 1e-3);
    EXPECT_NEAR(window.y(), 100.0, 1e-3);
    EXPECT_NEAR(window.z(), 0.9, 1e-5);

    ASSERT_TRUE(manipulator->setAcceptedModKeyMask(GA::MODKEY_SHIFT));
    send(GA::MOVE, 250, 100, 0, GA::MODKEY_LEFT_SHIFT);
    scroll(GA::SCROLL_UP, GA::MODKEY_LEFT_SHIFT);
    EXPECT_FLOAT_EQ(sphere->getRadius(), 3.2f);
    EXPECT_FALSE(sphere->setRadius(0.4f));
    EXPECT_TRUE(sphere->setRadius(30.0f));
    scroll(GA::SCROLL_UP, GA::MODKEY_LEFT_SHIFT);
    EXPECT_FLOAT_EQ(sphere->getRadius(), 30.0f);
}

TEST_F(DrawFixture, EraseColourSwitchesTheFigure)
{
    auto* lasso = use(new DrawLasso(overlay.get()));
    send(GA::PUSH, 10, 10, GA::LEFT_MOUSE_BUTTON);
    auto colour = [&] {
        auto* g = dynamic_cast<osg::Geometry*>(lasso->drawNodes().front()->getChild(0));
        return dynamic_cast<osg::Vec4Array*>(g->getColorArray())->front();
    };
    EXPECT_EQ(colour(), osg::Vec4(1.0f, 0.15f, 0.15f, 1.0f));
    lasso->setUseEraseColor(true);
    EXPECT_EQ(colour(), osg::Vec4(0.6f, 0.85f, 0.917f, 1.0f));
}

// ---- the line tool

class DrawLineFixture : public DrawFixture
{
protected:
    void SetUp() override
    {
        DrawFixture::SetUp();
        scene = new osg::Group;
        view->setSceneData(scene.get());
        handler.reset(new DrawLineHandler(view.get()));
        line = handler->drawLine();
        QObject::connect(line, &DrawLine::signalDrawLineFinished,
                         [this](bool finished) { lineSignals.push_back(finished); });
        record(line);
    }
    bool sendLine(GA::EventType type, float x, float y, int buttonMask = 0)
    {
        return handler->handle(*event(type, x, y, buttonMask), *view);
    }

    osg::ref_ptr<osg::Group> scene;
    std::unique_ptr<DrawLineHandler> handler;
    DrawLine* line = nullptr;
    std::vector<bool> lineSignals;
};

TEST_F(DrawLineFixture, StrokeDrawsTwoPointsAndDots)
{
    EXPECT_EQ(scene->getNumChildren(), 1u) << "the handler's own overlay";
    sendLine(GA::PUSH, 10, 20, GA::LEFT_MOUSE_BUTTON);
    sendLine(GA::DRAG, 50, 20, GA::LEFT_MOUSE_BUTTON);
    sendLine(GA::DRAG, 80, 90, GA::LEFT_MOUSE_BUTTON);
    EXPECT_EQ(points(line), (std::vector<osg::Vec2f>{{10, 20}, {80, 90}}));
    EXPECT_TRUE(line->startDotVisible());
    EXPECT_TRUE(line->endDotVisible());
    EXPECT_EQ(line->getStartPoint(), osg::Vec2f(10, 20));
    EXPECT_EQ(line->getEndPoint(), osg::Vec2f(80, 90));
    sendLine(GA::RELEASE, 80, 90);
    EXPECT_EQ(lineSignals, (std::vector<bool>{false, true}));

    // A second stroke clears the first.
    sendLine(GA::PUSH, 200, 200, GA::LEFT_MOUSE_BUTTON);
    EXPECT_EQ(points(line), (std::vector<osg::Vec2f>{{200, 200}}));
    EXPECT_FALSE(line->endDotVisible());
}

TEST_F(DrawLineFixture, AClickWithoutDragLeavesNoLine)
{
    sendLine(GA::PUSH, 10, 20, GA::LEFT_MOUSE_BUTTON);
    sendLine(GA::RELEASE, 10, 20);
    EXPECT_EQ(points(line).size(), 1u);
    EXPECT_FALSE(line->startDotVisible());
    EXPECT_EQ(lineSignals, (std::vector<bool>{false}));
}

TEST_F(DrawLineFixture, CancelHidesBothDots)
{
    sendLine(GA::PUSH, 10, 20, GA::LEFT_MOUSE_BUTTON);
    sendLine(GA::DRAG, 60, 20, GA::LEFT_MOUSE_BUTTON);
    line->cancelDraw();
    EXPECT_FALSE(line->startDotVisible());
    EXPECT_FALSE(line->endDotVisible());
    EXPECT_EQ(points(line).size(), 0u);
    EXPECT_EQ(recorded.last(), "canceled");
    EXPECT_EQ(lineSignals, (std::vector<bool>{false}));
}

TEST(DrawLineTest, CancelOnFinishTakesTheLineDown)
{
    osg::ref_ptr<osg::Group> overlay = new osg::Group;
    DrawLine line(true, overlay.get());
    std::vector<bool> lineSignals;
    QObject::connect(&line, &DrawLine::signalDrawLineFinished,
                     [&](bool finished) { lineSignals.push_back(finished); });
    line.startDraw(osg::Vec2f(1, 1));
    line.updateDraw(osg::Vec2f(30, 1));
    line.finishDraw();
    EXPECT_EQ(lineSignals, (std::vector<bool>{false}));
    EXPECT_FALSE(line.startDotVisible());
    EXPECT_FALSE(line.endDotVisible());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    g_previousHandler = qInstallMessageHandler(captureMessage);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
