#include "render_info.h"

#include "orvane_log.h"

#include <QOpenGLFramebufferObject>
#include <osg/RenderInfo>

namespace Vorna {
namespace Orvane {

RenderInfo::RenderInfo()
{
    qRegisterMetaType<QOpenGLFramebufferObject*>("QOpenGLFramebufferObject*");
}
RenderInfo::~RenderInfo() = default;

osgViewer::CompositeViewer* RenderInfo::compViewer(osgViewer::CompositeViewer* viewer)
{
    if (m_compViewer.get() != viewer)
        m_compViewer = viewer;
    return m_compViewer.get();
}

osgViewer::View* RenderInfo::mainView(osgViewer::View* view)
{
    if (m_mainView.get() != view)
        m_mainView = view;
    return m_mainView.get();
}

osg::Camera* RenderInfo::masterCamera(osg::Camera* camera)
{
    if (m_masterCamera.get() != camera)
        m_masterCamera = camera;
    return m_masterCamera.get();
}

osg::Referenced* RenderInfo::viewInfo(osg::Referenced* info)
{
    if (m_viewInfo.get() != info)
        m_viewInfo = info;
    return m_viewInfo.get();
}

void RenderInfo::setFBO(QOpenGLFramebufferObject* fbo)
{
    FBO = fbo;
    emit fboChanged(fbo);
}

RenderInfo* renderInfoOf(osg::RenderInfo& renderInfo, bool logMissing)
{
    auto* view = dynamic_cast<osgViewer::View*>(renderInfo.getView());
    if (!view) {
        if (logMissing)
            qCWarning(orvane) << "view is nullptr";
        return nullptr;
    }
    osgViewer::ViewerBase* viewerBase = view->getViewerBase();
    if (!viewerBase) {
        if (logMissing)
            qCWarning(orvane) << "viewerBase is nullptr";
        return nullptr;
    }
    auto* info = dynamic_cast<RenderInfo*>(viewerBase->getUserData());
    if (!info && logMissing)
        qCWarning(orvane) << "not found RenderInfo from viewerBase";
    return info;
}

} // namespace Orvane
} // namespace Vorna
