#include "selectDepthCallback.h"

#include "orvane_log.h"
#include "read_multisample_fbo.h"
#include "render_info.h"

namespace Vorna {
namespace Orvane {

void SelectDepthCallback::operator()(osg::RenderInfo& renderInfo) const
{
    if (!m_enabled)
        return;
    RenderInfo* info = renderInfoOf(renderInfo, true);
    const osg::Camera* camera = renderInfo.getCurrentCamera();
    if (!info || !camera || !camera->getViewport())
        return;
    const osg::Viewport* vp = camera->getViewport();
    if (!info->readMultiSampleFBO ||
        !info->readMultiSampleFBO->readDepth(
            m_depth.get(), static_cast<int>(vp->x()), static_cast<int>(vp->y()),
            static_cast<int>(vp->width()), static_cast<int>(vp->height())))
        qCWarning(orvane) << "readSelectDepth failed";
}

} // namespace Orvane
} // namespace Vorna
