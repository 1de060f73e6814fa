#include "read_multisample_fbo.h"

#include "orvane_log.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>

namespace Vorna {
namespace Orvane {

ReadMultiSampleFBO::ReadMultiSampleFBO(int width, int height) : m_width(width), m_height(height) {}

ReadMultiSampleFBO::~ReadMultiSampleFBO()
{
    qCDebug(orvane) << "ReadMultiSampleFBO destruction";
    releaseFBO();
}

bool ReadMultiSampleFBO::readDepth(osg::Image* image, int x, int y, int width, int height)
{
    return read(image, x, y, width, height, GL_DEPTH_COMPONENT, GL_FLOAT);
}

bool ReadMultiSampleFBO::readColor(osg::Image* image, int x, int y, int width, int height)
{
    return read(image, x, y, width, height, GL_RGBA, GL_UNSIGNED_BYTE);
}

bool ReadMultiSampleFBO::read(osg::Image* image, int x, int y, int width, int height,
                              unsigned int format, unsigned int type)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    QOpenGLFunctions* gl = context ? context->functions() : nullptr;
    if (!gl) {
        qCCritical(orvane) << "QOpenGLFunction is nullptr";
        return false;
    }
    if (!image) {
        qCWarning(orvane) << "image is nullptr";
        return false;
    }
    image->readPixels(x, y, width, height, format, type, 1);
    m_lastError = gl->glGetError();
    return m_lastError == 0;
}

} // namespace Orvane
} // namespace Vorna
