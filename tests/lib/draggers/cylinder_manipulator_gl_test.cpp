// The cylinder manipulator on a live canvas: its handles, dragged with the mouse, change the
// radius and height within their limits and move the body, and each change is signalled once.
#include "canvas3d_view.h"
#include "cylinder_dragger.h"
#include "cylinder_manipulator.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "render_info.h"

#include <QTest>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>

using namespace Vorna::Orvane;
using OrvaneTest::probe;
using OrvaneTest::waitUntil;

namespace {

// The base's middle, below the middle of the canvas; the body stands up along +y at z = 0,
// where a pixel is 1 / 44.8 of a unit.
const osg::Vec3f kBase(0.0f, -0.6f, 0.0f);
constexpr float kRadius = 0.4f;
constexpr float kHeight = 1.0f;
// Pixels per unit in the plane z = 0: 120 pixels across 2 * 5 * tan(15 degrees).
const double kPixelsPerUnit = 120.0 / (10.0 * std::tan(osg::DegreesToRadians(15.0)));
// The handles are arrows half as long as the larger of radius and half height.
constexpr float kArrow = 0.5f * 0.5f;

struct Cylinder {
    osg::Vec3f center, axis;
    float radius = 0.0f, height = 0.0f;
};

class CylinderManipulatorTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_canvas.show());
        ASSERT_TRUE(m_canvas.onRenderThread([this](RenderInfo& info) {
            m_manipulator.reset(new CylinderManipulator(info.mainView(), kBase, osg::Vec3f(0, 1, 0),
                                                        kRadius, kHeight,
                                                        osg::Vec4f(0.8f, 0.3f, 0.3f, 0.5f)));
            QObject::connect(m_manipulator.get(), &CylinderManipulator::cylinderChanged,
                             [this] { ++m_changes; });
            ViewMgr::getModel(info.mainView())->addChild(m_manipulator->getCylinderNode());
        }));
        frames();
    }

    void TearDown() override
    {
        m_canvas.onRenderThread([this](RenderInfo& info) {
            osg::Group* model = ViewMgr::getModel(info.mainView());
            model->removeChildren(0, model->getNumChildren());
            m_manipulator.reset();
        });
        m_canvas.close();
    }

    void frames(int count = 2)
    {
        const int start = m_canvas.window().sceneFrames();
        EXPECT_TRUE(waitUntil([&] {
            m_canvas.window().item()->frame();
            return m_canvas.window().sceneFrames() >= start + count;
        }));
    }

    void drag(QPoint from, QPoint to, int steps)
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
        frames(1);
    }

    Cylinder cylinder()
    {
        Cylinder c;
        m_canvas.onRenderThread(
            [&](RenderInfo&) { m_manipulator->getCylinder(c.center, c.axis, c.radius, c.height); });
        return c;
    }

    int builds()
    {
        int n = 0;
        m_canvas.onRenderThread([&](RenderInfo&) { n = m_manipulator->d()->m_builds; });
        return n;
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
    std::unique_ptr<CylinderManipulator> m_manipulator;
    std::atomic<int> m_changes{0};
};

TEST_F(CylinderManipulatorTest, GivesBackWhatItWasMadeWith)
{
    const Cylinder c = cylinder();
    EXPECT_NEAR((c.center - kBase).length(), 0.0f, 1e-6f);
    EXPECT_NEAR((c.axis - osg::Vec3f(0, 1, 0)).length(), 0.0f, 1e-6f);
    EXPECT_EQ(c.radius, kRadius);
    EXPECT_EQ(c.height, kHeight);
    EXPECT_EQ(m_changes.load(), 0);
}

TEST_F(CylinderManipulatorTest, TheSideArrowChangesTheRadiusDownToItsMinimum)
{
    // The side arrow starts on the surface at the middle height, along +x.
    const QPoint handle = probe(kRadius + 0.8f * kArrow, kBase.y() + kHeight / 2).pixel;
    const int buildsBefore = builds();
    drag(handle, handle + QPoint(20, 0), 4);
    Cylinder c = cylinder();
    // The pointer's x in the plane of the handle: 20 pixels.
    EXPECT_NEAR(c.radius, kRadius + 20.0 / kPixelsPerUnit, 0.5 / kPixelsPerUnit);
    EXPECT_EQ(c.height, kHeight);
    EXPECT_EQ(m_changes.load(), 4);
    EXPECT_GT(builds(), buildsBefore);

    // Far inwards: three steps reach the bound, the last ones change nothing and say nothing.
    m_changes = 0;
    const QPoint moved = probe(c.radius + 0.8f * kArrow, kBase.y() + kHeight / 2).pixel;
    drag(moved, moved + QPoint(-78, 0), 6);
    c = cylinder();
    float minScale = 0.0f;
    m_canvas.onRenderThread(
        [&](RenderInfo&) { minScale = m_manipulator->d()->m_radiusDragger->getMinScale(); });
    EXPECT_EQ(minScale, 0.001f);
    EXPECT_EQ(c.radius, minScale);
    EXPECT_EQ(m_changes.load(), 3);
}

