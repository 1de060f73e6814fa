#include "viewer_effects.h"

#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "denoise_tool.h"
#include "fxaa_tool.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "screen_pass.h"
#include "ssss_tool.h"
#include "view_info.h"

#include <climits>
#include <osg/ComputeBoundsVisitor>

using namespace Vorna::Orvane;

namespace {

// Sizes of the rig's images: the light's depth needs detail, the screen-space images are
// resampled onto the frame and PCSS costs 120 taps a pixel.
constexpr int kLightMapSize = 1024;
constexpr int kScreenImageSize = 512;
// After everything the scene draws.
constexpr int kLastBin = INT_MAX / 2;

osg::Program* program(const std::string& name)
{
    return OrvaneSingleton::instance()->getShaderMgr()->getShader(name);
}

osg::Node* childNamed(osg::Group* group, const std::string& name)
{
    for (unsigned int i = 0; group && i < group->getNumChildren(); ++i)
        if (group->getChild(i)->getName() == name)
            return group->getChild(i);
    return nullptr;
}

osg::ref_ptr<osg::Texture2D> renderTexture(int size, GLint internalFormat, GLenum type)
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setTextureSize(size, size);
    texture->setInternalFormat(internalFormat);
    texture->setSourceFormat(internalFormat == GL_R32F ? GL_RED : GL_RGBA);
    texture->setSourceType(type);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    return texture;
}

// A pre-render camera drawing `models` into `target` with `shader` forced on them.
osg::ref_ptr<osg::Camera> imageCamera(osg::Group* models, osg::Texture2D* target, int order,
                                      osg::Program* shader, const osg::Vec4& clear)
{
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    camera->setRenderOrder(osg::Camera::PRE_RENDER, order);
    camera->attach(osg::Camera::COLOR_BUFFER, target);
    camera->setViewport(0, 0, target->getTextureWidth(), target->getTextureHeight());
    camera->setClearColor(clear);
    camera->setClearMask(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    camera->setAllowEventFocus(false);
    camera->getOrCreateStateSet()->setAttributeAndModes(shader, osg::StateAttribute::ON |
                                                                    osg::StateAttribute::OVERRIDE);
    camera->addChild(models);
    return camera;
}

struct ShadowCompositeCallback : public osg::Drawable::DrawCallback {
    void drawImplementation(osg::RenderInfo& renderInfo,
                            const osg::Drawable* drawable) const override
    {
        ScreenPass::drawOverFramebuffer(
            renderInfo, drawable, [&] { return ScreenPass::fboTexture(renderInfo); }, m_copy,
            "draw shadow node failed");
    }
    mutable osg::ref_ptr<osg::Texture2D> m_copy;
};

} // namespace

