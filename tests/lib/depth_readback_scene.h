#pragma once

// A quad across the view centre at a known window depth, for the depth-reading callbacks.
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "offscreen_test_scene.h"
#include "render_info.h"

#include <osgViewer/View>

namespace OrvaneTest {

// Puts a 2 x 2 quad at the origin before a camera 10 units away, and returns the window depth
// of the quad's plane under that camera (depth range 0..1), or -1 on failure.
inline float showQuadAtKnownDepth(CanvasWindow& w, osg::ref_ptr<osg::Node>& quad)
{
    quad = makeQuad(-1.0f, -1.0f, 1.0f, 1.0f, osg::Vec4f(1.0f, 1.0f, 1.0f, 1.0f));
    if (!w.run(nullptr, [&](Vorna::Orvane::RenderInfo& info) {
            Vorna::Orvane::ViewMgr::getModel(info.mainView())->addChild(quad.get());
        }))
        return -1.0f;
    if (!w.lookAt(osg::Vec3d(0.0, -10.0, 0.0), osg::Vec3d(), osg::Vec3d(0.0, 0.0, 1.0)))
        return -1.0f;
    float depth = -1.0f;
    w.run(nullptr, [&](Vorna::Orvane::RenderInfo& info) {
        const osg::Camera* camera = info.mainView()->getCamera();
        const osg::Vec3d ndc =
            osg::Vec3d() * camera->getViewMatrix() * camera->getProjectionMatrix();
        depth = static_cast<float>(ndc.z() * 0.5 + 0.5);
    });
    return depth;
}

// Window depth of the image's pixel (x, y), rows from the bottom.
inline float depthAt(const osg::Image* image, int x, int y)
{
    return *reinterpret_cast<const float*>(image->data(x, y));
}

} // namespace OrvaneTest
