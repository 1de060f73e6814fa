// Operations run against a bare viewer: no GL context is needed to run update-time work.
#include "canvas3d_item.h"
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "render_info.h"

#include <cmath>
#include <gtest/gtest.h>
#include <osgViewer/CompositeViewer>
#include <thread>

using namespace Vorna::Orvane;

namespace {

struct BareViewer {
    osg::ref_ptr<osgViewer::CompositeViewer> viewer = new osgViewer::CompositeViewer;
    osg::ref_ptr<osgViewer::View> view =
        ViewMgr::createView(nullptr, new osg::Viewport(0, 0, 64, 48));
    osg::ref_ptr<RenderInfo> info = new RenderInfo;

    BareViewer()
    {
        viewer->addView(view.get());
        info->compViewer(viewer.get());
        info->mainView(view.get());
        info->masterCamera(view->getCamera());
        viewer->setUserData(info.get());
    }
    void run(osg::Operation* op) { (*op)(viewer.get()); }
};

class RecordingOperation : public OperationBase
{
public:
    RecordingOperation(std::vector<int>& log, int id) : m_log(log), m_id(id) {}
    RenderInfo* seen() const { return m_renderInfo.get(); }

protected:
    void doOperation() override { m_log.push_back(m_id); }

private:
    std::vector<int>& m_log;
    int m_id;
};

} // namespace

TEST(OperationTest, BindsToTheRenderInfoOfTheViewerThatRunsIt)
{
    BareViewer a, b;
    std::vector<int> log;
    osg::ref_ptr<RecordingOperation> op = new RecordingOperation(log, 1);
    a.run(op.get());
    EXPECT_EQ(op->seen(), a.info.get());
    // The same object may be run again by another canvas and rebinds.
    b.run(op.get());
    EXPECT_EQ(op->seen(), b.info.get());
    EXPECT_EQ(log, (std::vector<int>{1, 1}));
}

TEST(OperationTest, MultiOperationRunsInOrderAndSkipsNullElements)
{
    BareViewer v;
    std::vector<int> log;
    osg::ref_ptr<MultiOperation> multi = new MultiOperation(
        {new RecordingOperation(log, 1), nullptr, new RecordingOperation(log, 3)});
    EXPECT_EQ(multi->getName(), "multi operation");
    EXPECT_FALSE(multi->getKeep());
    v.run(multi.get());
    EXPECT_EQ(log, (std::vector<int>{1, 3}));
}

TEST(OperationTest, LambdaReceivesTheRenderContext)
{
    BareViewer v;
    osgViewer::View* seen = nullptr;
    osg::ref_ptr<LambdaOperation> op =
        new LambdaOperation([&](RenderInfo& info) { seen = info.mainView(); });
    EXPECT_EQ(op->getName(), "lambda");
    v.run(op.get());
    EXPECT_EQ(seen, v.view.get());
}

TEST(OperationTest, ClearColorSetsTheMasterCamera)
{
    BareViewer v;
    osg::ref_ptr<ClearColorOperation> op = new ClearColorOperation(osg::Vec4f(0.1f, 0.2f, 0.3f, 1));
    EXPECT_EQ(op->getName(), "clear color");
    v.run(op.get());
    EXPECT_EQ(v.view->getCamera()->getClearColor(), osg::Vec4(0.1f, 0.2f, 0.3f, 1));
}

TEST(OperationTest, AddEventHandlerWithoutViewUsesTheMainViewAndKeepsIt)
{
    BareViewer v;
    osg::ref_ptr<osgGA::GUIEventHandler> handler = new osgGA::GUIEventHandler;
    osg::ref_ptr<AddEventHandler> add = new AddEventHandler(handler.get());
    v.run(add.get());
    EXPECT_EQ(add->view(), v.view.get());
    const auto& handlers = v.view->getEventHandlers();
    EXPECT_NE(std::find(handlers.begin(), handlers.end(), handler), handlers.end());

    osg::ref_ptr<RemoveEventHandler> remove = new RemoveEventHandler(handler.get());
    v.run(remove.get());
    EXPECT_EQ(std::find(handlers.begin(), handlers.end(), handler), handlers.end());
}

TEST(OperationTest, OperationsHaveTheirNamesAndRunOnce)
{
    EXPECT_EQ(osg::ref_ptr<HomeOperation>(new HomeOperation)->getName(), "home");
    EXPECT_EQ(
        osg::ref_ptr<GeometryChangeOperation>(new GeometryChangeOperation(0, 0, 1, 1))->getName(),
        "geometry change operation");
    EXPECT_FALSE(osg::ref_ptr<HomeOperation>(new HomeOperation)->getKeep());

    osg::ref_ptr<osg::OperationQueue> queue = new osg::OperationQueue;
    BareViewer v;
    std::vector<int> log;
    queue->add(new RecordingOperation(log, 1));
    queue->add(new RecordingOperation(log, 2));
    queue->runOperations(v.viewer.get());
    queue->runOperations(v.viewer.get());
    EXPECT_EQ(log, (std::vector<int>{1, 2}));
}

TEST(OperationTest, GeometryChangeWithoutContextsIsIgnored)
{
    BareViewer v;
    osg::ref_ptr<GeometryChangeOperation> op = new GeometryChangeOperation(0, 0, 100, 50);
    v.run(op.get());
    osg::ref_ptr<osgViewer::CompositeViewer> empty = new osgViewer::CompositeViewer;
    (*op)(empty.get());
    (*op)(nullptr);
    EXPECT_EQ(v.view->getCamera()->getViewport()->width(), 64);
}

// The item's queue exists before any window or renderer.
TEST(ItemQueueTest, HomeRequestsCoalesce)
{
    Canvas3DItem item;
    const size_t before = item.operationQueue()->getNumOperationsInQueue();
    item.home();
    item.home();
    item.home();
    EXPECT_EQ(item.operationQueue()->getNumOperationsInQueue(), before + 1);
}

TEST(ItemQueueTest, NullOperationIsIgnoredAndAsksForNoFrame)
{
    Canvas3DItem item;
    const size_t before = item.operationQueue()->getNumOperationsInQueue();
    item.addOperation(nullptr);
    item.addOperations({});
    EXPECT_EQ(item.operationQueue()->getNumOperationsInQueue(), before);
    EXPECT_EQ(item.remainingFrameBudget(), 0);
}

TEST(ItemQueueTest, FrameBudgetFollowsTheFrameRate)
{
    Canvas3DItem item;
    item.setMaxFrame(60);
    item.frame();
    // No renderer yet: FrameSwappedTrigger with one swap per update at the screen rate.
    const int expected = static_cast<int>(std::ceil(1000.0 / item.maxFrame()));
    EXPECT_EQ(item.remainingFrameBudget(), expected);

    item.framing(0.0f);
    EXPECT_EQ(item.remainingFrameBudget(), expected);
    item.framing(10.0f);
    item.framing(1.0f);
    EXPECT_EQ(item.remainingFrameBudget(), 1000);
}

TEST(ItemQueueTest, FrameFromAnotherThreadIsPostedToTheItem)
{
    Canvas3DItem item;
    std::thread worker([&] { item.frame(); });
    worker.join();
    EXPECT_EQ(item.remainingFrameBudget(), 0);
    EXPECT_TRUE(OrvaneTest::waitUntil([&] { return item.remainingFrameBudget() > 0; }, 1000));
}
