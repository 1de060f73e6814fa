#include "save_image_draw_callback.h"

#include "gl_functions.h"
#include "orvane_log.h"
#include "read_texture2d_image.h"

#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions_4_1_Core>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/Texture>

namespace Vorna {
namespace Orvane {

SaveImageDrawCallback::SaveImageDrawCallback(const QString& path)
    : SaveImageDrawCallback(nullptr, path)
{
}

SaveImageDrawCallback::SaveImageDrawCallback(QOpenGLFramebufferObject* fbo, const QString& path)
    : m_path(path), m_fbo(fbo)
{
    qRegisterMetaType<osg::Camera*>("osg::Camera*");
}

SaveImageDrawCallback::OutScope::~OutScope()
{
    if (m_owner->m_fbo)
        m_owner->m_fbo->bind();
    emit const_cast<SaveImageDrawCallback*>(m_owner)->captureFinished(m_camera, m_finished);
}

void SaveImageDrawCallback::operator()(osg::RenderInfo& renderInfo) const
{
    if (!m_runOnce)
        return;
    m_runOnce = false;
    qCDebug(orvane) << "start a screen capture";
    osg::Camera* camera = renderInfo.getCurrentCamera();
    OutScope scope(camera, this);
    QOpenGLFunctions_4_1_Core* gl = currentGlFunctions();
    if (!gl) {
        qCCritical(orvane) << "current opengl version is small than 4.5";
        return;
    }
    osg::ref_ptr<ReadTexture2DImage> image = readColorAttachment(gl, renderInfo, camera);
    if (!image)
        return;
    if (!image->data()) {
        qCCritical(orvane) << "read color buffer faild, image data is nullptr";
        return;
    }
    // Texture rows run bottom-up.
    const QImage qImage = QImage(image->data(), image->s(), image->t(), QImage::Format_RGBA8888)
                              .mirrored(false, true);
    if (qImage.isNull()) {
        qCCritical(orvane) << "qImage is null";
        return;
    }
    if (!m_path.isEmpty()) {
        if (qImage.save(m_path))
            scope.setFinished(true);
        else
            qCCritical(orvane) << "save QImage failed";
    } else if (m_callback) {
        m_callback(qImage.copy());
        scope.setFinished(true);
    } else {
        qCCritical(orvane) << "please register callback function";
    }
}

} // namespace Orvane
} // namespace Vorna
