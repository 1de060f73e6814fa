#include "scanbodyoutline.h"

#include "canvas_base.h"
#include "fbo_post_draw_callback.h"
#include "gl_functions.h"
#include "orvane_log.h"
#include "orvane_operations.h"
#include "read_texture2d_image.h"
#include "view_info.h"

#include <QImage>
#include <cstring>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

namespace {

osg::ref_ptr<osg::Texture2D> createTexture(unsigned int w, unsigned int h)
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setTextureSize(int(w), int(h));
    texture->setInternalFormat(GL_RGBA32F_ARB);
    texture->setSourceFormat(GL_RGBA);
    texture->setSourceType(GL_FLOAT);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    return texture;
}

osg::ref_ptr<osg::Texture2D> createDepthTexture(unsigned int w, unsigned int h)
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setTextureSize(int(w), int(h));
    texture->setInternalFormat(GL_DEPTH_COMPONENT24);
    texture->setSourceFormat(GL_DEPTH_COMPONENT);
    texture->setSourceType(GL_FLOAT);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    return texture;
}

// The attachments follow the output size: a new size needs new textures.
void attachTextures(osg::Camera* camera, unsigned int w, unsigned int h)
{
    camera->detach(osg::Camera::COLOR_BUFFER);
    camera->detach(osg::Camera::DEPTH_BUFFER);
    camera->attach(osg::Camera::COLOR_BUFFER, createTexture(w, h).get());
    camera->attach(osg::Camera::DEPTH_BUFFER, createDepthTexture(w, h).get());
    // The render stage keeps its framebuffer object until told to make a new one.
    camera->dirtyAttachmentMap();
}

void applyCamParam(osg::Camera* camera, const LineCamParam& p)
{
    camera->setViewport(0, 0, int(p.width), int(p.height));
    camera->setProjectionMatrixAsPerspective(p.fovy, double(p.width) / double(p.height), p.zNear,
                                             p.zFar);
    camera->setViewMatrix(p.viewMatrix);
}

osg::Group* sceneGroup(osgViewer::View* view)
{
    if (ViewInfo* info = ViewInfo::of(view); info && info->other)
        return info->other;
    return view && view->getSceneData() ? view->getSceneData()->asGroup() : nullptr;
}

} // namespace

bool loadFboImage(ImgWrapper* img, osg::RenderInfo& renderInfo, osg::Camera* camera)
{
    if (!img || !camera)
        return false;
    QOpenGLFunctions_4_1_Core* gl = m_glFun ? m_glFun : currentGlFunctions();
    if (!gl) {
        qCWarning(orvane) << "current opengl version is small than 4.5";
        return false;
    }
    // Logs "color buffer not found" or "read current texture2D failed" itself.
    osg::ref_ptr<ReadTexture2DImage> image = readColorAttachment(gl, renderInfo, camera);
    if (!image)
        return false;
    if (!image->data()) {
        qCWarning(orvane) << "read color buffer failed, image data is nullptr";
        return false;
    }
    img->width = image->s();
    img->height = image->t();
    const size_t bytes = size_t(img->width) * size_t(img->height) * 4;
    if (image->getTotalSizeInBytes() < bytes) {
        qCWarning(orvane) << "read color buffer failed, image data is nullptr";
        return false;
    }
    img->data.assign(image->data(), image->data() + bytes);
    return true;
}

DrawOutLinePostCb::DrawOutLinePostCb(QObject* receiver, CanvasBase* canvas, osg::Camera* camera,
                                     QString path)
    : m_receiver(receiver), m_canvas(canvas), m_camera(camera), m_path(std::move(path))
{
}

