#include "canvas3d_offscreen.h"

#include "canvas_input.h"
#include "orvane_log.h"
#include "touch_gesture.h"

namespace Vorna {
namespace Orvane {

Canvas3DOffscreenSurface::Canvas3DOffscreenSurface(int w, int h, ImageCallback callback)
    : m_width(w), m_height(h)
{
    QSurfaceFormat format = requestedFormat();
    // Debian's OSG is a GL1/GL2 build: it needs a compatibility context.
    format.setProfile(QSurfaceFormat::CompatibilityProfile);
    format.setRenderableType(QSurfaceFormat::OpenGL);
    setFormat(format);

    m_renderer.reset(new Canvas3DOffscreenRenderer(this, std::move(callback)));
    m_renderer->moveToThread(&m_thread);
    QOffscreenSurface::create();
    if (!isValid())
        qCCritical(orvane) << "surface is invalid";
    m_canvas = new Canvas3DOffscreenCanvas(m_renderer.data());
    m_touch.reset(new TouchTranslator(m_renderer->eventQueue(), [this] { m_canvas->frame(); }));

    Canvas3DOffscreenCanvas* canvas = m_canvas.get();
    connect(m_renderer.data(), &Canvas3DOffscreenRenderer::initialized, canvas,
            [canvas] { canvas->setRendererCreated(); });
    Canvas3DOffscreenRenderer* renderer = m_renderer.data();
    connect(&m_thread, &QThread::started, renderer,
            [renderer, w, h] { renderer->initialize(w, h); });
    m_thread.start(QThread::InheritPriority);
}

Canvas3DOffscreenSurface::~Canvas3DOffscreenSurface()
{
    m_canvas->detachRenderer();
    if (m_thread.isRunning()) {
        Canvas3DOffscreenRenderer* renderer = m_renderer.data();
        QThread* owner = QThread::currentThread();
        QMetaObject::invokeMethod(
            renderer, [renderer, owner] { renderer->shutdown(owner); },
            owner == &m_thread ? Qt::DirectConnection : Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }
    m_renderer.reset();
    QOffscreenSurface::destroy();
}

CanvasBase* Canvas3DOffscreenSurface::getCanvasBase() const
{
    return m_canvas.get();
}

int Canvas3DOffscreenSurface::getOsgKey(QKeyEvent* event)
{
    return CanvasInput::osgKey(event->key());
}

unsigned int Canvas3DOffscreenSurface::getOsgEventButton(Qt::MouseButton button)
{
    return CanvasInput::osgEventButton(button);
}

void Canvas3DOffscreenSurface::setKeyboardModifiers(QInputEvent* event)
{
    m_modKeyMask = CanvasInput::applyModifiers(eventQueue(), event);
}

void Canvas3DOffscreenSurface::setMouseEventData(QMouseEvent* event)
{
    m_mousePos.set(static_cast<float>(event->x()), static_cast<float>(event->y()));
    m_mouseButton = getOsgEventButton(event->button());
    m_canvas->frame();
}

void Canvas3DOffscreenSurface::mousePressEvent(QMouseEvent* event)
{
    setMouseEventData(event);
    setKeyboardModifiers(event);
    eventQueue()->mouseButtonPress(m_mousePos.x(), m_mousePos.y(), m_mouseButton);
}

void Canvas3DOffscreenSurface::mouseReleaseEvent(QMouseEvent* event)
{
    setMouseEventData(event);
    setKeyboardModifiers(event);
    eventQueue()->mouseButtonRelease(m_mousePos.x(), m_mousePos.y(), m_mouseButton);
}

void Canvas3DOffscreenSurface::mouseDoubleClickEvent(QMouseEvent* event)
{
    setMouseEventData(event);
    setKeyboardModifiers(event);
    eventQueue()->mouseDoubleButtonPress(m_mousePos.x(), m_mousePos.y(), m_mouseButton);
}

void Canvas3DOffscreenSurface::mouseMoveEvent(QMouseEvent* event)
{
    setMouseEventData(event);
    setKeyboardModifiers(event);
    eventQueue()->mouseMotion(m_mousePos.x(), m_mousePos.y());
}

void Canvas3DOffscreenSurface::wheelEvent(QWheelEvent* event)
{
    if (CanvasInput::translateWheel(eventQueue(), event))
        m_canvas->frame();
}

void Canvas3DOffscreenSurface::keyPressEvent(QKeyEvent* event)
{
    if (!CanvasInput::translateKey(eventQueue(), event, true))
        return;
    m_modKeyMask = CanvasInput::osgModKeyMask(event->modifiers());
    m_canvas->frame();
}

void Canvas3DOffscreenSurface::keyReleaseEvent(QKeyEvent* event)
{
    if (!CanvasInput::translateKey(eventQueue(), event, false))
        return;
    m_modKeyMask = CanvasInput::osgModKeyMask(event->modifiers());
    m_canvas->frame();
}

void Canvas3DOffscreenSurface::resizeEvent(QResizeEvent* event)
{
    const QSize size = event->size();
    if (size.width() <= 0 || size.height() <= 0)
        return;
    m_width = size.width();
    m_height = size.height();
    QMetaObject::invokeMethod(m_renderer.data(), "resize", Qt::QueuedConnection,
                              Q_ARG(int, m_width), Q_ARG(int, m_height));
}

void Canvas3DOffscreenSurface::touchEvent(QTouchEvent* event)
{
    m_touch->touchEvent(event->touchPoints(), 1.0, m_touching);
}

void Canvas3DOffscreenSurface::onLongPressFinished()
{
    m_touch->onLongPressFinished();
}

} // namespace Orvane
} // namespace Vorna
