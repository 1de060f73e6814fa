#include "orvane_singleton.h"

#include "animation_mgr.h"
#include "canvas3d_view.h"
#include "canvas_base.h"
#include "customize_manipulator.h"
#include "frame_drawn_gate.h"
#include "hide_view.h"
#include "orvane_log.h"
#include "orvane_operations.h"
#include "orvane_transparent.h"
#include "render_info.h"
#include "scene_flags.h"
#include "space_mouse_mgr.h"
#include "watch_active_eh.h"

#include <QCoreApplication>
#include <osg/Switch>

namespace Vorna {
namespace Orvane {

namespace {

// How long a waiting call gives the canvas to draw: far more than a frame, short enough that a
// canvas that stopped drawing costs a pause rather than a hang.
constexpr int kFrameWaitMs = 5000;

// The view a lambda works on: the given one, else the main view of the running canvas; null
// (and logged) when ViewMgr did not make it.
osgViewer::View* viewFor(osgViewer::View* view, RenderInfo& info)
{
    osgViewer::View* target = view ? view : info.mainView();
    if (!ViewMgr::isCreateBy(target)) {
        qCWarning(orvane) << "view isn't create by ViewMgr";
        return nullptr;
    }
    return target;
}

osg::Operation* lambda(LambdaOperation::Function function)
{
    return new LambdaOperation(std::move(function));
}

// Adds `uniform` to the node's state set, replacing one of the same name.
osg::Operation* uniformOperation(RefNode node, osg::Uniform* uniform)
{
    osg::ref_ptr<osg::Uniform> held = uniform;
    return lambda([node, held](RenderInfo&) {
        if (node)
            node->getOrCreateStateSet()->addUniform(held.get(), osg::StateAttribute::ON);
    });
}

osgViewer::View* findViewWithUserData(osgViewer::CompositeViewer* viewer, const char* name,
                                      osgViewer::View* owner)
{
    for (unsigned int i = 0; i < viewer->getNumViews(); ++i) {
        osgViewer::View* candidate = viewer->getView(i);
        if (candidate->getName() == name && candidate->getUserData() == owner)
            return candidate;
    }
    return nullptr;
}

// Shows or hides a view. The canvas's main view hides its scene instead of its camera, so
// that the camera keeps clearing.
void showViewHelper(osgViewer::View* view, bool show, bool ignoreEventFocus, RenderInfo& info)
{
    if (!view)
        return;
    osg::Node* target =
        view == info.mainView() ? view->getSceneData() : static_cast<osg::Node*>(view->getCamera());
    if (target)
        target->setNodeMask(show ? ~0u : 0u);
    if (!ignoreEventFocus)
        view->getCamera()->setAllowEventFocus(show);
    if (auto* manipulator = dynamic_cast<CustomizeManipulator*>(view->getCameraManipulator()))
        show ? manipulator->enable() : manipulator->disable();
}

template <typename T> T* findDrawCallback(osg::Camera::DrawCallback* callback)
{
    for (osg::Callback* c = callback; c; c = c->getNestedCallback())
        if (auto* found = dynamic_cast<T*>(c))
            return found;
    return nullptr;
}

} // namespace

OrvaneSingleton::OrvaneSingleton(QObject* parent)
    : QObject(parent), m_renderFinished(new RenderFinishedCallback)
{
    qCDebug(orvane) << "multi-touch orvane singleton created";
    registerMetaTypes();
    // The first caller may be a renderer on its render thread; the façade belongs to the
    // application's thread, where QML and queued signals expect it.
    if (QCoreApplication::instance())
        moveToThread(QCoreApplication::instance()->thread());
}

OrvaneSingleton* OrvaneSingleton::instance()
{
    static OrvaneSingleton* singleton = new OrvaneSingleton;
    return singleton;
}

void OrvaneSingleton::setCanvas(CanvasBase* canvas)
{
    m_canvas = canvas;
}

CanvasBase* OrvaneSingleton::getCanvas() const
{
    return m_canvas.get();
}

osg::Operation* OrvaneSingleton::addView(osgViewer::View* view)
{
    osg::ref_ptr<osgViewer::View> held = view;
    return lambda([this, held](RenderInfo& info) {
        osgViewer::View* target = viewFor(held.get(), info);
        osgViewer::CompositeViewer* viewer = info.compViewer();
        if (!target || !viewer)
            return;
        for (unsigned int i = 0; i < viewer->getNumViews(); ++i) {
            if (viewer->getView(i) == target) {
                qCDebug(orvane) << "view is exist in CompositeViewer when addView, so return";
                return;
            }
        }
        addWatchEh2View(target, info);
        // A view removed earlier left the context; back in the viewer it draws on it again.
        osg::Camera* camera = target->getCamera();
        if (camera && !camera->getGraphicsContext() && info.masterCamera())
            camera->setGraphicsContext(info.masterCamera()->getGraphicsContext());
        viewer->addView(target);
        viewer->addView(createHideView(&info, target));
    });
}

osg::Operation* OrvaneSingleton::removeView(osgViewer::View* view)
{
    osg::ref_ptr<osgViewer::View> held = view;
    return lambda([held](RenderInfo& info) {
        osgViewer::View* target = viewFor(held.get(), info);
        osgViewer::CompositeViewer* viewer = info.compViewer();
        if (!target || !viewer)
            return;
        // Left on the context, a removed view's camera would still be drawn, by a renderer
        // whose view may be gone.
        const auto remove = [viewer](osgViewer::View* removed) {
            osg::ref_ptr<osgViewer::View> held = removed;
            viewer->removeView(removed);
            if (osg::Camera* camera = held->getCamera())
                camera->setGraphicsContext(nullptr);
        };
        // The first companion view met goes first, one per call.
        for (unsigned int i = 0; i < viewer->getNumViews(); ++i) {
            osgViewer::View* candidate = viewer->getView(i);
            const std::string& name = candidate->getName();
            if ((name == "datum" || name == "MacMainHideView") &&
                candidate->getUserData() == target) {
                remove(candidate);
                break;
            }
        }
        remove(target);
    });
}

osg::Operation* OrvaneSingleton::showView(osgViewer::View* view, bool show)
{
    return showView(view, show, false);
}

osg::Operation* OrvaneSingleton::showView(osgViewer::View* view, bool show, bool ignoreEventFocus)
{
    osg::ref_ptr<osgViewer::View> held = view;
    return lambda([held, show, ignoreEventFocus](RenderInfo& info) {
        osgViewer::View* target = viewFor(held.get(), info);
        if (!target)
            return;
        showViewHelper(target, show, ignoreEventFocus, info);
        if (osgViewer::CompositeViewer* viewer = info.compViewer())
            showViewHelper(findViewWithUserData(viewer, "datum", target), show, true, info);
    });
}

osg::Operation* OrvaneSingleton::addGroup(RefGroup group)
{
    return addGroup(group, nullptr);
}

osg::Operation* OrvaneSingleton::addGroup(RefGroup group, osgViewer::View* view)
{
    osg::ref_ptr<osgViewer::View> held = view;
    return lambda([group, held](RenderInfo& info) {
        if (osgViewer::View* target = viewFor(held.get(), info))
            ViewMgr::getModel(target)->addChild(group.get());
    });
}

osg::Operation* OrvaneSingleton::addTransGroup(RefGroup group)
{
    return addTransGroup(group, nullptr);
}

osg::Operation* OrvaneSingleton::addTransGroup(RefGroup group, osgViewer::View* view)
{
    osg::ref_ptr<osgViewer::View> held = view;
    return lambda([group, held](RenderInfo& info) {
        if (osgViewer::View* target = viewFor(held.get(), info))
            ViewMgr::getTransModel(target)->addChild(group.get());
    });
}

osg::Operation* OrvaneSingleton::enableTransparent(osg::ref_ptr<osgViewer::View> view, bool enable)
{
    return lambda([view, enable](RenderInfo& info) {
        osgViewer::View* target = viewFor(view.get(), info);
        if (!target)
            return;
        // A second enable would nest a rig in the rig; a disable without one would take the
        // model group for it.
        if (enable && !TransparentMgr::install(info, target))
            qCDebug(orvane) << "transparency already enabled";
        else if (!enable && !TransparentMgr::uninstall(target))
            qCDebug(orvane) << "transparency isn't enabled";
    });
}

osg::Operation* OrvaneSingleton::addToOther(RefNode node)
{
    return addToOther(node, nullptr);
}

osg::Operation* OrvaneSingleton::addToOther(RefNode node, osgViewer::View* view)
{
    osg::ref_ptr<osgViewer::View> held = view;
    return lambda([node, held](RenderInfo& info) {
        if (osgViewer::View* target = viewFor(held.get(), info))
            ViewMgr::getOther(target)->addChild(node.get());
    });
}

osg::Operation* OrvaneSingleton::moveToGroup(RefGroup group, RefNode node)
{
    return moveToGroup(group, node, true, false);
}

osg::Operation* OrvaneSingleton::moveToGroup(RefGroup group, RefNode node,
                                             bool detachFromOriginParents)
{
    return moveToGroup(group, node, detachFromOriginParents, false);
}

osg::Operation* OrvaneSingleton::moveToGroup(RefGroup group, RefNode node,
                                             bool detachFromOriginParents, bool detachOnlyView)
{
    return lambda([group, node, detachFromOriginParents, detachOnlyView](RenderInfo&) {
        if (!group || !node)
            return;
        if (detachFromOriginParents && !detachOnlyView) {
            const osg::Node::ParentList parents = node->getParents();
            for (osg::Group* parent : parents)
                parent->removeChild(node.get());
        } else if (detachFromOriginParents) {
            // Detach only under the view that shows `group`; other views keep the node.
            const osg::NodePathList groupPaths = group->getParentalNodePaths();
            if (groupPaths.empty() || groupPaths.front().empty())
                return;
            auto* camera = dynamic_cast<osg::Camera*>(groupPaths.front().front());
            if (!camera)
                return;
            for (const osg::NodePath& path : node->getParentalNodePaths()) {
                if (path.size() < 2 || path.front() != camera)
                    continue;
                if (osg::Group* parent = path[path.size() - 2]->asGroup())
                    parent->removeChild(node.get());
            }
        }
        group->addChild(node.get());
    });
}

osg::Operation* OrvaneSingleton::removeNode(NodeList nodes)
{
    return lambda([nodes](RenderInfo&) {
        for (const RefNode& node : nodes) {
            if (!node)
                continue;
            if (node->getNumParents() == 0)
                qCDebug(orvane) << "node hasn't parent when remove";
            while (node->getNumParents() > 0)
                node->getParent(0)->removeChild(node.get());
        }
    });
}

osg::Operation* OrvaneSingleton::addRenderFinishedCallback(osgViewer::View* view)
{
    osg::ref_ptr<osgViewer::View> held = view;
    osg::ref_ptr<RenderFinishedCallback> callback = m_renderFinished;
    return lambda([held, callback](RenderInfo& info) {
        osgViewer::View* target = held ? held.get() : info.mainView();
        if (!target)
            return;
        osg::Camera* camera = target->getCamera();
        if (!findDrawCallback<RenderFinishedCallback>(camera->getPostDrawCallback()))
            camera->addPostDrawCallback(callback.get());
    });
}

osg::Operation* OrvaneSingleton::removeRenderFinishedCallback(osgViewer::View* view)
{
    osg::ref_ptr<osgViewer::View> held = view;
    return lambda([held](RenderInfo& info) {
        osgViewer::View* target = held ? held.get() : info.mainView();
        if (!target)
            return;
        osg::Camera* camera = target->getCamera();
        if (auto* found = findDrawCallback<RenderFinishedCallback>(camera->getPostDrawCallback()))
            camera->removePostDrawCallback(found);
    });
}

osg::Operation* OrvaneSingleton::showNode(MTList nodes)
{
    return showNode(nodes, true, false);
}

osg::Operation* OrvaneSingleton::showNode(MTList nodes, bool state)
{
    return showNode(nodes, state, false);
}

osg::Operation* OrvaneSingleton::showNode(MTList nodes, bool state, bool initResourse)
{
    // Acts now, on the caller's thread: a switch flag is a single store.
    for (const RefMT& node : nodes) {
        if (!node || node->getNumChildren() == 0)
            continue;
        if (auto* toggle = dynamic_cast<osg::Switch*>(node->getChild(0)))
            state ? toggle->setAllChildrenOn() : toggle->setAllChildrenOff();
    }
    return lambda([initResourse](RenderInfo&) {});
}

osg::Operation* OrvaneSingleton::setState(MTList nodes, StateList states)
{
    return lambda([nodes, states](RenderInfo&) {
        for (size_t i = 0; i < nodes.size() && i < states.size(); ++i) {
            osg::Geometry* geometry = DrawableBase::asGeometry(nodes[i].get());
            auto* array = DrawableBase::getVertexArray<StateArray>(geometry, StateSlot);
            if (!array)
                continue;
            array->asVector().assign(states[i].begin(), states[i].end());
            array->dirty();
        }
    });
}

osg::Operation* OrvaneSingleton::updateMesh(RefMT node, osg::Array* vertex, osg::Array* normal,
                                            osg::Array* color)
{
    return updateMesh(node, vertex, normal, color, nullptr);
}

osg::Operation* OrvaneSingleton::updateMesh(RefMT node, osg::Array* vertex, osg::Array* normal,
                                            osg::Array* color, osg::DrawElementsUInt* drawElement)
{
    osg::ref_ptr<osg::Array> v = vertex, n = normal, c = color;
    osg::ref_ptr<osg::DrawElementsUInt> elements = drawElement;
    return lambda([node, v, n, c, elements](RenderInfo&) {
        osg::Geometry* geometry = DrawableBase::asGeometry(node.get());
        const unsigned int before =
            geometry && geometry->getNumVertexAttribArrays()
                ? geometry->getVertexAttribArray(PositionSlot)->getNumElements()
                : 0;
        Mesh::update(node.get(), v.get(), n.get(), c.get());
        if (!geometry)
            return;
        const osg::Array* positions = geometry->getVertexAttribArray(PositionSlot);
        const unsigned int count = positions ? positions->getNumElements() : 0;
        if (elements || count != before) {
            geometry->removePrimitiveSet(0, geometry->getNumPrimitiveSets());
            if (elements)
                geometry->addPrimitiveSet(elements.get());
            else
                geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, count));
        }
        geometry->dirtyBound();
    });
}

