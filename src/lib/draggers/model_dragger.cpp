#include "model_dragger.h"

#include "invalid_bounds.h"
#include "model_dragger_parts.h"
#include "orvane_log.h"
#include "rect_cut_plane_rotate_dragger.h"
#include "shape_mesh.h"

#include <QGuiApplication>
#include <QWindow>
#include <algorithm>
#include <osg/AutoTransform>
#include <osg/Depth>
#include <osg/Geode>
#include <osgManipulator/Translate1DDragger>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

namespace {

constexpr int kAllCommands = 0x8ffffff;

void setHandleModes(osg::Node* node, bool lighting)
{
    osg::StateSet* ss = node->getOrCreateStateSet();
    ss->setMode(GL_NORMALIZE, osg::StateAttribute::ON);
    ss->setMode(GL_LIGHTING, lighting ? osg::StateAttribute::ON : osg::StateAttribute::OFF);
}

} // namespace

ModelDragger::ModelDragger(bool lighting, bool manageNodeMasks, unsigned int connectedMask,
                           unsigned int draggerMask)
    : m_lighting(lighting), m_switch(new osg::Switch), m_manageNodeMasks(manageNodeMasks),
      m_connectedMask(connectedMask), m_draggerMask(draggerMask)
{
    qRegisterMetaType<ModelMatrixs>("Vorna::Orvane::ModelMatrixs");
    qRegisterMetaType<ModelMatrixs>("ModelMatrixs");
    qRegisterMetaType<osg::Matrixd>("osg::Matrix");

    const float rest = 0.65f, picked = 0.9f;
    const osg::Vec4f pickedColor(picked, picked, 0.0f, 1.0f);
    m_transColors = {{osg::Vec4f(rest, 0, 0, 1), osg::Vec4f(0, rest, 0, 1),
                      osg::Vec4f(0, 0, rest, 1), pickedColor, pickedColor, pickedColor}};
    // Arc 0 turns about z: the arcs run z, y, x.
    m_rotColors = {{osg::Vec4f(0, 0, rest, 1), osg::Vec4f(0, rest, 0, 1), osg::Vec4f(rest, 0, 0, 1),
                    pickedColor, pickedColor, pickedColor}};

    auto* screen = new osg::AutoTransform;
    screen->setAutoRotateMode(osg::AutoTransform::NO_ROTATION);
    screen->setAutoScaleToScreen(true);
    auto* scale = new osg::MatrixTransform(osg::Matrix::scale(1.0, 1.0, 1.0));
    addChild(screen);
    screen->addChild(scale);
    scale->addChild(m_switch);
    addCullCallback(new ModelDraggerParts::KeepScreenScale(screen));

    // Always on top, and never in the depth that picks rotate and zoom centres.
    osg::StateSet* ss = getOrCreateStateSet();
    ss->setAttributeAndModes(new osg::Depth(osg::Depth::ALWAYS, 0.0, 1.0, false),
                             osg::StateAttribute::ON);
    ss->setRenderBinDetails(21000, "DepthSortedBin", osg::StateSet::OVERRIDE_RENDERBIN_DETAILS);
    ss->setAttributeAndModes(ModelDraggerParts::createHandleProgram(),
                             osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss->addUniform(new osg::Uniform("lighting", lighting ? 1 : 0));

    setUserValue("valid_bounding_sphere", false);
    setUserValue("can_not_set_rotate_center", false);
    setUserValue("can_not_msg_rotate_center", true);
    setComputeBoundingSphereCallback(new InvalidComputeBoundingSphere);

    const QWindowList windows = QGuiApplication::topLevelWindows();
    if (!windows.isEmpty() && windows.first())
        m_devicePixelRatio = static_cast<float>(windows.first()->devicePixelRatio());
}

ModelDragger::~ModelDragger() = default;

bool ModelDragger::connectMt(osg::ref_ptr<osg::MatrixTransform> mt)
{
    if (!mt) {
        qCWarning(orvane) << "connectMt"
                          << "failed, mt == nullptr";
        return false;
    }
    if (m_mt || !m_mts.empty()) {
        qCWarning(orvane) << "connectMt"
                          << "failed, already have mt connected";
        return false;
    }
    m_bound.expandBy(mt->getBound());
    addTransformUpdating(mt.get(), kAllCommands);
    m_mt = mt;
    m_mtMask = mt->getNodeMask();
    return true;
}

bool ModelDragger::connectMt(std::vector<osg::ref_ptr<osg::MatrixTransform>> mts)
{
    if (mts.empty()) {
        qCWarning(orvane) << "connectMt"
                          << "failed, mts is empty";
        return false;
    }
    if (m_mt || !m_mts.empty()) {
        qCWarning(orvane) << "connectMt"
                          << "failed, already have mt connected";
        return false;
    }
    m_bound.expandBy(ModelDraggerParts::computeNodesBound(mts));
    m_mtsMasks.clear();
    for (const osg::ref_ptr<osg::MatrixTransform>& mt : mts) {
        if (!mt)
            continue;
        addTransformUpdating(mt.get(), kAllCommands);
        m_mtsMasks.push_back(mt->getNodeMask());
    }
    mts.erase(std::remove(mts.begin(), mts.end(), nullptr), mts.end());
    m_mts = std::move(mts);
    return true;
}

void ModelDragger::disconnect()
{
    m_bound = osg::BoundingSphere();
    getDraggerCallbacks().clear();
    if (!m_mts.empty()) {
        m_mts.clear();
        m_mtsMasks.clear();
    } else {
        m_mt = nullptr;
    }
    m_mtMask = 0;
}

osg::Quat ModelDragger::getRotate() const
{
    osg::Vec3d translation, scale;
    osg::Quat rotation, scaleOrientation;
    getMatrix().decompose(translation, rotation, scale, scaleOrientation);
    return rotation;
}

bool ModelDragger::enable(bool on, osg::Matrixd pose)
{
    if (on == m_enabled) {
        qCInfo(orvane) << "enable"
                       << "already enable(" << on << ")";
        return true;
    }
    if (on && getDraggerCallbacks().empty()) {
        setHandleEvents(false);
        qCWarning(orvane) << "enable"
                          << "failed, getDraggerCallbacks().empty()";
        return false;
    }
    if (m_manageNodeMasks) {
        if (m_mt)
            m_mt->setNodeMask(on ? m_connectedMask : m_mtMask);
        for (std::size_t i = 0; i < m_mts.size(); ++i)
            m_mts[i]->setNodeMask(on ? m_connectedMask : m_mtsMasks[i]);
        setNodeMask(on ? m_draggerMask : ~0u);
        setIntersectionMask(on ? m_draggerMask : ~0u);
        m_bound = m_mts.empty() ? (m_mt ? m_mt->getBound() : osg::BoundingSphere())
                                : ModelDraggerParts::computeNodesBound(m_mts);
    }
    if (!on) {
        setHandleEvents(false);
        disconnect();
        removeHandles();
        m_hovered = nullptr;
    } else {
        createRotDraggers();
        createTransDraggers();
        setMatrix(pose * osg::Matrix::translate(m_bound.center()));
        setParentDragger(getParentDragger());
        setHandleEvents(true);
    }
    m_enabled = on;
    return true;
}

void ModelDragger::removeHandles()
{
    for (auto* list : {&m_rotDraggers, &m_transDraggers}) {
        for (osg::ref_ptr<osgManipulator::Dragger>& dragger : *list) {
            if (!dragger)
                continue;
            removeDragger(dragger.get());
            m_switch->removeChild(dragger.get());
            dragger = nullptr;
        }
    }
}

void ModelDragger::createRotDraggers()
{
    const osg::Matrix poses[3] = {osg::Matrix(), osg::Matrix::rotate(osg::PI_2, osg::X_AXIS),
                                  osg::Matrix::rotate(osg::PI_2, osg::Y_AXIS)};
    for (int i = 0; i < 3; ++i) {
        osg::ref_ptr<RectCutPlaneRotateDragger> dragger = new RectCutPlaneRotateDragger(85.0);
        // A quarter arc each at rest, the third in the next quadrant so that none overlap.
        const float from = i < 2 ? 0.0199f : 0.2699f;
        const float to = i < 2 ? 0.25f : 0.5f;
        osg::Node* rest = createRing(m_ringRadius, m_ringTube, m_rotColors.rest(i), from, to);
        osg::Node* picked = createRing(m_ringRadius, m_ringTube, m_rotColors.picked(i), 0.0f, 1.0f);
        picked->getOrCreateStateSet()->setRenderBinDetails(
            21001, "RenderBin", osg::StateSet::OVERRIDE_RENDERBIN_DETAILS);
        auto* shown = new osg::Switch;
        shown->addChild(rest, true);
        shown->addChild(picked, false);
        dragger->addChild(shown);
        dragger->setMatrix(poses[i]);
        // Sliding across an arc seen edge-on turns by the arc length on the ring.
        dragger->projector()->setCylinder(
            new osg::Cylinder(osg::Vec3(), m_ringRadius, m_ringTube * 2.0f));
        addDragger(dragger.get());
        m_switch->addChild(dragger.get());
        m_rotDraggers[i] = dragger;
    }
}

void ModelDragger::createTransDraggers()
{
    const osg::Vec3d axes[3] = {osg::X_AXIS, osg::Y_AXIS, osg::Z_AXIS};
    for (int i = 0; i < 3; ++i) {
        osg::Quat turn;
        turn.makeRotate(osg::Vec3d(0, 0, 1), axes[i]);
        osg::ref_ptr<osgManipulator::Translate1DDragger> dragger =
            new osgManipulator::Translate1DDragger(osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, 1));
        dragger->addChild(createLine(m_transColors.rest(i)));
        dragger->setColor(m_transColors.rest(i));
        dragger->setPickColor(m_transColors.picked(i));
        dragger->setMatrix(osg::Matrix::rotate(turn));
        addDragger(dragger.get());
        m_switch->addChild(dragger.get());
        m_transDraggers[i] = dragger;
    }
}

