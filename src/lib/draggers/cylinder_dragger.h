#pragma once

#include <QObject>
#include <QPointer>
#include <osg/Camera>
#include <osg/Geode>
#include <osg/MatrixTransform>
#include <osg/Plane>
#include <osgManipulator/Dragger>
#include <osgManipulator/Projector>
#include <osgManipulator/RotateCylinderDragger>

namespace osgViewer {
class View;
}

namespace Vorna {
namespace Orvane {

class CylinderManipulator;
class CylinderManipulatorPrivate;

// An arrow handle along +z of its own frame: a shaft and a cone, `length` long.
class ArrowNode : public osg::Geode
{
public:
    ArrowNode(float length, const osg::Vec4f& color);
};

// Drags that change a number of the cylinder and say so through the connected object.
class CylinderValueDragger : public osgManipulator::Dragger
{
public:
    void setConnectObject(QObject* object) { m_connect = object; }
    void setPrivate(CylinderManipulatorPrivate* d) { m_d = d; }
    bool handle(const osgManipulator::PointerInfo& pi, const osgGA::GUIEventAdapter& ea,
                osgGA::GUIActionAdapter& aa) override;
    using osgManipulator::Dragger::handle;

protected:
    CylinderValueDragger();
    // The line the pointer is projected on, in the cylinder's own frame.
    virtual void line(osg::Vec3d& start, osg::Vec3d& direction) const = 0;
    virtual float value() const = 0;
    // Sets the value, bounded; whether it changed.
    virtual bool setValue(float value) = 0;
    void notify();

    QPointer<QObject> m_connect;
    CylinderManipulatorPrivate* m_d = nullptr;
    osg::ref_ptr<osgManipulator::LineProjector> m_projector;
    osg::Vec3d m_startPoint;
    osg::Vec3d m_direction;
    float m_startValue = 0.0f;
    bool m_started = false;
};

class CylinderRadiusDragger : public CylinderValueDragger
{
public:
    enum Direction { PositiveX, NegativeX, PositiveY, NegativeY };
    explicit CylinderRadiusDragger(Direction direction = PositiveX);
    void setupDefaultGeometry() override;
    float getMinScale() const { return m_minScale; }
    Direction direction() const { return m_dir; }
    osg::Vec3d directionVector() const;

protected:
    void line(osg::Vec3d& start, osg::Vec3d& direction) const override;
    float value() const override;
    bool setValue(float value) override;

private:
    float m_minScale = 0.001f;
    Direction m_dir;
};

class CylinderHeightDragger : public CylinderValueDragger
{
public:
    enum Direction { Top };
    explicit CylinderHeightDragger(float minHeight = 0.001f, Direction direction = Top);
    void setupDefaultGeometry() override;
    float getMinHeight() const { return m_minHeight; }

protected:
    void line(osg::Vec3d& start, osg::Vec3d& direction) const override;
    float value() const override;
    bool setValue(float value) override;

private:
    float m_minHeight;
    Direction m_dir;
};

// The rotation ring: a rotate-cylinder dragger whose cylinder and ring take a radius.
class VornaRotateCylinderDragger : public osgManipulator::RotateCylinderDragger
{
public:
    VornaRotateCylinderDragger();
    void setRadius(float radius);
    float radius() const { return m_radius; }
    void setupDefaultGeometry() override;

private:
    float m_radius = 1.0f;
};

// Turns the whole cylinder about its middle; its ring moves the root transform, not itself.
class CylinderRotateDragger : public osgManipulator::CompositeDragger
{
public:
    explicit CylinderRotateDragger(osg::Camera* camera);
    void setupDefaultGeometry() override;
    void setConnectObject(QObject* object) { m_connect = object; }
    bool handle(const osgManipulator::PointerInfo& pi, const osgGA::GUIEventAdapter& ea,
                osgGA::GUIActionAdapter& aa) override;
    using osgManipulator::CompositeDragger::handle;
    VornaRotateCylinderDragger* ring() const { return m_ring.get(); }

private:
    osg::observer_ptr<osg::Camera> m_camera;
    osg::ref_ptr<VornaRotateCylinderDragger> m_ring;
    QPointer<QObject> m_connect;
};

// Moves the whole cylinder in a plane through its base, kept facing the viewer.
class CylinderTranslateDragger : public osgManipulator::Dragger
{
public:
    CylinderTranslateDragger();
    void setupDefaultGeometry() override {}
    void setConnectObject(QObject* object) { m_connect = object; }
    void setPlane(osg::Plane& plane);
    const osg::Plane& plane() const { return m_projector->getPlane(); }
    bool handle(const osgManipulator::PointerInfo& pi, const osgGA::GUIEventAdapter& ea,
                osgGA::GUIActionAdapter& aa) override;
    using osgManipulator::Dragger::handle;

private:
    osg::ref_ptr<osgManipulator::PlaneProjector> m_projector;
    osg::Vec3d m_startPoint;
    QPointer<QObject> m_connect;
};

class CylinderManipulatorPrivate
{
public:
    CylinderManipulatorPrivate(CylinderManipulator* owner, osgViewer::View* view,
                               const osg::Vec3f& center, const osg::Vec3f& axis, float radius,
                               float height, const osg::Vec4f& color);
    // The nodes may outlive this record in the client's scene: they stop looking at it.
    ~CylinderManipulatorPrivate();

    void createStructure();
    void createGeometries();
    // Puts the handles where the present radius and height say.
    void placeHandles();
    void setColor(const osg::Vec4f& color);

    osgViewer::View* m_view;
    CylinderManipulator* m_owner;
    osg::ref_ptr<osg::MatrixTransform> m_root;
    osg::ref_ptr<osg::MatrixTransform> m_body;
    osg::ref_ptr<osg::Geode> m_geode;
    osg::Vec4f m_color;
    float m_radius;
    float m_height;
    bool m_bottom = true;
    osg::ref_ptr<CylinderRadiusDragger> m_radiusDragger;
    osg::ref_ptr<CylinderHeightDragger> m_heightDragger;
    osg::ref_ptr<CylinderRotateDragger> m_rotateDragger;
    osg::ref_ptr<CylinderTranslateDragger> m_translateDragger;
    // Times the body was rebuilt, for the client's checks.
    int m_builds = 0;
};

} // namespace Orvane
} // namespace Vorna