void DrawOutLinePostCb::operator()(osg::RenderInfo& renderInfo) const
{
    osg::ref_ptr<osg::Camera> camera;
    if (!m_camera.lock(camera))
        return;
    camera->setNodeMask(0);
    if (!loadFboImage(&m_img, renderInfo, camera.get())) {
        qCWarning(orvane) << "loadFboImage failed";
        return;
    }
    if (!m_path.isEmpty()) {
        const QImage image(m_img.data.data(), m_img.width, m_img.height, m_img.width * 4,
                           QImage::Format_RGBA8888);
        image.mirrored(false, true).save(m_path);
    }
    if (!m_receiver)
        return;
    auto* bytes = new unsigned char[m_img.data.size()];
    std::memcpy(bytes, m_img.data.data(), m_img.data.size());
    void* data = bytes;
    const bool queued = QMetaObject::invokeMethod(
        m_receiver, "onDrawScanBodyOutLine", Qt::QueuedConnection, Q_ARG(int, ++m_sequence),
        Q_ARG(void*, data), Q_ARG(int, m_img.width), Q_ARG(int, m_img.height));
    if (!queued)
        delete[] bytes;
}

ScanBodyOutLine::ScanBodyOutLine(QObject* parent, CanvasBase* canvas, osgViewer::View* view)
    : QObject(parent), m_canvas(canvas), m_msgRecver(parent), m_view(view)
{
    m_modelParam.root = new osg::MatrixTransform;
    m_modelParam.mtScanBody = new osg::MatrixTransform;
    m_modelParam.mtAux = new osg::MatrixTransform;
    m_modelParam.geodeScanBody = new osg::Geode;
    m_modelParam.geodeAux = new osg::Geode;
    m_modelParam.mtScanBody->addChild(m_modelParam.geodeScanBody);
    m_modelParam.mtAux->addChild(m_modelParam.geodeAux);
    m_modelParam.root->addChild(m_modelParam.mtScanBody);
    m_modelParam.root->addChild(m_modelParam.mtAux);
    qCInfo(orvane) << "ScanBodyOutLine construct success";
}

ScanBodyOutLine::~ScanBodyOutLine()
{
    release();
    qCInfo(orvane) << "ScanBodyOutLine desturct success";
}

