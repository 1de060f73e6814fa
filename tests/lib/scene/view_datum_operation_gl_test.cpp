// The HUD camera and the gizmo's own view, added to and removed from a live canvas.
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "orvane_singleton.h"
#include "view_datum.h"
#include "view_datum_event_handler.h"
#include "view_datum_operation.h"

#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;

namespace {

osg::Vec4d viewportOf(const osg::Camera* camera)
{
    const osg::Viewport* v = camera->getViewport();
    return osg::Vec4d(v->x(), v->y(), v->width(), v->height());
}

int countDatumViews(RenderInfo& info, osgViewer::View* owner)
{
    int n = 0;
    osgViewer::CompositeViewer* viewer = info.compViewer();
    for (unsigned int i = 0; i < viewer->getNumViews(); ++i)
        if (viewer->getView(i)->getName() == "datum" && viewer->getView(i)->getUserData() == owner)
            ++n;
    return n;
}

int countHandlers(osgViewer::View* view)
{
    int n = 0;
    for (const auto& handler : view->getEventHandlers())
        n += handler->getName() == "ViewDatumHandler" ? 1 : 0;
    return n;
}

class HudAndDatumTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(w.show()); }

    // Resizes the canvas and waits until the window has followed.
    void resize(int width, int height)
    {
        w.item()->setSize(QSizeF(width, height));
        ASSERT_TRUE(OrvaneTest::waitUntil([&] {
            osg::Vec4d vp;
            w.run(nullptr, [&](RenderInfo& info) { vp = viewportOf(info.masterCamera()); });
            return vp[2] == width && vp[3] == height;
        }));
        ASSERT_TRUE(w.run(nullptr));
    }

    CanvasWindow w;
};

} // namespace

TEST_F(HudAndDatumTest, FollowingHudTakesTheWindowSizeAndAKeptOneDoesNot)
{
    osg::ref_ptr<CreateHudCameraOperation> follow = new CreateHudCameraOperation(
        osg::Vec4i(5, 6, 50, 40), CreateHudCameraOperation::FollowWindow);
    osg::ref_ptr<CreateHudCameraOperation> kept = new CreateHudCameraOperation(
        osg::Vec4i(5, 6, 50, 40), CreateHudCameraOperation::KeepViewport);
    EXPECT_EQ(follow->getName(), "create hud view");
    // A perspective HUD keeps its field of view and takes the window's aspect.
    osg::ref_ptr<CreateHudCameraOperation> perspective = new CreateHudCameraOperation(
        osg::Vec4i(0, 0, 10, 10), CreateHudCameraOperation::FollowWindow);
    perspective->getHudCamera()->setProjectionMatrixAsPerspective(30.0, 1.0, 1.0, 100.0);
    ASSERT_TRUE(w.run(follow.get()));
    ASSERT_TRUE(w.run(kept.get()));
    ASSERT_TRUE(w.run(perspective.get()));
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        osg::Group* other = ViewMgr::getOther(info.mainView());
        EXPECT_TRUE(other->containsNode(follow->getHudCamera()));
        EXPECT_TRUE(other->containsNode(kept->getHudCamera()));
        osg::Vec4i initial;
        EXPECT_TRUE(follow->getHudCamera()->getUserValue("qtInitialViewport", initial));
        EXPECT_EQ(initial, osg::Vec4i(5, 6, 50, 40));
    }));
    // Fitted at once to the view it was added to.
    EXPECT_EQ(viewportOf(follow->getHudCamera()),
              osg::Vec4d(0, 0, CanvasWindow::kCanvasWidth, CanvasWindow::kHeight));
    EXPECT_EQ(viewportOf(kept->getHudCamera()), osg::Vec4d(5, 6, 50, 40));

    resize(120, 90);
    EXPECT_EQ(viewportOf(follow->getHudCamera()), osg::Vec4d(0, 0, 120, 90));
    double l, r, b, t, n, f;
    ASSERT_TRUE(follow->getHudCamera()->getProjectionMatrixAsOrtho(l, r, b, t, n, f));
    EXPECT_DOUBLE_EQ(r, 120.0);
    EXPECT_DOUBLE_EQ(t, 90.0);
    EXPECT_DOUBLE_EQ(l, 0.0);
    EXPECT_DOUBLE_EQ(f, 10000.0);
    double fovy, aspect;
    ASSERT_TRUE(perspective->getHudCamera()->getProjectionMatrixAsPerspective(fovy, aspect, n, f));
    EXPECT_NEAR(fovy, 30.0, 1e-6);
    EXPECT_NEAR(aspect, 120.0 / 90.0, 1e-9);

    // The kept one moves only as the window scales every camera, never to the window's size.
    ASSERT_TRUE(kept->getHudCamera()->getProjectionMatrixAsOrtho(l, r, b, t, n, f));
    EXPECT_DOUBLE_EQ(r, 50.0);
    EXPECT_DOUBLE_EQ(t, 40.0);
}

