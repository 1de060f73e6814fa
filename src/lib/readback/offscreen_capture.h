#pragma once

#include "save_image_draw_callback.h"

#include <QImage>
#include <QMutex>
#include <QObject>
#include <QScopedPointer>
#include <QString>
#include <osg/Camera>
#include <osg/Matrixd>
#include <osg/OperationThread>
#include <osg/Vec3f>
#include <osg/Viewport>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

// Renders a rectangle of a view, or the scene from a chosen direction, at any output size
// through a render-to-texture camera. The static functions that read or build cameras belong to
// the render thread; the operation that arms a capture may be made anywhere.
class OffscreenCapture
{
public:
    struct CaptureParams {
        osg::ref_ptr<osg::Viewport> viewport;
        osg::Matrixd viewMatrix;
        osg::Matrixd projectionMatrix;
        // For OffscreenCaptureCallback::setRunOnce.
        double captureWidth = 0.0;
        double captureHeight = 0.0;
        double outWidth = 0.0;
        double outHeight = 0.0;
    };

    static osg::Camera* createRTTCamera(const osg::Viewport& viewport, const osg::Matrixd& view,
                                        const osg::Matrixd& projection);
    // Frames the rectangle (pixels, top-left origin) of the view's current image so that it
    // fills an output of outWidth by outHeight.
    static CaptureParams computeCaptureParams(osgViewer::View* view, int x, int y, int width,
                                              int height, int outWidth, int outHeight);
    // Frames width by height world units seen from `eye`, orthographically.
    static CaptureParams computeCaptureParams(osgViewer::View* view, const osg::Vec3f& eye,
                                              const osg::Vec3f& center, const osg::Vec3f& up,
                                              int width, int height, int outWidth, int outHeight);
    // Moves the camera to the parameters and arms its OffscreenCaptureCallback; add the
    // operation to the canvas whose scene holds the camera.
    static osg::Operation* updateAndRunRTTCamera(osg::ref_ptr<osg::Camera>& camera,
                                                 const CaptureParams& params);
};

// Post-draw callback of a capture camera: after the next draw once armed, reads the colour
// attachment, crops and fits it to the output size with transparent bands, keeps the result and
// saves it when a path is set. Render thread; setRunOnce and getCaptureImage from any thread.
class OffscreenCaptureCallback : public QObject, public osg::Camera::DrawCallback
{
    Q_OBJECT
public:
    OffscreenCaptureCallback();

    void setRunOnce(double captureWidth, double captureHeight, double outWidth, double outHeight);
    // An empty path keeps the image in memory only.
    void setOutputPath(const QString& path);
    // A copy of the last result; null before the first capture.
    QImage getCaptureImage() const;

    void operator()(osg::RenderInfo& renderInfo) const override;

signals:
    void captureFinished(osg::Camera* camera, bool succeed);

private:
    bool capture(osg::RenderInfo& renderInfo, osg::Camera* camera, bool& finished) const;
    // Called with the mutex held.
    bool saveImge(const osg::Image& image) const;

    mutable QMutex m_mutex;
    mutable bool m_runOnce = false;
    double m_captureWidth = 0.0;
    double m_captureHeight = 0.0;
    double m_outWidth = 0.0;
    double m_outHeight = 0.0;
    QString m_path;
    mutable QScopedPointer<QImage> m_image;
};

} // namespace Orvane
} // namespace Vorna
