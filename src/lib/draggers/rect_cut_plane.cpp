#include "rect_cut_plane.h"

#include "cut_plane_generator.h"
#include "cut_plane_programs.h"
#include "line_geom_maker.h"
#include "orvane_log.h"
#include "rect_cut_plane_rotate_dragger.h"
#include "scene_flags.h"
#include "shape_mesh.h"

#include <algorithm>
#include <osg/CopyOp>
#include <osg/Depth>
#include <osg/Geometry>
#include <osgViewer/View>
#include <vector>

namespace Vorna {
namespace Orvane {

namespace {

// The plane's own node mask: hover tests look through it at the handles behind.
constexpr osg::Node::NodeMask kPlaneMask = 65535;

osg::StateSet* solidPartState(osg::Node* node, osg::Program* program, const osg::Vec4f& color)
{
    osg::StateSet* ss = node->getOrCreateStateSet();
    ss->setAttributeAndModes(program, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    ss->addUniform(new osg::Uniform("baseColor", color));
    return ss;
}

// A handle is two nodes: the solid part, and a faint copy that shows through the model.
osg::Group* twoNodeHandle(osg::Geometry* geometry, osg::Program* program, const osg::Vec4f& color)
{
    auto* solid = new osg::Geode;
    solid->addDrawable(geometry);
    solidPartState(solid, program, color);

    auto* ghost = new osg::Geode;
    ghost->addDrawable(geometry);
    osg::Vec4f faint = color;
    faint.a() *= 0.5f;
    osg::StateSet* ss = solidPartState(ghost, program, faint);
    ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    ss->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF);
    ss->setRenderBinDetails(20, "RenderBin");

    auto* handle = new osg::Group;
    handle->addChild(solid);
    handle->addChild(ghost);
    return handle;
}

} // namespace

// Keeps the published uniforms on the plane's place, however it was moved.
class RectCutPlaneUniformCallback : public osg::NodeCallback
{
public:
    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        if (auto* plane = dynamic_cast<RectCutPlane*>(node))
            plane->updateCutUniforms();
        traverse(node, nv);
    }
};

// Reports a double click on the plane.
class RectCutPlaneCheckCallback : public osg::NodeCallback
{
public:
    explicit RectCutPlaneCheckCallback(RectCutPlane* plane) : m_plane(plane) {}

    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        if (auto* ev = nv ? nv->asEventVisitor() : nullptr) {
            for (const osg::ref_ptr<osgGA::Event>& event : ev->getEvents()) {
                const osgGA::GUIEventAdapter* ea = event->asGUIEventAdapter();
                if (ea && ea->getEventType() == osgGA::GUIEventAdapter::DOUBLECLICK &&
                    m_plane.valid()) {
                    qCDebug(orvane) << "cutPlane dragger is double clicked";
                    emit m_plane->doubleClicked();
                }
            }
        }
        traverse(node, nv);
    }

private:
    osg::observer_ptr<RectCutPlane> m_plane;
};

RectCutPlane::RectCutPlane(const osg::BoundingBox& box, float selectIndex)
    : m_sphereNormalColor(0.007843138f, 0.53333336f, 0.9411765f, 1.0f),
      m_sphereHighlightColor(0.24313726f, 1.0f, 0.4745098f, 1.0f),
      m_arrowNormalColor(0.007843138f, 0.53333336f, 0.9411765f, 1.0f),
      m_arrowHighlightColor(0.24313726f, 1.0f, 0.4745098f, 1.0f),
      m_directionUniform(new osg::Uniform("direction", osg::Vec3f(0, 0, 1))),
      m_centerUniform(new osg::Uniform("center", osg::Vec3f())),
      m_selectIndexUniform(new osg::Uniform("selectIndex", selectIndex))
{
    if (box.valid()) {
        m_boundingBox = box;
    } else {
        qCDebug(orvane) << "boundingBox is invalid, so use identity boundingBox";
        m_boundingBox.set(-0.5f, -0.5f, -0.5f, 0.5f, 0.5f, 0.5f);
    }
    // An aid: out of fits, and never the centre of rotation.
    setUserValue("valid_bounding_sphere", false);
    setUserValue("can_not_set_rotate_center", true);

    m_translateDragger =
        new osgManipulator::Translate1DDragger(osg::Vec3d(0, 0, 0), osg::Vec3d(0, 0, 1));
    m_rotateDragger = new RectCutPlaneRotateDragger(70.0);
    addDragger(m_translateDragger.get());
    addDragger(m_rotateDragger.get());
    setParentDragger(getParentDragger());
    setActivationMouseButtonMask(osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON);
    setHandleEvents(true);

    computeCornerAndSpherePosition(0.0f, 0.0f);
    setMatrix(osg::Matrix::rotate(m_turn) * osg::Matrix::translate(m_boundingBox.center()));
    setupDefaultGeometry();

    addUpdateCallback(new RectCutPlaneUniformCallback);
    updateCutUniforms();
    SceneFlags::addRectCutPlane();
}

