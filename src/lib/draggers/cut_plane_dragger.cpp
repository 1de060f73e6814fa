#include "cut_plane_dragger.h"

#include "canvas3d_shadermanager.h"
#include "orvane_log.h"

#include <climits>
#include <cmath>
#include <osg/BlendFunc>
#include <osg/BufferIndexBinding>
#include <osg/Material>
#include <osg/ShapeDrawable>
#include <osgManipulator/RotateCylinderDragger>
#include <osgUtil/IntersectionVisitor>

namespace Vorna {
namespace Orvane {

namespace {

constexpr int kSteps = 100;
const double kStep = 2.0 * osg::PI / kSteps;

// Picking skips whatever the host hides under groups named "TODO".
class SkipTodoIntersectionVisitor : public osgUtil::IntersectionVisitor
{
public:
    using osgUtil::IntersectionVisitor::IntersectionVisitor;
    void apply(osg::Group& group) override
    {
        if (group.getName() != "TODO")
            osgUtil::IntersectionVisitor::apply(group);
    }
    void apply(osg::Transform& transform) override
    {
        if (transform.getName() != "TODO")
            osgUtil::IntersectionVisitor::apply(transform);
    }
};

osg::Geometry* newGeometry()
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    return geometry;
}

// Points of a torus in the plane x = 0: major angle phi from +z towards +y, tube angle psi.
void torusPoint(double major, double tube, double phi, double psi, osg::Vec3& vertex,
                osg::Vec3& normal)
{
    const osg::Vec3d radial(0.0, std::sin(phi), std::cos(phi));
    const osg::Vec3d n = radial * std::cos(psi) + osg::Vec3d(1.0, 0.0, 0.0) * std::sin(psi);
    vertex = radial * major + n * tube;
    normal = n;
}

// `steps` strips of the major circle, from phi0, each of 101 steps around the tube.
osg::Geometry* torusStrips(double major, double tube, double phi0, double phiStep, int steps)
{
    osg::Geometry* geometry = newGeometry();
    auto* vertices = new osg::Vec3Array;
    auto* normals = new osg::Vec3Array;
    for (int i = 0; i < steps; ++i) {
        const unsigned int first = vertices->size();
        for (int j = 0; j <= kSteps; ++j) {
            const double psi = j * kStep;
            for (int k = 0; k < 2; ++k) {
                osg::Vec3 v, n;
                torusPoint(major, tube, phi0 + (i + k) * phiStep, psi, v, n);
                vertices->push_back(v);
                normals->push_back(n);
            }
        }
        geometry->addPrimitiveSet(
            new osg::DrawArrays(GL_TRIANGLE_STRIP, first, vertices->size() - first));
    }
    geometry->setVertexArray(vertices);
    geometry->setNormalArray(normals, osg::Array::BIND_PER_VERTEX);
    return geometry;
}

void setColor(osg::Node* node, const osg::Vec4f& color)
{
    osg::StateSet* ss = node->getOrCreateStateSet();
    auto* material = dynamic_cast<osg::Material*>(ss->getAttribute(osg::StateAttribute::MATERIAL));
    if (!material) {
        material = new osg::Material;
        ss->setAttributeAndModes(material);
    }
    material->setDiffuse(osg::Material::FRONT_AND_BACK, color);
    material->setAmbient(osg::Material::FRONT_AND_BACK, color);
    // The helper program reads the colour from its uniform.
    if (osg::Uniform* uniform = ss->getUniform("uniformColor"))
        uniform->set(color);
    else
        ss->addUniform(new osg::Uniform("uniformColor", color));
}

void setLighting(osg::Node* node, bool on)
{
    osg::StateSet* ss = node->getOrCreateStateSet();
    ss->setMode(GL_LIGHTING, on ? osg::StateAttribute::ON : osg::StateAttribute::OFF);
    ss->addUniform(new osg::Uniform("enableLight", on ? 1 : 0));
}

osg::Geode* createPartCircle(double radius, double tube)
{
    auto* geode = new osg::Geode;
    geode->addDrawable(torusStrips(radius, tube, osg::PI_2 - kStep / 2.0, kStep, 1));
    geode->setName("dragger");
    return geode;
}

osg::Geode* createCircle(double radius, double tube, const osg::Vec4f& color)
{
    auto* geode = new osg::Geode;
    geode->addDrawable(torusStrips(radius, tube, 0.0, kStep, kSteps));
    setColor(geode, color);
    setLighting(geode, false);
    return geode;
}

osg::Geode* createCircle_4(double radius, double tube)
{
    auto* geode = new osg::Geode;
    geode->addDrawable(torusStrips(radius, tube, 0.0, kStep, 13));
    return geode;
}

osg::Geode* createPlane(double radius, const osg::Vec4f& color)
{
    osg::Geometry* geometry = newGeometry();
    auto* vertices = new osg::Vec3Array;
    auto* normals = new osg::Vec3Array;
    for (int i = 0; i < kSteps; ++i) {
        vertices->push_back(
            osg::Vec3(0.0, radius * std::sin(i * kStep), radius * std::cos(i * kStep)));
        normals->push_back(osg::Vec3(1, 0, 0));
    }
    geometry->setVertexArray(vertices);
    geometry->setNormalArray(normals, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POLYGON, 0, kSteps));
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    setColor(geode, color);
    setLighting(geode, false);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    // Destination alpha stays 1, so the canvas stays opaque where the disc lies.
    ss->setAttributeAndModes(
        new osg::BlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA));
    ss->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
    return geode;
}

