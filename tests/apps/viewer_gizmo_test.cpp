// The viewer's gizmo keys on a live canvas: G shows the model dragger on the models, a drag of
// its x arrow moves them, Ctrl+Z puts them back and Ctrl+Shift+Z moves them again; J swaps in
// the adjust dragger.
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "shape_mesh.h"
#include "undo_history.h"
#include "viewer_gizmo.h"
#include "viewer_keys.h"

#include <QQuickItem>
#include <QTest>
#include <gtest/gtest.h>
#include <osg/Geode>
#include <osgViewer/View>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

constexpr int kSize = 400;

class ViewerGizmoTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_window.reset(new CanvasWindow);
        m_window->window()->resize(kSize, kSize);
        m_window->item()->setSize(QSizeF(kSize, kSize));
        for (QQuickItem* child : m_window->window()->contentItem()->childItems())
            if (child != m_window->item())
                child->setVisible(false);
        ASSERT_TRUE(m_window->show());
        m_window->installFrameCounter();

        // A plain geode (as a file loads) and a transform (as the built-in mesh is).
        ShapeMesh mesh;
        mesh.addSphere(osg::Vec3f(-1, 0, 0), 0.5f);
        auto* geode = new osg::Geode;
        geode->addDrawable(mesh.build());
        m_plain = geode;
        m_transform = new osg::MatrixTransform(osg::Matrix::translate(1, 0, 0));
        auto* other = new osg::Geode;
        ShapeMesh ball;
        ball.addSphere(osg::Vec3f(), 0.5f);
        other->addDrawable(ball.build());
        m_transform->addChild(other);
        m_gizmo = new ViewerGizmo({m_plain, m_transform}, &m_history);
        osg::ref_ptr<ViewerGizmo> gizmo = m_gizmo;
        osg::ref_ptr<osg::Node> plain = m_plain;
        osg::ref_ptr<osg::MatrixTransform> transform = m_transform;
        UndoHistory* history = &m_history;
        ASSERT_TRUE(m_window->run(nullptr, [=](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->addChild(plain.get());
            ViewMgr::getModel(info.mainView())->addChild(transform.get());
            info.mainView()->addEventHandler(new ViewerKeys(history));
            info.mainView()->addEventHandler(gizmo.get());
        }));
        ASSERT_TRUE(m_window->lookAt(osg::Vec3d(0, 0, 10), osg::Vec3d(), osg::Vec3d(0, 1, 0)));
    }

    void TearDown() override { m_window.reset(); }

    void frames(int count = 3)
    {
        const int start = m_window->sceneFrames();
        EXPECT_TRUE(waitUntil([&] {
            m_window->item()->frame();
            return m_window->sceneFrames() >= start + count;
        }));
    }

    // A key as the canvas hands it to the view.
    void key(int code, int modifiers = 0)
    {
        m_window->run(nullptr, [=](RenderInfo& info) {
            osgGA::EventQueue* queue = info.mainView()->getEventQueue();
            queue->getCurrentEventState()->setModKeyMask(modifiers);
            queue->keyPress(code);
            queue->keyRelease(code);
            queue->getCurrentEventState()->setModKeyMask(0);
        });
        frames();
    }

    osg::Matrix matrixOf(osg::MatrixTransform* mt)
    {
        osg::Matrix m;
        m_window->run(nullptr, [&](RenderInfo&) { m = mt->getMatrix(); });
        return m;
    }

    std::unique_ptr<CanvasWindow> m_window;
    UndoHistory m_history;
    osg::ref_ptr<ViewerGizmo> m_gizmo;
    osg::ref_ptr<osg::Node> m_plain;
    osg::ref_ptr<osg::MatrixTransform> m_transform;
};