osg::ref_ptr<osg::Group> ViewerEffects::createShadowRig(osgViewer::View* view,
                                                        const osg::Vec3& towardsLight)
{
    osg::Group* models = ViewMgr::getModel(view);
    if (!models)
        return nullptr;
    osg::ComputeBoundsVisitor bounds;
    models->accept(bounds);
    const osg::BoundingSphere sphere(bounds.getBoundingBox());
    const float radius = sphere.valid() ? sphere.radius() : 1.0f;
    const osg::Vec3 centre = sphere.valid() ? sphere.center() : osg::Vec3();

    osg::Vec3 dir = towardsLight;
    dir.normalize();
    const osg::Vec3 up = std::fabs(dir.z()) > 0.9f ? osg::Vec3(0, 1, 0) : osg::Vec3(0, 0, 1);
    const osg::Matrix lightView = osg::Matrix::lookAt(centre + dir * (2.0f * radius), centre, up);
    // The models lie 1 to 3 radii from the light; their depths land in 0.8 to 0.98, where the
    // PCSS penumbra estimate, made for depths near 1, stays a few texels wide.
    const osg::Matrix lightProjection =
        osg::Matrix::ortho(-radius, radius, -radius, radius, -19.0f * radius, 3.2f * radius);

    osg::ref_ptr<osg::Group> rig = new osg::Group;
    rig->setName("shadow");

    osg::ref_ptr<osg::Texture2D> lightDepth = renderTexture(kLightMapSize, GL_R32F, GL_FLOAT);
    osg::ref_ptr<osg::Camera> light = imageCamera(
        models, lightDepth.get(), 0, program(g_shadowShadowMapProgramStr), osg::Vec4(1, 1, 1, 1));
    light->setReferenceFrame(osg::Camera::ABSOLUTE_RF);
    light->setViewMatrix(lightView);
    light->setProjectionMatrix(lightProjection);
    rig->addChild(light.get());

    // Relative cameras with identity matrices see what the view's camera sees.
    osg::ref_ptr<osg::Texture2D> visibility =
        renderTexture(kScreenImageSize, GL_RGBA8, GL_UNSIGNED_BYTE);
    osg::ref_ptr<osg::Camera> pcss = imageCamera(
        models, visibility.get(), 1, program(g_shadowPCSSProgramStr), osg::Vec4(1, 1, 1, 1));
    osg::StateSet* pcssState = pcss->getOrCreateStateSet();
    pcssState->setTextureAttributeAndModes(0, lightDepth.get(),
                                           osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    pcssState->addUniform(new osg::Uniform("uShadowMap", 0));
    pcssState->addUniform(new osg::Uniform("uShadowmapSize", float(kLightMapSize)));
    pcssState->addUniform(new osg::Uniform("uLightMVP", osg::Matrixf(lightView * lightProjection)));
    rig->addChild(pcss.get());

    osg::ref_ptr<osg::Texture2D> mask = renderTexture(kScreenImageSize, GL_RGBA8, GL_UNSIGNED_BYTE);
    rig->addChild(imageCamera(models, mask.get(), 2, program(g_shadowShadowMaskProgramStr),
                              osg::Vec4(1, 0, 0, 1)));

    // The composite reads the finished frame and the two images; the visibility image stands in
    // for the wider fill image too.
    osg::ref_ptr<osg::Geode> composite = ScreenPass::createPassNode(
        "shadow_rect", program(g_shadowRectProgramStr), new ShadowCompositeCallback);
    osg::StateSet* ss = composite->getDrawable(0)->getOrCreateStateSet();
    ss->setTextureAttributeAndModes(1, visibility.get());
    ss->setTextureAttributeAndModes(2, visibility.get());
    ss->setTextureAttributeAndModes(3, mask.get());
    ss->addUniform(new osg::Uniform("colorMap", 0));
    ss->addUniform(new osg::Uniform("pcssMap", 1));
    ss->addUniform(new osg::Uniform("pcssAuMap", 2));
    ss->addUniform(new osg::Uniform("faceMaskMap", 3));
    ss->setRenderBinDetails(kLastBin, "RenderBin");
    rig->addChild(composite.get());
    return rig;
}

bool ViewerEffects::toggleShadow(osgViewer::View* view)
{
    osg::Group* other = ViewMgr::getOther(view);
    if (!other)
        return false;
    if (osg::Node* rig = childNamed(other, "shadow")) {
        other->removeChild(rig);
        return false;
    }
    osg::ref_ptr<osg::Group> rig = createShadowRig(view, osg::Vec3(-0.5f, 0.6f, 1.0f));
    if (!rig)
        return false;
    other->addChild(rig.get());
    return true;
}

bool ViewerEffects::togglePbr(osgViewer::View* view)
{
    osg::Group* models = ViewMgr::getModel(view);
    if (!models)
        return false;
    osg::Group* other = ViewMgr::getOther(view);
    osg::StateSet* ss = models->getOrCreateStateSet();
    osg::Program* pbr = program(g_meshPBRBSDFProgramStr);
    if (ss->getAttribute(osg::StateAttribute::PROGRAM) == pbr) {
        ss->removeAttribute(osg::StateAttribute::PROGRAM);
        if (osg::Node* rig = childNamed(other, "ssss"))
            other->removeChild(rig);
        return false;
    }
    // Over each model's own program; the canvas keeps the diffuse target, which the
    // scattering rig replaces with the blurred diffuse plus the specular.
    ss->setAttributeAndModes(pbr, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    if (other) {
        // Skin scale: the models taken as a head of 100 mm radius.
        osg::ComputeBoundsVisitor bounds;
        models->accept(bounds);
        const osg::BoundingSphere sphere(bounds.getBoundingBox());
        const float unitsPerMm = sphere.valid() ? sphere.radius() / 100.0f : 0.01f;
        other->addChild(SSSSTool::createSSSSNode(models, unitsPerMm).get());
    }
    return true;
}

bool ViewerEffects::toggleScreenPass(osgViewer::View* view, const std::string& name)
{
    osg::Group* other = ViewMgr::getOther(view);
    if (!other)
        return false;
    if (osg::Node* existing = childNamed(other, name)) {
        other->removeChild(existing);
        return false;
    }
    osg::ref_ptr<osg::Geode> node =
        name == "fxaa_rect" ? FXAATool::createFXAANode() : DenoiseTool::createScreenDenoiseNode();
    node->getOrCreateStateSet()->setRenderBinDetails(kLastBin + 1, "RenderBin");
    other->addChild(node.get());
    return true;
}

bool ViewerEffects::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (ea.getEventType() != osgGA::GUIEventAdapter::KEYDOWN ||
        (ea.getModKeyMask() & osgGA::GUIEventAdapter::MODKEY_CTRL))
        return false;
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    ViewInfo* info = ViewMgr::getViewInfo(view);
    if (!info || !info->canvas)
        return false;
    std::function<void()> toggle;
    switch (ea.getKey()) {
    case 'h':
    case 'H':
        toggle = [view] { toggleShadow(view); };
        break;
    case 'p':
    case 'P':
        toggle = [view] { togglePbr(view); };
        break;
    case 'a':
    case 'A':
        toggle = [view] { toggleScreenPass(view, "fxaa_rect"); };
        break;
    case 'n':
    case 'N':
        toggle = [view] { toggleScreenPass(view, "denoise_rect"); };
        break;
    default:
        return false;
    }
    info->canvas->addOperation(new LambdaOperation([toggle](RenderInfo&) { toggle(); }));
    return true;
}