osg::Geode* arrow(double r)
{
    auto* cone = new osg::Cone(osg::Vec3(0, 0, 0.05 * r), 0.012 * r, 0.05 * r);
    cone->setRotation(osg::Quat(1.5079644737231006, osg::Vec3(1, 0, 0)));
    auto* shape = new osg::ShapeDrawable(cone);
    shape->setUseDisplayList(false);
    shape->setUseVertexBufferObjects(true);
    shape->setUseVertexArrayObject(true);
    osg::Geode* geode = createCircle_4(0.05 * r, 0.006 * r);
    geode->addDrawable(shape);
    setLighting(geode, true);
    return geode;
}

osg::MatrixTransform* doubleArrow(double r, const osg::Vec4f& color)
{
    const double tilt = -0.6283185307179586;
    auto* up = new osg::MatrixTransform(osg::Matrix::rotate(tilt, osg::Vec3(1, 0, 0)) *
                                        osg::Matrix::translate(0, 0.95 * r, 0.01 * r));
    up->addChild(arrow(r));
    auto* down = new osg::MatrixTransform(osg::Matrix::rotate(tilt, osg::Vec3(1, 0, 0)) *
                                          osg::Matrix::rotate(osg::PI, osg::Vec3(0, 1, 0)) *
                                          osg::Matrix::translate(0, 0.95 * r, -0.01 * r));
    down->addChild(arrow(r));
    auto* both = new osg::MatrixTransform;
    both->addChild(up);
    both->addChild(down);
    setColor(both, color);
    return both;
}

// The rotation of a matrix that may carry a scale: the disc is often scaled to its model.
osg::Quat rotationOf(const osg::Matrixd& m)
{
    osg::Vec3d translation, scale;
    osg::Quat rotation, scaleOrientation;
    m.decompose(translation, rotation, scale, scaleOrientation);
    return rotation;
}

osg::Quat worldRotation(const osg::Node& node)
{
    const osg::MatrixList worlds = node.getWorldMatrices();
    return worlds.empty() ? osg::Quat() : rotationOf(worlds.front());
}

osg::Matrixd firstWorldMatrix(const osg::Node& node)
{
    const osg::MatrixList worlds = node.getWorldMatrices();
    return worlds.empty() ? osg::Matrixd() : worlds.front();
}

// The vertex array of the first geometry below `node`.
const osg::Vec3Array* firstVertices(osg::Node* node)
{
    class Finder : public osg::NodeVisitor
    {
    public:
        Finder() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
        void apply(osg::Geometry& geometry) override
        {
            // The mesh factory keeps positions in attribute slot 0.
            if (!found)
                found = dynamic_cast<const osg::Vec3Array*>(geometry.getVertexArray()
                                                                ? geometry.getVertexArray()
                                                                : geometry.getVertexAttribArray(0));
        }
        void apply(osg::Node& node) override
        {
            if (!found)
                traverse(node);
        }
        const osg::Vec3Array* found = nullptr;
    };
    if (!node)
        return nullptr;
    Finder finder;
    node->accept(finder);
    return finder.found;
}

} // namespace

