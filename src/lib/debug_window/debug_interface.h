#pragma once

#include <QColor>
#include <QObject>
#include <QString>
#include <QVector3D>
#include <functional>

namespace osg {
class Uniform;
}

namespace Vorna {
namespace Orvane {

class RenderInfo;

namespace RenderDebug {

// What the tuning window calls. Every change goes to the first canvas as an operation and
// lands on its master camera's state set, so it reaches every program below that does not set
// the same uniform itself. GUI thread.
class DebugInterface : public QObject
{
    Q_OBJECT
public:
    explicit DebugInterface(QObject* parent = nullptr);

    Q_INVOKABLE void reset();
    Q_INVOKABLE void setLightParam(float ambFactor, float diffFactor, float specFactor,
                                   float shininess, int lightIndex);
    Q_INVOKABLE void enableTransparent(bool enable);
    Q_INVOKABLE void setAlpha(float alpha);
    Q_INVOKABLE void setGamma(float gamma);
    Q_INVOKABLE void setBrightness(float brightness);
    Q_INVOKABLE void setContrast(float contrast);
    Q_INVOKABLE void setContrastDynamicLight(float diffBase);
    Q_INVOKABLE void setObjSpecular(float specular);
    Q_INVOKABLE void setObjShininess(float shininess);
    Q_INVOKABLE void setFrontColor(const QColor& color);
    Q_INVOKABLE void setBackColor(const QColor& color);
    Q_INVOKABLE void setBackSelectedFactor(float factor);
    Q_INVOKABLE void framming();
    Q_INVOKABLE void setCutTransPlaneOffset(float planeOffset);
    Q_INVOKABLE void enableViewDatum(bool enable);
    Q_INVOKABLE void setSubsurface(float value, int id);
    Q_INVOKABLE void setAnisotropic(float value, int id);
    Q_INVOKABLE void setSpecular(float value, int id);
    Q_INVOKABLE void setMetallic(float value, int id);
    Q_INVOKABLE void setPBRBrightness(float value, int id);
    Q_INVOKABLE void setRoughness(float value, int id);
    Q_INVOKABLE void setClearcoat(float value, int id);
    Q_INVOKABLE void setSSSWidth(float width);
    Q_INVOKABLE void enableFlatNormal(bool enable);
    Q_INVOKABLE void setShadowStrength(float strength);
    Q_INVOKABLE void saveIncreData();
    Q_INVOKABLE void enable(const QString& name, bool value);
    Q_INVOKABLE void setFloat(const QString& name, float value);
    Q_INVOKABLE void setVec3(const QString& name, const QVector3D& value);
    Q_INVOKABLE void setColor(const QString& name, const QColor& value);

private:
    // Runs `work` on the render thread of the first canvas; logs when there is none.
    void post(const char* what, std::function<void(RenderInfo&)> work);
    // Replaces the uniform of that name on the master camera.
    void setCameraUniform(const char* what, osg::Uniform* uniform);
    void setPBR(const char* what, const char* uniform, float value, int id);
};

} // namespace RenderDebug
} // namespace Orvane
} // namespace Vorna
