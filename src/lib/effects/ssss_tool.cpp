#include "ssss_tool.h"

#include "canvas3d_shadermanager.h"
#include "screen_pass.h"

#include <climits>
#include <osg/Camera>
#include <osg/Geode>
#include <osg/Texture2D>
#include <osgUtil/CullVisitor>
#include <vector>

namespace Vorna {
namespace Orvane {

namespace {

// The shader's own default `sssWidth`, where one kernel millimetre is `worldUnitsPerMm`.
constexpr float kDefaultWidth = 0.0125f;
// Over everything the scene draws, before the antialiasing and denoise passes.
constexpr int kLastBin = INT_MAX / 2;

osg::Program* program(const std::string& name)
{
    return ShaderManager::instance()->getShader(name);
}

// Images of the view's size; the rig resizes them with the view. Half floats keep the
// diffuse above 1, which the brightness of the BSDF reaches, until the final sum.
osg::ref_ptr<osg::Texture2D> target(GLint internalFormat)
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setTextureSize(16, 16);
    texture->setInternalFormat(internalFormat);
    texture->setSourceFormat(GL_RGBA);
    texture->setSourceType(internalFormat == GL_RGBA8 ? GL_UNSIGNED_BYTE : GL_FLOAT);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    texture->setDataVariance(osg::Object::DYNAMIC);
    return texture;
}

osg::ref_ptr<osg::Camera> imageCamera(int order, const osg::Vec4& clear)
{
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    camera->setRenderOrder(osg::Camera::PRE_RENDER, order);
    camera->setViewport(0, 0, 16, 16);
    camera->setClearColor(clear);
    camera->setClearMask(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    camera->setAllowEventFocus(false);
    return camera;
}

// The blur program on a clip-space quad, with the rig's images on the units its samplers name.
osg::ref_ptr<osg::Geode> blurQuad(const std::string& name, osg::Drawable::DrawCallback* callback,
                                  const std::vector<std::pair<const char*, osg::Texture2D*>>& units,
                                  osg::Uniform* dir, bool secondPass)
{
    osg::ref_ptr<osg::Geode> geode =
        ScreenPass::createPassNode(name, program(g_meshPBRSSSSProgramStr), callback);
    osg::StateSet* ss = geode->getDrawable(0)->getOrCreateStateSet();
    // The result replaces what is below; the mask already mixes it with the frame.
    ss->setMode(GL_BLEND, osg::StateAttribute::OFF);
    for (size_t unit = 0; unit < units.size(); ++unit) {
        ss->addUniform(new osg::Uniform(units[unit].first, int(unit)));
        if (units[unit].second)
            ss->setTextureAttributeAndModes(unsigned(unit), units[unit].second);
    }
    ss->addUniform(dir);
    ss->addUniform(new osg::Uniform("second_pass", secondPass));
    return geode;
}

// The last pass reads the finished frame, copied onto unit 0 as the screen pass does.
struct CompositeCallback : public osg::Drawable::DrawCallback {
    void drawImplementation(osg::RenderInfo& renderInfo,
                            const osg::Drawable* drawable) const override
    {
        ScreenPass::drawOverFramebuffer(
            renderInfo, drawable, [&] { return ScreenPass::fboTexture(renderInfo); }, m_copy,
            "draw ssss node failed");
    }
    mutable osg::ref_ptr<osg::Texture2D> m_copy;
};

// Keeps the images at the view's size and the blur steps at its projection. Cull traversal of
// the rig, before its cameras are culled.
class FollowViewCallback : public osg::NodeCallback
{
public:
    FollowViewCallback(std::vector<osg::ref_ptr<osg::Camera>> cameras, float worldUnitsPerMm,
                       osg::Uniform* distance, osg::Uniform* firstDir)
        : m_cameras(std::move(cameras)), m_worldUnitsPerMm(worldUnitsPerMm), m_distance(distance),
          m_firstDir(firstDir)
    {
    }

    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        auto* cv = dynamic_cast<osgUtil::CullVisitor*>(nv);
        const osg::Viewport* viewport = cv ? cv->getViewport() : nullptr;
        if (viewport && viewport->width() >= 1 && viewport->height() >= 1) {
            const int width = int(viewport->width());
            const int height = int(viewport->height());
            if (width != m_width || height != m_height) {
                m_width = width;
                m_height = height;
                for (const osg::ref_ptr<osg::Camera>& camera : m_cameras) {
                    camera->setViewport(0, 0, width, height);
                    camera->resizeAttachments(width, height);
                }
            }
            // The kernel's offsets are millimetres; one world unit covers P11 / (2 depth) of
            // the texture's height, with depth the eye distance that the BSDF writes (1 in an
            // orthographic view, where that is the whole story).
            const osg::RefMatrix* projection = cv->getProjectionMatrix();
            const double p00 = (*projection)(0, 0);
            const double p11 = (*projection)(1, 1);
            if (p00 > 0.0 && p11 > 0.0) {
                m_distance->set(float(p11 * m_worldUnitsPerMm * kDefaultWidth));
                m_firstDir->set(osg::Vec2(float(p00 / p11), 0.0f));
            }
        }
        traverse(node, nv);
    }

private:
    std::vector<osg::ref_ptr<osg::Camera>> m_cameras;
    float m_worldUnitsPerMm;
    osg::ref_ptr<osg::Uniform> m_distance;
    osg::ref_ptr<osg::Uniform> m_firstDir;
    int m_width = 0;
    int m_height = 0;
};

} // namespace

osg::ref_ptr<osg::Group> SSSSTool::createSSSSNode(osg::Group* models, float worldUnitsPerMm)
{
    if (!models)
        return nullptr;
    osg::ref_ptr<osg::Group> rig = new osg::Group;
    rig->setName("ssss");

    // The models as their own programs draw them: "pbr_bsdf" fills all three targets.
    // Relative cameras with identity matrices see what the view's camera sees.
    osg::ref_ptr<osg::Texture2D> diffuse = target(GL_RGBA16F_ARB);
    osg::ref_ptr<osg::Texture2D> specular = target(GL_RGBA16F_ARB);
    // Eye distances of many hundred units; nearest, since depths of two surfaces don't mix.
    osg::ref_ptr<osg::Texture2D> depth = target(GL_RGBA32F_ARB);
    depth->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    depth->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    osg::ref_ptr<osg::Camera> surface = imageCamera(0, osg::Vec4(0, 0, 0, 0));
    surface->attach(osg::Camera::COLOR_BUFFER0, diffuse.get());
    surface->attach(osg::Camera::COLOR_BUFFER1, specular.get());
    surface->attach(osg::Camera::COLOR_BUFFER2, depth.get());
    surface->addChild(models);
    rig->addChild(surface.get());

    osg::ref_ptr<osg::Texture2D> mask = target(GL_RGBA8);
    osg::ref_ptr<osg::Camera> masking = imageCamera(1, osg::Vec4(1, 0, 0, 1));
    masking->attach(osg::Camera::COLOR_BUFFER, mask.get());
    masking->getOrCreateStateSet()->setAttributeAndModes(
        program(g_ssssMaskProgramStr), osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    masking->addChild(models);
    rig->addChild(masking.get());

    osg::ref_ptr<osg::Uniform> distance = new osg::Uniform("distanceToProjectionWindow", 1.0f);
    distance->setDataVariance(osg::Object::DYNAMIC);
    osg::ref_ptr<osg::Uniform> firstDir = new osg::Uniform("dir", osg::Vec2(1.0f, 0.0f));
    firstDir->setDataVariance(osg::Object::DYNAMIC);
    rig->getOrCreateStateSet()->addUniform(distance.get());

    // First pass: the diffuse blurred along x, into an image of its own. Empty pixels keep the
    // cleared alpha of 0, so the second pass leaves them alone too.
    osg::ref_ptr<osg::Texture2D> firstPass = target(GL_RGBA16F_ARB);
    osg::ref_ptr<osg::Camera> across = imageCamera(2, osg::Vec4(0, 0, 0, 0));
    across->setReferenceFrame(osg::Camera::ABSOLUTE_RF);
    across->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    across->attach(osg::Camera::COLOR_BUFFER, firstPass.get());
    across->addChild(blurQuad("ssss_blur_x", nullptr,
                              {{"colorTex", diffuse.get()},
                               {"specularTex", specular.get()},
                               {"depthTex", depth.get()},
                               {"screenColorTex", nullptr},
                               {"ssssMask", mask.get()}},
                              firstDir.get(), false));
    rig->addChild(across.get());

    // Second pass, over the finished frame: along y, plus the specular, where the mask is set.
    osg::ref_ptr<osg::Geode> composite =
        blurQuad("ssss_blur_y", new CompositeCallback,
                 {{"screenColorTex", nullptr},
                  {"colorTex", firstPass.get()},
                  {"specularTex", specular.get()},
                  {"depthTex", depth.get()},
                  {"ssssMask", mask.get()}},
                 new osg::Uniform("dir", osg::Vec2(0.0f, 1.0f)), true);
    composite->getOrCreateStateSet()->setRenderBinDetails(kLastBin, "RenderBin");
    rig->addChild(composite.get());

    rig->setCullCallback(new FollowViewCallback({surface, masking, across}, worldUnitsPerMm,
                                                distance.get(), firstDir.get()));
    return rig;
}

} // namespace Orvane
} // namespace Vorna
