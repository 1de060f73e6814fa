#include "cylinder_dragger.h"
#include "cylinder_manipulator.h"

#include <QMetaObject>
#include <cmath>
#include <osg/ShapeDrawable>
#include <osgManipulator/Command>

namespace Vorna {
namespace Orvane {

namespace {

osg::Matrixd parentLocalToWorld(osg::Node& node)
{
    const osg::NodePathList paths = node.getParentalNodePaths();
    if (paths.empty())
        return osg::Matrixd();
    osg::NodePath path = paths.front();
    if (!path.empty() && path.back() == &node)
        path.pop_back();
    return osg::computeLocalToWorld(path);
}

osg::Matrixd localToWorld(osg::Node& node)
{
    const osg::NodePathList paths = node.getParentalNodePaths();
    return paths.empty() ? osg::Matrixd() : osg::computeLocalToWorld(paths.front());
}

void emitChanged(QObject* object)
{
    if (object)
        QMetaObject::invokeMethod(object, "cylinderChanged", Qt::DirectConnection);
}

void setUniformColor(osg::Node* node, const osg::Vec4f& color)
{
    osg::StateSet* ss = node->getOrCreateStateSet();
    if (osg::Uniform* uniform = ss->getUniform("uniformColor"))
        uniform->set(color);
    else
        ss->addUniform(new osg::Uniform("uniformColor", color));
}

osg::ShapeDrawable* shape(osg::Shape* s)
{
    auto* drawable = new osg::ShapeDrawable(s);
    drawable->setUseDisplayList(false);
    drawable->setUseVertexBufferObjects(true);
    drawable->setUseVertexArrayObject(true);
    return drawable;
}

// A ring in the xy plane about the z axis.
osg::Geometry* ringGeometry(float radius, float tube)
{
    const int major = 64, minor = 12;
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    auto* vertices = new osg::Vec3Array;
    auto* normals = new osg::Vec3Array;
    for (int i = 0; i < major; ++i) {
        const unsigned int first = vertices->size();
        for (int j = 0; j <= minor; ++j) {
            const double psi = j * 2.0 * osg::PI / minor;
            for (int k = 0; k < 2; ++k) {
                const double phi = (i + k) * 2.0 * osg::PI / major;
                const osg::Vec3d radial(std::cos(phi), std::sin(phi), 0.0);
                const osg::Vec3d n = radial * std::cos(psi) + osg::Vec3d(0, 0, 1) * std::sin(psi);
                vertices->push_back(radial * radius + n * tube);
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

} // namespace

ArrowNode::ArrowNode(float length, const osg::Vec4f& color)
{
    const float shaft = 0.7f * length;
    addDrawable(shape(new osg::Cylinder(osg::Vec3(0, 0, shaft * 0.5f), 0.08f * length, shaft)));
    // A cone's centre lies a quarter of its height above its base.
    addDrawable(shape(
        new osg::Cone(osg::Vec3(0, 0, shaft + 0.075f * length), 0.25f * length, 0.3f * length)));
    setUniformColor(this, color);
}

CylinderValueDragger::CylinderValueDragger() : m_projector(new osgManipulator::LineProjector)
{
    setHandleEvents(true);
    setActivationMouseButtonMask(osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON);
}

void CylinderValueDragger::notify()
{
    if (m_d)
        m_d->placeHandles();
    emitChanged(m_connect.data());
}

bool CylinderValueDragger::handle(const osgManipulator::PointerInfo& pi,
                                  const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (!pi.contains(this) || !m_d)
        return false;
    switch (ea.getEventType()) {
    case osgGA::GUIEventAdapter::PUSH: {
        osg::Vec3d start;
        line(start, m_direction);
        m_projector->setLine(start, start + m_direction);
        // The cylinder's frame: the handle itself moves during the drag.
        m_projector->setLocalToWorld(parentLocalToWorld(*this));
        m_started = m_projector->project(pi, m_startPoint);
        m_startValue = value();
        aa.requestRedraw();
        return true;
    }
    case osgGA::GUIEventAdapter::DRAG: {
        osg::Vec3d point;
        if (m_started && m_projector->project(pi, point) &&
            setValue(m_startValue + float((point - m_startPoint) * m_direction)))
            notify();
        aa.requestRedraw();
        return true;
    }
    case osgGA::GUIEventAdapter::RELEASE:
        m_started = false;
        return true;
    default:
        return false;
    }
}

CylinderRadiusDragger::CylinderRadiusDragger(Direction direction) : m_dir(direction) {}

osg::Vec3d CylinderRadiusDragger::directionVector() const
{
    switch (m_dir) {
    case NegativeX:
        return osg::Vec3d(-1, 0, 0);
    case PositiveY:
        return osg::Vec3d(0, 1, 0);
    case NegativeY:
        return osg::Vec3d(0, -1, 0);
    default:
        return osg::Vec3d(1, 0, 0);
    }
}

void CylinderRadiusDragger::setupDefaultGeometry()
{
    removeChildren(0, getNumChildren());
    const float size = m_d ? 0.5f * std::max(m_d->m_radius, m_d->m_height * 0.5f) : 0.5f;
    auto* turn =
        new osg::MatrixTransform(osg::Matrix::rotate(osg::Vec3d(0, 0, 1), directionVector()));
    turn->addChild(new ArrowNode(size, osg::Vec4f(0.9f, 0.5f, 0.1f, 1.0f)));
    addChild(turn);
}

void CylinderRadiusDragger::line(osg::Vec3d& start, osg::Vec3d& direction) const
{
    start.set(0, 0, m_d->m_height * 0.5);
    direction = directionVector();
}

float CylinderRadiusDragger::value() const
{
    return m_d->m_radius;
}

bool CylinderRadiusDragger::setValue(float radius)
{
    radius = std::max(radius, m_minScale);
    if (radius == m_d->m_radius)
        return false;
    m_d->m_radius = radius;
    return true;
}

CylinderHeightDragger::CylinderHeightDragger(float minHeight, Direction direction)
    : m_minHeight(minHeight), m_dir(direction)
{
}

void CylinderHeightDragger::setupDefaultGeometry()
{
    removeChildren(0, getNumChildren());
    const float size = m_d ? 0.5f * std::max(m_d->m_radius, m_d->m_height * 0.5f) : 0.5f;
    addChild(new ArrowNode(size, osg::Vec4f(0.2f, 0.8f, 0.3f, 1.0f)));
}

void CylinderHeightDragger::line(osg::Vec3d& start, osg::Vec3d& direction) const
{
    start.set(0, 0, 0);
    direction.set(0, 0, 1);
}

float CylinderHeightDragger::value() const
{
    return m_d->m_height;
}

bool CylinderHeightDragger::setValue(float height)
{
    height = std::max(height, m_minHeight);
    if (height == m_d->m_height)
        return false;
    m_d->m_height = height;
    return true;
}

VornaRotateCylinderDragger::VornaRotateCylinderDragger()
{
    setRadius(1.0f);
}

void VornaRotateCylinderDragger::setRadius(float radius)
{
    m_radius = radius;
    _projector->setCylinder(new osg::Cylinder(osg::Vec3(), radius, 0.1f * radius));
}

void VornaRotateCylinderDragger::setupDefaultGeometry()
{
    removeChildren(0, getNumChildren());
    auto* geode = new osg::Geode;
    geode->addDrawable(ringGeometry(m_radius, 0.04f * m_radius));
    setUniformColor(geode, osg::Vec4f(0.3f, 0.5f, 0.95f, 1.0f));
    addChild(geode);
}

CylinderRotateDragger::CylinderRotateDragger(osg::Camera* camera)
    : m_camera(camera), m_ring(new VornaRotateCylinderDragger)
{
    addChild(m_ring.get());
    addDragger(m_ring.get());
    setParentDragger(getParentDragger());
    // The ring moves the cylinder's root, which carries this dragger along.
    _selfUpdater = nullptr;
    setHandleEvents(true);
    setActivationMouseButtonMask(osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON);
}

void CylinderRotateDragger::setupDefaultGeometry()
{
    m_ring->setupDefaultGeometry();
}

bool CylinderRotateDragger::handle(const osgManipulator::PointerInfo& pi,
                                   const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (!osgManipulator::CompositeDragger::handle(pi, ea, aa))
        return false;
    if (ea.getEventType() == osgGA::GUIEventAdapter::DRAG)
        emitChanged(m_connect.data());
    return true;
}

CylinderTranslateDragger::CylinderTranslateDragger()
    : m_projector(new osgManipulator::PlaneProjector(osg::Plane(0, 0, 1, 0)))
{
    _selfUpdater = nullptr;
    setHandleEvents(true);
    setActivationMouseButtonMask(osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON);
}

void CylinderTranslateDragger::setPlane(osg::Plane& plane)
{
    m_projector->setPlane(plane);
}

bool CylinderTranslateDragger::handle(const osgManipulator::PointerInfo& pi,
                                      const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (!pi.contains(this))
        return false;
    osgManipulator::MotionCommand::Stage stage;
    switch (ea.getEventType()) {
    case osgGA::GUIEventAdapter::PUSH:
        m_projector->setLocalToWorld(localToWorld(*this));
        if (!m_projector->project(pi, m_startPoint))
            return true;
        stage = osgManipulator::MotionCommand::START;
        break;
    case osgGA::GUIEventAdapter::DRAG:
        stage = osgManipulator::MotionCommand::MOVE;
        break;
    case osgGA::GUIEventAdapter::RELEASE:
        stage = osgManipulator::MotionCommand::FINISH;
        break;
    default:
        return false;
    }
    osg::ref_ptr<osgManipulator::TranslateInPlaneCommand> command =
        new osgManipulator::TranslateInPlaneCommand(m_projector->getPlane());
    command->setStage(stage);
    command->setLocalToWorldAndWorldToLocal(m_projector->getLocalToWorld(),
                                            m_projector->getWorldToLocal());
    if (stage == osgManipulator::MotionCommand::MOVE) {
        osg::Vec3d point;
        if (!m_projector->project(pi, point))
            return true;
        command->setTranslation(point - m_startPoint);
    }
    dispatch(*command);
    if (stage == osgManipulator::MotionCommand::MOVE)
        emitChanged(m_connect.data());
    aa.requestRedraw();
    return true;
}

} // namespace Orvane
} // namespace Vorna