ProjectorTranslate1DDragger::ProjectorTranslate1DDragger() = default;

ProjectorTranslate1DDragger::ProjectorTranslate1DDragger(const osg::Vec3d& start,
                                                         const osg::Vec3d& end)
    : osgManipulator::Translate1DDragger(start, end)
{
}

bool FixedLineProjector::project(const osgManipulator::PointerInfo& pi,
                                 osg::Vec3d& projectedPoint) const
{
    const osg::Vec3d start = _line->start(), end = _line->end();
    _line->start() = start * getWorldToLocal();
    _line->end() = end * getWorldToLocal();
    osgManipulator::LineProjector::project(pi, projectedPoint);
    _line->start() = start;
    _line->end() = end;
    return true;
}

CutPlaneDragger::CutPlaneDragger()
    : m_normalColor(0.3f, 0.73f, 0.98f, 1.0f), m_pickColor(0.9f, 0.9f, 0.0f, 1.0f),
      m_planeColor(30.0f / 255.0f, 110.0f / 255.0f, 200.0f / 255.0f, 0.6f)
{
    for (int i = 0; i < kRimDraggers; ++i) {
        osg::ref_ptr<osgManipulator::RotateCylinderDragger> rim =
            new osgManipulator::RotateCylinderDragger;
        addChild(rim.get());
        addDragger(rim.get());
    }
    osg::ref_ptr<ProjectorTranslate1DDragger> translate = new ProjectorTranslate1DDragger;
    addChild(translate.get());
    addDragger(translate.get());
    m_translateDragger = translate.get();
    setParentDragger(getParentDragger());
    setActivationMouseButtonMask(osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON);

    // An aid: out of fits, and never the centre of rotation.
    setUserValue("valid_bounding_sphere", false);
    setUserValue("can_not_set_rotate_center", true);
    if (osg::Program* program = ShaderManager::instance()->getShader("common_model_osg"))
        getOrCreateStateSet()->setAttributeAndModes(program, osg::StateAttribute::ON |
                                                                 osg::StateAttribute::PROTECTED);
}

ProjectorTranslate1DDragger* CutPlaneDragger::getTranslateDragger() const
{
    return static_cast<ProjectorTranslate1DDragger*>(m_translateDragger);
}

void CutPlaneDragger::setupDefaultGeometry()
{
    m_rimPick = createPartCircle(1.0, 0.02);
    for (int i = 0; i < kRimDraggers; ++i) {
        osgManipulator::Dragger* rim = getDragger(i);
        rim->removeChildren(0, rim->getNumChildren());
        rim->addChild(m_rimPick.get());
        rim->setMatrix(osg::Matrix::rotate(osg::PI_2, osg::Vec3(0, 1, 0)) *
                       osg::Matrix::rotate(i * kStep, osg::Vec3(0, 0, 1)));
    }
    // Pickable, never drawn.
    osgManipulator::setDrawableToAlwaysCull(*m_rimPick->getDrawable(0));

    m_plane = createPlane(1.0, m_planeColor);
    m_translateDragger->removeChildren(0, m_translateDragger->getNumChildren());
    m_translateDragger->addChild(m_plane.get());
    m_translateDragger->setMatrix(osg::Matrix::rotate(osg::PI_2, osg::Vec3(0, 1, 0)));

    if (m_arrows.valid())
        removeChild(m_arrows.get());
    if (m_ring.valid() && m_ring->getNumParents() > 0)
        removeChild(m_ring->getParent(0));
    m_arrows = doubleArrow(1.0, m_normalColor);
    m_ring = createCircle(1.0, 0.003, m_normalColor);
    // The ring lies where the rim draggers put their pieces: in the disc's own plane.
    auto* ringHolder = new osg::MatrixTransform(osg::Matrix::rotate(osg::PI_2, osg::Vec3(0, 1, 0)));
    ringHolder->addChild(m_ring.get());
    addChild(m_arrows.get());
    addChild(ringHolder);
    m_arrows->setNodeMask(0);
}