bool RectCutPlane::hasRectCutPlane()
{
    return SceneFlags::rectCutPlaneExists();
}

RectCutPlane::~RectCutPlane()
{
    SceneFlags::removeRectCutPlane();
}

void RectCutPlane::convertBBAppropriatly(const osg::BoundingBox& box)
{
    struct AxisLength {
        int axis;
        float length;
    };
    const osg::Vec3f size = box._max - box._min;
    std::vector<AxisLength> axes = {{0, size.x()}, {1, size.y()}, {2, size.z()}};
    std::stable_sort(axes.begin(), axes.end(),
                     [](const AxisLength& a, const AxisLength& b) { return a.length > b.length; });
    // The longest direction becomes the normal: the plane cuts the model across its length.
    m_turn = CutPlanePrograms::turnAxisToZ(axes.front().axis);
    m_half = CutPlanePrograms::localHalfExtents(m_turn, size * 0.5f);
}

void RectCutPlane::computeCornerAndSpherePosition(float a, float b)
{
    convertBBAppropriatly(m_boundingBox);
    const float x = (a == 0.0f && b == 0.0f) ? m_half.x() : a * 0.5f;
    const float y = (a == 0.0f && b == 0.0f) ? m_half.y() : b * 0.5f;
    m_corners[0].set(-x, -y, 0);
    m_corners[1].set(x, -y, 0);
    m_corners[2].set(-x, y, 0);
    m_corners[3].set(x, y, 0);
    m_center = (m_corners[0] + m_corners[1] + m_corners[2] + m_corners[3]) * 0.25f;
}

float RectCutPlane::handleRadius() const
{
    return 0.04f * m_boundingBox.radius();
}

osg::Node* RectCutPlane::createPlane()
{
    // The corners are kept in zigzag order: 0, 1, 3, 2 goes round the rectangle.
    osg::Geode* geode = CutPlaneGenerator::createTranslucentPlane(m_corners[0], m_corners[1],
                                                                  m_corners[3], m_corners[2]);
    geode->setNodeMask(kPlaneMask);
    geode->addEventCallback(new RectCutPlaneCheckCallback(this));
    return geode;
}

