#pragma once

#include "canvas3d_item.h"

#include <QColor>
#include <QImage>
#include <QPoint>
#include <QQuickWindow>
#include <QStringList>
#include <functional>
#include <memory>
#include <osg/Camera>
#include <osg/OperationThread>

namespace Vorna {
namespace Orvane {
class RenderInfo;
}
} // namespace Vorna

namespace OrvaneTest {

// `timeoutMs` stretched for builds whose instrumentation slows every thread.
int scaledTimeout(int timeoutMs);

// Spins the event loop until `done` holds or `timeoutMs` (scaled) passes; returns `done()`.
bool waitUntil(const std::function<bool()>& done, int timeoutMs = 5000);

// Resident memory of this process in MiB, 0 where /proc is missing.
double residentMiB();

// Records every message of the library's logging category while alive.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    QStringList lines() const;
    bool contains(const QString& text) const;
    int count(const QString& text) const;
};

// A window holding a Canvas3DItem on its left and a plain QML rectangle on its right, so that
// tests see both the scene and QtQuick's own drawing.
class CanvasWindow
{
public:
    static constexpr int kCanvasWidth = 160;
    static constexpr int kHeight = 120;
    static constexpr int kWidth = 240;
    static const QColor kSiblingColor;

    CanvasWindow();
    ~CanvasWindow();

    QQuickWindow* window() const { return m_window.get(); }
    Vorna::Orvane::Canvas3DItem* item() const { return m_item; }
    // Shows the window and waits for the renderer to be created.
    bool show();
    // Destroys the item and keeps the window.
    void destroyItem();
    QImage grab();
    // Asks for frames until `frames` more scene frames are drawn (the frame counter must be
    // installed), then grabs the top-left `width` x `height` of the window.
    QImage grabAfterFrames(int frames, int width = kCanvasWidth, int height = kHeight);
    // Grabs until `count` of the image equals `expected`; the last count.
    int settle(const std::function<int(const QImage&)>& count, int expected);
    // Adds `op` (if any) and then `body` on the render thread, and waits until both have run.
    bool run(osg::Operation* op, std::function<void(Vorna::Orvane::RenderInfo&)> body = {});
    // Places the main view's camera at `eye`, looking at `centre`, and waits for that frame.
    bool lookAt(const osg::Vec3d& eye, const osg::Vec3d& centre, const osg::Vec3d& up);
    // Pixel of the grabbed image where `world` lands with the current camera; (-1, -1) if none.
    QPoint pixelOf(const osg::Vec3d& world);
    // Counts scene frames: a final draw callback on the canvas's master camera.
    int sceneFrames() const;
    void installFrameCounter();

private:
    std::unique_ptr<QQuickWindow> m_window;
    Vorna::Orvane::Canvas3DItem* m_item = nullptr;
    std::shared_ptr<std::atomic<int>> m_frames;
};

// Whether two colours agree per channel within `tolerance` (0..255).
bool near(const QColor& a, const QColor& b, int tolerance);

} // namespace OrvaneTest
