#include "read_multisample_fbo.h"

#include "orvane_log.h"
#include "render_info.h"

#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>

namespace Vorna {
namespace Orvane {

namespace {
QOpenGLExtraFunctions* currentFunctions()
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    return context ? context->extraFunctions() : nullptr;
}
} // namespace

ReadMultiSampleFBO::ReadMultiSampleFBO(int width, int height) : m_width(width), m_height(height) {}

ReadMultiSampleFBO::~ReadMultiSampleFBO()
{
    qCDebug(orvane) << "ReadMultiSampleFBO destruction";
    releaseFBO();
}

bool ReadMultiSampleFBO::isMultiSample() const
{
    QOpenGLExtraFunctions* gl = currentFunctions();
    if (!gl)
        return false;
    GLint samples = 0;
    gl->glGetIntegerv(GL_SAMPLE_BUFFERS, &samples);
    return samples > 0;
}

bool ReadMultiSampleFBO::needResize(int w, int h, int& outW, int& outH) const
{
    outW = w;
    outH = h;
    return m_initialized && (w != m_width || h != m_height);
}

void ReadMultiSampleFBO::initializeFBO()
{
    QOpenGLExtraFunctions* gl = currentFunctions();
    if (!gl || m_initialized || m_width <= 0 || m_height <= 0)
        return;
    GLint previous = 0;
    gl->glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &previous);
    gl->glGenFramebuffers(1, &m_resolveFbo);
    gl->glGenRenderbuffers(1, &m_colorBuffer);
    gl->glGenRenderbuffers(1, &m_depthBuffer);
    gl->glBindRenderbuffer(GL_RENDERBUFFER, m_colorBuffer);
    gl->glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, m_width, m_height);
    gl->glBindRenderbuffer(GL_RENDERBUFFER, m_depthBuffer);
    gl->glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH24_STENCIL8, m_width, m_height);
    gl->glBindRenderbuffer(GL_RENDERBUFFER, 0);
    gl->glBindFramebuffer(GL_DRAW_FRAMEBUFFER, m_resolveFbo);
    gl->glFramebufferRenderbuffer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER,
                                  m_colorBuffer);
    gl->glFramebufferRenderbuffer(GL_DRAW_FRAMEBUFFER, GL_DEPTH_STENCIL_ATTACHMENT, GL_RENDERBUFFER,
                                  m_depthBuffer);
    gl->glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(previous));
    m_initialized = true;
}

void ReadMultiSampleFBO::releaseFBO()
{
    if (!m_initialized)
        return;
    // Freed only with the context that made them current; otherwise the context's end frees them.
    if (QOpenGLExtraFunctions* gl = currentFunctions()) {
        gl->glDeleteFramebuffers(1, &m_resolveFbo);
        gl->glDeleteRenderbuffers(1, &m_colorBuffer);
        gl->glDeleteRenderbuffers(1, &m_depthBuffer);
    }
    m_resolveFbo = m_colorBuffer = m_depthBuffer = 0;
    m_initialized = false;
}

void ReadMultiSampleFBO::resizeFBO(int w, int h)
{
    releaseFBO();
    m_width = w;
    m_height = h;
    initializeFBO();
}

bool ReadMultiSampleFBO::readDepth(osg::Image* image, int x, int y, int width, int height)
{
    return read(image, x, y, width, height, GL_DEPTH_COMPONENT, GL_FLOAT);
}

bool ReadMultiSampleFBO::readColor(osg::Image* image, int x, int y, int width, int height)
{
    return read(image, x, y, width, height, GL_RGBA, GL_UNSIGNED_BYTE);
}

void ReadMultiSampleFBO::resolve(unsigned int mask)
{
    QOpenGLExtraFunctions* gl = currentFunctions();
    GLint viewport[4] = {0, 0, 0, 0};
    gl->glGetIntegerv(GL_VIEWPORT, viewport);
    // The read source is at least as large as the viewport drawn into it.
    const int w = viewport[0] + viewport[2], h = viewport[1] + viewport[3];
    int newW = 0, newH = 0;
    if (needResize(w, h, newW, newH))
        resizeFBO(newW, newH);
    else if (!m_initialized) {
        m_width = w;
        m_height = h;
        initializeFBO();
    }
    GLint readBinding = 0, drawBinding = 0;
    gl->glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &readBinding);
    gl->glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &drawBinding);
    m_readFbo = static_cast<unsigned int>(readBinding);
    gl->glBindFramebuffer(GL_DRAW_FRAMEBUFFER, m_resolveFbo);
    gl->glBlitFramebuffer(0, 0, m_width, m_height, 0, 0, m_width, m_height, mask, GL_NEAREST);
    gl->glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(drawBinding));
    gl->glBindFramebuffer(GL_READ_FRAMEBUFFER, m_resolveFbo);
}

bool ReadMultiSampleFBO::read(osg::Image* image, int x, int y, int width, int height,
                              unsigned int format, unsigned int type)
{
    QOpenGLExtraFunctions* gl = currentFunctions();
    if (!gl) {
        qCCritical(orvane) << "QOpenGLFunction is nullptr";
        return false;
    }
    if (!image) {
        qCWarning(orvane) << "image is nullptr";
        return false;
    }
    // Reading pixels from a multisampled framebuffer is an error: resolve it first.
    const bool multiSample = isMultiSample();
    if (multiSample)
        resolve(format == GL_DEPTH_COMPONENT ? GL_DEPTH_BUFFER_BIT : GL_COLOR_BUFFER_BIT);
    image->readPixels(x, y, width, height, format, type, 1);
    if (multiSample)
        gl->glBindFramebuffer(GL_READ_FRAMEBUFFER, m_readFbo);
    m_lastError = gl->glGetError();
    return m_lastError == 0;
}

bool readCanvasDepth(const RenderInfo& info, osg::Image* image, int x, int y, int width, int height)
{
    return info.readMultiSampleFBO &&
           info.readMultiSampleFBO->readDepth(image, x, y, width, height);
}

bool readCanvasDepth(const RenderInfo& info, osg::Image* image, const osg::Viewport& region)
{
    return readCanvasDepth(info, image, static_cast<int>(region.x()), static_cast<int>(region.y()),
                           static_cast<int>(region.width()), static_cast<int>(region.height()));
}

} // namespace Orvane
} // namespace Vorna
