// The scene skeleton that every canvas view gets, inspected on a live canvas.
#include "canvas3d_item.h"
#include "canvas3d_view.h"
#include "depth_callbacks.h"
#include "fbo_post_draw_callback.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "post_draw_callback.h"

#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

// Runs `body` on the render thread of the window's canvas and waits for it.
bool onRenderThread(CanvasWindow& w, std::function<void(RenderInfo&)> body)
{
    std::atomic<bool> done{false};
    w.item()->addOperation(new LambdaOperation([&](RenderInfo& info) {
        body(info);
        done = true;
    }));
    return waitUntil([&] { return done.load(); });
}

} // namespace

TEST(ViewMgrTest, MainViewHasTheFourGroupsInOrder)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    std::vector<std::string> names;
    float pixel = 0.0f;
    bool programPointSize = false;
    ASSERT_TRUE(onRenderThread(w, [&](RenderInfo& info) {
        osgViewer::View* view = info.mainView();
        osg::Group* root = ViewMgr::getRoot(view);
        names.push_back(root->getName());
        for (unsigned i = 0; i < root->getNumChildren(); ++i)
            names.push_back(root->getChild(i)->getName());
        EXPECT_EQ(ViewMgr::getModel(view), root->getChild(0));
        EXPECT_EQ(ViewMgr::getOther(view), root->getChild(1));
        EXPECT_EQ(ViewMgr::getTransModel(view), root->getChild(2));
        EXPECT_EQ(view->getSceneData(), root);
        root->getStateSet()->getUniform("pixel")->get(pixel);
        programPointSize =
            root->getStateSet()->getMode(GL_PROGRAM_POINT_SIZE) == osg::StateAttribute::ON;
    }));
    EXPECT_EQ(names, (std::vector<std::string>{"root", "model", "other", "transparent model"}));
    EXPECT_FLOAT_EQ(pixel, 1920.0f);
    EXPECT_TRUE(programPointSize);
}

TEST(ViewMgrTest, ForeignAndNullViewsHaveNoGroups)
{
    osg::ref_ptr<osgViewer::View> foreign = new osgViewer::View;
    EXPECT_FALSE(ViewMgr::isCreateBy(nullptr));
    EXPECT_FALSE(ViewMgr::isCreateBy(foreign.get()));
    EXPECT_EQ(ViewMgr::getModel(nullptr), nullptr);
    EXPECT_EQ(ViewMgr::getModel(foreign.get()), nullptr);
    EXPECT_EQ(ViewMgr::getRoot(foreign.get()), nullptr);
    EXPECT_EQ(ViewMgr::getOther(foreign.get()), nullptr);
    EXPECT_EQ(ViewMgr::getTransModel(foreign.get()), nullptr);
}

TEST(ViewMgrTest, ViewportUniformFollowsTheCameraInDevicePixels)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    w.item()->setSize(QSizeF(120, 90));
    osg::Vec4f value;
    ASSERT_TRUE(waitUntil([&] {
        onRenderThread(w, [&](RenderInfo& info) {
            info.masterCamera()->getStateSet()->getUniform("viewport")->get(value);
        });
        return value == osg::Vec4f(0, 0, 120, 90);
    })) << value.z()
        << "x" << value.w();
}

TEST(ViewMgrTest, CanvasViewsAreMadeByViewMgrAndKnowTheirCanvas)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    EXPECT_EQ(OrvaneSingleton::instance()->getCanvas(), w.item()->getCanvasBase());
    ASSERT_TRUE(onRenderThread(w, [&](RenderInfo& info) {
        EXPECT_TRUE(ViewMgr::isCreateBy(info.mainView()));
        ViewInfo* viewInfo = ViewMgr::getViewInfo(info.mainView());
        EXPECT_EQ(viewInfo, info.viewInfo());
        EXPECT_EQ(viewInfo->canvas.get(), w.item()->getCanvasBase());
        EXPECT_EQ(viewInfo->compViewer, info.compViewer());
        EXPECT_EQ(info.masterCamera(), info.mainView()->getCamera());
        EXPECT_NE(info.FBO, nullptr);
        EXPECT_NE(info.readMultiSampleFBO, nullptr);
        EXPECT_EQ(info.mainView()->getCamera()->getClearMask(),
                  static_cast<GLbitfield>(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT |
                                          GL_STENCIL_BUFFER_BIT));
    }));
}