bool ScanBodyOutLine::init(QString savePath)
{
    if (m_inited) {
        qCInfo(orvane) << "already inited";
        return true;
    }
    if (!m_canvas) {
        qCWarning(orvane) << "m_canvas is null";
        return false;
    }
    if (!m_msgRecver) {
        qCWarning(orvane) << "m_msgRecver is null";
        return false;
    }
    m_camera = new osg::Camera;
    m_camera->setClearDepth(1.0);
    m_camera->setClearColor(osg::Vec4(0, 0, 0, 0));
    m_camera->setClearMask(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    m_camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    m_camera->setAllowEventFocus(false);
    m_camera->setRenderOrder(osg::Camera::PRE_RENDER);
    m_camera->setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    attachTextures(m_camera.get(), m_camParam.width, m_camParam.height);
    m_camera->setPostDrawCallback(new FBOPostDrawCallback);
    m_camera->addPostDrawCallback(
        new DrawOutLinePostCb(m_msgRecver, m_canvas.get(), m_camera.get(), savePath));
    applyCamParam(m_camera.get(), m_camParam);
    m_camera->setNodeMask(0);
    m_camera->addChild(m_modelParam.root);

    osg::ref_ptr<osg::Camera> camera = m_camera;
    osgViewer::View* view = m_view;
    m_canvas->addOperation(new LambdaOperation([camera, view](RenderInfo& info) {
        osg::Group* scene = sceneGroup(view ? view : info.mainView());
        if (scene)
            scene->addChild(camera.get());
    }));
    m_inited = true;
    qCInfo(orvane) << "init success";
    return true;
}

void ScanBodyOutLine::release()
{
    if (!m_inited) {
        qCInfo(orvane) << "already released";
        return;
    }
    osg::ref_ptr<osg::Camera> camera = m_camera;
    m_canvas->addOperation(new LambdaOperation([camera](RenderInfo&) {
        // Parents are removed as the list shrinks.
        while (camera->getNumParents() > 0)
            camera->getParent(0)->removeChild(camera.get());
    }));
    m_camera = nullptr;
    m_inited = false;
    qCInfo(orvane) << "release success";
}

bool ScanBodyOutLine::drawOneFrame()
{
    if (!m_inited) {
        qCWarning(orvane) << "haven't inited";
        return false;
    }
    osg::ref_ptr<osg::Camera> camera = m_camera;
    const LineModelParam models = m_modelParam;
    m_canvas->addOperation(new LambdaOperation([camera, models](RenderInfo&) {
        if (!models.m_mtArr.empty() && models.geodeScanBody && models.geodeAux)
            camera->setNodeMask(~0u);
    }));
    return true;
}

void ScanBodyOutLine::addLineModel(osg::ref_ptr<osg::MatrixTransform> mt)
{
    if (!mt)
        return;
    m_modelParam.m_mtArr.push_back(mt);
    osg::ref_ptr<osg::MatrixTransform> holder = m_modelParam.mtScanBody;
    m_canvas->addOperation(
        new LambdaOperation([holder, mt](RenderInfo&) { holder->addChild(mt.get()); }));
}

void ScanBodyOutLine::setViewMatrix(const osg::Matrixd& view)
{
    m_camParam.viewMatrix = view;
    if (!m_inited)
        return;
    osg::ref_ptr<osg::Camera> camera = m_camera;
    m_canvas->addOperation(
        new LambdaOperation([camera, view](RenderInfo&) { camera->setViewMatrix(view); }));
}

void ScanBodyOutLine::lookAt(const osg::Vec3d& eye, const osg::Vec3d& center, const osg::Vec3d& up)
{
    setViewMatrix(osg::Matrixd::lookAt(eye, center, up));
}

bool ScanBodyOutLine::setCameraProjectParam(double fovy, double zNear, double zFar)
{
    qCInfo(orvane) << "fovy:" << fovy << ", zNear:" << zNear << ", zFar:" << zFar;
    if (fovy <= 0) {
        qCWarning(orvane) << "fovy <= 0";
        return false;
    }
    m_camParam.fovy = fovy;
    m_camParam.zNear = zNear;
    m_camParam.zFar = zFar;
    onCameraParamChanged();
    return true;
}

void ScanBodyOutLine::setDimension(unsigned int width, unsigned int height)
{
    qCInfo(orvane) << "width:" << width << ", height:" << height;
    const bool resized = width != m_camParam.width || height != m_camParam.height;
    m_camParam.width = width;
    m_camParam.height = height;
    if (resized && m_inited) {
        osg::ref_ptr<osg::Camera> camera = m_camera;
        m_canvas->addOperation(new LambdaOperation(
            [camera, width, height](RenderInfo&) { attachTextures(camera.get(), width, height); }));
    }
    onCameraParamChanged();
}

void ScanBodyOutLine::onCameraParamChanged()
{
    if (!m_inited)
        return;
    osg::ref_ptr<osg::Camera> camera = m_camera;
    const LineCamParam snapshot = m_camParam;
    m_canvas->addOperation(new LambdaOperation(
        [camera, snapshot](RenderInfo&) { applyCamParam(camera.get(), snapshot); }));
}

void ScanBodyOutLine::modifyLineColor(unsigned int index, osg::Vec3f color)
{
    const std::vector<osg::ref_ptr<osg::MatrixTransform>> mts = m_modelParam.m_mtArr;
    m_canvas->addOperation(new LambdaOperation([mts, index, color](RenderInfo&) {
        if (index >= mts.size()) {
            qCWarning(orvane) << "modifyLineColor - invalid index: " << index;
            return;
        }
        osg::MatrixTransform* mt = mts[index].get();
        if (!mt) {
            qCWarning(orvane) << "modifyLineColor - m_mtArr[index] is nullptr, index:" << index;
            return;
        }
        osg::Node* line = nullptr;
        for (unsigned int i = 0; i < mt->getNumChildren() && !line; ++i) {
            if (mt->getChild(i)->getName() == "mtLine")
                line = mt->getChild(i);
        }
        if (!line) {
            qCWarning(orvane) << "modifyLineColor - mtLine not exist";
            return;
        }
        osg::StateSet* ss = line->getOrCreateStateSet();
        const osg::Vec4 rgba(color, 1.0f);
        if (osg::Uniform* u = ss->getUniform("uniformColor"))
            u->set(rgba);
        else
            ss->addUniform(new osg::Uniform("uniformColor", rgba),
                           osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    }));
}

void ScanBodyOutLine::freeImage(void* data)
{
    delete[] static_cast<unsigned char*>(data);
}

} // namespace Orvane
} // namespace Vorna
