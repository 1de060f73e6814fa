// The rectangular cut plane on a live canvas: it paints the lower side of an "edit" mesh, and
// the mouse turns it by a corner and pushes it by its arrow.
#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "rect_cut_plane.h"

#include <QTest>
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <osg/Camera>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::describe;
using OrvaneTest::dirLight;
using OrvaneTest::Probe;
using OrvaneTest::probe;
using OrvaneTest::toColor;
using OrvaneTest::waitUntil;

namespace {

// 8-bit quantisation of the framebuffer plus float rounding in llvmpipe.
constexpr int kTolerance = 2;
const osg::Vec3 kEditFront(0.5f, 0.5f, 0.5f);
const osg::Vec4 kMainParam(0.5f, 0.5f, 0.15f, 128.0f);
const osg::Vec4 kSelectedParam(0.5f, 0.5f, 0.1f, 128.0f);
const osg::Vec3 kToEye(0.0f, 0.0f, 1.0f);
const std::vector<osg::Vec3> kRows = {
    {0.0f, 0.0f, 0.0f}, {1.0f, 0.0f, 0.0f}, {0.0f, 1.0f, 0.0f}, {0.2f, 0.4f, 0.8f}};
constexpr float kSelectIndex = 2.0f;

// "editmesh" with its defaults: plain front, or the row the plane paints.
QColor plainFront(const Probe& at)
{
    const osg::Vec3 l = dirLight(kToEye, kMainParam, kToEye, at.P);
    return toColor(kEditFront * (l.x() + l.y() + l.z()));
}

QColor paintedFront(const Probe& at)
{
    const osg::Vec3 l = dirLight(kToEye, kSelectedParam, kToEye, at.P);
    return toColor(kRows[int(kSelectIndex)] * (0.5f + l.y()) + osg::Vec3(l.z(), l.z(), l.z()));
}

class RectCutPlaneDrawTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_canvas.show()); }

    // A 2 x 2 square at z = 0 drawn by "editmesh" with the plane's uniforms above it, and the
    // plane across y (the box's longest side) through the origin, edge-on to the eye.
    void buildScene()
    {
        osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
        for (const osg::Vec3& p : {osg::Vec3(-1, -1, 0), osg::Vec3(1, -1, 0), osg::Vec3(1, 1, 0),
                                   osg::Vec3(-1, -1, 0), osg::Vec3(1, 1, 0), osg::Vec3(-1, 1, 0)})
            v->push_back(p);
        osg::ref_ptr<osg::Vec3Array> n = new osg::Vec3Array;
        n->assign(6, kToEye);
        osg::ref_ptr<osg::Vec3Array> c = new osg::Vec3Array;
        c->assign(6, kEditFront);
        osg::ref_ptr<osg::MatrixTransform> mesh = Mesh::create(v.get(), n.get(), c.get());
        osg::StateSet* ss = mesh->getOrCreateStateSet();
        ss->setAttributeAndModes(
            OrvaneSingleton::instance()->getShaderMgr()->getShader("editmesh"));
        osg::ref_ptr<osg::Vec3Array> rows = new osg::Vec3Array(kRows.begin(), kRows.end());
        Mesh::colorIndex(mesh.get(), rows.get());
        ss->addUniform(new osg::Uniform("needCalcCutplane", true));

        m_plane = new RectCutPlane(osg::BoundingBox(-1, -1.5f, -0.5f, 1, 1.5f, 0.5f), kSelectIndex);
        m_plane->addCutUniforms(ss);
        m_model = new osg::Group;
        m_model->addChild(mesh.get());
        m_model->addChild(m_plane.get());
        osg::ref_ptr<osg::Group> model = m_model;
        ASSERT_TRUE(m_canvas.window().run(nullptr, [model](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->addChild(model.get());
        }));
    }

    QImage frames(int count = 3)
    {
        const int start = m_canvas.window().sceneFrames();
        EXPECT_TRUE(waitUntil([&] {
            m_canvas.window().item()->frame();
            return m_canvas.window().sceneFrames() >= start + count;
        }));
        m_last = m_canvas.window().grab();
        return m_last;
    }

    void expectPixel(const QImage& image, const Probe& at, const QColor& wanted, const char* what)
    {
        const QColor actual = image.pixelColor(at.pixel);
        EXPECT_TRUE(OrvaneTest::near(actual, wanted, kTolerance))
            << what << " at (" << at.pixel.x() << ", " << at.pixel.y() << "): " << describe(actual)
            << ", expected " << describe(wanted);
    }

    osg::Vec3f uniformVec3(const char* name)
    {
        osg::Vec3f value;
        osg::ref_ptr<RectCutPlane> plane = m_plane;
        osg::ref_ptr<osg::Group> model = m_model;
        m_canvas.window().run(nullptr, [&](RenderInfo&) {
            model->getChild(0)->getStateSet()->getUniform(name)->get(value);
        });
        return value;
    }

    // Press, drag in steps and release with the left button, a frame after each step.
    void drag(QPoint from, QPoint to, int steps = 4)
    {
        QQuickWindow* window = m_canvas.window().window();
        QTest::mouseMove(window, from);
        frames(1);
        QTest::mousePress(window, Qt::LeftButton, Qt::NoModifier, from);
        frames(1);
        for (int i = 1; i <= steps; ++i) {
            QTest::mouseMove(window, from + (to - from) * i / steps);
            frames(1);
        }
        QTest::mouseRelease(window, Qt::LeftButton, Qt::NoModifier, to);
        frames(2);
    }

    void TearDown() override
    {
        if (HasFailure() && !m_last.isNull())
            m_last.save(QString("rect_cut_plane_%1.png")
                            .arg(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        m_canvas.close();
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
    osg::ref_ptr<RectCutPlane> m_plane;
    osg::ref_ptr<osg::Group> m_model;
    QImage m_last;
};

TEST_F(RectCutPlaneDrawTest, PaintsTheLowerSideWithTheSelectIndexRow)
{
    buildScene();
    const QImage image = frames();
    for (const Probe& below : {probe(0.5f, -0.5f), probe(-0.6f, -0.2f)})
        expectPixel(image, below, paintedFront(below), "below");
    for (const Probe& above : {probe(0.5f, 0.5f), probe(-0.6f, 0.2f)})
        expectPixel(image, above, plainFront(above), "above");
}

TEST_F(RectCutPlaneDrawTest, DraggingACornerTurnsThePlane)
{
    buildScene();
    std::atomic<int> began{-1}, ended{-1}, draggingOn{0}, draggingOff{0};
    QObject::connect(m_plane.get(), &RectCutPlane::beginDragging, [&](int type) { began = type; });
    QObject::connect(m_plane.get(), &RectCutPlane::endDragging, [&](int type) { ended = type; });
    QObject::connect(m_plane.get(), &RectCutPlane::draggingChanged,
                     [&](bool on) { ++(on ? draggingOn : draggingOff); });
    // Emitted on the render thread; a receiver on the GUI thread gets the matrix queued.
    osg::Matrix received;
    QObject::connect(m_plane.get(), &RectCutPlane::matrixChanged, m_canvas.window().window(),
                     [&](osg::Matrix matrix) { received = matrix; });

    const Probe aboveRight = probe(0.8f, 0.15f), belowLeft = probe(-0.8f, -0.15f);
    QImage image = frames();
    expectPixel(image, aboveRight, plainFront(aboveRight), "before, right");
    expectPixel(image, belowLeft, paintedFront(belowLeft), "before, left");

    // The front sphere on the right, at (1, 0, 0.5), dragged up by 30 pixels: the plane turns
    // about its in-plane axis across that corner and the cut line tilts up to the right.
    const QPoint corner = probe(1.0f, 0.0f, 0.5f).pixel;
    drag(corner, corner + QPoint(0, -30));
    EXPECT_EQ(began.load(), int(RectCutPlane::RotateDrag));
    EXPECT_EQ(ended.load(), int(RectCutPlane::RotateDrag));
    EXPECT_EQ(draggingOn.load(), 1);
    EXPECT_EQ(draggingOff.load(), 1);
    EXPECT_TRUE(waitUntil([&] { return !received.isIdentity(); }));

    const osg::Vec3f direction = uniformVec3("direction");
    EXPECT_LT(direction.x(), -0.2f) << direction.x() << ", " << direction.y();
    EXPECT_NEAR(direction.length(), 1.0f, 1e-4f);
    // The last matrix signalled turns the plane's z onto the published direction.
    const osg::Vec3d signalled = osg::Matrix::transform3x3(osg::Vec3d(0, 0, 1), received);
    EXPECT_NEAR((signalled - osg::Vec3d(direction)).length(), 0.0, 1e-4);
    EXPECT_LT(uniformVec3("center").length(), 1e-4f);

    image = frames();
    expectPixel(image, aboveRight, paintedFront(aboveRight), "after, right");
    expectPixel(image, belowLeft, plainFront(belowLeft), "after, left");
}

TEST_F(RectCutPlaneDrawTest, DraggingTheArrowPushesThePlaneAlongItsNormal)
{
    buildScene();
    std::atomic<int> offsets{0};
    QObject::connect(m_plane.get(), &RectCutPlane::offsetChanged, [&] { ++offsets; });
    const Probe between = probe(0.5f, 0.2f);
    QImage image = frames();
    expectPixel(image, between, plainFront(between), "before");

    // The arrow's head lies along +y from the centre; drag it up by 20 pixels.
    const QPoint head = probe(0.0f, 0.44f, 0.05f).pixel;
    drag(head, head + QPoint(0, -20));
    EXPECT_GT(offsets.load(), 0);
    const osg::Vec3f center = uniformVec3("center");
    EXPECT_NEAR(center.y(), 20.0f / 44.8f, 0.08f);
    EXPECT_NEAR(center.x(), 0.0f, 1e-4f);
    const osg::Vec3f direction = uniformVec3("direction");
    EXPECT_NEAR(direction.y(), 1.0f, 1e-5f);

    image = frames();
    expectPixel(image, between, paintedFront(between), "after");
}

TEST_F(RectCutPlaneDrawTest, HoverHighlightsTheSphereUnderThePointer)
{
    buildScene();
    frames();
    QTest::mouseMove(m_canvas.window().window(), probe(1.0f, 0.0f, 0.5f).pixel);
    frames(2);
    osg::Vec4f front, other;
    osg::ref_ptr<RectCutPlane> plane = m_plane;
    ASSERT_TRUE(m_canvas.window().run(nullptr, [&](RenderInfo&) {
        // Corner 1 is (+x, -y) of the plane's own frame, here (1, 0, 0.5).
        plane->sphereNode(1)
            ->asGroup()
            ->getChild(0)
            ->getStateSet()
            ->getUniform("baseColor")
            ->get(front);
        plane->sphereNode(0)
            ->asGroup()
            ->getChild(0)
            ->getStateSet()
            ->getUniform("baseColor")
            ->get(other);
    }));
    EXPECT_EQ(front, osg::Vec4f(0.24313726f, 1.0f, 0.4745098f, 1.0f));
    EXPECT_EQ(other, osg::Vec4f(0.007843138f, 0.53333336f, 0.9411765f, 1.0f));
}

} // namespace

namespace {

TEST_F(RectCutPlaneDrawTest, DoubleClickIsReportedOnce)
{
    buildScene();
    frames();
    OrvaneTest::LogCapture log;
    std::atomic<int> clicks{0};
    QObject::connect(m_plane.get(), &RectCutPlane::doubleClicked, [&] { ++clicks; });
    QTest::mouseDClick(m_canvas.window().window(), Qt::LeftButton, Qt::NoModifier, QPoint(20, 20));
    frames(3);
    EXPECT_EQ(clicks.load(), 1);
    EXPECT_EQ(log.count("cutPlane dragger is double clicked"), 1);
    // A press far from the plane moves nothing.
    EXPECT_LT(uniformVec3("center").length(), 1e-6f);
}

} // namespace
