#pragma once

#include "gl_functions.h"

#include <QPointer>
#include <QQuickFramebufferObject>
#include <QQuickWindow>
#include <atomic>
#include <osg/ref_ptr>
#include <osgViewer/CompositeViewer>
#include <osgViewer/GraphicsWindow>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

class Canvas3DItemCanvas;
class RenderInfo;

// Renders the OpenSceneGraph viewer of a Canvas3DItem straight into the item's framebuffer
// object. Created, used and deleted by QtQuick on its render thread; only setUpdateBlocked and
// setSamples are called from other threads.
class Canvas3DRenderer : public QQuickFramebufferObject::Renderer
{
public:
    explicit Canvas3DRenderer(Canvas3DItemCanvas* canvas);
    ~Canvas3DRenderer() override;

    void render() override;
    QOpenGLFramebufferObject* createFramebufferObject(const QSize& size) override;
    void synchronize(QQuickFramebufferObject* item) override;

    // Returns true when the block was lifted, so that the caller asks for a frame.
    bool setUpdateBlocked(bool block);
    // Takes effect with the next framebuffer object, made before the next render.
    void setSamples(unsigned int samples);

    osgViewer::CompositeViewer* viewer() const { return m_viewer.get(); }
    RenderInfo* renderInfo() const { return m_renderInfo.get(); }

private:
    void initOSG(Canvas3DItemCanvas* canvas);

    osg::ref_ptr<Canvas3DItemCanvas> m_canvas;
    osg::ref_ptr<osgViewer::GraphicsWindowEmbedded> m_graphicsWindow;
    osg::ref_ptr<osgViewer::CompositeViewer> m_viewer;
    osg::ref_ptr<osgViewer::View> m_mainView;
    osg::ref_ptr<RenderInfo> m_renderInfo;
    QPointer<QQuickWindow> m_window;
    std::atomic<bool> m_updateBlocked{false};
    std::atomic<unsigned int> m_samples{0};
    std::atomic<bool> m_samplesChanged{false};
    // A frame asked for by nobody (the pacing's last tick) keeps the image already drawn: a
    // large cloud would otherwise be drawn twice for every request. Render thread.
    bool m_reuseImage = false;
    bool m_framebufferFresh = true;
    quint64 m_requestsSeen = 0;
    quint64 m_requestsDrawn = ~quint64(0);
};

} // namespace Orvane
} // namespace Vorna