osg::Node* RectCutPlane::createLine()
{
    osg::Geometry* line = LineGeomMaker::createLineGeometry(true);
    for (int i : {0, 1, 3, 2})
        LineGeomMaker::addLinePoint(line, m_corners[i]);
    LineGeomMaker::setWidth(line, 3.0f);
    // The line program reads its colour on slot 3.
    auto* colors = new osg::Vec4Array;
    colors->assign(4, m_arrowNormalColor);
    line->setVertexAttribArray(3, colors, osg::Array::BIND_PER_VERTEX);
    auto* geode = new osg::Geode;
    geode->addDrawable(line);
    geode->getOrCreateStateSet()->setAttributeAndModes(
        CutPlanePrograms::createLineDepthOffsetProgram(0.002f),
        osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    return geode;
}

osg::Node* RectCutPlane::createArrow()
{
    const float length = 0.5f * std::max(m_half.x(), m_half.y());
    const float radius = handleRadius() * 0.4f;
    ShapeMesh mesh;
    mesh.addTube(m_center, m_center + osg::Vec3f(0, 0, length * 0.75f), radius);
    mesh.addCone(m_center + osg::Vec3f(0, 0, length * 0.75f), m_center + osg::Vec3f(0, 0, length),
                 radius * 3.0f);
    return twoNodeHandle(mesh.build(2), CutPlanePrograms::createGeometryProgram(),
                         m_arrowNormalColor);
}

osg::Node* RectCutPlane::createDragSphere(int index)
{
    ShapeMesh mesh;
    mesh.addSphere(m_corners[index & 3], handleRadius());
    return twoNodeHandle(mesh.build(2), CutPlanePrograms::createGeometryProgram(),
                         m_sphereNormalColor);
}

osg::Node* RectCutPlane::createDisabledCutPlaneNonArrow()
{
    auto* group = new osg::Group;
    group->addChild(static_cast<osg::Node*>(createPlane()->clone(osg::CopyOp(0x7fffffff))));
    group->addChild(static_cast<osg::Node*>(createLine()->clone(osg::CopyOp(0x7fffffff))));
    group->getOrCreateStateSet()->addUniform(new osg::Uniform("baseColor", osg::Vec4f(1, 1, 1, 1)),
                                             osg::StateAttribute::ON |
                                                 osg::StateAttribute::OVERRIDE);
    return group;
}

osg::Node* RectCutPlane::createDisabledCutPlane()
{
    auto* group = static_cast<osg::Group*>(createDisabledCutPlaneNonArrow());
    group->addChild(static_cast<osg::Node*>(createArrow()->clone(osg::CopyOp(0x7fffffff))));
    return group;
}

void RectCutPlane::setupDefaultGeometry()
{
    m_plane = createPlane();
    m_line = createLine();
    m_arrow = createArrow();
    m_translateDragger->addChild(m_plane.get());
    m_translateDragger->addChild(m_line.get());
    m_translateDragger->addChild(m_arrow.get());
    m_sphereHolder = new osg::MatrixTransform;
    m_rotateDragger->addChild(m_sphereHolder.get());
    for (int i = 0; i < 4; ++i) {
        m_spheres[i] = createDragSphere(i);
        m_sphereHolder->addChild(m_spheres[i].get());
    }
    if (!containsNode(m_translateDragger.get()))
        addChild(m_translateDragger.get());
    if (!containsNode(m_rotateDragger.get()))
        addChild(m_rotateDragger.get());
    aimRotateDragger(0);
}

void RectCutPlane::updateSize(const osg::BoundingBox& box, bool recompute, float a, float b)
{
    if (!box.valid()) {
        qCDebug(orvane) << "boundingBox is invalid, so return";
        return;
    }
    osg::Vec3f oldCenter, oldDirection;
    getCutPlaneInfo(oldCenter, oldDirection);
    const osg::Vec3f offset = oldCenter - m_boundingBox.center();

    m_boundingBox = box;
    computeCornerAndSpherePosition(a, b);
    for (osgManipulator::Dragger* dragger :
         {static_cast<osgManipulator::Dragger*>(m_translateDragger.get()),
          static_cast<osgManipulator::Dragger*>(m_rotateDragger.get())}) {
        dragger->removeChildren(0, dragger->getNumChildren());
        dragger->getConstraints().clear();
    }
    removeChildren(0, getNumChildren());
    setupDefaultGeometry();
    if (!recompute)
        return;
    // The plane keeps its place relative to the box's centre; its turn stays.
    osg::Matrix matrix = getMatrix();
    matrix.setTrans(box.center() + offset);
    setMatrix(matrix);
    updateCutUniforms();
}

void RectCutPlane::getCutPlaneInfo(osg::Vec3f& center, osg::Vec3f& direction) const
{
    const osg::MatrixList worlds = getWorldMatrices();
    const osg::Matrix world = worlds.empty() ? getMatrix() : worlds.front();
    osg::Vec3d translation, scale;
    osg::Quat rotation, scaleOrientation;
    world.decompose(translation, rotation, scale, scaleOrientation);
    center = translation;
    direction = rotation * osg::Vec3d(0, 0, 1);
}

void RectCutPlane::getCutPlaneInfoSelf(osg::Vec3f& center, osg::Vec3f& direction) const
{
    osg::Vec3d translation, scale;
    osg::Quat rotation, scaleOrientation;
    getMatrix().decompose(translation, rotation, scale, scaleOrientation);
    center = translation;
    direction = rotation * osg::Vec3d(0, 0, 1);
}

void RectCutPlane::addCutUniforms(osg::StateSet* stateSet) const
{
    if (!stateSet)
        return;
    stateSet->addUniform(m_directionUniform.get());
    stateSet->addUniform(m_centerUniform.get());
    stateSet->addUniform(m_selectIndexUniform.get());
}

void RectCutPlane::removeCutUniforms(osg::StateSet* stateSet) const
{
    if (!stateSet)
        return;
    stateSet->removeUniform(m_directionUniform.get());
    stateSet->removeUniform(m_centerUniform.get());
    stateSet->removeUniform(m_selectIndexUniform.get());
}

void RectCutPlane::setSelectIndex(float index)
{
    m_selectIndexUniform->set(index);
}

void RectCutPlane::updateCutUniforms()
{
    osg::Vec3f center, direction;
    getCutPlaneInfo(center, direction);
    m_centerUniform->set(center);
    m_directionUniform->set(direction);
}

void RectCutPlane::setDragEnableMasks(int modKeyMask, int buttonMask, int key)
{
    m_modKeyMask = modKeyMask;
    m_buttonMask = buttonMask;
    m_key = key;
}

void RectCutPlane::setHandleColor(osg::Node* handle, const osg::Vec4f& color)
{
    auto* group = handle ? handle->asGroup() : nullptr;
    if (!group || group->getNumChildren() < 2)
        return;
    for (unsigned int i = 0; i < 2; ++i) {
        osg::Vec4f value = color;
        if (i == 1)
            value.a() *= 0.5f;
        osg::StateSet* ss = group->getChild(i)->getOrCreateStateSet();
        if (osg::Uniform* uniform = ss->getUniform("baseColor"))
            uniform->set(value);
        else
            ss->addUniform(new osg::Uniform("baseColor", value));
    }
}

void RectCutPlane::setSphereColorByHighlight(int index, bool highlight)
{
    if (index < 0 || index > 3)
        return;
    setHandleColor(m_spheres[index].get(),
                   highlight ? m_sphereHighlightColor : m_sphereNormalColor);
}

void RectCutPlane::setArrowColorByHighlight(bool highlight)
{
    setHandleColor(m_arrow.get(), highlight ? m_arrowHighlightColor : m_arrowNormalColor);
}

int RectCutPlane::sphereOnPath(const osg::NodePath& path) const
{
    for (int i = 0; i < 4; ++i)
        if (std::find(path.begin(), path.end(), m_spheres[i].get()) != path.end())
            return i;
    return -1;
}

void RectCutPlane::setGeometryColorByIntersect(const osgGA::GUIEventAdapter& ea,
                                               osgGA::GUIActionAdapter& aa)
{
    setArrowColorByHighlight(false);
    for (int i = 0; i < 4; ++i)
        setSphereColorByHighlight(i, false);
    auto* view = dynamic_cast<osgViewer::View*>(&aa);
    osgUtil::LineSegmentIntersector::Intersections hits;
    if (!view || !view->computeIntersections(ea, hits, ~kPlaneMask))
        return;
    for (const auto& hit : hits) {
        const osg::NodePath& path = hit.nodePath;
        if (std::find(path.begin(), path.end(), this) == path.end())
            continue;
        const int sphere = sphereOnPath(path);
        if (sphere >= 0)
            setSphereColorByHighlight(sphere, true);
        else if (std::find(path.begin(), path.end(), m_arrow.get()) != path.end())
            setArrowColorByHighlight(true);
        else
            continue;
        return;
    }
}

void RectCutPlane::updateEnableState(const osgGA::GUIEventAdapter& ea)
{
    m_modKeyEnabled = m_modKeyMask != 0 && (ea.getModKeyMask() & m_modKeyMask) != 0;
    m_buttonEnabled = m_buttonMask != 0 && ea.getButtonMask() == m_buttonMask;
    if (m_key != 0 && ea.getKey() == m_key) {
        if (ea.getEventType() == osgGA::GUIEventAdapter::KEYDOWN)
            m_keyEnabled = true;
        else if (ea.getEventType() == osgGA::GUIEventAdapter::KEYUP)
            m_keyEnabled = false;
    }
}

void RectCutPlane::aimRotateDragger(int sphere)
{
    // The turning axis lies in the plane, across the diagonal through the pressed corner.
    osg::Vec3f diagonal = m_corners[sphere & 3] - m_center;
    const float reach = diagonal.normalize();
    osg::Vec3f axis = osg::Vec3f(0, 0, 1) ^ diagonal;
    osg::Quat aim;
    aim.makeRotate(osg::Vec3f(0, 0, 1), axis);
    const osg::Matrix aimed = osg::Matrix::rotate(aim) * osg::Matrix::translate(m_center);
    m_rotateDragger->setMatrix(aimed);
    // The spheres stay at the corners whichever way the dragger is aimed.
    m_sphereHolder->setMatrix(osg::Matrix::inverse(aimed));
    // The corner sits on the cylinder: the turn follows the pointer at the corner.
    m_rotateDragger->projector()->setCylinder(
        new osg::Cylinder(osg::Vec3f(), reach > 0.0f ? reach : 1.0f, 1.0f));
}

bool RectCutPlane::dragGeometryByIntersect(const osgGA::GUIEventAdapter& ea,
                                           osgGA::GUIActionAdapter& aa, bool handlesFirst)
{
    auto* view = dynamic_cast<osgViewer::View*>(&aa);
    if (!view)
        return false;
    _pointer.reset();
    osgUtil::LineSegmentIntersector::Intersections hits;
    bool found = false;
    // Handles first, seen through the translucent plane; then any part of this plane.
    for (int pass = handlesFirst ? 0 : 1; pass < 2 && !found; ++pass) {
        hits.clear();
        if (!view->computeIntersections(ea, hits, pass == 0 ? ~kPlaneMask : ~0u))
            continue;
        for (const auto& hit : hits) {
            const osg::NodePath& path = hit.nodePath;
            if (std::find(path.begin(), path.end(), this) == path.end())
                continue;
            if (pass == 0 && sphereOnPath(path) < 0 &&
                std::find(path.begin(), path.end(), m_arrow.get()) == path.end())
                continue;
            _pointer.addIntersection(path, hit.getLocalIntersectPoint());
            found = true;
        }
    }
    if (!found)
        return false;
    _pointer.setCamera(view->getCamera());
    _pointer.setMousePosition(ea.getX(), ea.getY());
    if (!handle(_pointer, ea, aa))
        return false;
    setDraggerActive(true);
    m_dragging = true;
    emit draggingChanged(true);
    return true;
}

void RectCutPlane::traverse(osg::NodeVisitor& nv)
{
    osgManipulator::CompositeDragger::traverse(nv);
    // The dragger stops event traversal at itself; the plane's double-click check lies below.
    if (nv.getVisitorType() == osg::NodeVisitor::EVENT_VISITOR)
        osg::MatrixTransform::traverse(nv);
}

bool RectCutPlane::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (ea.getHandled())
        return false;
    auto* view = dynamic_cast<osgViewer::View*>(&aa);
    if (!view)
        return false;
    if (!m_dragging)
        setGeometryColorByIntersect(ea, aa);
    updateEnableState(ea);
    const bool unrestricted = m_modKeyMask == 0 && m_buttonMask == 0 && m_key == 0;
    const bool enabled = unrestricted || m_modKeyEnabled || m_buttonEnabled || m_keyEnabled;

    switch (ea.getEventType()) {
    case osgGA::GUIEventAdapter::PUSH:
        if (!enabled || !(ea.getButtonMask() & getActivationMouseButtonMask()))
            return false;
        return dragGeometryByIntersect(ea, aa, true);
    case osgGA::GUIEventAdapter::DRAG:
    case osgGA::GUIEventAdapter::RELEASE: {
        if (!m_dragging)
            return false;
        _pointer._hitIter = _pointer._hitList.begin();
        _pointer.setCamera(view->getCamera());
        _pointer.setMousePosition(ea.getX(), ea.getY());
        const bool handled = handle(_pointer, ea, aa);
        if (ea.getEventType() == osgGA::GUIEventAdapter::RELEASE) {
            setDraggerActive(false);
            _pointer.reset();
            m_dragging = false;
            emit draggingChanged(false);
        }
        return handled;
    }
    default:
        return false;
    }
}

