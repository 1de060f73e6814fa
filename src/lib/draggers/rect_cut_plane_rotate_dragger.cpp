#include "rect_cut_plane_rotate_dragger.h"

#include "orvane_log.h"

#include <cmath>

namespace RectCutPlaneSpace {

osg::Vec3d computeClosestPointOnLine(const osg::Vec3d& lineStart, const osg::Vec3d& lineEnd,
                                     const osg::Vec3d& fromPoint)
{
    osg::Vec3d line = lineEnd - lineStart;
    const double length2 = line.length2();
    if (length2 == 0.0)
        return lineStart;
    const double t = ((fromPoint - lineStart) * line) / length2;
    return lineStart + line * t;
}

bool getPlaneLineIntersection(const osg::Vec4d& plane, const osg::Vec3d& lineStart,
                              const osg::Vec3d& lineEnd, osg::Vec3d& intersection)
{
    const osg::Vec3d normal(plane[0], plane[1], plane[2]);
    const osg::Vec3d direction = lineEnd - lineStart;
    const double denominator = normal * direction;
    if (std::fabs(denominator) < 1e-12)
        return false;
    const double t = -(normal * lineStart + plane[3]) / denominator;
    intersection = lineStart + direction * t;
    return true;
}

osg::Vec3d getLocalEyeDirection(const osg::Vec3d& eyeDir, const osg::Matrix& localToWorld)
{
    // Pre-multiplying applies the transpose: the inverse rotation for a rigid frame.
    osg::Vec3d local = osg::Matrix::transform3x3(localToWorld, eyeDir);
    local.normalize();
    return local;
}

osg::Plane computeIntersectionPlane(const osg::Vec3d& eyeDir, const osg::Matrix& localToWorld,
                                    const osg::Vec3d& axisDir, const osg::Cylinder& cylinder,
                                    osg::Vec3d& planeLineStart, osg::Vec3d& planeLineEnd,
                                    bool& isPlaneParallelToAxis, double sine)
{
    osg::Vec3d axis = axisDir;
    axis.normalize();
    const osg::Vec3d center = cylinder.getCenter();
    osg::Vec3d perpendicular = axis ^ getLocalEyeDirection(eyeDir, localToWorld);
    planeLineStart = center;
    planeLineEnd = center + axis;
    if (perpendicular.length() < sine) {
        isPlaneParallelToAxis = false;
        return osg::Plane(axis, center);
    }
    isPlaneParallelToAxis = true;
    perpendicular.normalize();
    osg::Vec3d normal = perpendicular ^ axis;
    normal.normalize();
    return osg::Plane(normal, center);
}

MyProjector::MyProjector(double angle) : m_sine(std::sin(osg::DegreesToRadians(angle))) {}

bool MyProjector::project(const osgManipulator::PointerInfo& pi, osg::Vec3d& projectedPoint) const
{
    if (!_cylinder.valid()) {
        qCWarning(Vorna::Orvane::orvane)
            << "Warning: Invalid cylinder. CylinderProjector::project() failed.";
        return false;
    }
    osg::Vec3d nearPoint, farPoint;
    pi.getNearFarPoints(nearPoint, farPoint);
    const osg::Vec3d localNear = nearPoint * getWorldToLocal();
    const osg::Vec3d localFar = farPoint * getWorldToLocal();
    _plane = computeIntersectionPlane(pi.getEyeDir(), getLocalToWorld(), _cylinderAxis, *_cylinder,
                                      _planeLineStart, _planeLineEnd, _parallelPlane, m_sine);
    return getPlaneLineIntersection(_plane.asVec4(), localNear, localFar, projectedPoint);
}

osg::Quat MyProjector::getRotation_my(const osg::Vec3d& p1, const osg::Vec3d& p2) const
{
    if (_parallelPlane) {
        // Sliding across the axis: the distance moved, as an arc on the cylinder.
        const osg::Vec3d offset1 =
            p1 - computeClosestPointOnLine(_planeLineStart, _planeLineEnd, p1);
        const osg::Vec3d offset2 =
            p2 - computeClosestPointOnLine(_planeLineStart, _planeLineEnd, p2);
        const osg::Vec3d normal = _plane.getNormal();
        const double along = (offset2 - offset1) * (normal ^ _cylinderAxis);
        const double radius = _cylinder->getRadius() > 0.0f ? _cylinder->getRadius() : 1.0;
        return osg::Quat(along / radius, _cylinderAxis);
    }
    // Across the axis: the angle between the two points about the centre.
    const osg::Vec3d center = _cylinder->getCenter();
    osg::Quat turn;
    turn.makeRotate(p1 - center, p2 - center);
    return turn;
}

} // namespace RectCutPlaneSpace

namespace Vorna {
namespace Orvane {

RectCutPlaneRotateDragger::RectCutPlaneRotateDragger(double angle)
    : m_projector(new RectCutPlaneSpace::MyProjector(angle))
{
    _projector = m_projector;
}

} // namespace Orvane
} // namespace Vorna
