#pragma once

#include <QObject>
#include <osg/BufferObject>
#include <osg/Drawable>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osg/OperationThread>
#include <osgGA/GUIActionAdapter>
#include <osgGA/GUIEventAdapter>
#include <osgManipulator/Command>
#include <osgManipulator/Constraint>
#include <osgManipulator/Dragger>
#include <osgManipulator/Projector>
#include <osgManipulator/Translate1DDragger>
#include <osgUtil/LineSegmentIntersector>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

// The translate dragger of the cut disc; its line projector can be swapped for a fixed one.
class ProjectorTranslate1DDragger : public osgManipulator::Translate1DDragger
{
public:
    ProjectorTranslate1DDragger();
    ProjectorTranslate1DDragger(const osg::Vec3d& start, const osg::Vec3d& end);

    const char* className() const override { return "ProjectorTranslate1DDragger"; }
    const char* libraryName() const override { return "Orvane"; }

    void setLineProjector(osgManipulator::LineProjector* projector) { _projector = projector; }
    osgManipulator::LineProjector* lineProjector() const { return _projector.get(); }
};

// A line given in world coordinates: it does not follow the dragger that uses it.
class FixedLineProjector : public osgManipulator::LineProjector
{
public:
    FixedLineProjector() = default;
    FixedLineProjector(const osg::Vec3d& start, const osg::Vec3d& end)
        : osgManipulator::LineProjector(start, end)
    {
    }
    bool project(const osgManipulator::PointerInfo& pi, osg::Vec3d& projectedPoint) const override;
};

// A disc through a model: its rim is a hundred invisible rotate draggers, each turning the disc
// about the tangent where it was pressed, and its face is one translate dragger along the
// normal. Events arrive through the event traversal; render thread only.
class CutPlaneDragger : public QObject, public osgManipulator::CompositeDragger
{
    Q_OBJECT
public:
    static constexpr int kRimDraggers = 100;

    CutPlaneDragger();

    void setupDefaultGeometry() override;
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;
    bool handle(const osgManipulator::PointerInfo& pi, const osgGA::GUIEventAdapter& ea,
                osgGA::GUIActionAdapter& aa) override;
    void traverse(osg::NodeVisitor& nv) override;

    ProjectorTranslate1DDragger* getTranslateDragger() const;
    int getCurrentHandleDragger() const { return m_currentHandleDragger; }

    void setRotateEnable(bool enable) { m_rotateEnable = enable; }
    bool rotateEnable() const { return m_rotateEnable; }
    void setTranslateEnable(bool enable) { m_translateEnable = enable; }
    bool translateEnable() const { return m_translateEnable; }
    // Degrees from face-on within which a push along the normal is refused.
    void setTranslateAngleLimit(float degrees) { m_translateAngleLimit = degrees; }
    float translateAngleLimit() const { return m_translateAngleLimit; }

    const osg::Vec4f& normalColor() const { return m_normalColor; }
    const osg::Vec4f& pickColor() const { return m_pickColor; }
    const osg::Vec4f& planeColor() const { return m_planeColor; }
    osg::MatrixTransform* arrows() const { return m_arrows.get(); }
    osg::Geode* ring() const { return m_ring.get(); }
    osg::Geode* plane() const { return m_plane.get(); }
    osg::Geode* rimPick() const { return m_rimPick.get(); }

signals:
    void rotateChanged();
    void translateChanged();

protected:
    ~CutPlaneDragger() override = default;

private:
    // 0 nothing, 1 the disc, 2 the rim under the pointer.
    void setGeometryColor(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa);
    bool intersect(const osgGA::GUIEventAdapter& ea, osgViewer::View* view,
                   osgUtil::LineSegmentIntersector::Intersections& hits) const;

    osg::Vec4f m_normalColor;
    osg::Vec4f m_pickColor;
    osg::Vec4f m_planeColor;
    osg::ref_ptr<osg::MatrixTransform> m_arrows;
    osg::ref_ptr<osg::Geode> m_ring;
    osg::ref_ptr<osg::Geode> m_rimPick;
    osg::ref_ptr<osg::Geode> m_plane;
    bool m_rotateEnable = true;
    bool m_translateEnable = true;
    osgManipulator::Dragger* m_translateDragger = nullptr;
    int m_currentHandleDragger = -1;
    osg::NodeVisitor* m_nodeVisitor = nullptr;
    float m_translateAngleLimit = 10.0f;
};

