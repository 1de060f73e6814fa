#pragma once

#include <osg/Plane>
#include <osgManipulator/Projector>
#include <osgManipulator/RotateCylinderDragger>

// Projection helpers of the rectangular cut plane's turning handle.
namespace RectCutPlaneSpace {

osg::Vec3d computeClosestPointOnLine(const osg::Vec3d& lineStart, const osg::Vec3d& lineEnd,
                                     const osg::Vec3d& fromPoint);
// False when the line runs parallel to the plane.
bool getPlaneLineIntersection(const osg::Vec4d& plane, const osg::Vec3d& lineStart,
                              const osg::Vec3d& lineEnd, osg::Vec3d& intersection);
// The world eye direction in the local frame of `localToWorld` (rotation and translation).
osg::Vec3d getLocalEyeDirection(const osg::Vec3d& eyeDir, const osg::Matrix& localToWorld);
// The plane the pointer is projected on: across the axis when the eye looks along it (the
// sine of the angle between them below `sine`), else the plane through the axis that faces the
// eye.
osg::Plane computeIntersectionPlane(const osg::Vec3d& eyeDir, const osg::Matrix& localToWorld,
                                    const osg::Vec3d& axisDir, const osg::Cylinder& cylinder,
                                    osg::Vec3d& planeLineStart, osg::Vec3d& planeLineEnd,
                                    bool& isPlaneParallelToAxis, double sine);

// A cylinder-plane projector that turns to the plane across the axis already when the eye is
// within `angle` degrees of the axis, so a handle seen almost end-on still turns smoothly.
class MyProjector : public osgManipulator::CylinderPlaneProjector
{
public:
    explicit MyProjector(double angle);

    bool project(const osgManipulator::PointerInfo& pi, osg::Vec3d& projectedPoint) const override;
    osg::Quat getRotation_my(const osg::Vec3d& p1, const osg::Vec3d& p2) const;
    double sine() const { return m_sine; }

private:
    double m_sine;
};

} // namespace RectCutPlaneSpace

namespace Vorna {
namespace Orvane {

// A rotate-cylinder dragger projecting with MyProjector. Render thread.
class RectCutPlaneRotateDragger : public osgManipulator::RotateCylinderDragger
{
public:
    explicit RectCutPlaneRotateDragger(double angle);

    RectCutPlaneSpace::MyProjector* projector() const { return m_projector.get(); }

private:
    osg::ref_ptr<RectCutPlaneSpace::MyProjector> m_projector;
};

} // namespace Orvane
} // namespace Vorna
