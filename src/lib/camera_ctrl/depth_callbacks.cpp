#include "depth_callbacks.h"

#include "orvane_log.h"
#include "read_multisample_fbo.h"
#include "render_info.h"

namespace Vorna {
namespace Orvane {

void ReadMousePosPostDrawCallback::setMousePos(const osg::Vec2f& pos)
{
    m_mousePos = pos;
    m_needRead = true;
}

float ReadMousePosPostDrawCallback::getDepth() const
{
    if (!m_depthImage->data())
        return 1.0f;
    return *reinterpret_cast<const float*>(m_depthImage->data());
}

void ReadMousePosPostDrawCallback::setDepthAsynchronous(const osg::Vec2f& pos,
                                                        std::function<void()> done)
{
    setMousePos(pos);
    m_asyncPending = true;
    m_asyncFunc = std::move(done);
}

void ReadMousePosPostDrawCallback::operator()(osg::RenderInfo& renderInfo) const
{
    RenderInfo* info = renderInfoOf(renderInfo, true);
    if (!info || !m_needRead)
        return;
    if (!readCanvasDepth(*info, m_depthImage.get(), static_cast<int>(m_mousePos.x()),
                         static_cast<int>(m_mousePos.y()), 1, 1))
        qCWarning(orvane) << "readDepth failed";
    m_needRead = false;
    if (m_asyncPending && m_asyncFunc) {
        m_asyncPending = false;
        m_asyncFunc();
    }
}

void ScreenPostDrawCallback::operator()(osg::RenderInfo& renderInfo) const
{
    RenderInfo* info = renderInfoOf(renderInfo, true);
    if (!info)
        return;
    if (!m_pCamera) {
        qCWarning(orvane) << "m_pCamera is nullptr";
        return;
    }
    const osg::Viewport* vp = m_pCamera->getViewport();
    if (!m_needReadPixels || !vp)
        return;
    if (!readCanvasDepth(*info, m_screenDepthImage.get(), *vp))
        qCWarning(orvane) << "screen region readDepth failed";
    m_needReadPixels = false;
}

} // namespace Orvane
} // namespace Vorna