TEST_F(CylinderManipulatorTest, ADragThatEndsAtTheSameRadiusRebuildsNothing)
{
    const QPoint handle = probe(kRadius + 0.8f * kArrow, kBase.y() + kHeight / 2).pixel;
    QQuickWindow* window = m_canvas.window().window();
    QTest::mouseMove(window, handle);
    frames(1);
    const int before = builds();
    // Out and back within one frame: the body is looked at only once, at the same radius.
    QTest::mousePress(window, Qt::LeftButton, Qt::NoModifier, handle);
    QTest::mouseMove(window, handle + QPoint(15, 0));
    QTest::mouseMove(window, handle);
    QTest::mouseRelease(window, Qt::LeftButton, Qt::NoModifier, handle);
    frames(2);
    EXPECT_EQ(cylinder().radius, kRadius);
    EXPECT_EQ(m_changes.load(), 2);
    EXPECT_EQ(builds(), before);
}

TEST_F(CylinderManipulatorTest, NodesLeftInTheSceneOutliveTheManipulator)
{
    m_canvas.onRenderThread([this](RenderInfo&) { m_manipulator.reset(); });
    frames();
    // A drag on what is left of the side arrow finds nothing to change, and nothing breaks.
    const QPoint handle = probe(kRadius + 0.8f * kArrow, kBase.y() + kHeight / 2).pixel;
    QQuickWindow* window = m_canvas.window().window();
    QTest::mousePress(window, Qt::LeftButton, Qt::NoModifier, handle);
    QTest::mouseMove(window, handle + QPoint(10, 0));
    QTest::mouseRelease(window, Qt::LeftButton, Qt::NoModifier, handle + QPoint(10, 0));
    frames();
    EXPECT_EQ(m_changes.load(), 0);
}

TEST_F(CylinderManipulatorTest, TheTopArrowChangesTheHeightDownToItsMinimum)
{
    const QPoint handle = probe(0.0f, kBase.y() + kHeight + 0.8f * kArrow).pixel;
    drag(handle, handle + QPoint(0, -20), 5);
    Cylinder c = cylinder();
    EXPECT_NEAR(c.height, kHeight + 20.0 / kPixelsPerUnit, 0.5 / kPixelsPerUnit);
    EXPECT_EQ(c.radius, kRadius);
    EXPECT_EQ(m_changes.load(), 5);

    m_changes = 0;
    const QPoint moved = probe(0.0f, kBase.y() + c.height + 0.8f * kArrow).pixel;
    drag(moved, moved + QPoint(0, 100), 4);
    c = cylinder();
    float minHeight = 0.0f;
    m_canvas.onRenderThread(
        [&](RenderInfo&) { minHeight = m_manipulator->d()->m_heightDragger->getMinHeight(); });
    EXPECT_EQ(c.height, minHeight);
    EXPECT_GT(m_changes.load(), 0);
    EXPECT_LT(m_changes.load(), 4);
}

TEST_F(CylinderManipulatorTest, DraggingTheBodyMovesItAndKeepsItsSize)
{
    const QPoint onBody = probe(0.2f, kBase.y() + 0.3f).pixel;
    drag(onBody, onBody + QPoint(20, 0), 4);
    const Cylinder c = cylinder();
    // The plane of the move passes through the base, facing the eye: the plane z = 0.
    EXPECT_NEAR(c.center.x(), 20.0 / kPixelsPerUnit, 0.5 / kPixelsPerUnit);
    EXPECT_NEAR(c.center.y(), kBase.y(), 1e-4f);
    EXPECT_NEAR(c.center.z(), 0.0f, 1e-4f);
    EXPECT_NEAR((c.axis - osg::Vec3f(0, 1, 0)).length(), 0.0f, 1e-5f);
    EXPECT_EQ(c.radius, kRadius);
    EXPECT_EQ(c.height, kHeight);
    EXPECT_EQ(m_changes.load(), 4);
}

TEST_F(CylinderManipulatorTest, TheRingTurnsTheBodyAboutItsMiddle)
{
    // The ring stands in the plane x = 0 around the middle of the body; seen edge-on, its top
    // is a short vertical line above the top of the body.
    const float ringRadius = 1.15f * std::max(kRadius, kHeight / 2);
    const float middle = kBase.y() + kHeight / 2;
    const QPoint top = probe(0.0f, middle + ringRadius * 0.98f).pixel;
    drag(top, top + QPoint(0, 25), 5);
    const Cylinder c = cylinder();
    EXPECT_GT(m_changes.load(), 0);
    // The axis has turned about x, the middle stayed where it was.
    EXPECT_NEAR(c.axis.x(), 0.0f, 1e-5f);
    EXPECT_LT(c.axis.y(), 0.999f);
    const osg::Vec3f mid = c.center + c.axis * (c.height / 2);
    EXPECT_NEAR((mid - osg::Vec3f(0, middle, 0)).length(), 0.0f, 1e-4f);
    EXPECT_EQ(c.radius, kRadius);
}

} // namespace