osg::Operation* OrvaneSingleton::updatePoint(RefMT node, osg::Array* vertex, osg::Array* normal,
                                             osg::Array* color)
{
    osg::ref_ptr<osg::Array> v = vertex, n = normal, c = color;
    return lambda([node, v, n, c](RenderInfo&) {
        const unsigned int changed = Point::update(node.get(), v.get(), n.get(), c.get());
        osg::Geometry* geometry = DrawableBase::asGeometry(node.get());
        if (!geometry)
            return;
        if (changed) {
            const osg::Array* positions = geometry->getVertexAttribArray(PositionSlot);
            geometry->removePrimitiveSet(0, geometry->getNumPrimitiveSets());
            geometry->addPrimitiveSet(
                new osg::DrawArrays(GL_POINTS, 0, positions ? positions->getNumElements() : 0));
        }
        geometry->dirtyBound();
    });
}

osg::Operation* OrvaneSingleton::updateTexture(RefMT node, osg::Vec2Array* crood, osg::Image* image)
{
    osg::ref_ptr<osg::Vec2Array> uv = crood;
    osg::ref_ptr<osg::Image> held = image;
    return lambda(
        [node, uv, held](RenderInfo&) { Mesh::updateTexture(node.get(), uv.get(), held.get()); });
}

osg::Operation* OrvaneSingleton::setGroupShader(RefGroup group, const QString& type)
{
    osg::ref_ptr<osg::Program> program = ShaderManager::instance()->getShader(type.toStdString());
    return lambda([group, program](RenderInfo&) {
        if (group && program)
            group->getOrCreateStateSet()->setAttributeAndModes(program.get(),
                                                               osg::StateAttribute::ON);
    });
}

