// The viewer's Y key: a cylinder around the models, adjusted by its side arrow, and taken away
// by Y again.
#include "viewer_cylinder.h"

#include "canvas3d_drawable.h"
#include "canvas3d_item.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "cylinder_manipulator.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "render_info.h"

#include <QTest>
#include <cmath>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using OrvaneTest::probe;
using OrvaneTest::waitUntil;

namespace {

// Pixels per unit in the plane z = 0: 120 pixels across 2 * 5 * tan(15 degrees).
const double kPixelsPerUnit = 120.0 / (10.0 * std::tan(osg::DegreesToRadians(15.0)));

class ViewerCylinderTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_canvas.show());
        // A 2 x 2 square at z = 0: the cylinder stands on y = -1, 2 high, 1.05 wide.
        osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
        for (const osg::Vec3& p : {osg::Vec3(-1, -1, 0), osg::Vec3(1, -1, 0), osg::Vec3(1, 1, 0)})
            v->push_back(p);
        osg::ref_ptr<osg::Vec3Array> n = new osg::Vec3Array;
        n->assign(3, osg::Vec3(0, 0, 1));
        osg::ref_ptr<osg::MatrixTransform> mesh = Mesh::create(v.get(), n.get(), n.get());
        mesh->getOrCreateStateSet()->setAttributeAndModes(
            ShaderManager::instance()->getShader("mesh"));
        m_handler = new ViewerCylinder;
        ASSERT_TRUE(
            m_canvas.window().run(new AddEventHandler(m_handler.get()), [mesh](RenderInfo& info) {
                ViewMgr::getModel(info.mainView())->addChild(mesh.get());
            }));
        m_canvas.window().item()->forceActiveFocus();
    }

    void TearDown() override { m_canvas.close(); }

    void frames(int count = 2)
    {
        const int start = m_canvas.window().sceneFrames();
        EXPECT_TRUE(waitUntil([&] {
            m_canvas.window().item()->frame();
            return m_canvas.window().sceneFrames() >= start + count;
        }));
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
    osg::ref_ptr<ViewerCylinder> m_handler;
};

TEST_F(ViewerCylinderTest, YPlacesTheCylinderItsArrowSetsTheRadiusAndYTakesItAway)
{
    QTest::keyClick(m_canvas.window().window(), Qt::Key_Y);
    frames();
    osg::Vec3f center, axis;
    float radius = 0, height = 0;
    bool shown = false;
    auto read = [&] {
        m_canvas.onRenderThread([&](RenderInfo& info) {
            CylinderManipulator* cylinder = m_handler->cylinder();
            shown = cylinder &&
                    ViewMgr::getModel(info.mainView())->containsNode(cylinder->getCylinderNode());
            if (cylinder)
                cylinder->getCylinder(center, axis, radius, height);
        });
    };
    read();
    ASSERT_TRUE(shown);
    EXPECT_NEAR((center - osg::Vec3f(0, -1, 0)).length(), 0.0f, 1e-5f);
    EXPECT_NEAR((axis - osg::Vec3f(0, 1, 0)).length(), 0.0f, 1e-5f);
    EXPECT_NEAR(radius, 1.05f, 1e-5f);
    EXPECT_NEAR(height, 2.0f, 1e-5f);

    // The side arrow, half as long as the radius, starts on the surface at half height.
    const QPoint arrow = probe(1.05f + 0.8f * 0.525f, 0.0f).pixel;
    QQuickWindow* window = m_canvas.window().window();
    QTest::mouseMove(window, arrow);
    frames(1);
    QTest::mousePress(window, Qt::LeftButton, Qt::NoModifier, arrow);
    frames(1);
    for (int i = 1; i <= 3; ++i) {
        QTest::mouseMove(window, arrow - QPoint(5 * i, 0));
        frames(1);
    }
    QTest::mouseRelease(window, Qt::LeftButton, Qt::NoModifier, arrow - QPoint(15, 0));
    frames();
    read();
    EXPECT_NEAR(radius, 1.05 - 15.0 / kPixelsPerUnit, 0.5 / kPixelsPerUnit);
    EXPECT_NEAR(height, 2.0f, 1e-5f);
    int changes = 0;
    m_canvas.onRenderThread([&](RenderInfo&) { changes = m_handler->changes(); });
    EXPECT_EQ(changes, 3);

    QTest::keyClick(window, Qt::Key_Y);
    frames();
    read();
    EXPECT_FALSE(shown);
}

} // namespace