TEST_F(HudAndDatumTest, CameraWithoutInitialViewportIsRefused)
{
    OrvaneTest::LogCapture log;
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setViewport(1, 2, 3, 4);
    CreateHudCameraOperation::updateCameraViewport(camera.get(), osg::Vec4i(0, 0, 9, 9), 0);
    EXPECT_TRUE(log.contains("view hasn't initialViewport user value"));
    EXPECT_EQ(viewportOf(camera.get()), osg::Vec4d(1, 2, 3, 4));

    // Neither perspective nor orthographic.
    camera->setUserValue("qtInitialViewport", osg::Vec4i());
    osg::Matrixd odd;
    odd(0, 1) = 0.5;
    odd(2, 3) = 0.3;
    camera->setProjectionMatrix(odd);
    CreateHudCameraOperation::updateCameraViewport(camera.get(), osg::Vec4i(0, 0, 9, 9), 0);
    EXPECT_TRUE(log.contains("camera matrix neither otho or perspective"));
}

TEST_F(HudAndDatumTest, DatumViewIsAddedOnceAndRemovedWithItsHandler)
{
    RenderInfo* info = nullptr;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& i) { info = &i; }));
    osgViewer::View* main = nullptr;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& i) { main = i.mainView(); }));
    int views = 0, handlers = 0;
    unsigned int total = 0;
    const auto count = [&](RenderInfo& i) {
        views = countDatumViews(i, main);
        handlers = countHandlers(main);
        total = i.compViewer()->getNumViews();
    };
    ASSERT_TRUE(w.run(nullptr, count));
    const unsigned int before = total;

    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(w.run(new ViewDatumOperation(nullptr, true), count));
        EXPECT_EQ(views, 1) << "round " << round;
        EXPECT_EQ(handlers, 1);
        EXPECT_EQ(total, before + 1);
    }
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& i) {
        ViewDatumEventHandler* handler = ViewDatumOperation::getHandler(i.mainView());
        ASSERT_TRUE(handler);
        for (unsigned int v = 0; v < i.compViewer()->getNumViews(); ++v) {
            osgViewer::View* view = i.compViewer()->getView(v);
            if (view->getName() != "datum")
                continue;
            EXPECT_EQ(view->getCameraManipulator(), nullptr);
            EXPECT_EQ(view->getCamera()->getClearMask(), GLbitfield(GL_DEPTH_BUFFER_BIT));
            EXPECT_FALSE(view->getCamera()->getAllowEventFocus());
            EXPECT_EQ(view->getCamera()->getGraphicsContext(),
                      i.masterCamera()->getGraphicsContext());
            auto* datum = dynamic_cast<ViewDatum*>(view->getSceneData()->asGroup()->getChild(0));
            ASSERT_TRUE(datum);
            EXPECT_EQ(datum->getName(), "viewDatum");
            // Twenty-six pieces and the home button are clickable, with their labels besides.
            int clickable = 0;
            for (const auto& entry : datum->getPlanes())
                clickable += entry.second->getNodeMask() == ViewDatum::getCubePlaneMask();
            EXPECT_EQ(clickable, 27);
            EXPECT_TRUE(view->getSceneData()->asGroup()->containsNode(datum->getHomeCamera()));
        }
    }));

    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(w.run(new ViewDatumOperation(nullptr, false), count));
        EXPECT_EQ(views, 0);
        EXPECT_EQ(handlers, 0);
        EXPECT_EQ(total, before);
    }
}

TEST_F(HudAndDatumTest, RemovingAViewTakesItsDatumAlong)
{
    osg::ref_ptr<osgViewer::View> second;
    unsigned int before = 0;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        before = info.compViewer()->getNumViews();
        second = ViewMgr::createView(info.masterCamera()->getGraphicsContext(),
                                     new osg::Viewport(0, 0, 80, 60));
        info.compViewer()->addView(second.get());
    }));
    int views = 0;
    unsigned int total = 0;
    const auto count = [&](RenderInfo& info) {
        views = countDatumViews(info, second.get());
        total = info.compViewer()->getNumViews();
    };
    ASSERT_TRUE(w.run(new ViewDatumOperation(second.get(), true), count));
    EXPECT_EQ(views, 1);
    EXPECT_EQ(total, before + 2);
    ASSERT_TRUE(w.run(OrvaneSingleton::instance()->removeView(second.get()), count));
    EXPECT_EQ(views, 0);
    EXPECT_EQ(total, before);
}
