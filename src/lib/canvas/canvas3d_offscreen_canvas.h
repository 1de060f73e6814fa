#pragma once

#include "canvas_base.h"

#include <QMutex>
#include <osg/observer_ptr>

namespace Vorna {
namespace Orvane {

class Canvas3DOffscreenRenderer;

// The canvas of a Canvas3DOffscreenSurface. Any thread: calls reach the renderer's thread as
// queued calls, operations go straight to its locked queue. Outlives its surface as a harmless
// stub, like the item's canvas.
class Canvas3DOffscreenCanvas : public CanvasBase
{
    Q_OBJECT
public:
    explicit Canvas3DOffscreenCanvas(Canvas3DOffscreenRenderer* renderer);

    void addOperation(osg::ref_ptr<osg::Operation> op) override;
    void addOperations(std::vector<osg::ref_ptr<osg::Operation>>& ops) override;
    void frame() override;
    void framing(float seconds) override;
    // Null until the renderer has been created.
    osgViewer::View* mainView() override;
    // An offscreen canvas can't be blocked and has no samples.
    void setUpdateBlocked(bool) override {}
    void setSamples(int) override {}
    void setMaxFrameRate(float rate) override;
    double devicePixelRatio() const override { return 1.0; }
    double width() const override;
    double height() const override;
    QSize getScreenSize() const override;

private:
    friend class Canvas3DOffscreenRenderer;
    friend class Canvas3DOffscreenSurface;
    // Renderer thread, while the scene is built.
    void setMainView(osgViewer::View* view);
    // Surface destructor: from now on the canvas is a stub.
    void detachRenderer();

    mutable QMutex m_mutex;
    osg::observer_ptr<osgViewer::View> m_mainView;
    Canvas3DOffscreenRenderer* m_renderer;
};

} // namespace Orvane
} // namespace Vorna
