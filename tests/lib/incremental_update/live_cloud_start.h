#pragma once

// Puts a live cloud on the canvas the way an application starts a scan: drawable initialised,
// scan kind set, incremental updates on, GPU buffers begun, in the model group.
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "incre_point_geomtry_apple.h"
#include "render_info.h"

#include <gtest/gtest.h>
#include <osg/Geode>

namespace OrvaneTest {

inline void startLiveCloud(CanvasWindow& window, Vorna::Orvane::IncrePointGeometryApple* cloud,
                           bool rigid)
{
    ASSERT_TRUE(window.run(nullptr, [&](Vorna::Orvane::RenderInfo& info) {
        EXPECT_TRUE(cloud->startScan(Vorna::Orvane::ViewMgr::getModel(info.mainView()), rigid));
    }));
}

} // namespace OrvaneTest
