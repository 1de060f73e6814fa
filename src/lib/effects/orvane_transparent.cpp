#include "orvane_transparent.h"

#include "canvas3d_shadermanager.h"
#include "fbo_post_draw_callback.h"
#include "orvane_log.h"
#include "render_info.h"
#include "view_info.h"

#include <QOpenGLFramebufferObject>
#include <osg/BlendEquationi>
#include <osg/BlendFunc>
#include <osg/BlendFunci>
#include <osg/ColorMaski>
#include <osg/Depth>
#include <osg/Geode>
#include <osg/Geometry>
#include <osgUtil/CullVisitor>

namespace Vorna {
namespace Orvane {

const std::string TransparentMgr::s_viewportUniformStr = "viewport";

namespace {

// User values on "transGroup": how the transparent model group was binned before the rig
// binned its first pass, so that taking the rig away leaves it as it was.
const char* const kBinModeKey = "transModelBinMode";
const char* const kBinNumKey = "transModelBinNum";
const char* const kBinNameKey = "transModelBinName";

ShaderManager* shaders()
{
    return ShaderManager::instance();
}

// The rig's camera: keeps its layers and the "viewport" uniform the size of the camera that
// culls it, so the rig follows the canvas when it is resized.
class MboitCamera : public osg::Camera
{
public:
    void accept(osg::NodeVisitor& nv) override
    {
        if (auto* cv = dynamic_cast<osgUtil::CullVisitor*>(&nv))
            followSizeOf(cv->getCurrentCamera());
        osg::Camera::accept(nv);
    }

    void setSize(int width, int height)
    {
        setViewport(0, 0, width, height);
        for (auto& attachment : getBufferAttachmentMap()) {
            auto* texture = dynamic_cast<osg::Texture2D*>(attachment.second._texture.get());
            if (texture &&
                (texture->getTextureWidth() != width || texture->getTextureHeight() != height)) {
                texture->setTextureSize(width, height);
                texture->dirtyTextureObject();
            }
        }
        dirtyAttachmentMap();
        if (osg::Uniform* viewport =
                getOrCreateStateSet()->getUniform(TransparentMgr::s_viewportUniformStr))
            viewport->set(osg::Vec2f(float(width), float(height)));
    }

private:
    void followSizeOf(const osg::Camera* outer)
    {
        const osg::Viewport* vp = outer ? outer->getViewport() : nullptr;
        if (!vp || vp->width() < 1.0 || vp->height() < 1.0)
            return;
        const int width = int(vp->width()), height = int(vp->height());
        const osg::Viewport* own = getViewport();
        if (!own || int(own->width()) != width || int(own->height()) != height)
            setSize(width, height);
    }
};

osg::Texture2D* createLayer(int width, int height, GLint internalFormat, GLenum sourceFormat)
{
    auto* texture = new osg::Texture2D;
    texture->setTextureSize(width, height);
    texture->setInternalFormat(internalFormat);
    texture->setSourceFormat(sourceFormat);
    texture->setSourceType(GL_FLOAT);
    // Read back texel for pixel: nothing to filter.
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    texture->setResizeNonPowerOfTwoHint(false);
    return texture;
}

// Kept out of every bound: the quad covers the screen wherever the camera looks.
class NoBoundingBox : public osg::Drawable::ComputeBoundingBoxCallback
{
public:
    osg::BoundingBox computeBound(const osg::Drawable&) const override
    {
        return osg::BoundingBox();
    }
};

osg::Geode* createTransparentQuad()
{
    osg::ref_ptr<osg::Vec2Array> positions = new osg::Vec2Array;
    osg::ref_ptr<osg::Vec2Array> texCoords = new osg::Vec2Array;
    const osg::Vec2 corners[6] = {{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}};
    for (const osg::Vec2& corner : corners) {
        positions->push_back(corner * 2.0f - osg::Vec2(1.0f, 1.0f));
        texCoords->push_back(corner);
    }
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setDataVariance(osg::Object::STATIC);
    geometry->setCullingActive(false);
    geometry->setComputeBoundingBoxCallback(new NoBoundingBox);
    geometry->setVertexAttribArray(0, positions.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(3, texCoords.get(), osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, 6));

    auto* geode = new osg::Geode;
    geode->setCullingActive(false);
    geode->addDrawable(geometry);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setAttributeAndModes(shaders()->getShader(g_transSecondPassProgramStr),
                             osg::StateAttribute::ON);
    // The hint first: it would otherwise reset the bin to the depth-sorted one.
    ss->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
    ss->setRenderBinDetails(10000, "RenderBin");
    ss->setAttributeAndModes(new osg::BlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA),
                             osg::StateAttribute::ON);
    ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    return geode;
}

void setLayer(osg::StateSet* ss, unsigned int unit, osg::Texture2D* texture, const char* sampler,
              osg::StateAttribute::OverrideValue value)
{
    ss->setTextureAttributeAndModes(unit, texture, value);
    ss->addUniform(new osg::Uniform(sampler, int(unit)), value);
}

} // namespace

RefGroup TransparentMgr::createTransparentGroup(RenderInfo& info, int width, int height)
{
    return createTransparentGroup(info, width, height, info.mainView());
}

RefGroup TransparentMgr::createTransparentGroup(RenderInfo& info, int width, int height,
                                                osgViewer::View* view)
{
    if (!info.canvas) {
        qCCritical(orvane) << "RenderInfo's canvas is nullptr";
        return RefGroup();
    }
    ViewInfo* viewInfo = ViewInfo::of(view);
    if (!viewInfo || !viewInfo->transModel) {
        qCWarning(orvane) << "view isn't create by ViewMgr";
        return RefGroup();
    }

    osg::Geode* quad = createTransparentQuad();
    quad->setName("transparent_quad");
    RefGroup transGroup = new osg::Group;
    transGroup->setName("transGroup");
    osg::ref_ptr<osg::Group> passGroup = new osg::Group;

    if (const osg::Viewport* vp = view->getCamera()->getViewport()) {
        width = int(vp->width());
        height = int(vp->height());
    }
    QVector<osg::Texture2D*> textures;
    osg::Camera* camera = createRttCamera(textures, width, height);

    // Opaque nodes land premultiplied in their layer; moments and weighted colour add up.
    osg::StateSet* cameraSs = camera->getOrCreateStateSet();
    for (unsigned int i = 0; i < 4; ++i) {
        if (i == OpaqueColor)
            cameraSs->setAttributeAndModes(new osg::BlendFunci(i, GL_ONE, GL_ONE_MINUS_SRC_ALPHA));
        else
            cameraSs->setAttributeAndModes(new osg::BlendFunci(i, GL_ONE, GL_ONE));
        cameraSs->setAttributeAndModes(new osg::BlendEquationi(i, osg::BlendEquation::FUNC_ADD));
    }
    cameraSs->setMode(GL_BLEND, osg::StateAttribute::ON);
    // Opaque programs write their colour only; what they leave in the other outputs is
    // undefined and must not reach the sums.
    for (unsigned int i = Moments14; i <= TransColor; ++i)
        cameraSs->setAttribute(new osg::ColorMaski(i, false, false, false, false));
    camera->setPostDrawCallback(new FBOPostDrawCallback);

    // First pass: the transparent model group itself, with its own programs.
    osg::Group* transModel = viewInfo->transModel;
    osg::StateSet* modelSs = transModel->getOrCreateStateSet();
    transGroup->setUserValue(kBinModeKey, int(modelSs->getRenderBinMode()));
    transGroup->setUserValue(kBinNumKey, modelSs->getBinNumber());
    transGroup->setUserValue(kBinNameKey, modelSs->getBinName());
    passGroup->addChild(transModel);
    modelSs->setRenderBinDetails(11, "RenderBin");

    // Transparent surfaces are tested against the opaque depth and never hide one another.
    const auto forced = osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE;
    osg::StateSet* passSs = passGroup->getOrCreateStateSet();
    passSs->setAttributeAndModes(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, false), forced);
    passSs->setMode(GL_DEPTH_TEST, forced);
    passSs->setMode(GL_BLEND, forced);
    for (unsigned int i = Moments14; i <= TransColor; ++i)
        passSs->setAttribute(new osg::ColorMaski(i, true, true, true, true));

