#include "canvas3d_renderer.h"

#include "canvas3d_item.h"
#include "canvas3d_item_canvas.h"
#include "canvas_viewer.h"
#include "debug_handler.h"
#include "hide_view.h"
#include "orvane_log.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "render_info.h"

#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions>
#include <QOpenGLFunctions_4_1_Core>
#include <osg/GLExtensions>

namespace Vorna {
namespace Orvane {

namespace {
QString glString(QOpenGLFunctions* gl, GLenum name)
{
    const GLubyte* s = gl->glGetString(name);
    return s ? QString::fromLatin1(reinterpret_cast<const char*>(s)) : QString();
}
} // namespace

Canvas3DRenderer::Canvas3DRenderer(Canvas3DItemCanvas* canvas) : m_canvas(canvas)
{
    initOSG(canvas);
}

Canvas3DRenderer::~Canvas3DRenderer()
{
    qCDebug(orvane) << "Renderer destroyed";
    m_canvas->rendererDestroyed(this);
    if (m_mainView && m_mainView->getCamera()->getGraphicsContext())
        OrvaneSingleton::instance()->getShaderMgr()->releaseGLObjects(
            m_mainView->getCamera()->getGraphicsContext()->getState());
    m_renderInfo = nullptr;
    m_mainView = nullptr;
    m_viewer = nullptr;
    m_graphicsWindow = nullptr;
}

void Canvas3DRenderer::initOSG(Canvas3DItemCanvas* canvas)
{
    Canvas3DItem* item = canvas->item();
    QOpenGLFunctions* gl = QOpenGLContext::currentContext()->functions();
    const QString version = glString(gl, GL_VERSION);
    item->setVersion(QVersionNumber::fromString(version));
    const bool timeline = osg::isGLExtensionSupported(0, "GL_NV_timeline_semaphore");
    qCDebug(orvane) << "opengl version:" << version << "support timeline semaphore:" << timeline;
    item->setVendor(glString(gl, GL_VENDOR));
    qCDebug(orvane) << "opengl renderer:" << glString(gl, GL_RENDERER);

    // Item units, not device pixels: the first GeometryChangeOperation puts that right.
    CanvasViewer built = createCanvasViewer(canvas, static_cast<int>(item->width()),
                                            static_cast<int>(item->height()), item->eventQueue(),
                                            item->operationQueue());
    m_graphicsWindow = built.graphicsWindow;
    m_viewer = built.viewer;
    m_mainView = built.mainView;
    m_renderInfo = built.renderInfo;
    canvas->setMainView(m_mainView.get());
    // Queued behind whatever the application added before the renderer existed.
    canvas->addOperation(new AddEventHandler(new RenderDebug::DebugHandler));
    OrvaneSingleton::instance()->setCanvas(canvas);
    m_viewer->addView(createHideView(m_renderInfo.get(), m_mainView.get()));
}

void Canvas3DRenderer::synchronize(QQuickFramebufferObject* item)
{
    auto* canvasItem = static_cast<Canvas3DItem*>(item);
    m_renderInfo->canvas = canvasItem->getCanvasBase();
    m_window = canvasItem->window();
    m_requestsSeen = canvasItem->frameRequests();
    m_reuseImage = canvasItem->m_lastUpdateSpendsBudget && m_requestsSeen == m_requestsDrawn;
    canvasItem->m_lastUpdateSpendsBudget = false;
    // Node state belongs to the render thread: invalidate here, with the GUI thread blocked.
    if (m_samplesChanged.exchange(false))
        invalidateFramebufferObject();
}

QOpenGLFramebufferObject* Canvas3DRenderer::createFramebufferObject(const QSize& size)
{
    QOpenGLFramebufferObjectFormat format;
    format.setAttachment(QOpenGLFramebufferObject::CombinedDepthStencil);
    format.setSamples(static_cast<int>(m_samples.load()));
    auto* fbo = new QOpenGLFramebufferObject(size, format);
    m_framebufferFresh = true;
    m_renderInfo->setFBO(fbo);
    return fbo;
}

bool Canvas3DRenderer::setUpdateBlocked(bool block)
{
    qCInfo(orvane) << "setUpdateBlocked:" << block;
    if (m_updateBlocked.exchange(block) == block)
        return false;
    return !block;
}

void Canvas3DRenderer::setSamples(unsigned int samples)
{
    m_samples = samples;
    m_samplesChanged = true;
}

void Canvas3DRenderer::render()
{
    if (m_updateBlocked)
        return;
    if (m_reuseImage && !m_framebufferFresh)
        return;
    m_framebufferFresh = false;
    m_requestsDrawn = m_requestsSeen;
    QOpenGLContext* context = QOpenGLContext::currentContext();
    // QtQuick drew since our last frame and changed bindings behind OSG's state cache: put the
    // context into a known state and make OSG apply every attribute afresh, or a texture
    // on a unit other than 0 can land on the wrong unit.
    context->functions()->glUseProgram(0);
    context->functions()->glActiveTexture(GL_TEXTURE0);
    if (osg::State* state = m_mainView->getCamera()->getGraphicsContext()->getState()) {
        state->setActiveTextureUnit(0);
        state->setLastAppliedProgramObject(nullptr);
        state->dirtyAllAttributes();
    }
    m_glFun = currentGlFunctions();
    // Render-to-texture passes unbind to the context's default framebuffer: make that ours.
    if (m_renderInfo->FBO)
        m_graphicsWindow->setDefaultFboId(m_renderInfo->FBO->handle());

    m_viewer->frame(USE_REFERENCE_TIME);
    if (m_renderInfo->canvas)
        m_renderInfo->canvas->addDeferredOperations();

    if (osg::State* state = m_mainView->getCamera()->getGraphicsContext()->getState()) {
        state->lazyDisablingOfVertexAttributes();
        state->applyDisablingOfVertexAttributes();
    }
    if (m_window)
        m_window->resetOpenGLState();
}

} // namespace Orvane
} // namespace Vorna
