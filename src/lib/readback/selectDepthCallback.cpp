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
    if (!readCanvasDepth(*info, m_depth.get(), *vp))
        qCWarning(orvane) << "readSelectDepth failed";
}

} // namespace Orvane
} // namespace Vorna