// Keeps the plane within `maxDistance` of a world point while it is pushed.
class RangeConstraint : public osgManipulator::Constraint
{
public:
    RangeConstraint(osg::Node& referenceNode, const osg::Vec3d& center, double maxDistance);

    bool constrain(osgManipulator::TranslateInLineCommand& command) const override;

    const osg::Vec3d& center() const { return m_center; }
    void setCenter(const osg::Vec3d& center) { m_center = center; }
    double maxDistance() const { return m_maxDistance; }
    void setMaxDistance(double distance) { m_maxDistance = distance; }
    // From the centre, written at the end of each push.
    double distance() const { return m_distance; }

private:
    osg::Vec3d m_center;
    mutable double m_distance = 0.0;
    double m_maxDistance;
    mutable osg::Matrixd m_startMatrix;
};

// Measures how far the disc may turn about the pressed rim place before it leaves the model,
// and the last angle of a drag within that range. It never alters the command.
class AngleRangeConstraint : public osgManipulator::Constraint
{
public:
    // `referenceNode` is the cut disc or one of its child draggers.
    AngleRangeConstraint(osg::Node& referenceNode, osg::MatrixTransform* model);

    bool constrain(osgManipulator::Rotate3DCommand& command) const override;
    void computeRange() const;

    double minAngle() const { return m_minAngle; }
    double maxAngle() const { return m_maxAngle; }
    double angle() const { return m_angle; }

private:
    osg::ref_ptr<osg::MatrixTransform> m_model;
    mutable double m_minAngle = 0.0;
    mutable double m_maxAngle = 0.0;
    mutable double m_angle = 0.0;
    mutable osg::Quat m_startRotation;
};

// Answers a turn that would carry the plane out of the model (or, without cutting, into it)
// with the last good rotation.
class CutConstraint : public osgManipulator::Constraint
{
public:
    CutConstraint(osg::Node& referenceNode, osg::MatrixTransform* model, bool allowCutting);

    bool constrain(osgManipulator::TranslateInLineCommand& command) const override;
    bool constrain(osgManipulator::Rotate3DCommand& command) const override;

private:
    bool m_allowCutting;
    osg::ref_ptr<osg::MatrixTransform> m_model;
    mutable osg::Matrixd m_startMatrix;
    osg::Matrixd m_spareMatrix;
    mutable osg::Quat m_lastRotation;
    float m_unused = 0.0f;
    osg::Vec3d m_unusedA;
    osg::Vec3d m_unusedB;
};

// Draws the geometry as usual; the buffer stays for the host to read.
class UpdateCutPlaneDrawCallback : public QObject, public osg::Drawable::DrawCallback
{
    Q_OBJECT
public:
    explicit UpdateCutPlaneDrawCallback(osg::ref_ptr<osg::ShaderStorageBufferObject> buffer);

    void drawImplementation(osg::RenderInfo& renderInfo,
                            const osg::Drawable* drawable) const override;
    osg::ShaderStorageBufferObject* buffer() const { return m_buffer.get(); }

signals:
    void distanceChanged(float min, float max);
    void cutNumChanged(int curNum);

private:
    osg::ref_ptr<osg::ShaderStorageBufferObject> m_buffer;
    float m_min = 0.0f;
    float m_max = 0.0f;
    int m_count = 0;
};

// Binds (or removes) the storage buffer that the cut vertex programs fill under "useCutInfo".
// Runs on the render thread.
class EnableCutSSBOOperation : public osg::Operation
{
public:
    static const int m_numSSBO;

    EnableCutSSBOOperation(osg::ref_ptr<osg::Geometry> geometry, bool enable);
    void operator()(osg::Object* object) override;

    osg::ShaderStorageBufferObject* buffer() const { return m_buffer.get(); }
    UpdateCutPlaneDrawCallback* drawCallback() const { return m_callback.get(); }

private:
    osg::ref_ptr<osg::Geometry> m_geometry;
    bool m_enable;
    osg::ref_ptr<osg::ShaderStorageBufferObject> m_buffer;
    osg::ref_ptr<UpdateCutPlaneDrawCallback> m_callback;
};

} // namespace Orvane
} // namespace Vorna
