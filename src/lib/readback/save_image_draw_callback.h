#pragma once

#include <QImage>
#include <QObject>
#include <QString>
#include <functional>
#include <osg/Camera>

class QOpenGLFramebufferObject;

// Carried by the captureFinished signals across threads.
Q_DECLARE_METATYPE(osg::Camera*)

namespace Vorna {
namespace Orvane {

// Saves what a render-to-texture camera has drawn, once, after its next draw: to a file when a
// path is set, else to the image callback. Install as the camera's post-draw callback; it runs
// on the render thread and reports through captureFinished, which other threads receive queued.
class SaveImageDrawCallback : public QObject, public osg::Camera::DrawCallback
{
    Q_OBJECT
public:
    explicit SaveImageDrawCallback(const QString& path);
    SaveImageDrawCallback(QOpenGLFramebufferObject* fbo, const QString& path);

    // Rebound after the capture: the canvas's framebuffer. May be null.
    void setFBO(QOpenGLFramebufferObject* fbo) { m_fbo = fbo; }
    void setCaptureImgPath(const QString& path) { m_path = path; }
    // Receives the image when no path is set.
    void setImageCallback(std::function<void(const QImage&)> callback)
    {
        m_callback = std::move(callback);
    }
    // Armed at construction; arms it for one more capture.
    void setRunOnce(bool runOnce) { m_runOnce = runOnce; }

    void operator()(osg::RenderInfo& renderInfo) const override;

signals:
    void captureFinished(osg::Camera* camera, bool succeed);

private:
    // Every way out of a capture reports, and puts the canvas's framebuffer back.
    class OutScope
    {
    public:
        OutScope(osg::Camera* camera, const SaveImageDrawCallback* owner)
            : m_camera(camera), m_owner(owner)
        {
        }
        ~OutScope();
        void setFinished(bool finished) { m_finished = finished; }

    private:
        osg::Camera* m_camera;
        const SaveImageDrawCallback* m_owner;
        bool m_finished = false;
    };

    QString m_path;
    QOpenGLFramebufferObject* m_fbo = nullptr;
    mutable bool m_runOnce = true;
    std::function<void(const QImage&)> m_callback;
};

} // namespace Orvane
} // namespace Vorna
