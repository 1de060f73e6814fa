// The model dragger and the model adjust dragger on a live canvas with the real camera
// manipulator: handles found by their colours in the grabbed frame, dragged with the mouse.
#include "camera_operations.h"
#include "canvas3d_view.h"
#include "customize_manipulator.h"
#include "depth_callbacks.h"
#include "gl_test_support.h"
#include "model_adjust_dragger.h"
#include "model_dragger.h"
#include "orvane_operations.h"
#include "shape_mesh.h"

#include <QQuickItem>
#include <QTest>
#include <cmath>
#include <gtest/gtest.h>
#include <mutex>
#include <osg/AutoTransform>
#include <osg/Geode>
#include <osg/Material>
#include <osgManipulator/Translate1DDragger>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

constexpr int kWidth = 480;
constexpr int kHeight = 360;
// 8-bit quantisation of a colour given as a float.
constexpr int kTolerance = 2;
const QColor kModelColor(128, 128, 128);

QColor toColor(const osg::Vec4f& c)
{
    return QColor(int(std::lround(c.r() * 255.0f)), int(std::lround(c.g() * 255.0f)),
                  int(std::lround(c.b() * 255.0f)));
}

bool near(const QColor& a, const QColor& b)
{
    return OrvaneTest::near(a, b, kTolerance);
}

std::string describe(const QColor& c)
{
    return "(" + std::to_string(c.red()) + ", " + std::to_string(c.green()) + ", " +
           std::to_string(c.blue()) + ")";
}

// A grey ball of `radius` under a transform placed at `at`, drawn without a program.
osg::ref_ptr<osg::MatrixTransform> ball(const osg::Vec3d& at, float radius)
{
    ShapeMesh mesh;
    mesh.addSphere(osg::Vec3f(), radius, 16, 32);
    osg::Geometry* geometry = mesh.build();
    const osg::Vec4 grey(kModelColor.redF(), kModelColor.greenF(), kModelColor.blueF(), 1.0);
    geometry->setColorArray(new osg::Vec4Array(1, &grey), osg::Array::BIND_OVERALL);
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    osg::ref_ptr<osg::MatrixTransform> mt = new osg::MatrixTransform(osg::Matrix::translate(at));
    mt->addChild(geode);
    return mt;
}

// Pixels from `from` along `step` (a unit direction) whose colour is near `color`: the middle
// of the first run, as a distance; -1 when none within `reach`. The first 20 pixels are
// skipped: the z arrow, seen end-on, is a blue disc at the centre.
double runMiddle(const QImage& image, QPointF from, QPointF step, const QColor& color,
                 int reach = 260, double* runEnd = nullptr)
{
    int first = -1, last = -1;
    for (int t = 20; t < reach; ++t) {
        const QPoint p = (from + step * t).toPoint();
        if (!image.rect().contains(p))
            break;
        if (near(image.pixelColor(p), color)) {
            if (first < 0)
                first = t;
            last = t;
        } else if (first >= 0) {
            break;
        }
    }
    if (runEnd)
        *runEnd = last;
    return first < 0 ? -1.0 : (first + last) / 2.0;
}

double angleOfZ(const osg::Matrix& m)
{
    const osg::Vec3d x = osg::Matrix::transform3x3(osg::Vec3d(1, 0, 0), m);
    return std::atan2(x.y(), x.x());
}

class ModelDraggerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_window.reset(new CanvasWindow);
        m_window->window()->resize(kWidth, kHeight);
        m_window->item()->setSize(QSizeF(kWidth, kHeight));
        for (QQuickItem* child : m_window->window()->contentItem()->childItems())
            if (child != m_window->item())
                child->setVisible(false);
        ASSERT_TRUE(m_window->show());
        m_window->installFrameCounter();
    }

    void TearDown() override
    {
        if (HasFailure() && !m_last.isNull())
            m_last.save(QString("model_dragger_%1.png")
                            .arg(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        m_window.reset();
    }

    // Two balls at x = -1 and x = 1, connected to a gizmo at their common centre, the origin.
    void buildScene(bool withFrontBall = false)
    {
        m_left = ball(osg::Vec3d(-1, 0, 0), 0.5f);
        m_right = ball(osg::Vec3d(1, 0, 0), 0.5f);
        m_dragger = new ModelDragger(false, false, 0, 0);
        osg::ref_ptr<ModelDragger> dragger = m_dragger;
        osg::ref_ptr<osg::MatrixTransform> left = m_left, right = m_right;
        osg::ref_ptr<osg::MatrixTransform> front;
        if (withFrontBall)
            front = ball(osg::Vec3d(0, 0, 3), 2.2f);
        bool enabled = false;
        ASSERT_TRUE(m_window->run(nullptr, [&](RenderInfo& info) {
            osg::Group* model = ViewMgr::getModel(info.mainView());
            model->addChild(left.get());
            model->addChild(right.get());
            if (front)
                model->addChild(front.get());
            model->addChild(dragger.get());
            dragger->connectMt(std::vector<osg::ref_ptr<osg::MatrixTransform>>{left, right});
            enabled = dragger->enable(true, osg::Matrixd());
        }));
        ASSERT_TRUE(enabled);
        ASSERT_TRUE(m_window->lookAt(osg::Vec3d(0, 0, 10), osg::Vec3d(), osg::Vec3d(0, 1, 0)));
        frames();
    }

    QImage frames(int count = 3)
    {
        const int start = m_window->sceneFrames();
        EXPECT_TRUE(waitUntil([&] {
            m_window->item()->frame();
            return m_window->sceneFrames() >= start + count;
        }));
        m_last = m_window->grab();
        return m_last;
    }

    // Press, move along `path` and release with the left button, a frame after each step.
    void drag(const std::vector<QPoint>& path)
    {
        QQuickWindow* window = m_window->window();
        QTest::mouseMove(window, path.front());
        frames(1);
        QTest::mousePress(window, Qt::LeftButton, Qt::NoModifier, path.front());
        frames(1);
        for (std::size_t i = 1; i < path.size(); ++i) {
            QTest::mouseMove(window, path[i]);
            frames(1);
        }
        QTest::mouseRelease(window, Qt::LeftButton, Qt::NoModifier, path.back());
        frames(2);
    }

    osg::Matrix matrixOf(osg::MatrixTransform* mt)
    {
        osg::Matrix m;
        m_window->run(nullptr, [&](RenderInfo&) { m = mt->getMatrix(); });
        return m;
    }

    QPointF centre() { return m_window->pixelOf(osg::Vec3d()); }

    // Pixels per world unit along x at the depth of the origin.
    double pixelsPerUnit()
    {
        return (m_window->pixelOf(osg::Vec3d(2, 0, 0)).x() -
                m_window->pixelOf(osg::Vec3d(-2, 0, 0)).x()) /
               4.0;
    }

    // The window depth under `pixel` as the camera's depth read-back sees it, and the world
    // point it stands for under the camera of that frame.
    float depthAt(QPoint pixel, osg::Vec3d* world = nullptr)
    {
        auto done = std::make_shared<std::atomic<bool>>(false);
        ReadMousePosPostDrawCallback* reader = nullptr;
        const osg::Vec2f window(pixel.x() + 0.5f, kHeight - pixel.y() - 0.5f);
        m_window->run(nullptr, [&](RenderInfo& info) {
            reader = findPostDrawCallback<ReadMousePosPostDrawCallback>(info.masterCamera());
            if (reader)
                reader->setDepthAsynchronous(window, [done] { *done = true; });
        });
        if (!reader)
            return -1.0f;
        EXPECT_TRUE(waitUntil([&] {
            m_window->item()->frame();
            return done->load();
        }));
        float depth = -1.0f;
        m_window->run(nullptr, [&](RenderInfo& info) {
            depth = reader->getDepth();
            const osg::Camera* camera = info.masterCamera();
            if (world)
                *world =
                    osg::Vec3d(window.x(), window.y(), depth) *
                    osg::Matrix::inverse(camera->getViewMatrix() * camera->getProjectionMatrix() *
                                         camera->getViewport()->computeWindowMatrix());
        });
        return depth;
    }

    std::unique_ptr<CanvasWindow> m_window;
    osg::ref_ptr<ModelDragger> m_dragger;
    osg::ref_ptr<osg::MatrixTransform> m_left, m_right;
    QImage m_last;
};

// What the dragger said, in order; filled on the render thread.
struct Signals {
    std::mutex mutex;
    std::vector<std::string> order;
    std::vector<ModelMatrixs> many;
    int single = 0;

    explicit Signals(ModelDragger* dragger)
    {
        QObject::connect(dragger, &ModelDragger::beginOfDrag, [this] { add("begin"); });
        QObject::connect(dragger, &ModelDragger::endOfDrag, [this] { add("end"); });
        QObject::connect(dragger, qOverload<ModelMatrixs>(&ModelDragger::matrixChanged),
                         [this](ModelMatrixs m) {
                             std::lock_guard<std::mutex> lock(mutex);
                             order.push_back("matrices");
                             many.push_back(m);
                         });
        QObject::connect(dragger, qOverload<osg::Matrix>(&ModelDragger::matrixChanged),
                         [this](osg::Matrix) {
                             std::lock_guard<std::mutex> lock(mutex);
                             ++single;
                         });
    }
    void add(const char* what)
    {
        std::lock_guard<std::mutex> lock(mutex);
        order.push_back(what);
    }
};

TEST_F(ModelDraggerTest, ArrowDragMovesEveryModelByTheSameVectorAlongItsAxis)
{
    buildScene();
    Signals said(m_dragger.get());
    const QColor red = toColor(m_dragger->transColors().rest(0));
    const QPointF c = centre();
    const double along = runMiddle(m_last, c, QPointF(1, 0), red);
    ASSERT_GT(along, 0.0) << "no red arrow right of the centre";
    const QPoint start = (c + QPointF(along, 0)).toPoint();
    const int steps = 4;
    std::vector<QPoint> path;
    for (int i = 0; i <= steps; ++i)
        path.push_back(start + QPoint(10 * i, 3 * i)); // off the axis too: only x counts
    const osg::Matrix leftBefore = matrixOf(m_left), rightBefore = matrixOf(m_right);
    const double k = pixelsPerUnit();
    drag(path);

    const osg::Vec3d leftMove = matrixOf(m_left).getTrans() - leftBefore.getTrans();
    const osg::Vec3d rightMove = matrixOf(m_right).getTrans() - rightBefore.getTrans();
    // 40 pixels along x at the gizmo's depth, within a pixel of rounding of the pointer.
    EXPECT_NEAR(leftMove.x(), 40.0 / k, 1.0 / k);
    EXPECT_NEAR(leftMove.y(), 0.0, 1e-9);
    EXPECT_NEAR(leftMove.z(), 0.0, 1e-9);
    EXPECT_NEAR((leftMove - rightMove).length(), 0.0, 1e-9);

    std::lock_guard<std::mutex> lock(said.mutex);
    // Press: begin, then the unchanged matrices; one per drag step; one on release; end.
    ASSERT_EQ(said.order.size(), std::size_t(steps + 4));
    EXPECT_EQ(said.order.front(), "begin");
    EXPECT_EQ(said.order.back(), "end");
    for (std::size_t i = 1; i + 1 < said.order.size(); ++i)
        EXPECT_EQ(said.order[i], "matrices") << i;
    EXPECT_EQ(said.single, 0) << "many models are reported as a list";
    ASSERT_EQ(said.many.front().size(), 2u);
    EXPECT_EQ(said.many.front()[0], leftBefore);
    EXPECT_EQ(said.many.front()[1], rightBefore);
    EXPECT_EQ(said.many.back()[0], matrixOf(m_left));
    EXPECT_EQ(said.many.back()[1], matrixOf(m_right));
}

TEST_F(ModelDraggerTest, ArcDragTurnsTheModelsAboutTheGizmoCentre)
{
    buildScene();
    // Arc 0 turns about z, the axis towards the eye; its rest quarter spans 0 to 90 degrees.
    const QColor blue = toColor(m_dragger->rotColors().rest(0));
    const QPointF c = centre();
    const double diagonal = std::sqrt(0.5);
    const double r = runMiddle(m_last, c, QPointF(diagonal, -diagonal), blue);
    ASSERT_GT(r, 0.0) << "no blue arc on the diagonal";
    std::vector<QPoint> path;
    const double from = osg::DegreesToRadians(45.0), turn = osg::DegreesToRadians(30.0);
    for (int i = 0; i <= 6; ++i) {
        const double a = from + turn * i / 6;
        path.push_back((c + QPointF(r * std::cos(a), -r * std::sin(a))).toPoint());
    }
    const osg::Vec3d leftBefore = matrixOf(m_left).getTrans();
    drag(path);

    const osg::Matrix left = matrixOf(m_left), right = matrixOf(m_right);
    // Pointer positions are whole pixels on a radius of about 100.
    const double tolerance = osg::DegreesToRadians(1.5);
    EXPECT_NEAR(angleOfZ(left), turn, tolerance);
    EXPECT_NEAR(angleOfZ(right), angleOfZ(left), 1e-9);
    // About the centre: each ball keeps its distance from it and swings by the same angle.
    // The cylinder projector's angle is computed in single precision.
    EXPECT_NEAR(left.getTrans().length(), leftBefore.length(), 1e-6);
    const double swung = std::atan2(left.getTrans().y(), left.getTrans().x());
    EXPECT_NEAR(std::remainder(swung - (osg::PI + angleOfZ(left)), 2.0 * osg::PI), 0.0, 1e-6);
    EXPECT_NEAR((left.getTrans() + right.getTrans()).length(), 0.0, 1e-6);
}

TEST_F(ModelDraggerTest, TheGizmoKeepsItsSizeOnScreenWhenTheCameraZooms)
{
    buildScene();
    const QColor red = toColor(m_dragger->transColors().rest(0));
    double nearEnd = -1, farEnd = -1;
    runMiddle(m_last, centre(), QPointF(1, 0), red, 300, &nearEnd);
    const double nearUnit = pixelsPerUnit();
    ASSERT_TRUE(m_window->lookAt(osg::Vec3d(0, 0, 20), osg::Vec3d(), osg::Vec3d(0, 1, 0)));
    frames();
    runMiddle(m_last, centre(), QPointF(1, 0), red, 300, &farEnd);
    const double farUnit = pixelsPerUnit();
    // The models shrink to about half (pixel positions are whole pixels)...
    EXPECT_NEAR(farUnit / nearUnit, 0.5, 0.05);
    // ...the arrow does not: its end found to a pixel either way.
    ASSERT_GT(nearEnd, 100.0);
    EXPECT_NEAR(farEnd, nearEnd, 2.0);
}

TEST_F(ModelDraggerTest, FitsAndBoundsIgnoreTheGizmo)
{
    buildScene();
    osg::BoundingSphere withGizmo, without, valid;
    bool markedOut = false, noCentreMessage = false;
    osg::ref_ptr<ModelDragger> dragger = m_dragger;
    ASSERT_TRUE(m_window->run(nullptr, [&](RenderInfo& info) {
        osg::Group* model = ViewMgr::getModel(info.mainView());
        withGizmo = model->getBound();
        auto* manipulator =
            dynamic_cast<CustomizeManipulator*>(info.mainView()->getCameraManipulator());
        if (manipulator)
            valid = manipulator->getValidBoundingSphere();
        dragger->getUserValue("valid_bounding_sphere", markedOut);
        markedOut = !markedOut;
        dragger->getUserValue("can_not_msg_rotate_center", noCentreMessage);
        model->removeChild(dragger.get());
        without = model->getBound();
        model->addChild(dragger.get());
    }));
    EXPECT_TRUE(markedOut);
    EXPECT_TRUE(noCentreMessage);
    EXPECT_EQ(withGizmo.center(), without.center());
    EXPECT_EQ(withGizmo.radius(), without.radius());
    // The valid bound is gathered in single precision.
    EXPECT_NEAR((valid.center() - without.center()).length(), 0.0, 1e-5);
    EXPECT_NEAR(valid.radius(), without.radius(), 1e-5);

    // A fit frames the balls alone: both ends of the pair land inside the canvas with margin.
    ASSERT_TRUE(m_window->run(new FitOperationAuto(nullptr, false)));
    frames();
    const QPoint leftEdge = m_window->pixelOf(osg::Vec3d(-1.5, 0, 0));
    const QPoint rightEdge = m_window->pixelOf(osg::Vec3d(1.5, 0, 0));
    // Measured from the frame: a 300-pixel gizmo counted in would leave the pair tiny.
    EXPECT_GT(rightEdge.x() - leftEdge.x(), kHeight / 2);
}

TEST_F(ModelDraggerTest, TheDepthThatPicksRotateCentresNeverSeesTheGizmo)
{
    buildScene();
    const QColor blue = toColor(m_dragger->rotColors().rest(0));
    const QPointF c = centre();
    // The arc about y, seen edge-on, over the right ball; the blue arc over empty background.
    const QPoint overBall = (c + QPointF(pixelsPerUnit(), 0)).toPoint();
    const QColor green = toColor(m_dragger->rotColors().rest(1));
    ASSERT_TRUE(near(m_last.pixelColor(overBall), green)) << describe(m_last.pixelColor(overBall));
    const double diagonal = std::sqrt(0.5);
    const double r = runMiddle(m_last, c, QPointF(diagonal, -diagonal), blue);
    ASSERT_GT(r, 0.0);
    const QPoint overNothing = (c + QPointF(r * diagonal, -r * diagonal)).toPoint();

    // Over the ball the depth is the ball's surface; over nothing it is the far plane.
    osg::Vec3d onBall;
    depthAt(overBall, &onBall);
    // The ball is faceted (16 rings) and the depth is 24 bits.
    EXPECT_NEAR((onBall - osg::Vec3d(1, 0, 0)).length(), 0.5, 0.02)
        << onBall.x() << ", " << onBall.y() << ", " << onBall.z();
    EXPECT_FLOAT_EQ(depthAt(overNothing), 1.0f);
}

TEST_F(ModelDraggerTest, HandlesShowInTheirColoursOverAModelInFrontAndHoverPicksThem)
{
    buildScene(true);
    const QPointF c = centre();
    const QColor front = m_last.pixelColor((c + QPointF(-40, 40)).toPoint());
    EXPECT_TRUE(near(front, kModelColor))
        << "the front ball covers the centre: " << describe(front);
    // The x and y arrows at rest beyond the arcs, over the front ball; the z arc too.
    const QColor red = toColor(m_dragger->transColors().rest(0));
    const QColor green = toColor(m_dragger->transColors().rest(1));
    EXPECT_TRUE(near(m_last.pixelColor((c + QPointF(125, 0)).toPoint()), red))
        << describe(m_last.pixelColor((c + QPointF(125, 0)).toPoint()));
    EXPECT_TRUE(near(m_last.pixelColor((c + QPointF(0, -125)).toPoint()), green))
        << describe(m_last.pixelColor((c + QPointF(0, -125)).toPoint()));
    const QColor blue = toColor(m_dragger->rotColors().rest(0));
    const double diagonal = std::sqrt(0.5);
    const double r = runMiddle(m_last, c, QPointF(diagonal, -diagonal), blue);
    ASSERT_GT(r, 0.0) << "no blue arc on the diagonal";

    // Hovering the x arrow paints it in the picked yellow.
    const QColor yellow = toColor(m_dragger->transColors().picked(0));
    QTest::mouseMove(m_window->window(), (c + QPointF(125, 0)).toPoint());
    QImage image = frames();
    EXPECT_TRUE(near(image.pixelColor((c + QPointF(125, 0)).toPoint()), yellow))
        << describe(image.pixelColor((c + QPointF(125, 0)).toPoint()));
    // Hovering the blue arc shows its whole ring in yellow, where the rest arc is absent.
    const QPoint opposite = (c + QPointF(-r * diagonal, r * diagonal)).toPoint();
    EXPECT_FALSE(near(image.pixelColor(opposite), yellow));
    QTest::mouseMove(m_window->window(), (c + QPointF(r * diagonal, -r * diagonal)).toPoint());
    image = frames();
    EXPECT_TRUE(near(image.pixelColor(opposite), yellow)) << describe(image.pixelColor(opposite));
    EXPECT_TRUE(near(image.pixelColor((c + QPointF(125, 0)).toPoint()), red))
        << "the arrow went back to rest";
    // Over nothing, everything rests.
    QTest::mouseMove(m_window->window(), QPoint(5, 5));
    image = frames();
    EXPECT_FALSE(near(image.pixelColor(opposite), yellow));
    EXPECT_EQ(m_dragger->hovered(), nullptr);
}

TEST_F(ModelDraggerTest, EnableRulesAndConnectionFailures)
{
    OrvaneTest::LogCapture log;
    osg::ref_ptr<ModelDragger> dragger = new ModelDragger(true, true, 0x4, 0x8);
    osg::ref_ptr<osg::MatrixTransform> a = ball(osg::Vec3d(2, 0, 0), 1.0f);
    ASSERT_TRUE(m_window->run(nullptr, [&](RenderInfo&) {
        EXPECT_FALSE(dragger->enable(true, osg::Matrixd()));
        EXPECT_FALSE(dragger->getHandleEvents());
        EXPECT_FALSE(dragger->connectMt(osg::ref_ptr<osg::MatrixTransform>()));
        EXPECT_FALSE(dragger->connectMt(std::vector<osg::ref_ptr<osg::MatrixTransform>>{}));
        a->setNodeMask(0x3);
        EXPECT_TRUE(dragger->connectMt(a));
        EXPECT_FALSE(dragger->connectMt(a));
        EXPECT_TRUE(dragger->enable(true, osg::Matrixd::rotate(osg::PI_2, osg::Z_AXIS)));
        EXPECT_TRUE(dragger->getHandleEvents());
        EXPECT_EQ(a->getNodeMask(), 0x4u);
        EXPECT_EQ(dragger->getNodeMask(), 0x8u);
        // Centred on the model, turned by the pose.
        EXPECT_NEAR((dragger->getMatrix().getTrans() - osg::Vec3d(2, 0, 0)).length(), 0.0, 1e-9);
        EXPECT_NEAR(dragger->getRotate().asVec4()[2], std::sin(osg::PI_4), 1e-9);
        osgManipulator::Dragger* built = dragger->rotDragger(0);
        EXPECT_TRUE(dragger->enable(true, osg::Matrixd()));
        EXPECT_EQ(dragger->rotDragger(0), built) << "enabling twice builds nothing";
        EXPECT_TRUE(dragger->enable(false, osg::Matrixd()));
        EXPECT_EQ(a->getNodeMask(), 0x3u);
        EXPECT_EQ(dragger->getNodeMask(), ~0u);
        EXPECT_EQ(dragger->rotDragger(0), nullptr);
        // Disabling disconnects: enabling again needs a new connection.
        EXPECT_FALSE(dragger->enable(true, osg::Matrixd()));
    }));
    EXPECT_EQ(log.count("connectMt failed, mt == nullptr"), 1);
    EXPECT_EQ(log.count("connectMt failed, mts is empty"), 1);
    EXPECT_EQ(log.count("connectMt failed, already have mt connected"), 1);
    EXPECT_EQ(log.count("enable failed, getDraggerCallbacks().empty()"), 2);
    EXPECT_EQ(log.count("already enable("), 1);
}

TEST_F(ModelDraggerTest, OneModelIsReportedByItsMatrixFromThePressOn)
{
    m_left = ball(osg::Vec3d(0, 0.5, 0), 0.5f);
    m_dragger = new ModelDragger(false, false, 0, 0);
    osg::ref_ptr<ModelDragger> dragger = m_dragger;
    osg::ref_ptr<osg::MatrixTransform> left = m_left;
    ASSERT_TRUE(m_window->run(nullptr, [&](RenderInfo& info) {
        ViewMgr::getModel(info.mainView())->addChild(left.get());
        ViewMgr::getModel(info.mainView())->addChild(dragger.get());
        EXPECT_TRUE(dragger->connectMt(left));
        EXPECT_TRUE(dragger->enable(true, osg::Matrixd()));
    }));
    ASSERT_TRUE(m_window->lookAt(osg::Vec3d(0, 0, 10), osg::Vec3d(), osg::Vec3d(0, 1, 0)));
    frames();
    std::mutex mutex;
    std::vector<osg::Matrix> single;
    int many = 0;
    QObject::connect(m_dragger.get(), qOverload<osg::Matrix>(&ModelDragger::matrixChanged),
                     [&](osg::Matrix m) {
                         std::lock_guard<std::mutex> lock(mutex);
                         single.push_back(m);
                     });
    QObject::connect(m_dragger.get(), qOverload<ModelMatrixs>(&ModelDragger::matrixChanged),
                     [&](ModelMatrixs) { ++many; });
    // A click on the y arrow beyond the arcs, without motion.
    const QColor green = toColor(m_dragger->transColors().rest(1));
    const QPointF c = m_window->pixelOf(osg::Vec3d(0, 0.5, 0));
    const double up = runMiddle(m_last, c, QPointF(0, -1), green);
    ASSERT_GT(up, 0.0) << "no green arrow above the centre";
    const QPoint at = (c + QPointF(0, -up)).toPoint();
    drag({at});
    std::lock_guard<std::mutex> lock(mutex);
    // The press and the release, both with the matrix as it was.
    ASSERT_EQ(single.size(), 2u);
    EXPECT_EQ(single[0], osg::Matrix::translate(0, 0.5, 0));
    EXPECT_EQ(single[1], osg::Matrix::translate(0, 0.5, 0));
    EXPECT_EQ(many, 0);
}

class ModelAdjustDraggerTest : public ModelDraggerTest
{
protected:
    // One ball at the origin; rings and bars sized by its bound (that of its box, radius 0.87).
    void buildAdjust()
    {
        m_left = ball(osg::Vec3d(), 0.5f);
        m_adjust = new ModelAdjustDragger(false, 0.08f, 0.03f);
        osg::ref_ptr<ModelAdjustDragger> adjust = m_adjust;
        osg::ref_ptr<osg::MatrixTransform> ballNode = m_left;
        bool enabled = false;
        ASSERT_TRUE(m_window->run(nullptr, [&](RenderInfo& info) {
            osg::Group* model = ViewMgr::getModel(info.mainView());
            model->addChild(ballNode.get());
            model->addChild(adjust.get());
            EXPECT_FALSE(adjust->enable(true)) << "nothing connected yet";
            EXPECT_TRUE(adjust->connectMt(ballNode));
            EXPECT_FALSE(adjust->connectMt(nullptr));
            enabled = adjust->enable(true);
            osgManipulator::Dragger* first = adjust->rotDragger(0);
            EXPECT_TRUE(adjust->enable(true));
            EXPECT_EQ(adjust->rotDragger(0), first) << "built once";
        }));
        ASSERT_TRUE(enabled);
        ASSERT_TRUE(m_window->lookAt(osg::Vec3d(0, 0, 6), osg::Vec3d(), osg::Vec3d(0, 1, 0)));
        frames();
    }

    osg::Vec4f diffuseOf(osgManipulator::Dragger* dragger)
    {
        osg::Vec4f color;
        m_window->run(nullptr, [&](RenderInfo&) {
            auto* material = dynamic_cast<osg::Material*>(
                dragger->getStateSet()->getAttribute(osg::StateAttribute::MATERIAL));
            if (material)
                color = material->getDiffuse(osg::Material::FRONT);
        });
        return color;
    }

    osg::ref_ptr<ModelAdjustDragger> m_adjust;
};

TEST_F(ModelAdjustDraggerTest, TheBarsSlideAndTheRingsTurnTheConnectedModel)
{
    buildAdjust();
    // The x bar's end ball, 1.5 bound radii out, dragged 30 pixels right.
    const QPoint end = m_window->pixelOf(osg::Vec3d(m_adjust->bound().radius() * 1.5, 0, 0));
    const double k = pixelsPerUnit();
    osgManipulator::Dragger* bar = m_adjust->transDragger(0);
    QTest::mouseMove(m_window->window(), end);
    frames();
    EXPECT_EQ(m_adjust->currentDragger(), bar);
    EXPECT_EQ(diffuseOf(bar), m_adjust->transColors().picked(0));
    drag({end, end + QPoint(10, 0), end + QPoint(20, 0), end + QPoint(30, 0)});
    const osg::Vec3d moved = matrixOf(m_left).getTrans();
    // Within a pixel of rounding of the pointer.
    EXPECT_NEAR(moved.x(), 30.0 / k, 1.0 / k);
    EXPECT_NEAR(moved.y(), 0.0, 1e-9);

    // The ring about z, now centred on the moved ball, dragged from 45 to 75 degrees.
    const osg::Vec3d centreNow = m_adjust->getMatrix().getTrans();
    EXPECT_NEAR((centreNow - moved).length(), 0.0, 1e-9);
    const QPointF c = m_window->pixelOf(centreNow);
    const double r = m_adjust->bound().radius() * 1.1 * k;
    std::vector<QPoint> path;
    for (int i = 0; i <= 6; ++i) {
        const double a = osg::DegreesToRadians(45.0 + 5.0 * i);
        path.push_back((c + QPointF(r * std::cos(a), -r * std::sin(a))).toPoint());
    }
    drag(path);
    const osg::Matrix turned = matrixOf(m_left);
    // Whole-pixel pointer positions on a ring of about 80 pixels.
    EXPECT_NEAR(angleOfZ(turned), osg::DegreesToRadians(30.0), osg::DegreesToRadians(2.0));
    // Turned about its own centre, which stays (the turn is computed in single precision).
    EXPECT_NEAR((turned.getTrans() - moved).length(), 0.0, 1e-6);

    // Off every handle, the last one goes back to its colour.
    QTest::mouseMove(m_window->window(), QPoint(5, 5));
    frames();
    EXPECT_EQ(m_adjust->currentDragger(), nullptr);
    EXPECT_EQ(diffuseOf(bar), m_adjust->transColors().rest(0));
}

TEST_F(ModelAdjustDraggerTest, AnEmptyNodeLeavesTheRadiusAsItWas)
{
    osg::ref_ptr<ModelAdjustDragger> adjust = new ModelAdjustDragger(true, 0.1f, 0.05f);
    osg::ref_ptr<osg::MatrixTransform> a = ball(osg::Vec3d(1, 0, 0), 0.5f);
    osg::ref_ptr<osg::MatrixTransform> empty = new osg::MatrixTransform;
    ASSERT_TRUE(m_window->run(nullptr, [&](RenderInfo&) {
        EXPECT_TRUE(adjust->connectMt(a));
        const osg::BoundingSphere before = adjust->bound();
        EXPECT_TRUE(adjust->connectMt(empty));
        EXPECT_EQ(adjust->bound().radius(), before.radius());
        EXPECT_EQ(adjust->bound().center(), before.center());
        EXPECT_TRUE(adjust->enable(true));
        EXPECT_TRUE(adjust->enable(false));
        // The bound outlives the connections.
        EXPECT_EQ(adjust->bound().radius(), before.radius());
        EXPECT_EQ(adjust->rotDragger(0), nullptr);
        EXPECT_FALSE(adjust->enable(true));
    }));
}

} // namespace