    // Second pass: the same group again, coloured and weighted by the moments of the first.
    osg::ref_ptr<osg::Group> secondPass = new osg::Group;
    secondPass->addChild(transModel);
    passGroup->addChild(secondPass.get());
    osg::StateSet* secondSs = secondPass->getOrCreateStateSet();
    secondSs->setAttributeAndModes(shaders()->getShader(g_mboitMeshProgramStr), forced);
    setLayer(secondSs, 1, textures[Moments14], "texB14", forced);
    setLayer(secondSs, 2, textures[Moment0], "texB0", forced);
    // It reads the moments while drawing: only its own layer may be written.
    for (unsigned int i = OpaqueColor; i < TransColor; ++i)
        secondSs->setAttribute(new osg::ColorMaski(i, false, false, false, false));
    // Beats the bin that the model group carries for the first pass.
    secondSs->setRenderBinDetails(20, "RenderBin", osg::StateSet::OVERRIDE_RENDERBIN_DETAILS);

    osg::StateSet* quadSs = quad->getOrCreateStateSet();
    const auto on = osg::StateAttribute::ON;
    setLayer(quadSs, 0, textures[Moment0], "texB0", on);
    setLayer(quadSs, 1, textures[TransColor], "texTransColor", on);
    setLayer(quadSs, 2, textures[OpaqueColor], "texOpaColor", on);

    camera->addChild(passGroup.get());
    transGroup->addChild(camera);
    transGroup->addChild(quad);
    return transGroup;
}

