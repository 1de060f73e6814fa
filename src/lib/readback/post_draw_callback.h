#pragma once

#include <QMap>
#include <QMutex>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QVariant>
#include <osg/Camera>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

// Told of the result of a screen capture, on its own thread.
class PostDrawCallBackObject : public QObject
{
    Q_OBJECT
signals:
    void captureFinished(bool success);
};

// One-shot work after the main camera's draw; other threads arm it, the render thread runs it.
class PostDrawCallBack : public osg::Camera::DrawCallback
{
public:
    enum PostOpeType { None = 0, CaptureScreen = 1 };
    static const QString CONNECT_OBJECT_NAME_CAPTURE;

    // param for CaptureScreen: {"path": string, "width": int, "height": int}
    void setOperationType(PostOpeType type, const QVariant& param);
    void setConnectObject(const QString& name, QSharedPointer<PostDrawCallBackObject> object);
    PostDrawCallBackObject* getConnectObject(const QString& name) const;

    void operator()(osg::RenderInfo& renderInfo) const override;
    // Saves a centred rectangle of the requested size of the view's framebuffer to the path.
    bool captureScreen(osgViewer::View* view) const;

private:
    void parseCaptureScreenParam(const QVariant& param);

    mutable QMutex m_mutex;
    mutable bool m_pending = false;
    PostOpeType m_type = None;
    QString m_path;
    int m_width = 0;
    int m_height = 0;
    QMap<QString, QSharedPointer<PostDrawCallBackObject>> m_connectObjects;
};

} // namespace Orvane
} // namespace Vorna
