#include "fbo_post_draw_callback.h"

#include "orvane_log.h"
#include "render_info.h"

#include <QOpenGLFramebufferObject>
#include <osgUtil/CullVisitor>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

void FBOPostDrawCallback::operator()(osg::RenderInfo& renderInfo) const
{
    auto* view = dynamic_cast<osgViewer::View*>(renderInfo.getView());
    if (!view || !view->getViewerBase())
        return;
    auto* info = dynamic_cast<RenderInfo*>(view->getViewerBase()->getUserData());
    if (!info) {
        qCCritical(orvane) << "view's userData isn't RenderInfo";
        return;
    }
    if (info->FBO)
        info->FBO->bind();
}

void FollowViewSizeCamera::accept(osg::NodeVisitor& nv)
{
    if (auto* cv = dynamic_cast<osgUtil::CullVisitor*>(&nv)) {
        osg::Camera* current = cv->getCurrentCamera();
        const osg::Viewport* vp = current ? current->getViewport() : nullptr;
        const osg::Viewport* own = getViewport();
        if (vp && (!own || own->width() != vp->width() || own->height() != vp->height())) {
            resize(static_cast<int>(vp->width()), static_cast<int>(vp->height()),
                   osg::Camera::RESIZE_VIEWPORT | osg::Camera::RESIZE_ATTACHMENTS);
            setNodeMask(vp->width() >= 1.0 && vp->height() >= 1.0 ? ~0u : 0u);
        }
    }
    osg::Camera::accept(nv);
}

} // namespace Orvane
} // namespace Vorna
