#pragma once

#include "canvas3d_offscreen_canvas.h"
#include "canvas3d_offscreen_renderer.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QOffscreenSurface>
#include <QResizeEvent>
#include <QScopedPointer>
#include <QThread>
#include <QTouchEvent>
#include <QWheelEvent>
#include <functional>
#include <osg/Image>
#include <osg/Vec2f>

namespace Vorna {
namespace Orvane {

class CanvasBase;
class TouchTranslator;

// A full scene with no window: a private context on a thread of its own renders on demand, and
// every frame is read back and handed to the image callback as an RGB osg::Image, top row first.
// The application drives it through getCanvasBase() like an on-screen canvas.
// Make and destroy it on the GUI thread (a QOffscreenSurface must be created there) and call the
// input handlers on that thread; the image callback runs on the surface's thread.
class Canvas3DOffscreenSurface : public QOffscreenSurface
{
    Q_OBJECT
public:
    using ImageCallback = Canvas3DOffscreenRenderer::ImageCallback;

    Canvas3DOffscreenSurface(int w, int h, ImageCallback callback);
    ~Canvas3DOffscreenSurface() override;

    CanvasBase* getCanvasBase() const;
    Canvas3DOffscreenCanvas* canvas() const { return m_canvas.get(); }
    Canvas3DOffscreenRenderer* renderer() const { return m_renderer.data(); }

    static int getOsgKey(QKeyEvent* event);
    static unsigned int getOsgEventButton(Qt::MouseButton button);

    // Input in surface pixels, translated as the on-screen item does.
    void mousePressEvent(QMouseEvent* event);
    void mouseReleaseEvent(QMouseEvent* event);
    void mouseDoubleClickEvent(QMouseEvent* event);
    void mouseMoveEvent(QMouseEvent* event);
    void wheelEvent(QWheelEvent* event);
    void keyPressEvent(QKeyEvent* event);
    void keyReleaseEvent(QKeyEvent* event);
    // A side of 0 is ignored.
    void resizeEvent(QResizeEvent* event);
    void touchEvent(QTouchEvent* event);

public slots:
    void onLongPressFinished();

private:
    void setKeyboardModifiers(QInputEvent* event);
    void setMouseEventData(QMouseEvent* event);
    osgGA::EventQueue* eventQueue() const { return m_renderer->eventQueue(); }

    int m_width;
    int m_height;
    QScopedPointer<Canvas3DOffscreenRenderer> m_renderer;
    QThread m_thread;
    osg::Vec2f m_mousePos;
    unsigned int m_modKeyMask = 0;
    unsigned int m_mouseButton = 0;
    bool m_touching = false;
    QScopedPointer<TouchTranslator> m_touch;
    osg::ref_ptr<Canvas3DOffscreenCanvas> m_canvas;
};

} // namespace Orvane
} // namespace Vorna
