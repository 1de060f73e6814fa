#pragma once

#include <osg/Camera>
#include <osg/Image>

namespace Vorna {
namespace Orvane {

// Reads the depth of the whole viewport after each draw while enabled, for selections that
// must not reach through the surface. Render thread.
class SelectDepthCallback : public osg::Camera::DrawCallback
{
public:
    void setIsReadDepth(bool enabled) { m_enabled = enabled; }
    bool isReadDepth() const { return m_enabled; }
    osg::Image* getDepth() const { return m_depth.get(); }
    void operator()(osg::RenderInfo& renderInfo) const override;

private:
    bool m_enabled = false;
    osg::ref_ptr<osg::Image> m_depth = new osg::Image;
};

} // namespace Orvane
} // namespace Vorna
