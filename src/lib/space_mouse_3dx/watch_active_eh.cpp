#include "watch_active_eh.h"

#include "orvane_log.h"
#include "orvane_metatypes.h"
#include "read_multisample_fbo.h"
#include "render_info.h"

#include <algorithm>

namespace Vorna {
namespace Orvane {

bool WatchActiveEH::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter&)
{
    // Pointer, scroll and pen events; keys don't change the active view.
    constexpr int kPointerEvents = 0x1e1f;
    if ((ea.getEventType() & kPointerEvents) && m_connectObject)
        QMetaObject::invokeMethod(m_connectObject, "setActiveSceneView", Qt::QueuedConnection,
                                  Q_ARG(osgViewer::View*, m_view));
    return false;
}

void ScreenCenterPostDrawCallback::operator()(osg::RenderInfo& renderInfo) const
{
    RenderInfo* info = renderInfoOf(renderInfo, true);
    if (!info)
        return;
    if (!m_pCamera) {
        qCWarning(orvane) << "m_pCamera is nullptr";
        return;
    }
    if (!m_needReadPixels || !m_pCamera->getViewport() || !info->readMultiSampleFBO)
        return;
    const osg::Viewport* vp = m_pCamera->getViewport();
    const int cx = static_cast<int>(vp->width() / 2), cy = static_cast<int>(vp->height() / 2);
    const int side = static_cast<int>(0.25 * std::max(vp->width(), vp->height()));
    if (!readCanvasDepth(*info, m_depth.get(), cx - side / 2, cy - side / 2, side, side))
        qCWarning(orvane) << "screen center region readDepth failed";
}

} // namespace Orvane
} // namespace Vorna
