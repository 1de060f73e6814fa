#pragma once

#include <QMutex>
#include <QObject>
#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QScopedPointer>
#include <QTimer>
#include <QVersionNumber>
#include <atomic>
#include <ctime>
#include <functional>
#include <osg/Image>
#include <osg/OperationThread>
#include <osg/ref_ptr>
#include <osgGA/EventQueue>
#include <osgViewer/CompositeViewer>
#include <osgViewer/GraphicsWindow>
#include <osgViewer/View>

class QOpenGLFunctions_4_1_Core;

namespace Vorna {
namespace Orvane {

class Canvas3DOffscreenSurface;
class RenderInfo;

// Renders the scene of an offscreen surface into a framebuffer object of a private context and
// hands each frame to the image callback. Lives on the surface's own thread: its slots are
// reached through queued calls, and all GL work and the callback run there. operationQueue(),
// eventQueue(), width(), height(), version() and vendor() may be read from any thread.
class Canvas3DOffscreenRenderer : public QObject
{
    Q_OBJECT
public:
    using ImageCallback = std::function<void(osg::ref_ptr<osg::Image>&)>;

    Canvas3DOffscreenRenderer(Canvas3DOffscreenSurface* surface, ImageCallback callback);
    ~Canvas3DOffscreenRenderer() override;

    osg::OperationQueue* operationQueue() const { return m_operationQueue.get(); }
    osgGA::EventQueue* eventQueue() const { return m_eventQueue.get(); }
    int width() const { return m_width; }
    int height() const { return m_height; }
    QVersionNumber version() const;
    QString vendor() const;
    float maxFrameRate() const { return m_maxFrameRate; }

signals:
    void initialized();

public slots:
    void initialize(int w, int h);
    // A side of 0 or less is ignored.
    void resize(int w, int h);
    // Arms a budget of one frame when idle.
    void frame();
    // Keeps frames coming; see the timer for the units the budget is spent in.
    void framing(float second);
    void setMaxFrameRate(float frameRate);
    // Frees the scene and every GL object with the context current, then hands this object to
    // `owner` so that it can be deleted there once this thread has ended.
    void shutdown(QThread* owner);

private:
    bool initializeContext();
    void initializeScene();
    void createFbo();
    void onTimer();
    void render();

    std::atomic<int> m_width{0};
    std::atomic<int> m_height{0};
    Canvas3DOffscreenSurface* m_surface;
    QScopedPointer<QOpenGLContext> m_context;
    QScopedPointer<QOpenGLFramebufferObject> m_fbo;
    mutable QMutex m_infoMutex; // version and vendor, written once on this thread
    QVersionNumber m_version;
    QString m_vendor;
    osg::ref_ptr<osg::OperationQueue> m_operationQueue;
    osg::ref_ptr<osgGA::EventQueue> m_eventQueue;
    osg::ref_ptr<osgViewer::GraphicsWindowEmbedded> m_graphicsWindow;
    osg::ref_ptr<osgViewer::CompositeViewer> m_viewer;
    osg::ref_ptr<osgViewer::View> m_view;
    osg::ref_ptr<RenderInfo> m_renderInfo;
    QOpenGLFunctions_4_1_Core* m_functions = nullptr;
    std::atomic<float> m_maxFrameRate{60.0f};
    std::clock_t m_lastClock = 0;
    int m_remaining = 0;
    QScopedPointer<QTimer> m_timer;
    ImageCallback m_imageCallback;
};

} // namespace Orvane
} // namespace Vorna
