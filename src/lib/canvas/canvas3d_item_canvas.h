#pragma once

#include "canvas_base.h"

#include <QMutex>
#include <QSharedPointer>
#include <osg/observer_ptr>

namespace Vorna {
namespace Orvane {

class Canvas3DItem;
class Canvas3DRenderer;
class SpaceMouseMgr;

// The canvas of an on-screen Canvas3DItem. Outlives its item: once the item is gone every call
// is a harmless no-op returning a default. Any thread; the mutex guards the item pointer and is
// never held while calling back into the canvas.
class Canvas3DItemCanvas : public CanvasBase
{
    Q_OBJECT
public:
    explicit Canvas3DItemCanvas(Canvas3DItem* item);

    void addOperation(osg::ref_ptr<osg::Operation> op) override;
    void addOperations(std::vector<osg::ref_ptr<osg::Operation>>& ops) override;
    void frame() override;
    void framing(float seconds) override;
    osgViewer::View* mainView() override { return m_mainView.get(); }
    void setUpdateBlocked(bool block) override;
    void setSamples(int samples) override;
    float getMaxFrameRate() const override;
    void setMaxFrameRate(float rate) override;
    double devicePixelRatio() const override;
    double width() const override;
    double height() const override;
    QSize getScreenSize() const override;
    int getTriggerUpdateType() const override;
    QSharedPointer<SpaceMouseMgr> getSpaceMouseMgr() const override;

    // Render thread, from initOSG (the GUI thread is blocked then): no lock.
    Canvas3DItem* item() const { return m_item; }
    void setMainView(osgViewer::View* view) { m_mainView = view; }

private:
    friend class Canvas3DItem;
    friend class Canvas3DRenderer;
    // Item destructor: from now on the canvas is a stub.
    void detachItem();
    // Renderer destructor: the item must not reach a deleted renderer.
    void rendererDestroyed(Canvas3DRenderer* renderer);

    Canvas3DItem* m_item;
    mutable QMutex m_mutex;
    osg::observer_ptr<osgViewer::View> m_mainView;
};

} // namespace Orvane
} // namespace Vorna
