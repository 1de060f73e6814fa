#include "canvas3d_offscreen_renderer.h"

#include "canvas3d_offscreen.h"
#include "canvas3d_offscreen_canvas.h"
#include "canvas3d_renderer.h"
#include "canvas_viewer.h"
#include "orvane_log.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "render_info.h"

#include <QOpenGLFunctions>
#include <QOpenGLFunctions_4_1_Core>
#include <QThread>
#include <algorithm>
#include <osgViewer/ViewerEventHandlers>

namespace Vorna {
namespace Orvane {

Canvas3DOffscreenRenderer::Canvas3DOffscreenRenderer(Canvas3DOffscreenSurface* surface,
                                                     ImageCallback callback)
    : m_surface(surface), m_operationQueue(new osg::OperationQueue),
      m_eventQueue(new osgGA::EventQueue), m_imageCallback(std::move(callback))
{
}

Canvas3DOffscreenRenderer::~Canvas3DOffscreenRenderer() = default;

QVersionNumber Canvas3DOffscreenRenderer::version() const
{
    QMutexLocker lock(&m_infoMutex);
    return m_version;
}

QString Canvas3DOffscreenRenderer::vendor() const
{
    QMutexLocker lock(&m_infoMutex);
    return m_vendor;
}

void Canvas3DOffscreenRenderer::initialize(int w, int h)
{
    if (m_context) {
        qCDebug(orvane) << "renderer has initialized";
        return;
    }
    m_width = w;
    m_height = h;
    if (!initializeContext())
        return;
    initializeScene();
    m_timer.reset(new QTimer);
    m_timer->setInterval(static_cast<int>(1000.0 / m_maxFrameRate));
    m_timer->setTimerType(Qt::PreciseTimer);
    m_timer->setSingleShot(false);
    connect(m_timer.data(), &QTimer::timeout, this, &Canvas3DOffscreenRenderer::onTimer);
    m_timer->start();
    emit initialized();
}

bool Canvas3DOffscreenRenderer::initializeContext()
{
    // No parent: the surface belongs to another thread.
    m_context.reset(new QOpenGLContext);
    m_context->setFormat(m_surface->requestedFormat());
    if (!m_context->create() || !m_context->isValid()) {
        qCCritical(orvane) << "create context failed";
        m_context.reset();
        return false;
    }
    if (!m_context->makeCurrent(m_surface)) {
        qCCritical(orvane) << "makeCurrent failed";
        m_context.reset();
        return false;
    }
    qCDebug(orvane) << ">>> current context:" << m_context.data();
    m_functions = currentGlFunctions();
    createFbo();
    m_fbo->bind();
    QOpenGLFunctions* gl = m_context->functions();
    const GLubyte* version = gl->glGetString(GL_VERSION);
    const GLubyte* vendor = gl->glGetString(GL_VENDOR);
    {
        QMutexLocker lock(&m_infoMutex);
        m_version = QVersionNumber::fromString(
            version ? QString::fromLatin1(reinterpret_cast<const char*>(version)) : QString());
        m_vendor = vendor ? QString::fromLatin1(reinterpret_cast<const char*>(vendor)) : QString();
        qCDebug(orvane) << ">>> opengl version:" << m_version;
        qCDebug(orvane) << ">>> vendor:" << m_vendor;
    }
    m_fbo->bind();
    return true;
}

void Canvas3DOffscreenRenderer::createFbo()
{
    if (m_fbo && m_fbo->handle() != static_cast<GLuint>(-1) && !m_fbo->release())
        qCWarning(orvane) << "fbo release failed";
    m_fbo.reset(new QOpenGLFramebufferObject(m_width, m_height, GL_TEXTURE_2D));
    m_fbo->setAttachment(QOpenGLFramebufferObject::CombinedDepthStencil);
    // Render-to-texture passes unbind to the window's default framebuffer: make that ours.
    if (m_graphicsWindow)
        m_graphicsWindow->setDefaultFboId(m_fbo->handle());
    if (m_renderInfo)
        m_renderInfo->setFBO(m_fbo.data());
}

void Canvas3DOffscreenRenderer::initializeScene()
{
    Canvas3DOffscreenCanvas* canvas = m_surface->canvas();
    m_eventQueue->getCurrentEventState()->setMouseYOrientation(
        osgGA::GUIEventAdapter::Y_INCREASING_DOWNWARDS);
    // Manipulators normalise positions by the window's input range.
    m_eventQueue->windowResize(0, 0, m_width, m_height);
    CanvasViewer built =
        createCanvasViewer(canvas, m_width, m_height, m_eventQueue.get(), m_operationQueue.get());
    m_graphicsWindow = built.graphicsWindow;
    m_viewer = built.viewer;
    m_view = built.mainView;
    m_renderInfo = built.renderInfo;
    m_graphicsWindow->setDefaultFboId(m_fbo->handle());
    m_renderInfo->setFBO(m_fbo.data());
    m_view->addEventHandler(new osgViewer::StatsHandler);
    canvas->setMainView(m_view.get());
    // As the on-screen renderer does: the façade's canvas-wide calls reach this scene.
    OrvaneSingleton::instance()->setCanvas(canvas);
    render();
}

void Canvas3DOffscreenRenderer::onTimer()
{
    if (m_remaining == 0)
        return;
    render();
    // clock() units against a budget that framing() fills in milliseconds: kept as it is.
    const std::clock_t now = std::clock();
    const std::clock_t d = now - m_lastClock;
    m_lastClock = now;
    if (d < m_remaining)
        m_remaining -= static_cast<int>(d);
    else
        m_remaining = 0;
}

void Canvas3DOffscreenRenderer::frame()
{
    if (m_remaining == 0) {
        m_remaining = 1;
        m_lastClock = std::clock();
    }
}

void Canvas3DOffscreenRenderer::framing(float second)
{
    m_remaining = std::max(static_cast<int>(second * 1000.0), 1);
    m_lastClock = std::clock();
}

void Canvas3DOffscreenRenderer::setMaxFrameRate(float frameRate)
{
    if (!(frameRate > 0.0f)) {
        // A zero or negative rate would stop the timer for good.
        qCWarning(orvane) << "invalid max frame rate:" << frameRate;
        return;
    }
    m_maxFrameRate = frameRate;
    if (m_timer)
        m_timer->setInterval(static_cast<int>(1000.0 / frameRate));
}

void Canvas3DOffscreenRenderer::render()
{
    if (!m_viewer || !m_fbo)
        return;
    m_glFun = m_functions;
    m_fbo->bind();
    m_viewer->frame(USE_REFERENCE_TIME);
    if (m_renderInfo && m_renderInfo->canvas)
        m_renderInfo->canvas->addDeferredOperations();
    // A render-to-texture pass may have left its own framebuffer bound.
    m_fbo->bind();
    m_context->functions()->glFinish();
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->readPixels(0, 0, m_width, m_height, GL_RGB, GL_UNSIGNED_BYTE, 1);
    image->flipVertical();
    if (m_imageCallback)
        m_imageCallback(image);
}

void Canvas3DOffscreenRenderer::resize(int w, int h)
{
    if (w <= 0 || h <= 0)
        return;
    m_operationQueue->add(new GeometryChangeOperation(0, 0, w, h));
    m_operationQueue->add(new LambdaOperation([this](RenderInfo&) {
        createFbo();
        m_fbo->bind();
    }));
    m_eventQueue->windowResize(0, 0, w, h);
    m_width = w;
    m_height = h;
    frame();
}

void Canvas3DOffscreenRenderer::shutdown(QThread* owner)
{
    m_timer.reset();
    if (m_context && m_context->makeCurrent(m_surface)) {
        // OSG frees its GL objects when the viewer closes its window: the context must be current.
        if (m_renderInfo)
            m_renderInfo->setFBO(nullptr);
        if (m_graphicsWindow)
            OrvaneSingleton::instance()->getShaderMgr()->releaseGLObjects(
                m_graphicsWindow->getState());
        m_renderInfo = nullptr;
        m_view = nullptr;
        m_viewer = nullptr;
        m_graphicsWindow = nullptr;
        m_fbo.reset();
        m_context->doneCurrent();
    }
    m_renderInfo = nullptr;
    m_view = nullptr;
    m_viewer = nullptr;
    m_graphicsWindow = nullptr;
    m_fbo.reset();
    m_context.reset();
    m_glFun = nullptr;
    if (owner)
        moveToThread(owner);
}

} // namespace Orvane
} // namespace Vorna
