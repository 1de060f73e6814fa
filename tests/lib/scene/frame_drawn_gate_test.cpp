// The gate behind waiting calls of the façade: who opens it and when, and that a waiter on the
// application's thread keeps its events going.
#include "frame_drawn_gate.h"

#include <QCoreApplication>
#include <QTimer>
#include <atomic>
#include <gtest/gtest.h>
#include <osg/RenderInfo>
#include <thread>

using namespace Vorna::Orvane;

namespace {

void drawFinal(osg::Camera* camera)
{
    osg::RenderInfo info;
    if (osg::Camera::DrawCallback* chain = camera->getFinalDrawCallback())
        chain->run(info);
}

int chainLength(osg::Camera* camera)
{
    int n = 0;
    for (osg::Callback* cb = camera->getFinalDrawCallback(); cb; cb = cb->getNestedCallback())
        ++n;
    return n;
}

TEST(FrameDrawnGateTest, OpensAfterTheCamerasNextDrawAndNotBefore)
{
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    auto first = std::make_shared<FrameDrawnGate>();
    auto second = std::make_shared<FrameDrawnGate>();
    {
        FrameDrawnTicket ticket(first);
        ticket.openAfterDraw(camera.get());
    }
    // Handed over: the operation going away doesn't open it.
    EXPECT_FALSE(first->isOpen());
    FrameDrawnGate::openAfterDraw(second, camera.get());
    EXPECT_EQ(chainLength(camera.get()), 1);
    drawFinal(camera.get());
    EXPECT_TRUE(first->isOpen());
    EXPECT_TRUE(second->isOpen());

    // A later frame with nothing to open leaves the callback in place and harmless.
    drawFinal(camera.get());
    EXPECT_EQ(chainLength(camera.get()), 1);
}

TEST(FrameDrawnGateTest, ADroppedOperationOrAGoneCameraOpensIt)
{
    auto dropped = std::make_shared<FrameDrawnGate>();
    {
        FrameDrawnTicket ticket(dropped);
    }
    EXPECT_TRUE(dropped->isOpen());

    auto orphaned = std::make_shared<FrameDrawnGate>();
    {
        osg::ref_ptr<osg::Camera> camera = new osg::Camera;
        FrameDrawnGate::openAfterDraw(orphaned, camera.get());
        EXPECT_FALSE(orphaned->isOpen());
    }
    EXPECT_TRUE(orphaned->isOpen());

    auto noCamera = std::make_shared<FrameDrawnGate>();
    FrameDrawnGate::openAfterDraw(noCamera, nullptr);
    EXPECT_TRUE(noCamera->wait(0));
}

TEST(FrameDrawnGateTest, AWaiterOnTheApplicationThreadKeepsTakingEvents)
{
    auto gate = std::make_shared<FrameDrawnGate>();
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    FrameDrawnGate::openAfterDraw(gate, camera.get());
    // The draw comes from an event of this thread, as QtQuick's does: a blocked waiter would
    // never see it.
    bool eventRan = false;
    QTimer::singleShot(0, [&] {
        eventRan = true;
        drawFinal(camera.get());
    });
    EXPECT_TRUE(gate->wait(30000));
    EXPECT_TRUE(eventRan);
}

TEST(FrameDrawnGateTest, AWaiterOnAnotherThreadIsWokenByTheDraw)
{
    auto gate = std::make_shared<FrameDrawnGate>();
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    FrameDrawnGate::openAfterDraw(gate, camera.get());
    std::atomic<bool> opened{false};
    std::thread waiter([&] { opened = gate->wait(30000); });
    drawFinal(camera.get());
    waiter.join();
    EXPECT_TRUE(opened);
}

TEST(FrameDrawnGateTest, AFrameThatNeverComesEndsTheWaitAtItsLimit)
{
    auto gate = std::make_shared<FrameDrawnGate>();
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    FrameDrawnGate::openAfterDraw(gate, camera.get());
    EXPECT_FALSE(gate->wait(20));
    std::atomic<bool> opened{true};
    std::thread waiter([&] { opened = gate->wait(20); });
    waiter.join();
    EXPECT_FALSE(opened);
}

} // namespace
