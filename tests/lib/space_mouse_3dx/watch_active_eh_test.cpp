// The handler that tells the space-mouse side which view the pointer works in.
#include "orvane_metatypes.h"
#include "watch_active_eh.h"

#include <QObject>
#include <gtest/gtest.h>
#include <osgViewer/View>
#include <vector>

#include "gl_test_support.h"

using namespace Vorna::Orvane;
using GA = osgGA::GUIEventAdapter;

namespace {

// Stands in for the space-mouse manager: records each view it is told about.
class ActiveViewSink : public QObject
{
    Q_OBJECT
public:
    std::vector<osgViewer::View*> views;

public slots:
    void setActiveSceneView(osgViewer::View* view) { views.push_back(view); }
};

osg::ref_ptr<GA> eventOf(GA::EventType type)
{
    osg::ref_ptr<GA> event = new GA;
    event->setEventType(type);
    return event;
}

} // namespace

TEST(WatchActiveEHTest, PointerEventsNameTheViewQueuedAndKeysDoNot)
{
    registerMetaTypes();
    osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    ActiveViewSink sink;
    osg::ref_ptr<WatchActiveEH> handler = new WatchActiveEH;
    handler->addView(view.get());
    handler->addConnectObj(&sink);

    for (GA::EventType type :
         {GA::PUSH, GA::RELEASE, GA::DOUBLECLICK, GA::DRAG, GA::MOVE, GA::SCROLL, GA::PEN_PRESSURE})
        EXPECT_FALSE(handler->handle(*eventOf(type), *view)) << "never consumes: " << type;
    // Queued: nothing arrives until the receiver's thread runs its events.
    EXPECT_TRUE(sink.views.empty());
    ASSERT_TRUE(OrvaneTest::waitUntil([&] { return sink.views.size() == 7; }));
    for (osgViewer::View* v : sink.views)
        EXPECT_EQ(v, view.get());

    for (GA::EventType type : {GA::KEYDOWN, GA::KEYUP, GA::FRAME, GA::RESIZE})
        EXPECT_FALSE(handler->handle(*eventOf(type), *view));
    OrvaneTest::waitUntil([] { return false; }, 100);
    EXPECT_EQ(sink.views.size(), 7u) << "keys and frames don't change the active view";
}

TEST(WatchActiveEHTest, WithoutAReceiverNothingIsSent)
{
    osg::ref_ptr<osgViewer::View> view = new osgViewer::View;
    osg::ref_ptr<WatchActiveEH> handler = new WatchActiveEH;
    handler->addView(view.get());
    EXPECT_FALSE(handler->handle(*eventOf(GA::PUSH), *view));
}

#include "watch_active_eh_test.moc"