bool CutPlaneDragger::intersect(const osgGA::GUIEventAdapter& ea, osgViewer::View* view,
                                osgUtil::LineSegmentIntersector::Intersections& hits) const
{
    osg::ref_ptr<osgUtil::LineSegmentIntersector> picker;
    osg::Camera* camera = nullptr;
    if (ea.getNumPointerData() >= 1) {
        const osgGA::PointerData* pd = ea.getPointerData(ea.getNumPointerData() - 1);
        camera = pd->object.valid() ? const_cast<osg::Camera*>(pd->object->asCamera()) : nullptr;
        if (camera)
            picker = new osgUtil::LineSegmentIntersector(
                osgUtil::Intersector::PROJECTION, pd->getXnormalized(), pd->getYnormalized());
    }
    if (!picker) {
        float x = ea.getX(), y = ea.getY();
        const osg::Camera* found = view->getCameraContainingPosition(ea.getX(), ea.getY(), x, y);
        camera = const_cast<osg::Camera*>(found ? found : view->getCamera());
        picker = new osgUtil::LineSegmentIntersector(
            camera->getViewport() ? osgUtil::Intersector::WINDOW : osgUtil::Intersector::PROJECTION,
            x, y);
    }
    SkipTodoIntersectionVisitor visitor(picker.get());
    visitor.setTraversalMask(_intersectionMask);
    camera->accept(visitor);
    if (!picker->containsIntersections())
        return false;
    hits = picker->getIntersections();
    return true;
}

void CutPlaneDragger::setGeometryColor(const osgGA::GUIEventAdapter& ea,
                                       osgGA::GUIActionAdapter& aa)
{
    if (!m_plane.valid() || !m_ring.valid() || !m_arrows.valid())
        return;
    auto* view = dynamic_cast<osgViewer::View*>(&aa);
    int state = 0;
    osgUtil::LineSegmentIntersector::Intersections hits;
    if (view && intersect(ea, view, hits)) {
        for (const auto& hit : hits) {
            for (osg::Node* node : hit.nodePath) {
                if (auto* rim = dynamic_cast<osgManipulator::RotateCylinderDragger*>(node)) {
                    if (m_rotateEnable) {
                        m_arrows->setMatrix(osg::Matrix::rotate(-osg::PI_2, osg::Vec3(0, 1, 0)) *
                                            rim->getMatrix());
                        state = 2;
                    }
                    break;
                }
                if (dynamic_cast<osgManipulator::Translate1DDragger*>(node)) {
                    if (m_translateEnable)
                        state = 1;
                    break;
                }
            }
            if (state != 0)
                break;
        }
    }
    osg::Vec4f plane = m_planeColor;
    if (state == 1)
        plane.a() *= 0.8f;
    setColor(m_plane.get(), plane);
    setColor(m_ring.get(), state == 2 ? m_pickColor : m_normalColor);
    m_arrows->setNodeMask(state == 2 ? ~0u : 0u);
}

void CutPlaneDragger::traverse(osg::NodeVisitor& nv)
{
    m_nodeVisitor = &nv;
    osgManipulator::CompositeDragger::traverse(nv);
    m_nodeVisitor = nullptr;
}