TEST_F(ViewerGizmoTest, GShowsTheGizmoAnArrowDragMovesTheModelsAndCtrlZUndoesIt)
{
    key('G');
    ASSERT_NE(m_gizmo->modelDragger(), nullptr);
    frames();
    // The plain model now hangs under a transform of its own.
    auto* wrapper = dynamic_cast<osg::MatrixTransform*>(m_plain->getParent(0));
    ASSERT_NE(wrapper, nullptr);

    // Along the x arrow, beyond the arcs: 100 to 150 pixels right of the centre.
    const QPoint centre = m_window->pixelOf(osg::Vec3d());
    const QPoint start = centre + QPoint(125, 0);
    QQuickWindow* window = m_window->window();
    QTest::mouseMove(window, start);
    frames(1);
    QTest::mousePress(window, Qt::LeftButton, Qt::NoModifier, start);
    frames(1);
    for (int i = 1; i <= 3; ++i) {
        QTest::mouseMove(window, start + QPoint(10 * i, 0));
        frames(1);
    }
    QTest::mouseRelease(window, Qt::LeftButton, Qt::NoModifier, start + QPoint(30, 0));
    frames();

    const osg::Vec3d moved = matrixOf(m_transform).getTrans() - osg::Vec3d(1, 0, 0);
    EXPECT_GT(moved.x(), 0.2);
    EXPECT_NEAR(moved.y(), 0.0, 1e-9);
    EXPECT_NEAR((matrixOf(wrapper).getTrans() - moved).length(), 0.0, 1e-9);
    EXPECT_EQ(m_history.undoCount(), 1u);

    key('z', osgGA::GUIEventAdapter::MODKEY_CTRL);
    EXPECT_NEAR((matrixOf(m_transform).getTrans() - osg::Vec3d(1, 0, 0)).length(), 0.0, 1e-12);
    EXPECT_TRUE(matrixOf(wrapper).isIdentity());
    key('z', osgGA::GUIEventAdapter::MODKEY_CTRL | osgGA::GUIEventAdapter::MODKEY_SHIFT);
    EXPECT_NEAR((matrixOf(wrapper).getTrans() - moved).length(), 0.0, 1e-9);

    // G again hides it.
    key('G');
    EXPECT_EQ(m_gizmo->modelDragger(), nullptr);
}

TEST_F(ViewerGizmoTest, JSwapsInTheAdjustDraggerWhoseDragsAreUndoneByCtrlZ)
{
    key('G');
    ASSERT_NE(m_gizmo->modelDragger(), nullptr);
    key('J');
    EXPECT_EQ(m_gizmo->modelDragger(), nullptr);
    ASSERT_NE(m_gizmo->adjustDragger(), nullptr);
    EXPECT_TRUE(m_gizmo->adjustDragger()->isEnabled());
    // Centred on both balls.
    EXPECT_NEAR(m_gizmo->adjustDragger()->getMatrix().getTrans().length(), 0.0, 1e-6);

    // A drag of the x bar's end is one undo step too.
    const double reach = m_gizmo->adjustDragger()->bound().radius() * 1.5;
    frames();
    const QPoint start = m_window->pixelOf(osg::Vec3d(reach, 0, 0));
    QQuickWindow* window = m_window->window();
    QTest::mouseMove(window, start);
    frames(1);
    QTest::mousePress(window, Qt::LeftButton, Qt::NoModifier, start);
    frames(1);
    QTest::mouseMove(window, start + QPoint(0, -20));
    frames(1);
    QTest::mouseMove(window, start + QPoint(25, -20));
    frames(1);
    QTest::mouseRelease(window, Qt::LeftButton, Qt::NoModifier, start + QPoint(25, -20));
    frames();
    const osg::Vec3d moved = matrixOf(m_transform).getTrans() - osg::Vec3d(1, 0, 0);
    EXPECT_GT(moved.x(), 0.2);
    EXPECT_NEAR(moved.y(), 0.0, 1e-9) << "a bar slides along its axis only";
    EXPECT_EQ(m_history.undoCount(), 1u);
    key('z', osgGA::GUIEventAdapter::MODKEY_CTRL);
    EXPECT_NEAR((matrixOf(m_transform).getTrans() - osg::Vec3d(1, 0, 0)).length(), 0.0, 1e-12);

    key('J');
    EXPECT_EQ(m_gizmo->adjustDragger(), nullptr);
}

} // namespace
