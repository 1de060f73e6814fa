#pragma once

#include <osg/Camera>
#include <osg/Texture2D>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

class RenderInfo;

// A float RGBA texture to render into.
osg::Texture2D* createColorTexture(int width, int height);
// The 200x200 render-to-texture pass "MacHideRTTCamera", restoring the canvas FBO after it.
osg::Camera* createRTTCamera();
// The view "MacMainHideView" that runs the RTT pass after `mainView` in every frame.
osgViewer::View* createHideView(RenderInfo* info, osgViewer::View* mainView);

} // namespace Orvane
} // namespace Vorna
