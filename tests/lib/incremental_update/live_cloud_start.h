#pragma once

// Puts a live cloud on the canvas the way an application starts a scan: drawable initialised,
// scan kind set, incremental updates on, GPU buffers begun, in the model group.
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "incre_point_geomtry_apple.h"
#include "orvane_operations.h"
#include "render_info.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <osg/Geode>

namespace OrvaneTest {

inline void startLiveCloud(CanvasWindow& window, Vorna::Orvane::IncrePointGeometryApple* cloud,
                           bool rigid)
{
    // The first buffers are large and zero-filled: slow under a sanitizer. The operation holds
    // what it touches, so a wait that gives up leaves nothing dangling.
    auto started = std::make_shared<std::atomic<int>>(0);
    osg::ref_ptr<Vorna::Orvane::IncrePointGeometryApple> held = cloud;
    window.item()->addOperation(
        new Vorna::Orvane::LambdaOperation([held, started, rigid](Vorna::Orvane::RenderInfo& info) {
            *started =
                held->startScan(Vorna::Orvane::ViewMgr::getModel(info.mainView()), rigid) ? 1 : -1;
        }));
    ASSERT_TRUE(waitUntil([&] { return started->load() != 0; }, 60000));
    EXPECT_EQ(started->load(), 1);
}

} // namespace OrvaneTest
