#pragma once

// Line models of the scan body drawn on request into an offscreen target, one frame per request,
// the picture handed to a receiver object. Hidden in the canvas's scene between requests.
#include <QObject>
#include <QPointer>
#include <QString>
#include <memory>
#include <osg/Camera>
#include <osg/Geode>
#include <osg/MatrixTransform>
#include <osg/Matrixd>
#include <osg/Texture2D>
#include <vector>

namespace osgViewer {
class View;
}

namespace Vorna {
namespace Orvane {

class CanvasBase;

struct LineCamParam {
    osg::Matrixd viewMatrix;
    double fovy = 30.0;
    double zNear = 0.1;
    double zFar = 1000.0;
    unsigned int width = 512;
    unsigned int height = 512;
};

struct LineModelParam {
    osg::ref_ptr<osg::MatrixTransform> root;
    // One transform per line model; each holds a child named "mtLine" whose state set carries
    // the line colour.
    std::vector<osg::ref_ptr<osg::MatrixTransform>> m_mtArr;
    osg::ref_ptr<osg::MatrixTransform> mtScanBody;
    osg::ref_ptr<osg::MatrixTransform> mtAux;
    osg::ref_ptr<osg::Geode> geodeScanBody;
    osg::ref_ptr<osg::Geode> geodeAux;
    osg::Vec4 color = osg::Vec4(1, 1, 1, 1);
    int lineMode = 1;
    float lineWidth = 1.5f;
};

// Image data of one read-back, rows bottom-up, RGBA 8 bits a channel.
struct ImgWrapper {
    std::vector<unsigned char> data;
    int width = 0;
    int height = 0;
};

// Reads the colour attachment of `camera` into `img`; false after logging why.
bool loadFboImage(ImgWrapper* img, osg::RenderInfo& renderInfo, osg::Camera* camera);

// After the offscreen pass: hides the camera again and delivers the picture. The receiver gets
// onDrawScanBodyOutLine(int sequence, void* data, int width, int height) as a queued call; data
// is RGBA8888, rows bottom-up, allocated with new[] and owned by the receiver from then on
// (release it with ScanBodyOutLine::freeImage).
class DrawOutLinePostCb : public osg::Camera::DrawCallback
{
public:
    DrawOutLinePostCb(QObject* receiver, CanvasBase* canvas, osg::Camera* camera, QString path);
    void operator()(osg::RenderInfo& renderInfo) const override;

private:
    QPointer<QObject> m_receiver;
    CanvasBase* m_canvas;
    osg::observer_ptr<osg::Camera> m_camera;
    QString m_path;
    mutable ImgWrapper m_img;
    mutable int m_sequence = 0;
};

class ScanBodyOutLine : public QObject
{
    Q_OBJECT
public:
    // The parent receives the pictures.
    ScanBodyOutLine(QObject* parent, CanvasBase* canvas, osgViewer::View* view);
    ~ScanBodyOutLine() override;

    // Pictures are also saved to savePath when it isn't empty.
    bool init(QString savePath = QString());
    void release();
    bool isInited() const { return m_inited; }
    bool drawOneFrame();

    // Adds a line model; its lines are drawn by the node named "mtLine" under it.
    void addLineModel(osg::ref_ptr<osg::MatrixTransform> mt);
    void setViewMatrix(const osg::Matrixd& view);
    void lookAt(const osg::Vec3d& eye, const osg::Vec3d& center, const osg::Vec3d& up);
    bool setCameraProjectParam(double fovy, double zNear, double zFar);
    void setDimension(unsigned int width, unsigned int height);
    void modifyLineColor(unsigned int index, osg::Vec3f color);

    static void freeImage(void* data);

private:
    void onCameraParamChanged();

    bool m_inited = false;
    osg::ref_ptr<CanvasBase> m_canvas;
    QObject* m_msgRecver;
    osgViewer::View* m_view;
    osg::ref_ptr<osg::Camera> m_camera;
    LineCamParam m_camParam;
    LineModelParam m_modelParam;
};

} // namespace Orvane
} // namespace Vorna
