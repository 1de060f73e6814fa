#include "offscreen_capture.h"

#include "gl_functions.h"
#include "orvane_log.h"
#include "orvane_operations.h"
#include "read_texture2d_image.h"
#include "render_info.h"

#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions_4_1_Core>
#include <algorithm>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/Texture2D>

namespace Vorna {
namespace Orvane {

namespace {
osg::Texture2D* captureTexture(int width, int height, GLint internalFormat, GLenum sourceFormat)
{
    auto* texture = new osg::Texture2D;
    texture->setTextureSize(width, height);
    texture->setInternalFormat(internalFormat);
    texture->setSourceFormat(sourceFormat);
    texture->setSourceType(GL_FLOAT);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    return texture;
}

// The render size that has the view's shape and covers the output.
void coverOutput(double viewAspect, int outWidth, int outHeight, double& width, double& height)
{
    const double outAspect = static_cast<double>(outWidth) / outHeight;
    if (outAspect > viewAspect) {
        width = outWidth;
        height = outWidth / viewAspect;
    } else {
        width = outHeight * viewAspect;
        height = outHeight;
    }
}

OffscreenCaptureCallback* findCaptureCallback(osg::Camera* camera)
{
    for (osg::Callback* cb = camera->getPostDrawCallback(); cb; cb = cb->getNestedCallback())
        if (auto* found = dynamic_cast<OffscreenCaptureCallback*>(cb))
            return found;
    return nullptr;
}
} // namespace

osg::Camera* OffscreenCapture::createRTTCamera(const osg::Viewport& viewport,
                                               const osg::Matrixd& view,
                                               const osg::Matrixd& projection)
{
    auto* camera = new osg::Camera;
    camera->setClearColor(osg::Vec4(0.0f, 0.0f, 0.0f, 0.0f));
    camera->setClearDepth(1.0);
    camera->setClearMask(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setRenderOrder(osg::Camera::POST_RENDER, 1);
    camera->setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    camera->setViewport(new osg::Viewport(viewport));
    camera->setAllowEventFocus(false);
    const int width = static_cast<int>(viewport.width());
    const int height = static_cast<int>(viewport.height());
    camera->attach(osg::Camera::COLOR_BUFFER,
                   captureTexture(width, height, GL_RGBA32F_ARB, GL_RGBA));
    camera->attach(osg::Camera::DEPTH_BUFFER,
                   captureTexture(width, height, GL_DEPTH_COMPONENT32F, GL_DEPTH_COMPONENT));
    camera->setViewMatrix(view);
    camera->setProjectionMatrix(projection);
    return camera;
}

OffscreenCapture::CaptureParams OffscreenCapture::computeCaptureParams(osgViewer::View* view, int x,
                                                                       int y, int width, int height,
                                                                       int outWidth, int outHeight)
{
    CaptureParams params;
    osg::Camera* camera = view ? view->getCamera() : nullptr;
    const osg::Viewport* vp = camera ? camera->getViewport() : nullptr;
    if (!vp || vp->width() <= 0 || vp->height() <= 0 || width <= 0 || height <= 0 ||
        outWidth <= 0 || outHeight <= 0) {
        qCWarning(orvane) << "invalid capture parameters";
        return params;
    }
    double newWidth = 0.0, newHeight = 0.0;
    coverOutput(vp->width() / vp->height(), outWidth, outHeight, newWidth, newHeight);
    params.viewport = new osg::Viewport(0.0, 0.0, newWidth, newHeight);

    const double factor = newWidth / vp->width();
    const double rx = x * factor, ry = y * factor, rw = width * factor, rh = height * factor;
    double zoom = 1.0;
    if (rw / rh > newWidth / newHeight)
        zoom = newWidth / rw;
    else
        zoom = newHeight / rh;

    // Window coordinates grow upwards.
    const osg::Vec3d centre(rx + 0.5 * rw, newHeight - ry - rh + 0.5 * rh, 0.0);
    const osg::Vec3d ndc = centre * osg::Matrixd::inverse(params.viewport->computeWindowMatrix());
    params.viewMatrix = camera->getViewMatrix();
    params.projectionMatrix = camera->getProjectionMatrix() *
                              osg::Matrixd::translate(-ndc.x(), -ndc.y(), 0.0) *
                              osg::Matrixd::scale(zoom, zoom, 1.0);
    params.captureWidth = rw * zoom;
    params.captureHeight = rh * zoom;
    params.outWidth = outWidth;
    params.outHeight = outHeight;
    return params;
}

OffscreenCapture::CaptureParams
OffscreenCapture::computeCaptureParams(osgViewer::View* view, const osg::Vec3f& eye,
                                       const osg::Vec3f& center, const osg::Vec3f& up, int width,
                                       int height, int outWidth, int outHeight)
{
    CaptureParams params;
    if (width <= 0 || height <= 0 || outWidth <= 0 || outHeight <= 0) {
        qCWarning(orvane) << "invalid capture parameters";
        return params;
    }
    double newWidth = 0.0, newHeight = 0.0;
    coverOutput(static_cast<double>(width) / height, outWidth, outHeight, newWidth, newHeight);
    params.viewport = new osg::Viewport(0.0, 0.0, newWidth, newHeight);
    params.viewMatrix = osg::Matrixd::lookAt(eye, center, up);
    const double a = 0.5 * width, b = 0.5 * height;
    params.projectionMatrix = osg::Matrixd::ortho(-a, a, -b, b, 0.0, 10000.0);
    params.captureWidth = newWidth;
    params.captureHeight = newHeight;
    params.outWidth = outWidth;
    params.outHeight = outHeight;
    return params;
}

osg::Operation* OffscreenCapture::updateAndRunRTTCamera(osg::ref_ptr<osg::Camera>& camera,
                                                        const CaptureParams& params)
{
    osg::ref_ptr<osg::Camera> target = camera;
    return new LambdaOperation([target, params](RenderInfo&) {
        if (!target)
            return;
        target->setViewMatrix(params.viewMatrix);
        target->setProjectionMatrix(params.projectionMatrix);
        const osg::Viewport* current = target->getViewport();
        if (params.viewport && (!current || params.viewport->compare(*current) != 0)) {
            const osg::Viewport& vp = *params.viewport;
            qCDebug(orvane) << "rttCamera's viewport changed:" << vp.x() << vp.y() << vp.width()
                            << vp.height();
            target->setViewport(new osg::Viewport(vp));
            target->resizeAttachments(static_cast<int>(vp.width()), static_cast<int>(vp.height()));
        }
        if (OffscreenCaptureCallback* callback = findCaptureCallback(target.get()))
            callback->setRunOnce(params.captureWidth, params.captureHeight, params.outWidth,
                                 params.outHeight);
        else
            qCWarning(orvane) << "can't find OffscreenCaptureCallback in rttCamera's "
                                 "PostDrawCallbacks";
    });
}

OffscreenCaptureCallback::OffscreenCaptureCallback()
{
    qRegisterMetaType<osg::Camera*>("osg::Camera*");
}

void OffscreenCaptureCallback::setRunOnce(double captureWidth, double captureHeight,
                                          double outWidth, double outHeight)
{
    QMutexLocker lock(&m_mutex);
    m_captureWidth = captureWidth;
    m_captureHeight = captureHeight;
    m_outWidth = outWidth;
    m_outHeight = outHeight;
    m_runOnce = true;
}

void OffscreenCaptureCallback::setOutputPath(const QString& path)
{
    QMutexLocker lock(&m_mutex);
    m_path = path;
}

QImage OffscreenCaptureCallback::getCaptureImage() const
{
    QMutexLocker lock(&m_mutex);
    return m_image ? m_image->copy() : QImage();
}

void OffscreenCaptureCallback::operator()(osg::RenderInfo& renderInfo) const
{
    osg::Camera* camera = renderInfo.getCurrentCamera();
    bool finished = false;
    const bool result = capture(renderInfo, camera, finished);
    if (finished)
        emit const_cast<OffscreenCaptureCallback*>(this)->captureFinished(camera, result);
}

bool OffscreenCaptureCallback::capture(osg::RenderInfo& renderInfo, osg::Camera* camera,
                                       bool& finished) const
{
    QMutexLocker lock(&m_mutex);
    if (!m_runOnce)
        return false;
    m_runOnce = false;
    finished = true;

    QOpenGLFunctions_4_1_Core* gl = currentGlFunctions();
    if (!gl) {
        qCCritical(orvane) << "current opengl version is small than 4.5";
        return false;
    }
    osg::ref_ptr<ReadTexture2DImage> image = readColorAttachment(gl, renderInfo, camera);
    const bool ok = image && saveImge(*image);
    // The render-to-texture pass left its own framebuffer bound.
    if (RenderInfo* info = renderInfoOf(renderInfo))
        if (info->FBO)
            info->FBO->bind();
    const GLenum error = gl->glGetError();
    if (error != GL_NO_ERROR)
        qCCritical(orvane) << "opengl error:" << error;
    return ok;
}

bool OffscreenCaptureCallback::saveImge(const osg::Image& image) const
{
    if (!image.data() || image.s() <= 0 || image.t() <= 0)
        return false;
    // Texture rows run bottom-up.
    const QImage full =
        QImage(image.data(), image.s(), image.t(), QImage::Format_RGBA8888).mirrored(false, true);

    const int captureWidth = static_cast<int>(m_captureWidth);
    const int captureHeight = static_cast<int>(m_captureHeight);
    const int outWidth = static_cast<int>(m_outWidth);
    const int outHeight = static_cast<int>(m_outHeight);
    if (captureWidth <= 0 || captureHeight <= 0 || outWidth <= 0 || outHeight <= 0)
        return false;
    const int x =
        std::clamp(static_cast<int>((full.width() - captureWidth) * 0.5), 0, full.width());
    const int y =
        std::clamp(static_cast<int>((full.height() - captureHeight) * 0.5), 0, full.height());
    const QImage crop = full.copy(x, y, captureWidth, captureHeight);

    const double cropAspect = static_cast<double>(crop.width()) / crop.height();
    const double outAspect = static_cast<double>(outWidth) / outHeight;
    const QSize fit = outAspect > cropAspect
                          ? QSize(static_cast<int>(outHeight * cropAspect), outHeight)
                          : QSize(outWidth, static_cast<int>(outWidth / cropAspect));
    const QImage scaled = crop.scaled(fit, Qt::KeepAspectRatio, Qt::SmoothTransformation);

    QImage result(outWidth, outHeight, crop.format());
    result.fill(QColor(0, 0, 0, 0));
    const int ox = static_cast<int>((outWidth - scaled.width()) * 0.5);
    const int oy = static_cast<int>((outHeight - scaled.height()) * 0.5);
    bool widthReported = false, heightReported = false;
    for (int sy = 0; sy < scaled.height(); ++sy) {
        const int py = oy + sy;
        if (py < 0 || py >= outHeight) {
            if (!heightReported)
                qCCritical(orvane) << "py out of height";
            heightReported = true;
            continue;
        }
        for (int sx = 0; sx < scaled.width(); ++sx) {
            const int px = ox + sx;
            if (px < 0 || px >= outWidth) {
                if (!widthReported)
                    qCCritical(orvane) << "px out of width";
                widthReported = true;
                continue;
            }
            result.setPixelColor(px, py, scaled.pixelColor(sx, sy));
        }
    }
    m_image.reset(new QImage(result));
    if (!m_path.isEmpty() && !result.save(m_path))
        qCCritical(orvane) << "save QImage failed";
    return true;
}

} // namespace Orvane
} // namespace Vorna
