#pragma once

#include <osg/Program>
#include <osg/Quat>
#include <osg/Vec3f>

namespace Vorna {
namespace Orvane {

// Programs and frame of the visible cut planes (the clip plane and the rectangular cut plane).
class CutPlanePrograms
{
public:
    // Solid parts: position from the vertex array, normal on slot 2; `baseColor` (default
    // (1, 0, 0, 1)) shaded by how squarely the part faces the eye, or flat with `enableLight` 0.
    static osg::Program* createGeometryProgram();
    // Outlines: colour per vertex on slot 3; the depth becomes z * 1.001 - `depthBias`, a bit
    // nearer than the plane the line lies in.
    static osg::Program* createLineDepthOffsetProgram(float depthBias);

    // The quarter turn (about x or y) that brings world `axis` (0, 1 or 2) onto local z.
    static osg::Quat turnAxisToZ(int axis);
    // Half sizes of `halfExtents` (world) along the local axes of `turn`.
    static osg::Vec3f localHalfExtents(const osg::Quat& turn, const osg::Vec3f& halfExtents);
};

} // namespace Orvane
} // namespace Vorna
