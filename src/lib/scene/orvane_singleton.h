#pragma once

#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "orvane_metatypes.h"

#include <QKeyEvent>
#include <QObject>
#include <memory>
#include <osg/Camera>
#include <osg/Group>
#include <osg/MatrixTransform>
#include <osg/OperationThread>
#include <osg/observer_ptr>
#include <osgViewer/View>
#include <vector>

namespace Vorna {
namespace Orvane {

class CanvasBase;
class RenderInfo;

// Emits renderFinished() on the render thread after each draw of the cameras it is on.
class RenderFinishedObject : public QObject
{
    Q_OBJECT
signals:
    void renderFinished();
};

class RenderFinishedCallback : public osg::Camera::DrawCallback
{
public:
    RenderFinishedCallback() : m_object(std::make_shared<RenderFinishedObject>()) {}
    RenderFinishedObject* object() const { return m_object.get(); }
    void operator()(osg::RenderInfo&) const override { emit m_object->renderFinished(); }

private:
    std::shared_ptr<RenderFinishedObject> m_object;
};

// The application's door to the scene. Nearly every method only captures its arguments and
// returns a new operation; nothing changes until a caller adds it to a canvas, whose render
// thread then runs it. A null view means the main view of that canvas. Any thread may call
// the operation makers; showNode and the direct methods act on the caller's thread.
class OrvaneSingleton : public QObject
{
    Q_OBJECT
public:
    static OrvaneSingleton* instance();

    // The last canvas whose renderer was set up wins.
    void setCanvas(CanvasBase* canvas);
    CanvasBase* getCanvas() const;
    ShaderManager* getShaderMgr() { return ShaderManager::instance(); }
    RenderFinishedCallback* renderFinishedCallback() const { return m_renderFinished.get(); }

    // Views.
    Q_INVOKABLE osg::Operation* addView(osgViewer::View* view);
    Q_INVOKABLE osg::Operation* removeView(osgViewer::View* view);
    Q_INVOKABLE osg::Operation* showView(osgViewer::View* view, bool show);
    Q_INVOKABLE osg::Operation* showView(osgViewer::View* view, bool show, bool ignoreEventFocus);
    Q_INVOKABLE osg::Operation* addGroup(Vorna::Orvane::RefGroup group);
    Q_INVOKABLE osg::Operation* addGroup(Vorna::Orvane::RefGroup group, osgViewer::View* view);
    Q_INVOKABLE osg::Operation* addTransGroup(Vorna::Orvane::RefGroup group);
    Q_INVOKABLE osg::Operation* addTransGroup(Vorna::Orvane::RefGroup group, osgViewer::View* view);
    Q_INVOKABLE osg::Operation* addToOther(Vorna::Orvane::RefNode node);
    Q_INVOKABLE osg::Operation* addToOther(Vorna::Orvane::RefNode node, osgViewer::View* view);
    Q_INVOKABLE osg::Operation* moveToGroup(Vorna::Orvane::RefGroup group,
                                            Vorna::Orvane::RefNode node);
    Q_INVOKABLE osg::Operation* moveToGroup(Vorna::Orvane::RefGroup group,
                                            Vorna::Orvane::RefNode node,
                                            bool detachFromOriginParents);
    Q_INVOKABLE osg::Operation* moveToGroup(Vorna::Orvane::RefGroup group,
                                            Vorna::Orvane::RefNode node,
                                            bool detachFromOriginParents, bool detachOnlyView);
    Q_INVOKABLE osg::Operation* removeNode(Vorna::Orvane::NodeList nodes);
    // Draws the view's transparent model group see-through over the rest of its scene, or
    // puts the scene back as it was.
    Q_INVOKABLE osg::Operation* enableTransparent(osg::ref_ptr<osgViewer::View> view, bool enable);
    Q_INVOKABLE osg::Operation* addRenderFinishedCallback(osgViewer::View* view);
    Q_INVOKABLE osg::Operation* removeRenderFinishedCallback(osgViewer::View* view);