osg::Operation* OrvaneSingleton::setGroupColorIndex(RefGroup group, osg::Vec3Array* color)
{
    osg::ref_ptr<osg::Vec3Array> colors = color;
    return lambda([group, colors](RenderInfo&) { Mesh::colorIndex(group.get(), colors.get()); });
}

osg::Operation* OrvaneSingleton::setGroupUniform(RefGroup group, int type, const osg::Vec3f& number)
{
    return setNodeUniform(group, type, number);
}

osg::Operation* OrvaneSingleton::setNodeUniform(RefNode node, int type, const osg::Vec3f& number)
{
    const char* name = Mesh::uniform(static_cast<Mesh::UniformType>(type));
    if (!name)
        return lambda([](RenderInfo&) {});
    return uniformOperation(node, new osg::Uniform(name, number));
}

osg::Operation* OrvaneSingleton::setColorMode(RefGroup group, int colorMode)
{
    return uniformOperation(group, new osg::Uniform("colorMode", colorMode));
}

osg::Operation* OrvaneSingleton::setSmooth(RefGroup group, bool useSmooth)
{
    return uniformOperation(group, new osg::Uniform("useSmooth", useSmooth));
}

osg::Operation* OrvaneSingleton::enableGamma(RefGroup group, bool enable)
{
    return uniformOperation(group, new osg::Uniform("enableGamma", enable ? 1 : 0));
}

