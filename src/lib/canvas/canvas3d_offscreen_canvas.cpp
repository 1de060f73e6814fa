#include "canvas3d_offscreen_canvas.h"

#include "canvas3d_offscreen_renderer.h"
#include "orvane_operations.h"

#include <QGuiApplication>
#include <QScreen>

namespace Vorna {
namespace Orvane {

Canvas3DOffscreenCanvas::Canvas3DOffscreenCanvas(Canvas3DOffscreenRenderer* renderer)
    : m_renderer(renderer)
{
}

void Canvas3DOffscreenCanvas::addOperation(osg::ref_ptr<osg::Operation> op)
{
    if (op && deferWhileRunning(op))
        return;
    {
        QMutexLocker lock(&m_mutex);
        if (!m_renderer || !op)
            return;
        m_renderer->operationQueue()->add(op.get());
    }
    frame();
}

void Canvas3DOffscreenCanvas::addOperations(std::vector<osg::ref_ptr<osg::Operation>>& ops)
{
    addOperation(new MultiOperation(ops));
}

void Canvas3DOffscreenCanvas::frame()
{
    QMutexLocker lock(&m_mutex);
    if (m_renderer)
        QMetaObject::invokeMethod(m_renderer, "frame", Qt::QueuedConnection);
}

void Canvas3DOffscreenCanvas::framing(float seconds)
{
    QMutexLocker lock(&m_mutex);
    if (m_renderer)
        QMetaObject::invokeMethod(m_renderer, "framing", Qt::QueuedConnection,
                                  Q_ARG(float, seconds));
}

osgViewer::View* Canvas3DOffscreenCanvas::mainView()
{
    QMutexLocker lock(&m_mutex);
    return isRendererCreated() ? m_mainView.get() : nullptr;
}

void Canvas3DOffscreenCanvas::setMaxFrameRate(float rate)
{
    QMutexLocker lock(&m_mutex);
    if (!m_renderer)
        return;
    m_maxFrameRate = rate;
    QMetaObject::invokeMethod(m_renderer, "setMaxFrameRate", Qt::QueuedConnection,
                              Q_ARG(float, rate));
}

double Canvas3DOffscreenCanvas::width() const
{
    QMutexLocker lock(&m_mutex);
    return m_renderer ? m_renderer->width() : 1.0;
}

double Canvas3DOffscreenCanvas::height() const
{
    QMutexLocker lock(&m_mutex);
    return m_renderer ? m_renderer->height() : 1.0;
}

QSize Canvas3DOffscreenCanvas::getScreenSize() const
{
    // No window: the screen an application would show the images on.
    QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->size() : QSize();
}

void Canvas3DOffscreenCanvas::setMainView(osgViewer::View* view)
{
    QMutexLocker lock(&m_mutex);
    m_mainView = view;
}

void Canvas3DOffscreenCanvas::detachRenderer()
{
    QMutexLocker lock(&m_mutex);
    m_renderer = nullptr;
}

} // namespace Orvane
} // namespace Vorna