    // Scene content.
    Q_INVOKABLE osg::Operation* showNode(Vorna::Orvane::MTList nodes);
    Q_INVOKABLE osg::Operation* showNode(Vorna::Orvane::MTList nodes, bool state);
    Q_INVOKABLE osg::Operation* showNode(Vorna::Orvane::MTList nodes, bool state,
                                         bool initResourse);
    Q_INVOKABLE osg::Operation* setState(Vorna::Orvane::MTList nodes,
                                         Vorna::Orvane::StateList states);
    Q_INVOKABLE osg::Operation* updateMesh(Vorna::Orvane::RefMT node, osg::Array* vertex,
                                           osg::Array* normal, osg::Array* color);
    Q_INVOKABLE osg::Operation* updateMesh(Vorna::Orvane::RefMT node, osg::Array* vertex,
                                           osg::Array* normal, osg::Array* color,
                                           osg::DrawElementsUInt* drawElement);
    Q_INVOKABLE osg::Operation* updatePoint(Vorna::Orvane::RefMT node, osg::Array* vertex,
                                            osg::Array* normal, osg::Array* color);
    Q_INVOKABLE osg::Operation* updateTexture(Vorna::Orvane::RefMT node, osg::Vec2Array* crood,
                                              osg::Image* image);
    Q_INVOKABLE osg::Operation* setGroupShader(Vorna::Orvane::RefGroup group, const QString& type);
    Q_INVOKABLE osg::Operation* setGroupColorIndex(Vorna::Orvane::RefGroup group,
                                                   osg::Vec3Array* color);

    // Uniforms: each replaces one of the same name on the node's state set.
    Q_INVOKABLE osg::Operation* setGroupUniform(Vorna::Orvane::RefGroup group, int type,
                                                const osg::Vec3f& number);
    Q_INVOKABLE osg::Operation* setNodeUniform(Vorna::Orvane::RefNode node, int type,
                                               const osg::Vec3f& number);
    Q_INVOKABLE osg::Operation* setColorMode(Vorna::Orvane::RefGroup group, int colorMode);
    Q_INVOKABLE osg::Operation* setSmooth(Vorna::Orvane::RefGroup group, bool useSmooth);
    Q_INVOKABLE osg::Operation* enableGamma(Vorna::Orvane::RefGroup group, bool enable);
    Q_INVOKABLE osg::Operation* setGamma(Vorna::Orvane::RefGroup group, float gamma);
    Q_INVOKABLE osg::Operation* setBrightness(Vorna::Orvane::RefGroup group, float brightness);
    Q_INVOKABLE osg::Operation* setContrast(Vorna::Orvane::RefGroup group, float contrast);
    Q_INVOKABLE osg::Operation* setContrastDynamicLight(Vorna::Orvane::RefGroup group,
                                                        float contrast);
    Q_INVOKABLE osg::Operation* setPointSize(Vorna::Orvane::RefMT node, float pointSize);
    Q_INVOKABLE osg::Operation* setCutSelectIndex(Vorna::Orvane::RefMT node, int index);
    Q_INVOKABLE osg::Operation* setPointColorIsTexture(Vorna::Orvane::RefGroup group,
                                                       bool useTexture);
    Q_INVOKABLE osg::Operation* setShadowStrength(Vorna::Orvane::RefGroup group,
                                                  float shadowStrength);
    Q_INVOKABLE osg::Operation* setAlpha(Vorna::Orvane::RefNode node, float alpha);
    Q_INVOKABLE osg::Operation* setSplitPhongMaterial(Vorna::Orvane::RefGroup group,
                                                      const osg::Vec4f& ambient,
                                                      const osg::Vec4f& diffuse,
                                                      const osg::Vec4f& specular, float shininess);
    // With isFront true nothing is built and null is returned.
    Q_INVOKABLE osg::Operation* setSplitPhongMaterial(Vorna::Orvane::RefGroup group,
                                                      const osg::Vec4f& ambient,
                                                      const osg::Vec4f& diffuse,
                                                      const osg::Vec4f& specular, float shininess,
                                                      bool isFront);
    // One component of a light's (ambient, diffuse, specular, shininess) vector.
    Q_INVOKABLE osg::Operation* setAmbFactor(Vorna::Orvane::RefGroup group, float value);
    Q_INVOKABLE osg::Operation* setAmbFactor(Vorna::Orvane::RefGroup group, float value, int light);
    Q_INVOKABLE osg::Operation* setDiffFactor(Vorna::Orvane::RefGroup group, float value);
    Q_INVOKABLE osg::Operation* setDiffFactor(Vorna::Orvane::RefGroup group, float value,
                                              int light);
    Q_INVOKABLE osg::Operation* setSpecFactor(Vorna::Orvane::RefGroup group, float value);
    Q_INVOKABLE osg::Operation* setSpecFactor(Vorna::Orvane::RefGroup group, float value,
                                              int light);
    Q_INVOKABLE osg::Operation* setShininess(Vorna::Orvane::RefGroup group, float value);
    Q_INVOKABLE osg::Operation* setShininess(Vorna::Orvane::RefGroup group, float value, int light);
    Q_INVOKABLE osg::Operation* setLightDirection(Vorna::Orvane::RefGroup group,
                                                  const osg::Vec3f& direction);
    Q_INVOKABLE osg::Operation* setLightDirection(Vorna::Orvane::RefGroup group,
                                                  const osg::Vec3f& direction, int light);
    // Uniform names by light index, -1 being the back light; empty and logged beyond the table.
    static std::string getLightParamUniformName(int light);
    static std::string getLightDirectionUniformName(int light);