osg::Operation* OrvaneSingleton::setGamma(RefGroup group, float gamma)
{
    return uniformOperation(group, new osg::Uniform("gamma", gamma));
}

osg::Operation* OrvaneSingleton::setBrightness(RefGroup group, float brightness)
{
    return uniformOperation(group, new osg::Uniform("brightness", brightness));
}

osg::Operation* OrvaneSingleton::setContrast(RefGroup group, float contrast)
{
    return uniformOperation(group, new osg::Uniform("contrast", contrast));
}

osg::Operation* OrvaneSingleton::setContrastDynamicLight(RefGroup group, float contrast)
{
    return uniformOperation(group, new osg::Uniform("diffBase", contrast));
}

osg::Operation* OrvaneSingleton::setPointSize(RefMT node, float pointSize)
{
    return uniformOperation(node, new osg::Uniform("pointSize", pointSize));
}

osg::Operation* OrvaneSingleton::setCutSelectIndex(RefMT node, int index)
{
    return uniformOperation(node, new osg::Uniform("selectIndex", static_cast<float>(index)));
}

osg::Operation* OrvaneSingleton::setPointColorIsTexture(RefGroup group, bool useTexture)
{
    return uniformOperation(group, new osg::Uniform("ubTexture", useTexture));
}

osg::Operation* OrvaneSingleton::setShadowStrength(RefGroup group, float shadowStrength)
{
    return uniformOperation(group, new osg::Uniform("shadowStrength", shadowStrength));
}

