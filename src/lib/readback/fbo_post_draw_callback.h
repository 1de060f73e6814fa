#pragma once

#include <osg/Camera>

namespace Vorna {
namespace Orvane {

// A render-to-texture pass leaves its own framebuffer bound; this puts back the canvas's.
class FBOPostDrawCallback : public osg::Camera::DrawCallback
{
public:
    void operator()(osg::RenderInfo& renderInfo) const override;
};

// Keeps itself the size of the camera that culls it; hidden while that camera has a zero side.
class FollowViewSizeCamera : public osg::Camera
{
public:
    void accept(osg::NodeVisitor& nv) override;
};

} // namespace Orvane
} // namespace Vorna
