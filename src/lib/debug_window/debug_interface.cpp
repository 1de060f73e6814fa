#include "debug_interface.h"

#include "camera_operations.h"
#include "canvas3d_drawable.h"
#include "canvas_base.h"
#include "orvane_log.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "render_info.h"

#include <osg/Camera>
#include <osg/Uniform>

namespace Vorna {
namespace Orvane {
namespace RenderDebug {

namespace {

osg::Vec3f toVec3(const QColor& color)
{
    return osg::Vec3f(float(color.redF()), float(color.greenF()), float(color.blueF()));
}

} // namespace

DebugInterface::DebugInterface(QObject* parent) : QObject(parent) {}

void DebugInterface::post(const char* what, std::function<void(RenderInfo&)> work)
{
    CanvasBase* canvas = OrvaneSingleton::instance()->getCanvas();
    if (!canvas) {
        qCWarning(orvane) << what << ": no canvas to render debug";
        return;
    }
    canvas->addOperation(new LambdaOperation(std::move(work)));
}

void DebugInterface::setCameraUniform(const char* what, osg::Uniform* uniform)
{
    osg::ref_ptr<osg::Uniform> held = uniform;
    post(what, [held](RenderInfo& info) {
        osg::Camera* camera = info.masterCamera();
        if (!camera)
            return;
        osg::StateSet* ss = camera->getOrCreateStateSet();
        ss->removeUniform(held->getName());
        ss->addUniform(held.get());
    });
}

void DebugInterface::reset()
{
    post("reset", [](RenderInfo& info) {
        osg::Camera* camera = info.masterCamera();
        if (!camera || !camera->getStateSet())
            return;
        osg::StateSet* ss = camera->getStateSet();
        for (const char* name : {"front", "back", "pointSize", "lightParam", "light1Param",
                                 "light2Param", "light3Param", "light4Param"})
            ss->removeUniform(name);
    });
}

void DebugInterface::setLightParam(float ambFactor, float diffFactor, float specFactor,
                                   float shininess, int lightIndex)
{
    const std::string name = OrvaneSingleton::getLightParamUniformName(lightIndex);
    if (name.empty())
        return;
    setCameraUniform(
        "setLightParam",
        new osg::Uniform(name.c_str(), osg::Vec4f(ambFactor, diffFactor, specFactor, shininess)));
}

void DebugInterface::enableTransparent(bool enable)
{
    CanvasBase* canvas = OrvaneSingleton::instance()->getCanvas();
    if (!canvas) {
        qCWarning(orvane) << "enableTransparent"
                          << ": no canvas to render debug";
        return;
    }
    canvas->addOperation(OrvaneSingleton::instance()->enableTransparent(nullptr, enable));
}

void DebugInterface::setAlpha(float alpha)
{
    setCameraUniform("setAlpha", new osg::Uniform(Mesh::uniform(Mesh::Alpha), alpha));
}

void DebugInterface::setGamma(float gamma)
{
    setCameraUniform("setGamma", new osg::Uniform(Mesh::uniform(Mesh::Gamma), gamma));
}

void DebugInterface::setBrightness(float brightness)
{
    setCameraUniform("setBrightness",
                     new osg::Uniform(Mesh::uniform(Mesh::Brightness), brightness));
}

void DebugInterface::setContrast(float contrast)
{
    setCameraUniform("setContrast", new osg::Uniform(Mesh::uniform(Mesh::Contrast), contrast));
}

void DebugInterface::setContrastDynamicLight(float diffBase)
{
    setCameraUniform("setContrastDynamicLight", new osg::Uniform("diffBase", diffBase));
}

void DebugInterface::setObjSpecular(float specular)
{
    setCameraUniform("setObjSpecular", new osg::Uniform("objSpecular", specular));
}

void DebugInterface::setObjShininess(float shininess)
{
    setCameraUniform("setObjShininess", new osg::Uniform("objShininess", shininess));
}

void DebugInterface::setFrontColor(const QColor& color)
{
    setCameraUniform("setFrontColor", new osg::Uniform("front", toVec3(color)));
}

void DebugInterface::setBackColor(const QColor& color)
{
    setCameraUniform("setBackColor", new osg::Uniform("back", toVec3(color)));
}

void DebugInterface::setBackSelectedFactor(float factor)
{
    setCameraUniform("setBackSelectedFactor", new osg::Uniform("backSelectedFactor", factor));
}

void DebugInterface::framming()
{
    CanvasBase* canvas = OrvaneSingleton::instance()->getCanvas();
    if (!canvas) {
        qCWarning(orvane) << "framming : no canvas to render debug";
        return;
    }
    canvas->addOperation(new FitOperationAuto);
}

void DebugInterface::setCutTransPlaneOffset(float planeOffset)
{
    setCameraUniform("setCutTransPlaneOffset", new osg::Uniform("planeOffset", planeOffset));
}

void DebugInterface::enableViewDatum(bool enable)
{
    // No gizmo is built into the scene yet.
    post("enableViewDatum", [enable](RenderInfo&) {
        qCWarning(orvane) << "enableViewDatum" << enable << ": no view datum in the scene";
    });
}

void DebugInterface::setPBR(const char* what, const char* uniform, float value, int id)
{
    // No physically based meshes are registered by the scene yet, whatever the id.
    Q_UNUSED(uniform)
    Q_UNUSED(value)
    Q_UNUSED(id)
    post(what, [what](RenderInfo&) {
        qCWarning(orvane) << what;
        qCWarning(orvane) << "There is no pbr mesh loaded!!";
    });
}

void DebugInterface::setSubsurface(float value, int id)
{
    setPBR("setSubsurface", "subsurface", value, id);
}

void DebugInterface::setAnisotropic(float value, int id)
{
    setPBR("setAnisotropic", "anisotropic", value, id);
}

void DebugInterface::setSpecular(float value, int id)
{
    setPBR("setSpecular", "specular", value, id);
}

void DebugInterface::setMetallic(float value, int id)
{
    setPBR("setMetallic", "metallic", value, id);
}

void DebugInterface::setPBRBrightness(float value, int id)
{
    setPBR("setPBRBrightness", "brightnessUniform", value, id);
}

void DebugInterface::setRoughness(float value, int id)
{
    setPBR("setRoughness", "roughnessUniform", value, id);
}

void DebugInterface::setClearcoat(float value, int id)
{
    setPBR("setClearcoat", "clearcoat", value, id);
}

void DebugInterface::setSSSWidth(float width)
{
    setCameraUniform("setSSSWidth", new osg::Uniform("sssWidth", width));
}

void DebugInterface::enableFlatNormal(bool enable)
{
    setCameraUniform("enableFlatNormal", new osg::Uniform("useSmooth", !enable));
}

void DebugInterface::setShadowStrength(float strength)
{
    setCameraUniform("setShadowStrength", new osg::Uniform("shadowStrength", strength));
}

void DebugInterface::saveIncreData()
{
    // The live cloud dumps its data on its next draw when the camera asks for it.
    setCameraUniform("saveIncreData", new osg::Uniform("saveIncreData", true));
}

void DebugInterface::enable(const QString& name, bool value)
{
    if (name.isEmpty())
        return;
    setCameraUniform("enable", new osg::Uniform(name.toStdString().c_str(), value));
}

void DebugInterface::setFloat(const QString& name, float value)
{
    if (name.isEmpty())
        return;
    setCameraUniform("setFloat", new osg::Uniform(name.toStdString().c_str(), value));
}

void DebugInterface::setVec3(const QString& name, const QVector3D& value)
{
    if (name.isEmpty())
        return;
    setCameraUniform("setVec3", new osg::Uniform(name.toStdString().c_str(),
                                                 osg::Vec3f(value.x(), value.y(), value.z())));
}

void DebugInterface::setColor(const QString& name, const QColor& value)
{
    if (name.isEmpty())
        return;
    setCameraUniform("setColor", new osg::Uniform(name.toStdString().c_str(), toVec3(value)));
}

} // namespace RenderDebug
} // namespace Orvane
} // namespace Vorna