osg::Operation* OrvaneSingleton::setAlpha(RefNode node, float alpha)
{
    return lambda([node, alpha](RenderInfo&) {
        if (!node)
            return;
        osg::StateSet* ss = node->getOrCreateStateSet();
        if (osg::Uniform* existing = ss->getUniform("alpha"))
            existing->set(alpha);
        else
            ss->addUniform(new osg::Uniform("alpha", alpha), osg::StateAttribute::ON);
    });
}

osg::Operation* OrvaneSingleton::setSplitPhongMaterial(RefGroup group, const osg::Vec4f& ambient,
                                                       const osg::Vec4f& diffuse,
                                                       const osg::Vec4f& specular, float shininess)
{
    return setSplitPhongMaterial(group, ambient, diffuse, specular, shininess, false);
}

osg::Operation* OrvaneSingleton::setSplitPhongMaterial(RefGroup group, const osg::Vec4f& ambient,
                                                       const osg::Vec4f& diffuse,
                                                       const osg::Vec4f& specular, float shininess,
                                                       bool isFront)
{
    if (isFront)
        return nullptr;
    // OSG rows are GLSL columns: ambient, diffuse, specular, then shininess first.
    const osg::Matrixf material(ambient.x(), ambient.y(), ambient.z(), ambient.w(), diffuse.x(),
                                diffuse.y(), diffuse.z(), diffuse.w(), specular.x(), specular.y(),
                                specular.z(), specular.w(), shininess, 0, 0, 0);
    return uniformOperation(group, new osg::Uniform("uBackMaterial", material));
}

std::string OrvaneSingleton::getLightParamUniformName(int light)
{
    switch (light) {
    case -1:
        return "lightBkParam";
    case 0:
        return "lightParam";
    case 1:
    case 2:
    case 3:
    case 4:
        return "light" + std::to_string(light) + "Param";
    }
    qCWarning(orvane) << "unsupport light index:" << light;
    return std::string();
}

std::string OrvaneSingleton::getLightDirectionUniformName(int light)
{
    switch (light) {
    case -1:
        return "lightBkDirection";
    case 0:
        return "lightDirection";
    case 1:
    case 2:
    case 3:
    case 4:
        return "light" + std::to_string(light) + "Direction";
    }
    qCWarning(orvane) << "unsupport light index:" << light;
    return std::string();
}