bool CutPlaneDragger::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (ea.getHandled())
        return false;
    auto* view = dynamic_cast<osgViewer::View*>(&aa);
    if (!view)
        return false;
    if (!_draggerActive)
        setGeometryColor(ea, aa);

    bool handled = false;
    bool permitted = true;
    if (_activationModKeyMask != 0 || _activationMouseButtonMask != 0 || _activationKeyEvent != 0) {
        _activationPermittedByModKeyMask =
            _activationModKeyMask != 0 && (ea.getModKeyMask() & _activationModKeyMask) != 0;
        _activationPermittedByMouseButtonMask =
            _activationMouseButtonMask != 0 &&
            (ea.getButtonMask() & _activationMouseButtonMask) != 0;
        if (_activationKeyEvent != 0 && ea.getKey() == _activationKeyEvent) {
            if (ea.getEventType() == osgGA::GUIEventAdapter::KEYDOWN)
                _activationPermittedByKeyEvent = true;
            else if (ea.getEventType() == osgGA::GUIEventAdapter::KEYUP)
                _activationPermittedByKeyEvent = false;
        }
        permitted = _activationPermittedByModKeyMask || _activationPermittedByMouseButtonMask ||
                    _activationPermittedByKeyEvent;
    }
    if (!permitted && !_draggerActive)
        return false;

    switch (ea.getEventType()) {
    case osgGA::GUIEventAdapter::PUSH: {
        _pointer.reset();
        osgUtil::LineSegmentIntersector::Intersections hits;
        if (!intersect(ea, view, hits))
            break;
        for (const auto& hit : hits)
            _pointer.addIntersection(hit.nodePath, hit.getLocalIntersectPoint());
        const osg::NodePath& first = _pointer._hitList.front().first;
        if (std::find(first.begin(), first.end(), this) == first.end())
            break;
        osg::Camera* rootCamera = view->getCamera();
        for (auto it = first.rbegin(); it != first.rend(); ++it) {
            auto* camera = dynamic_cast<osg::Camera*>(*it);
            if (camera && (camera->getReferenceFrame() != osg::Transform::RELATIVE_RF ||
                           camera->getParents().empty())) {
                rootCamera = camera;
                break;
            }
        }
        _pointer.setCamera(rootCamera);
        _pointer.setMousePosition(ea.getX(), ea.getY());
        if (handle(_pointer, ea, aa)) {
            setDraggerActive(true);
            handled = true;
        }
        break;
    }
    case osgGA::GUIEventAdapter::DRAG:
    case osgGA::GUIEventAdapter::RELEASE:
        if (_draggerActive) {
            _pointer._hitIter = _pointer._hitList.begin();
            _pointer.setMousePosition(ea.getX(), ea.getY());
            handled = handle(_pointer, ea, aa);
        }
        break;
    default:
        break;
    }
    if (_draggerActive && ea.getEventType() == osgGA::GUIEventAdapter::RELEASE) {
        setDraggerActive(false);
        _pointer.reset();
    }
    return handled;
}

bool CutPlaneDragger::handle(const osgManipulator::PointerInfo& pi,
                             const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (!pi.contains(this))
        return false;
    m_currentHandleDragger = -1;
    for (const osg::ref_ptr<osgManipulator::Dragger>& child : _draggerList) {
        ++m_currentHandleDragger;
        if (child.get() == m_translateDragger) {
            if (!m_translateEnable)
                continue;
            auto* view = dynamic_cast<osgViewer::View*>(&aa);
            if (!view) {
                qCDebug(orvane) << "The view pointer is nullptr!";
                return true;
            }
            const osg::Vec3d n = worldRotation(*this) * osg::Vec3d(0, 0, 1);
            osg::Vec3d eye, center, up;
            view->getCamera()->getViewMatrixAsLookAt(eye, center, up);
            osg::Vec3d toEye = eye - center;
            toEye.normalize();
            // Face-on, a line projection along the normal jumps at the smallest motion.
            if (std::fabs(n * toEye) >= std::cos(osg::DegreesToRadians(m_translateAngleLimit)))
                return true;
            if (child->handle(pi, ea, aa)) {
                emit translateChanged();
                return true;
            }
            continue;
        }
        if (!m_rotateEnable)
            continue;
        if (child->handle(pi, ea, aa)) {
            if (m_arrows.valid())
                m_arrows->setMatrix(osg::Matrix::rotate(osg::PI_2, osg::Vec3(0, 1, 0)) *
                                    child->getMatrix());
            emit rotateChanged();
            return true;
        }
    }
    return false;
}

RangeConstraint::RangeConstraint(osg::Node& referenceNode, const osg::Vec3d& center,
                                 double maxDistance)
    : osgManipulator::Constraint(referenceNode), m_center(center), m_maxDistance(maxDistance)
{
}