    // Direct methods, acting at the call.
    Q_INVOKABLE void setFitByScreenCoord(osgViewer::View* view, bool fitByScreenCoord,
                                         const osg::Vec2f& screenCoord);
    // Keeps frames coming on `canvas` for `time` seconds, as an animation of `view`.
    Q_INVOKABLE void framing(Vorna::Orvane::CanvasBase* canvas, osgViewer::View* view, float time);
    Q_INVOKABLE bool addShader(const std::string& shaderName,
                               const std::map<osg::Shader::Type, QByteArray>& sources);
    // Marks `nodes` as taking shadow (or not, with bEnableMask false) against the rest of the
    // model, on the façade's canvas; the mark is protected from the model's override.
    Q_INVOKABLE void setShadowMask(osg::ref_ptr<osg::Group> nodes);
    Q_INVOKABLE void setShadowMask(osg::ref_ptr<osg::Group> nodes, bool bEnableMask);
    // Disabling removes the main view's child of the other-nodes group named "shadow";
    // enabling leaves the scene as it is, since a client builds and adds that rig. With `wait`
    // the call returns once the frame that applied it has been drawn (at once where no frame
    // can come: updates blocked, or called from an operation of that canvas).
    Q_INVOKABLE void enableShadow(Vorna::Orvane::CanvasBase* canvas, bool enable, bool wait);
    Q_INVOKABLE void updateScanStateNoOpe();
    Q_INVOKABLE void updateScanStateNoOpe(bool state);
    Q_INVOKABLE bool getScanState() const;
    // Returns the flag and clears it, whatever the argument.
    Q_INVOKABLE bool getScanStateChanged();
    Q_INVOKABLE bool getScanStateChanged(bool reset);
    Q_INVOKABLE osg::Operation* updateScanState();
    Q_INVOKABLE osg::Operation* updateScanState(bool state);

    // Space-mouse wiring of an extra view; render thread.
    void addWatchEh2View(osgViewer::View* view, RenderInfo& info);

signals:
    void keyPressed(QKeyEvent* event);
    void keyReleased(QKeyEvent* event);
    void cameraRotated();
    void cameraMoved();
    void cameraScaled();

private:
    explicit OrvaneSingleton(QObject* parent = nullptr);
    void setScanState(bool state, osgViewer::View* mainView);
    osg::Operation* setLightParamComponent(RefGroup group, float value, int light, int component);

    osg::observer_ptr<CanvasBase> m_canvas;
    osg::ref_ptr<RenderFinishedCallback> m_renderFinished;
};

} // namespace Orvane
} // namespace Vorna