bool RectCutPlane::handle(const osgManipulator::PointerInfo& pi, const osgGA::GUIEventAdapter& ea,
                          osgGA::GUIActionAdapter& aa)
{
    if (!pi.contains(this))
        return false;
    if (ea.getEventType() == osgGA::GUIEventAdapter::PUSH && pi._hitIter != pi._hitList.end()) {
        const int sphere = sphereOnPath(pi._hitIter->first);
        if (sphere >= 0)
            aimRotateDragger(sphere);
    }
    for (const osg::ref_ptr<osgManipulator::Dragger>& dragger : _draggerList) {
        if (!dragger->handle(pi, ea, aa))
            continue;
        const int type = dynamic_cast<osgManipulator::Translate1DDragger*>(dragger.get())
                             ? TranslateDrag
                             : RotateDrag;
        switch (ea.getEventType()) {
        case osgGA::GUIEventAdapter::PUSH:
            m_dragType = type;
            emit beginDragging(type);
            break;
        case osgGA::GUIEventAdapter::DRAG:
            updateCutUniforms();
            if (type == TranslateDrag)
                emit offsetChanged();
            emit matrixChanged(getMatrix());
            break;
        case osgGA::GUIEventAdapter::RELEASE:
            updateCutUniforms();
            emit endDragging(type);
            break;
        default:
            break;
        }
        return true;
    }
    return false;
}

} // namespace Orvane
} // namespace Vorna