osg::Node* ModelDragger::createRing(float radius, float tube, const osg::Vec4f& color, float from,
                                    float to)
{
    auto* geode = new osg::Geode;
    geode->addDrawable(ModelDraggerParts::createTorus(radius, tube, static_cast<int>(from * 100),
                                                      static_cast<int>(to * 100)));
    setHandleModes(geode, m_lighting);
    ModelDraggerParts::setMaterial(geode, color);
    return geode;
}

osg::Node* ModelDragger::createLine(const osg::Vec4f& color)
{
    // The arrows follow the pixel ratio and the arcs do not.
    const float s = m_ringRadius * 1.5f * m_devicePixelRatio;
    const float w = m_lineRadius * m_devicePixelRatio;
    ShapeMesh mesh;
    // Shaft centred at s / 2 + 2, s - 2 long; head based a quarter of its height below s.
    mesh.addTube(osg::Vec3f(0, 0, 3.0f), osg::Vec3f(0, 0, s + 1.0f), w, 36);
    const float head = 9.0f * w;
    mesh.addCone(osg::Vec3f(0, 0, s - head * 0.25f), osg::Vec3f(0, 0, s + head * 0.75f), 3.0f * w,
                 36);
    osg::Geometry* geometry = mesh.build();
    // The handle program draws the dragger's material; the array serves readers of the scene.
    osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(1, &color);
    geometry->setColorArray(colors.get(), osg::Array::BIND_OVERALL);
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    setHandleModes(geode, m_lighting);
    return geode;
}

