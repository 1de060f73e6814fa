#include "post_draw_callback.h"

#include "orvane_log.h"
#include "read_multisample_fbo.h"
#include "render_info.h"

#include <QFile>
#include <QImage>
#include <vector>

namespace Vorna {
namespace Orvane {

const QString PostDrawCallBack::CONNECT_OBJECT_NAME_CAPTURE = QStringLiteral("capture");

void PostDrawCallBack::setOperationType(PostOpeType type, const QVariant& param)
{
    QMutexLocker lock(&m_mutex);
    m_pending = true;
    m_type = type;
    if (type == CaptureScreen)
        parseCaptureScreenParam(param);
}

void PostDrawCallBack::parseCaptureScreenParam(const QVariant& param)
{
    const QVariantMap map = param.toMap();
    m_path = map.value("path").toString();
    m_width = map.value("width").toInt();
    m_height = map.value("height").toInt();
}

void PostDrawCallBack::setConnectObject(const QString& name,
                                        QSharedPointer<PostDrawCallBackObject> object)
{
    QMutexLocker lock(&m_mutex);
    m_connectObjects.insert(name, object);
}

PostDrawCallBackObject* PostDrawCallBack::getConnectObject(const QString& name) const
{
    QMutexLocker lock(&m_mutex);
    return m_connectObjects.value(name).data();
}

void PostDrawCallBack::operator()(osg::RenderInfo& renderInfo) const
{
    {
        QMutexLocker lock(&m_mutex);
        if (!m_pending)
            return;
    }
    auto* view = dynamic_cast<osgViewer::View*>(renderInfo.getView());
    if (!view)
        return;
    if (m_type == CaptureScreen) {
        const bool ok = captureScreen(view);
        if (PostDrawCallBackObject* object = getConnectObject(CONNECT_OBJECT_NAME_CAPTURE))
            QMetaObject::invokeMethod(object, "captureFinished", Qt::QueuedConnection,
                                      Q_ARG(bool, ok));
    }
    QMutexLocker lock(&m_mutex);
    m_pending = false;
}

bool PostDrawCallBack::captureScreen(osgViewer::View* view) const
{
    QString path;
    int width, height;
    {
        QMutexLocker lock(&m_mutex);
        path = m_path;
        width = m_width;
        height = m_height;
    }
    const osg::Viewport* vp = view->getCamera()->getViewport();
    if (!vp || width <= 0 || height <= 0)
        return false;
    const int x = static_cast<int>((vp->width() - width) / 2.0);
    const int y = static_cast<int>((vp->height() - height) / 2.0);
    osg::ref_ptr<osg::Image> image = new osg::Image;
    osgViewer::ViewerBase* viewerBase = view->getViewerBase();
    if (!viewerBase) {
        qCWarning(orvane) << "viewerBase is nullptr";
        return false;
    }
    auto* info = dynamic_cast<RenderInfo*>(viewerBase->getUserData());
    if (!info || !info->readMultiSampleFBO) {
        qCWarning(orvane) << "not found RenderInfo from viewerBase";
        return false;
    }
    if (!info->readMultiSampleFBO->readColor(image.get(), x, y, width, height)) {
        qCWarning(orvane) << "readColor failed";
        return false;
    }
    if (!image->data()) {
        qCWarning(orvane) << "readPixels failed";
        return false;
    }
    // GL rows run bottom-up in RGBA; QImage's ARGB32 is top-down and BGRA in memory.
    std::vector<uchar> buffer(static_cast<size_t>(width) * height * 4);
    for (int row = 0; row < height; ++row) {
        const uchar* src = image->data(0, height - 1 - row);
        uchar* dst = buffer.data() + static_cast<size_t>(row) * width * 4;
        for (int col = 0; col < width; ++col, src += 4, dst += 4) {
            dst[0] = src[2];
            dst[1] = src[1];
            dst[2] = src[0];
            dst[3] = src[3];
        }
    }
    QImage qimage(buffer.data(), width, height, QImage::Format_ARGB32);
    if (!qimage.save(path)) {
        qCCritical(orvane) << "write file failed, path is: " << path;
        return false;
    }
    return QFile::exists(path);
}

} // namespace Orvane
} // namespace Vorna