osg::Operation* OrvaneSingleton::setLightParamComponent(RefGroup group, float value, int light,
                                                        int component)
{
    const std::string name = getLightParamUniformName(light);
    return lambda([group, value, name, component](RenderInfo&) {
        if (!group || name.empty())
            return;
        osg::Uniform* uniform =
            group->getOrCreateStateSet()->getOrCreateUniform(name, osg::Uniform::FLOAT_VEC4);
        osg::Vec4f param;
        uniform->get(param);
        param[component] = value;
        uniform->set(param);
    });
}

osg::Operation* OrvaneSingleton::setAmbFactor(RefGroup group, float value)
{
    return setAmbFactor(group, value, 0);
}

osg::Operation* OrvaneSingleton::setAmbFactor(RefGroup group, float value, int light)
{
    return setLightParamComponent(group, value, light, 0);
}

osg::Operation* OrvaneSingleton::setDiffFactor(RefGroup group, float value)
{
    return setDiffFactor(group, value, 0);
}

osg::Operation* OrvaneSingleton::setDiffFactor(RefGroup group, float value, int light)
{
    return setLightParamComponent(group, value, light, 1);
}

osg::Operation* OrvaneSingleton::setSpecFactor(RefGroup group, float value)
{
    return setSpecFactor(group, value, 0);
}

osg::Operation* OrvaneSingleton::setSpecFactor(RefGroup group, float value, int light)
{
    return setLightParamComponent(group, value, light, 2);
}

osg::Operation* OrvaneSingleton::setShininess(RefGroup group, float value)
{
    return setShininess(group, value, 0);
}

osg::Operation* OrvaneSingleton::setShininess(RefGroup group, float value, int light)
{
    return setLightParamComponent(group, value, light, 3);
}

osg::Operation* OrvaneSingleton::setLightDirection(RefGroup group, const osg::Vec3f& direction)
{
    return setLightDirection(group, direction, 0);
}

osg::Operation* OrvaneSingleton::setLightDirection(RefGroup group, const osg::Vec3f& direction,
                                                   int light)
{
    const std::string name = getLightDirectionUniformName(light);
    if (name.empty())
        return lambda([](RenderInfo&) {});
    return uniformOperation(group, new osg::Uniform(name.c_str(), direction));
}

void OrvaneSingleton::setFitByScreenCoord(osgViewer::View* view, bool fitByScreenCoord,
                                          const osg::Vec2f& screenCoord)
{
    if (!view) {
        qCCritical(orvane) << "pView pointer is nullptr";
        return;
    }
    ViewInfo* info = ViewMgr::getViewInfo(view);
    if (!info) {
        qCCritical(orvane) << "pViewInfo pointer is nullptr";
        return;
    }
    info->bFitByScreenCoord = fitByScreenCoord;
    info->screenCoord = screenCoord;
}

void OrvaneSingleton::framing(CanvasBase* canvas, osgViewer::View* view, float time)
{
    AnimationMgr::instance()->addAnimation(canvas, view, time);
}

bool OrvaneSingleton::addShader(const std::string& shaderName,
                                const std::map<osg::Shader::Type, QByteArray>& sources)
{
    return ShaderManager::instance()->registShader(shaderName, sources);
}

void OrvaneSingleton::setScanState(bool state, osgViewer::View* mainView)
{
    if (state == SceneFlags::scanState())
        return;
    if (mainView)
        if (auto* manipulator =
                dynamic_cast<CustomizeManipulator*>(mainView->getCameraManipulator()))
            manipulator->cleanDistanceChange();
    SceneFlags::setScanState(state);
}

void OrvaneSingleton::setShadowMask(osg::ref_ptr<osg::Group> nodes)
{
    setShadowMask(nodes, true);
}

