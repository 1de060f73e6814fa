#include "canvas_base.h"

namespace Vorna {
namespace Orvane {

namespace {
thread_local const CanvasBase* t_runningCanvas = nullptr;
}

CanvasBase::RunningOperation::RunningOperation(const CanvasBase* canvas)
    : m_previous(t_runningCanvas)
{
    t_runningCanvas = canvas;
}

CanvasBase::RunningOperation::~RunningOperation()
{
    t_runningCanvas = m_previous;
}

bool CanvasBase::isRunningOperationHere() const
{
    return t_runningCanvas == this;
}

bool CanvasBase::deferWhileRunning(const osg::ref_ptr<osg::Operation>& op)
{
    if (t_runningCanvas != this)
        return false;
    QMutexLocker lock(&m_deferredMutex);
    m_deferred.push_back(op);
    return true;
}

void CanvasBase::addDeferredOperations()
{
    std::vector<osg::ref_ptr<osg::Operation>> deferred;
    {
        QMutexLocker lock(&m_deferredMutex);
        deferred.swap(m_deferred);
    }
    for (const osg::ref_ptr<osg::Operation>& op : deferred)
        addOperation(op);
}

CanvasBase::CanvasBase() = default;
CanvasBase::~CanvasBase() = default;

void CanvasBase::setRendererCreated()
{
    if (m_rendererCreated)
        return;
    m_rendererCreated = true;
    emit rendererCreated();
}

} // namespace Orvane
} // namespace Vorna