osgManipulator::Dragger* ModelDragger::handleOf(osg::Node* node) const
{
    for (const auto* list : {&m_rotDraggers, &m_transDraggers})
        for (const osg::ref_ptr<osgManipulator::Dragger>& dragger : *list)
            if (dragger && dragger.get() == node)
                return dragger.get();
    return nullptr;
}

void ModelDragger::showPicked(osgManipulator::Dragger* dragger, bool picked)
{
    if (auto* arrow = dynamic_cast<osgManipulator::Translate1DDragger*>(dragger)) {
        osgManipulator::setMaterialColor(picked ? arrow->getPickColor() : arrow->getColor(),
                                         *arrow);
        return;
    }
    if (dragger->getNumChildren() == 0)
        return;
    if (osg::Switch* shown = dragger->getChild(0)->asSwitch())
        shown->setSingleChildOn(picked ? 1 : 0);
}

bool ModelDragger::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (ea.getEventType() != osgGA::GUIEventAdapter::MOVE)
        return handleInner(ea, aa);
    auto* view = dynamic_cast<osgViewer::View*>(&aa);
    if (ea.getHandled() || !view)
        return false;
    osgManipulator::Dragger* found = nullptr;
    osgUtil::LineSegmentIntersector::Intersections hits;
    if (view->computeIntersections(ea, hits, _intersectionMask)) {
        for (const auto& hit : hits) {
            for (osg::Node* node : hit.nodePath)
                if ((found = handleOf(node)))
                    break;
            if (found)
                break;
        }
    }
    if (found != m_hovered) {
        if (m_hovered)
            showPicked(m_hovered, false);
        if (found)
            showPicked(found, true);
        m_hovered = found;
    }
    // Hovering never takes a move from the camera.
    return false;
}

