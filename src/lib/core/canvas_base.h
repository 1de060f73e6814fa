#pragma once

#include <QMutex>
#include <QObject>
#include <QSharedPointer>
#include <QSize>
#include <osg/OperationThread>
#include <osg/Referenced>
#include <osg/ref_ptr>
#include <vector>

class QRunnable;

namespace osgViewer {
class View;
}

namespace Vorna {
namespace Orvane {

// What the façade talks to: an on-screen item or an offscreen surface.
// Reference counted through osg::ref_ptr; every call is safe from any thread.
class SpaceMouseMgr;

class CanvasBase : public QObject, public osg::Referenced
{
    Q_OBJECT
public:
    CanvasBase();

    bool isUpdateBlocked() const { return m_updateBlocked; }
    unsigned int getNumSamples() const { return m_numSamples; }
    bool isRendererCreated() const { return m_rendererCreated; }
    // Emits rendererCreated() the first time only.
    void setRendererCreated();

    virtual void addOperation(osg::ref_ptr<osg::Operation> op) = 0;
    virtual void addOperations(std::vector<osg::ref_ptr<osg::Operation>>& ops) = 0;
    // Neither runs nor frees the runnable.
    virtual void execRunnable(QRunnable*) {}
    virtual void frame() = 0;
    virtual void framing(float seconds) = 0;
    virtual osgViewer::View* mainView() = 0;
    virtual void setUpdateBlocked(bool block) = 0;
    virtual void setSamples(int samples) = 0;
    virtual float getMaxFrameRate() const { return m_maxFrameRate; }
    virtual void setMaxFrameRate(float rate) = 0;
    virtual double devicePixelRatio() const = 0;
    virtual double width() const = 0;
    virtual double height() const = 0;
    virtual QSize getScreenSize() const = 0;
    // -1: the canvas has no pacing mode.
    virtual int getTriggerUpdateType() const { return -1; }
    // The space mouse bound to this canvas's window; canvases without a window have none.
    virtual QSharedPointer<SpaceMouseMgr> getSpaceMouseMgr() const { return {}; }

    // Marks the calling thread as running an operation of `canvas` while alive.
    class RunningOperation
    {
    public:
        explicit RunningOperation(const CanvasBase* canvas);
        ~RunningOperation();

    private:
        const CanvasBase* m_previous;
    };

    // True while the calling thread runs an operation of this canvas: what it adds runs only
    // after the frame, so it can't be waited for here.
    bool isRunningOperationHere() const;

    // Hands what operations of this canvas added while its queue ran to the queue; the renderer
    // calls it after each frame.
    void addDeferredOperations();

signals:
    void rendererCreated();

protected:
    ~CanvasBase() override;

    // True, and `op` kept for addDeferredOperations(), when an operation of this canvas is
    // adding it: its queue holds its lock for the whole run, so adding now would never return.
    bool deferWhileRunning(const osg::ref_ptr<osg::Operation>& op);

    bool m_rendererCreated = false;
    bool m_updateBlocked = false;
    float m_maxFrameRate = 60.0f;
    unsigned int m_numSamples = 0;

private:
    QMutex m_deferredMutex;
    std::vector<osg::ref_ptr<osg::Operation>> m_deferred;
};

} // namespace Orvane
} // namespace Vorna