bool RangeConstraint::constrain(osgManipulator::TranslateInLineCommand& command) const
{
    if (command.getStage() == osgManipulator::MotionCommand::START) {
        computeLocalToWorldAndWorldToLocal();
        if (auto* transform = dynamic_cast<const osg::MatrixTransform*>(&getReferenceNode()))
            m_startMatrix = transform->getMatrix();
    } else if (command.getStage() == osgManipulator::MotionCommand::FINISH) {
        m_distance = (command.getLocalToWorld().getTrans() - m_center).length();
        return true;
    }
    const osg::Matrixd& L = getLocalToWorld();
    const osg::Matrixd moved = L * command.getWorldToLocal() * command.getMotionMatrix() *
                               command.getLocalToWorld() * getWorldToLocal() * L;
    const osg::Vec3d p = moved.getTrans();
    osg::Vec3d away = p - m_center;
    if (away.length() > m_maxDistance) {
        away.normalize();
        const osg::Vec3d target = m_center + away * m_maxDistance;
        const osg::Vec3d d = target - command.getLocalToWorld().getTrans();
        command.setTranslation(
            (command.getLocalToWorld() * osg::Matrixd::translate(d) * command.getWorldToLocal())
                .getTrans());
    }
    return true;
}

AngleRangeConstraint::AngleRangeConstraint(osg::Node& referenceNode, osg::MatrixTransform* model)
    : osgManipulator::Constraint(referenceNode), m_model(model)
{
}

void AngleRangeConstraint::computeRange() const
{
    const osg::Vec3Array* vertices = firstVertices(m_model.get());
    auto* reference = dynamic_cast<const osgManipulator::Dragger*>(&getReferenceNode());
    const auto* disc =
        reference ? dynamic_cast<const CutPlaneDragger*>(reference->getParentDragger()) : nullptr;
    if (!vertices || !disc)
        return;
    const osg::Matrixd world = firstWorldMatrix(*disc);
    const osg::Vec3d c = world.getTrans();
    const osg::Quat q = rotationOf(world);
    const osg::Vec3d n = q * osg::Vec3d(0, 0, 1);
    const int index = disc->getCurrentHandleDragger();
    osg::Vec3d a(0, 0, -1);
    if (index >= 0 && index < int(disc->getNumDraggers()))
        a = osg::Matrixd::transform3x3(a, disc->getDragger(index)->getMatrix());
    a = q * a;
    a.normalize();
    const osg::Matrixd modelWorld = firstWorldMatrix(*m_model);
    double frontLeast = 2.0, backLeast = 2.0;
    bool front = false, back = false;
    for (const osg::Vec3f& vertex : *vertices) {
        const osg::Vec3d d = osg::Vec3d(vertex) * modelWorld - c;
        osg::Vec3d e = d - a * (d * a);
        e.normalize();
        const double k = e * (n ^ a);
        if (d * n > 0.0) {
            front = true;
            frontLeast = std::min(frontLeast, k);
        } else {
            back = true;
            backLeast = std::min(backLeast, k);
        }
    }
    m_minAngle = front ? -std::acos(osg::clampBetween(frontLeast, -1.0, 1.0)) : 0.0;
    m_maxAngle = back ? std::acos(osg::clampBetween(backLeast, -1.0, 1.0)) : 0.0;
}

bool AngleRangeConstraint::constrain(osgManipulator::Rotate3DCommand& command) const
{
    if (command.getStage() == osgManipulator::MotionCommand::START) {
        computeLocalToWorldAndWorldToLocal();
        computeRange();
        m_startRotation = rotationOf(getLocalToWorld());
        return true;
    }
    if (command.getStage() == osgManipulator::MotionCommand::FINISH)
        return true;
    const osg::Matrixd& L = getLocalToWorld();
    const osg::Matrixd moved = L * command.getWorldToLocal() * command.getMotionMatrix() *
                               command.getLocalToWorld() * getWorldToLocal() * L;
    // The turn since the press, signed by its axis against the rim's.
    const osg::Quat turn = rotationOf(moved) * m_startRotation.inverse();
    double angle = 0.0;
    osg::Vec3d axis;
    turn.getRotate(angle, axis);
    if (angle > osg::PI)
        angle -= 2.0 * osg::PI;
    const osg::Vec3d rimAxis =
        osg::Matrixd::transform3x3(osg::Vec3d(0, 0, 1), command.getLocalToWorld());
    if (axis * rimAxis < 0.0)
        angle = -angle;
    if (angle >= m_minAngle && angle <= m_maxAngle)
        m_angle = angle;
    return true;
}

