// The HUD camera and the gizmo's own view, added to and removed from a live canvas.
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "view_datum.h"
#include "view_datum_event_handler.h"
#include "view_datum_operation.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <atomic>
#include <gtest/gtest.h>
#include <vector>

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

// Reads the whole canvas once, after the first draw of the camera it is set on: the frame in
// which that camera's view is new.
class FirstDrawReader : public osg::Camera::DrawCallback
{
public:
    FirstDrawReader(int width, int height) : width(width), height(height) {}

    void operator()(osg::RenderInfo&) const override
    {
        if (done)
            return;
        pixels.resize(size_t(width) * size_t(height) * 4);
        QOpenGLContext::currentContext()->functions()->glReadPixels(
            0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
        done = true;
    }

    // Rows from the bottom, as GL counts them.
    QColor at(int x, int y) const
    {
        const unsigned char* p = &pixels[(size_t(y) * size_t(width) + size_t(x)) * 4];
        return QColor(p[0], p[1], p[2]);
    }

    const int width, height;
    mutable std::vector<unsigned char> pixels;
    mutable std::atomic<bool> done{false};
};

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

TEST_F(HudAndDatumTest, TheGizmosFirstFrameShowsTheCubeAndLeavesTheRestAlone)
{
    // Nothing in the main view: every pixel outside the gizmo is the clear colour.
    const QColor clear(26, 51, 77);
    ASSERT_TRUE(w.run(new ClearColorOperation(
        osg::Vec4f(float(clear.redF()), float(clear.greenF()), float(clear.blueF()), 1.0f))));
    ASSERT_TRUE(w.run(nullptr));

    osg::ref_ptr<FirstDrawReader> reader;
    osg::Vec4d gizmo;
    // Large, so that its labels are large too.
    ASSERT_TRUE(
        w.run(new ViewDatumOperation(nullptr, true, true, false, true, 2.0f, 2.0f, true, 6.0f),
              [&](RenderInfo& info) {
                  const osg::Viewport* vp = info.masterCamera()->getViewport();
                  reader = new FirstDrawReader(int(vp->width()), int(vp->height()));
                  osgViewer::CompositeViewer* viewer = info.compViewer();
                  for (unsigned int i = 0; i < viewer->getNumViews(); ++i) {
                      osgViewer::View* view = viewer->getView(i);
                      if (view->getName() == "datum") {
                          view->getCamera()->setFinalDrawCallback(reader.get());
                          gizmo = viewportOf(view->getCamera());
                      }
                  }
              }));
    ASSERT_TRUE(reader.valid());
    ASSERT_GT(gizmo[2], 10.0);
    ASSERT_TRUE(OrvaneTest::waitUntil([&] { return reader->done.load(); }));

    int stray = 0, cube = 0;
    for (int y = 0; y < reader->height; ++y)
        for (int x = 0; x < reader->width; ++x) {
            // One pixel of slack around the gizmo's square for its rounded edges.
            const bool inside = x >= gizmo[0] - 1 && x <= gizmo[0] + gizmo[2] + 1 &&
                                y >= gizmo[1] - 1 && y <= gizmo[1] + gizmo[3] + 1;
            const QColor c = reader->at(x, y);
            // 8 of 255: the clear colour goes through an 8-bit target unchanged.
            if (!inside)
                stray += OrvaneTest::near(c, clear, 8) ? 0 : 1;
            // The unlit pieces are 0.7 grey (179); 12 allows for smoothed edges.
            else
                cube += OrvaneTest::near(c, QColor(179, 179, 179), 12) ? 1 : 0;
        }
    EXPECT_EQ(stray, 0) << "pixels outside the gizmo that are not the clear colour";
    // Laid out before its first cull, the cube is drawn in this very frame.
    EXPECT_GT(cube, 0);
}