osg::Camera* TransparentMgr::createRttCamera(QVector<osg::Texture2D*>& textures, int width,
                                             int height)
{
    textures.resize(4);
    auto* camera = new MboitCamera;
    camera->setClearMask(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    camera->setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    camera->setRenderOrder(osg::Camera::PRE_RENDER, 0);
    camera->setName("mboit");
    camera->setViewport(0, 0, width, height);
    camera->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);

    textures[OpaqueColor] = createLayer(width, height, GL_RGBA32F_ARB, GL_RGBA);
    textures[Moments14] = createLayer(width, height, GL_RGBA32F_ARB, GL_RGBA);
    textures[Moment0] = createLayer(width, height, GL_R32F, GL_RED);
    textures[TransColor] = createLayer(width, height, GL_RGBA32F_ARB, GL_RGBA);
    for (int i = 0; i < 4; ++i)
        camera->attach(osg::Camera::BufferComponent(osg::Camera::COLOR_BUFFER0 + i), textures[i]);

    camera->setClearColor(osg::Vec4(0.0f, 0.0f, 0.0f, 0.0f));
    camera->setClearDepth(1.0);
    // The second pass turns gl_FragCoord into a position in the layers with it.
    camera->getOrCreateStateSet()->addUniform(
        new osg::Uniform(s_viewportUniformStr.c_str(), osg::Vec2f(float(width), float(height))));
    return camera;
}

osg::Group* TransparentMgr::getTransparentNodeGroup(osg::Group* group)
{
    if (!group || group->getNumChildren() == 0)
        return nullptr;
    return group->getChild(0)->asGroup();
}

osg::Group* TransparentMgr::installedRig(osgViewer::View* view)
{
    ViewInfo* info = ViewInfo::of(view);
    osg::Group* root = info ? info->root : nullptr;
    if (!root || root->getNumChildren() == 0)
        return nullptr;
    osg::Group* first = root->getChild(0)->asGroup();
    return first && first->getName() == "transGroup" &&
                   dynamic_cast<osg::Camera*>(getTransparentNodeGroup(first))
               ? first
               : nullptr;
}

bool TransparentMgr::install(RenderInfo& info, osgViewer::View* view)
{
    ViewInfo* viewInfo = ViewInfo::of(view);
    if (!viewInfo || !viewInfo->root || installedRig(view))
        return false;
    osg::Group* root = viewInfo->root;
    const osg::Viewport* vp = view->getCamera()->getViewport();
    const int width = vp ? int(vp->width()) : 0, height = vp ? int(vp->height()) : 0;
    qCDebug(orvane) << "viewport:" << width << height;
    RefGroup rig = createTransparentGroup(info, width, height, view);
    if (!rig)
        return false;
    osg::Group* camera = getTransparentNodeGroup(rig.get());
    // The transparent model group is in the rig already; the rest makes the opaque layer.
    std::vector<osg::ref_ptr<osg::Node>> children;
    for (unsigned int i = 0; i < root->getNumChildren(); ++i)
        if (root->getChild(i) != viewInfo->transModel)
            children.push_back(root->getChild(i));
    for (const osg::ref_ptr<osg::Node>& child : children)
        camera->addChild(child.get());
    root->removeChildren(0, root->getNumChildren());
    root->addChild(rig.get());
    return true;
}

bool TransparentMgr::uninstall(osgViewer::View* view)
{
    osg::ref_ptr<osg::Group> rig = installedRig(view);
    if (!rig)
        return false;
    osg::Group* root = ViewInfo::of(view)->root;
    osg::ref_ptr<osg::Group> camera = getTransparentNodeGroup(rig.get());
    std::vector<osg::ref_ptr<osg::Node>> children;
    for (unsigned int i = 1; i < camera->getNumChildren(); ++i)
        children.push_back(camera->getChild(i));
    osg::ref_ptr<osg::Group> passGroup =
        camera->getNumChildren() > 0 ? camera->getChild(0)->asGroup() : nullptr;
    osg::ref_ptr<osg::Node> transModel =
        passGroup && passGroup->getNumChildren() > 0 ? passGroup->getChild(0) : nullptr;
    if (transModel)
        children.push_back(transModel);
    root->removeChildren(0, root->getNumChildren());
    for (const osg::ref_ptr<osg::Node>& child : children)
        root->addChild(child.get());

    // Let go of the rig's hold on the nodes and give the model group its bin back.
    camera->removeChildren(0, camera->getNumChildren());
    if (passGroup)
        passGroup->removeChildren(0, passGroup->getNumChildren());
    if (transModel && transModel->getStateSet()) {
        int mode = 0, number = 0;
        std::string name;
        rig->getUserValue(kBinModeKey, mode);
        rig->getUserValue(kBinNumKey, number);
        rig->getUserValue(kBinNameKey, name);
        transModel->getStateSet()->setRenderBinDetails(number, name,
                                                       osg::StateSet::RenderBinMode(mode));
    }
    return true;
}

osg::BufferObject* TransparentMgr::createOITSSBO(int, int)
{
    return nullptr;
}

void TransparentMgr::updateTransparentShaderAndSSBO(osg::Group*, const QSize&, int, int) {}

void OITPostDrawCallback::operator()(osg::RenderInfo&) const
{
    if (m_fbo)
        m_fbo->bind();
}

void OITPostDrawCallback::onFBOChanged(QOpenGLFramebufferObject* fbo)
{
    m_fbo = fbo;
}

} // namespace Orvane
} // namespace Vorna