bool ModelDragger::handleInner(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    auto* view = dynamic_cast<osgViewer::View*>(&aa);
    if (ea.getHandled() || !view)
        return false;

    bool activationPermitted = true;
    if (_activationModKeyMask != 0 || _activationMouseButtonMask != 0 || _activationKeyEvent != 0) {
        _activationPermittedByModKeyMask =
            _activationModKeyMask != 0 && (ea.getModKeyMask() & _activationModKeyMask) != 0;
        if (_activationKeyEvent != 0 && ea.getKey() == _activationKeyEvent) {
            if (ea.getEventType() == osgGA::GUIEventAdapter::KEYDOWN)
                _activationPermittedByKeyEvent = true;
            else if (ea.getEventType() == osgGA::GUIEventAdapter::KEYUP)
                _activationPermittedByKeyEvent = false;
        }
        _activationPermittedByMouseButtonMask =
            _activationMouseButtonMask != 0 &&
            (ea.getButtonMask() & _activationMouseButtonMask) != 0;
        activationPermitted = _activationPermittedByModKeyMask ||
                              _activationPermittedByMouseButtonMask ||
                              _activationPermittedByKeyEvent;
    }
    if (!activationPermitted && !_draggerActive)
        return false;

    bool handled = false;
    switch (ea.getEventType()) {
    case osgGA::GUIEventAdapter::PUSH: {
        _pointer.reset();
        osgUtil::LineSegmentIntersector::Intersections hits;
        if (!view->computeIntersections(ea, hits, _intersectionMask))
            break;
        for (const auto& hit : hits)
            _pointer.addIntersection(hit.nodePath, hit.getLocalIntersectPoint());
        // The handles are drawn over the models, so a handle behind a model still counts.
        for (auto it = _pointer._hitList.begin(); it != _pointer._hitList.end() && !handled; ++it) {
            const osg::NodePath& path = it->first;
            if (std::find(path.begin(), path.end(), this) == path.end())
                continue;
            osg::Camera* camera = view->getCamera();
            for (auto node = path.rbegin(); node != path.rend(); ++node) {
                auto* candidate = dynamic_cast<osg::Camera*>(*node);
                if (candidate && (candidate->getReferenceFrame() != osg::Transform::RELATIVE_RF ||
                                  candidate->getParents().empty())) {
                    camera = candidate;
                    break;
                }
            }
            _pointer.setCamera(camera);
            _pointer.setMousePosition(ea.getX(), ea.getY());
            _pointer._hitIter = it;
            if (osgManipulator::CompositeDragger::handle(_pointer, ea, aa)) {
                setDraggerActive(true);
                handled = true;
                qCInfo(orvane) << "handleInner"
                               << "beginOfDrag";
                emit beginOfDrag();
                emitMatrices();
            }
        }
        break;
    }
    case osgGA::GUIEventAdapter::DRAG:
    case osgGA::GUIEventAdapter::RELEASE:
        if (_draggerActive) {
            _pointer.setMousePosition(ea.getX(), ea.getY());
            if (osgManipulator::CompositeDragger::handle(_pointer, ea, aa)) {
                handled = true;
                emitMatrices();
                const osg::Vec3d rotate = getRotate().asVec3();
                qCInfo(orvane) << "handleInner"
                               << "Rotate: " << rotate.x() << rotate.y() << rotate.z();
            }
        }
        break;
    default:
        break;
    }
    if (_draggerActive && ea.getEventType() == osgGA::GUIEventAdapter::RELEASE) {
        setDraggerActive(false);
        _pointer.reset();
        qCInfo(orvane) << "handleInner"
                       << "endOfDrag";
        emit endOfDrag();
    }
    return handled;
}

void ModelDragger::emitMatrices()
{
    if (!m_mts.empty()) {
        std::vector<osg::Matrixd> matrices;
        matrices.reserve(m_mts.size());
        for (const osg::ref_ptr<osg::MatrixTransform>& mt : m_mts)
            matrices.push_back(mt->getMatrix());
        emit matrixChanged(ModelMatrixs(matrices));
    } else if (m_mt) {
        emit matrixChanged(osg::Matrix(m_mt->getMatrix()));
    }
}

} // namespace Orvane
} // namespace Vorna