CutConstraint::CutConstraint(osg::Node& referenceNode, osg::MatrixTransform* model,
                             bool allowCutting)
    : osgManipulator::Constraint(referenceNode), m_allowCutting(allowCutting), m_model(model)
{
}

bool CutConstraint::constrain(osgManipulator::TranslateInLineCommand&) const
{
    return true;
}

bool CutConstraint::constrain(osgManipulator::Rotate3DCommand& command) const
{
    if (command.getStage() == osgManipulator::MotionCommand::START) {
        computeLocalToWorldAndWorldToLocal();
        if (auto* transform = dynamic_cast<const osg::MatrixTransform*>(&getReferenceNode()))
            m_startMatrix = transform->getMatrix();
        m_lastRotation = command.getRotation();
        return true;
    }
    if (command.getStage() == osgManipulator::MotionCommand::FINISH)
        return true;
    const osg::Matrixd& L = getLocalToWorld();
    const osg::Matrixd inModel = L * command.getWorldToLocal() * command.getMotionMatrix() *
                                 command.getLocalToWorld() * getWorldToLocal() * L *
                                 osg::Matrixd::inverse(firstWorldMatrix(*m_model));
    const osg::Vec3d p = inModel.getTrans();
    osg::Vec3d n = rotationOf(inModel) * osg::Vec3d(0, 0, 1);
    n.normalize();
    const osg::Vec3Array* vertices = firstVertices(m_model.get());
    if (vertices && !vertices->empty()) {
        bool allBelow = true, anyBelow = false;
        for (const osg::Vec3f& v : *vertices) {
            const bool below = (osg::Vec3d(v) - p) * n < 0.0;
            allBelow = allBelow && below;
            anyBelow = anyBelow || below;
        }
        if ((m_allowCutting && allBelow) || (!m_allowCutting && anyBelow))
            command.setRotation(m_lastRotation);
    }
    m_lastRotation = command.getRotation();
    return true;
}

UpdateCutPlaneDrawCallback::UpdateCutPlaneDrawCallback(
    osg::ref_ptr<osg::ShaderStorageBufferObject> buffer)
    : m_buffer(std::move(buffer))
{
}

void UpdateCutPlaneDrawCallback::drawImplementation(osg::RenderInfo& renderInfo,
                                                    const osg::Drawable* drawable) const
{
    drawable->drawImplementation(renderInfo);
}

const int EnableCutSSBOOperation::m_numSSBO = 6;

EnableCutSSBOOperation::EnableCutSSBOOperation(osg::ref_ptr<osg::Geometry> geometry, bool enable)
    : osg::Operation("enable cut SSBO", false), m_geometry(std::move(geometry)), m_enable(enable)
{
    if (m_enable) {
        m_buffer = new osg::ShaderStorageBufferObject;
        m_callback = new UpdateCutPlaneDrawCallback(m_buffer);
    }
}

void EnableCutSSBOOperation::operator()(osg::Object*)
{
    if (!m_geometry.valid())
        return;
    if (!m_enable) {
        osg::StateSet* ss = m_geometry->getStateSet();
        if (ss && ss->getAttribute(osg::StateAttribute::SHADERSTORAGEBUFFERBINDING, 0))
            ss->removeAttribute(osg::StateAttribute::SHADERSTORAGEBUFFERBINDING, 0);
        return;
    }
    m_buffer->setUsage(GL_DYNAMIC_READ);
    osg::ref_ptr<osg::IntArray> ints = new osg::IntArray(m_numSSBO);
    (*ints)[0] = INT_MIN;
    (*ints)[1] = INT_MAX;
    (*ints)[2] = INT_MAX;
    (*ints)[3] = INT_MIN;
    (*ints)[4] = 0;
    (*ints)[5] = 0;
    ints->setBufferObject(m_buffer.get());
    auto* binding =
        new osg::ShaderStorageBufferBinding(0, ints.get(), 0, m_numSSBO * sizeof(GLint));
    m_geometry->getOrCreateStateSet()->setAttributeAndModes(binding);
    m_geometry->setDrawCallback(m_callback.get());
}

} // namespace Orvane
} // namespace Vorna