TEST(HideViewTest, HiddenViewRunsTheRenderToTexturePassAfterTheMainView)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    ASSERT_TRUE(onRenderThread(w, [&](RenderInfo& info) {
        osgViewer::CompositeViewer* viewer = info.compViewer();
        ASSERT_EQ(viewer->getNumViews(), 2u);
        EXPECT_EQ(viewer->getView(0), info.mainView());
        osgViewer::View* hidden = viewer->getView(1);
        EXPECT_EQ(hidden->getName(), "MacMainHideView");
        EXPECT_EQ(hidden->getUserData(), info.mainView());
        EXPECT_EQ(hidden->getCameraManipulator(), nullptr);
        EXPECT_FALSE(ViewMgr::isCreateBy(hidden));
        auto* group = hidden->getSceneData()->asGroup();
        ASSERT_NE(group, nullptr);
        auto* rtt = dynamic_cast<osg::Camera*>(group->getChild(0));
        ASSERT_NE(rtt, nullptr);
        EXPECT_EQ(rtt->getName(), "MacHideRTTCamera");
        EXPECT_EQ(rtt->getRenderOrder(), osg::Camera::POST_RENDER);
        EXPECT_EQ(rtt->getRenderTargetImplementation(), osg::Camera::FRAME_BUFFER_OBJECT);
        EXPECT_NE(dynamic_cast<FBOPostDrawCallback*>(rtt->getPostDrawCallback()), nullptr);
        EXPECT_EQ(hidden->getCamera()->getViewport(), rtt->getViewport());
        EXPECT_EQ(hidden->getCamera()->getGraphicsContext(),
                  info.masterCamera()->getGraphicsContext());
    }));
}

TEST(FollowViewSizeCameraTest, FollowsTheViewThatCullsIt)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    osg::ref_ptr<FollowViewSizeCamera> follower = new FollowViewSizeCamera;
    follower->setRenderOrder(osg::Camera::NESTED_RENDER);
    follower->setViewport(0, 0, 10, 10);
    // An empty camera has no bound; keep the cull visitor from skipping it.
    follower->setCullingActive(false);
    ASSERT_TRUE(onRenderThread(w, [&](RenderInfo& info) {
        ViewMgr::getOther(info.mainView())->addChild(follower.get());
    }));
    // The render thread sizes the camera and sets its mask while culling: read them there.
    unsigned int mask = 0;
    const auto sizeIs = [&](double width, double height) {
        w.item()->frame();
        bool same = false;
        EXPECT_TRUE(onRenderThread(w, [&](RenderInfo&) {
            same = follower->getViewport()->width() == width &&
                   follower->getViewport()->height() == height;
            mask = follower->getNodeMask();
        }));
        return same;
    };
    EXPECT_TRUE(
        waitUntil([&] { return sizeIs(CanvasWindow::kCanvasWidth, CanvasWindow::kHeight); }));
    EXPECT_EQ(mask, ~0u);

    w.item()->setSize(QSizeF(100, 80));
    EXPECT_TRUE(waitUntil([&] { return sizeIs(100, 80); }));
}

TEST(FacadeTest, OwnsTheShaderCatalogueFilledAtStart)
{
    EXPECT_FALSE(OrvaneSingleton::instance()->getShaderMgr()->fileTable().empty());
}

TEST(PostDrawCaptureTest, SavesACentredRectangleOfTheFrame)
{
    CanvasWindow w;
    const QColor clear(30, 120, 210);
    w.item()->setClearColor(clear);
    ASSERT_TRUE(w.show());
    QTemporaryDir dir;
    const QString path = dir.filePath("capture.png");
    auto finished = QSharedPointer<PostDrawCallBackObject>::create();
    QSignalSpy done(finished.data(), &PostDrawCallBackObject::captureFinished);
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        auto* callback = findPostDrawCallback<PostDrawCallBack>(info.masterCamera());
        ASSERT_TRUE(callback);
        callback->setConnectObject(PostDrawCallBack::CONNECT_OBJECT_NAME_CAPTURE, finished);
        callback->setOperationType(PostDrawCallBack::CaptureScreen,
                                   QVariantMap{{"path", path}, {"width", 40}, {"height", 30}});
    }));
    w.item()->frame();
    ASSERT_TRUE(waitUntil([&] { return done.count() == 1; }));
    EXPECT_TRUE(done.first().first().toBool());
    const QImage image(path);
    EXPECT_EQ(image.size(), QSize(40, 30));
    EXPECT_TRUE(OrvaneTest::near(image.pixelColor(20, 15), clear, 2));
}