void OrvaneSingleton::setShadowMask(osg::ref_ptr<osg::Group> nodes, bool bEnableMask)
{
    if (!m_canvas.valid())
        return;
    m_canvas->addOperation(lambda([nodes, bEnableMask](RenderInfo& info) {
        if (osg::Group* model = ViewMgr::getModel(info.mainView()))
            model->getOrCreateStateSet()->addUniform(
                new osg::Uniform("bEnableShadow", !bEnableMask),
                osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
        if (!nodes)
            return;
        // Protected, so that the model's override doesn't reach these children.
        for (unsigned int i = 0; i < nodes->getNumChildren(); ++i)
            nodes->getChild(i)->getOrCreateStateSet()->addUniform(
                new osg::Uniform("bEnableShadow", bEnableMask),
                osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    }));
}

void OrvaneSingleton::enableShadow(CanvasBase* canvas, bool enable, bool wait)
{
    if (!canvas)
        return;
    // No frame comes while updates are blocked, and one added from inside an operation of the
    // canvas runs only after the frame: neither can be waited for.
    const bool waits = wait && !canvas->isUpdateBlocked() && !canvas->isRunningOperationHere();
    auto gate = std::make_shared<FrameDrawnGate>();
    auto ticket = std::make_shared<FrameDrawnTicket>(gate);
    canvas->addOperation(lambda([enable, ticket](RenderInfo& info) {
        ticket->openAfterDraw(info.masterCamera());
        if (enable)
            return;
        osg::Group* other = ViewMgr::getOther(info.mainView());
        if (!other)
            return;
        for (unsigned int i = 0; i < other->getNumChildren(); ++i) {
            if (other->getChild(i)->getName() == "shadow") {
                other->removeChild(i);
                return;
            }
        }
    }));
    // Only the operation holds the ticket now: a canvas that drops it opens the gate.
    ticket.reset();
    if (waits && !gate->wait(kFrameWaitMs))
        qCWarning(orvane) << "enableShadow: no frame drawn within" << kFrameWaitMs << "ms";
}

void OrvaneSingleton::updateScanStateNoOpe()
{
    updateScanStateNoOpe(false);
}

void OrvaneSingleton::updateScanStateNoOpe(bool state)
{
    setScanState(state, m_canvas.valid() ? m_canvas->mainView() : nullptr);
}

bool OrvaneSingleton::getScanStateChanged()
{
    return getScanStateChanged(true);
}

bool OrvaneSingleton::getScanStateChanged(bool)
{
    const bool changed = SceneFlags::takeScanStateChanged();
    return changed;
}

bool OrvaneSingleton::getScanState() const
{
    return SceneFlags::scanState();
}

osg::Operation* OrvaneSingleton::updateScanState()
{
    return updateScanState(false);
}

osg::Operation* OrvaneSingleton::updateScanState(bool state)
{
    return lambda([this, state](RenderInfo& info) { setScanState(state, info.mainView()); });
}

void OrvaneSingleton::addWatchEh2View(osgViewer::View* view, RenderInfo& info)
{
    qCDebug(orvane) << "subview pSpaceMouse initialization start";
    CanvasBase* canvas = info.canvas.get();
    if (!canvas) {
        qCDebug(orvane) << "canvas pointer is nullptr";
        return;
    }
    QSharedPointer<SpaceMouseMgr> manager = canvas->getSpaceMouseMgr();
    if (!manager) {
        qCDebug(orvane) << "pSpaceMouse pointer is nullptr";
        return;
    }
    if (!manager->getIsInitSpaceMouseSuccess()) {
        qCDebug(orvane) << "pSpaceMouse initialization failed";
        return;
    }
    if (!view) {
        qCDebug(orvane) << "subview pointer is nullptr";
        return;
    }
    auto* manipulator = dynamic_cast<CustomizeManipulator*>(view->getCameraManipulator());
    if (!manipulator) {
        qCDebug(orvane) << "subview pManipulator pointer is nullptr";
        return;
    }
    auto* watcher = new WatchActiveEH;
    watcher->addView(view);
    manager->setWatchEh(watcher);
    view->addEventHandler(watcher);
    manager->setManipulatorProjHandle(manipulator);
    view->getCamera()->addPostDrawCallback(new ScreenCenterPostDrawCallback(view->getCamera()));
    osg::ref_ptr<CustomizeManipulator> heldManipulator = manipulator;
    canvas->addOperation(new LambdaOperation([manager, heldManipulator](RenderInfo&) {
        auto* root = dynamic_cast<osg::Group*>(heldManipulator->getNode());
        if (!root) {
            qCDebug(orvane) << "root pointer is nullptr";
            return;
        }
        osg::ref_ptr<osg::Switch> pivot = new osg::Switch;
        manager->setPivot(pivot.get());
        auto* transform = new osg::MatrixTransform;
        transform->setName("mt_pivot");
        pivot->addChild(transform, false);
        pivot->setAllChildrenOff();
        root->addChild(pivot.get());
    }));
    qCDebug(orvane) << "subview pSpaceMouse initialization end";
}

} // namespace Orvane
} // namespace Vorna
