#include "canvas3d_item_canvas.h"

#include "canvas3d_item.h"
#include "orvane_operations.h"

#include <QQuickWindow>
#include <QScreen>

namespace Vorna {
namespace Orvane {

Canvas3DItemCanvas::Canvas3DItemCanvas(Canvas3DItem* item) : m_item(item) {}

void Canvas3DItemCanvas::addOperation(osg::ref_ptr<osg::Operation> op)
{
    if (deferWhileRunning(op))
        return;
    osg::ref_ptr<osg::OperationQueue> queue;
    {
        QMutexLocker lock(&m_mutex);
        if (m_item)
            queue = m_item->operationQueue();
    }
    if (!queue)
        return;
    // The queue has its own lock; the ref_ptr keeps it valid if the item dies meanwhile.
    queue->add(op.get());
    frame();
}

void Canvas3DItemCanvas::addOperations(std::vector<osg::ref_ptr<osg::Operation>>& ops)
{
    addOperation(new MultiOperation(ops));
}

void Canvas3DItemCanvas::frame()
{
    QMutexLocker lock(&m_mutex);
    if (m_item)
        m_item->frame();
}

void Canvas3DItemCanvas::framing(float seconds)
{
    QMutexLocker lock(&m_mutex);
    if (m_item)
        m_item->framing(seconds);
}

void Canvas3DItemCanvas::setUpdateBlocked(bool block)
{
    QMutexLocker lock(&m_mutex);
    if (!m_item)
        return;
    m_updateBlocked = block;
    m_item->setUpdateBlocked(block);
}

void Canvas3DItemCanvas::setSamples(int samples)
{
    QMutexLocker lock(&m_mutex);
    if (!m_item)
        return;
    m_numSamples = static_cast<unsigned int>(samples);
    m_item->setSamples(static_cast<uint>(samples));
}

float Canvas3DItemCanvas::getMaxFrameRate() const
{
    QMutexLocker lock(&m_mutex);
    return m_item ? static_cast<float>(m_item->maxFrame()) : -1.0f;
}

void Canvas3DItemCanvas::setMaxFrameRate(float rate)
{
    QMutexLocker lock(&m_mutex);
    if (!m_item)
        return;
    m_maxFrameRate = rate;
    m_item->setMaxFrame(static_cast<int>(rate));
}

double Canvas3DItemCanvas::devicePixelRatio() const
{
    QMutexLocker lock(&m_mutex);
    if (m_item && m_item->window())
        return m_item->window()->devicePixelRatio();
    return 1.0;
}

double Canvas3DItemCanvas::width() const
{
    QMutexLocker lock(&m_mutex);
    return m_item ? m_item->width() : 1.0;
}

double Canvas3DItemCanvas::height() const
{
    QMutexLocker lock(&m_mutex);
    return m_item ? m_item->height() : 1.0;
}

QSize Canvas3DItemCanvas::getScreenSize() const
{
    QMutexLocker lock(&m_mutex);
    if (m_item && m_item->window() && m_item->window()->screen())
        return m_item->window()->screen()->size();
    return QSize();
}

int Canvas3DItemCanvas::getTriggerUpdateType() const
{
    QMutexLocker lock(&m_mutex);
    return m_item ? static_cast<int>(m_item->getTriggerUpdateType()) : -1;
}

QSharedPointer<SpaceMouseMgr> Canvas3DItemCanvas::getSpaceMouseMgr() const
{
    return Canvas3DItem::spaceMouseMgr();
}

void Canvas3DItemCanvas::detachItem()
{
    QMutexLocker lock(&m_mutex);
    m_item = nullptr;
}

void Canvas3DItemCanvas::rendererDestroyed(Canvas3DRenderer* renderer)
{
    QMutexLocker lock(&m_mutex);
    if (m_item && m_item->m_renderer == renderer)
        m_item->m_renderer = nullptr;
}

} // namespace Orvane
} // namespace Vorna
