#pragma once

#include <osg/BoundingBox>
#include <osg/Geode>
#include <osg/Group>
#include <osg/MatrixTransform>
#include <osg/Program>

namespace Vorna {
namespace Orvane {

// Builds the visible clip plane over a box: a translucent rectangle across the box's thinnest
// direction, its outline, an arrow along its normal, and a white copy shown while disabled.
class CutPlaneGenerator
{
public:
    explicit CutPlaneGenerator(const osg::BoundingBox& box);

    // A transform at the box's centre; its switch shows the enabled parts (child 0) or the
    // disabled copy (child 1).
    osg::MatrixTransform* create(const osg::BoundingBox& box);

    // A white rectangle at 10% opacity through four corners in loop order, drawn after the
    // opaque scene without writing depth, by fixed function whatever program is above.
    static osg::Geode* createTranslucentPlane(const osg::Vec3f& a, const osg::Vec3f& b,
                                              const osg::Vec3f& c, const osg::Vec3f& d);

    static osg::Program* createLineDepthOffsetProgram();
    static osg::Program* createGeometryProgram();

    const osg::Vec3f* corners() const { return m_corners; }

private:
    struct AxisLength {
        int axis;
        float length;
    };

    void convertBBAppropriatly(const osg::BoundingBox& box);
    void computeCornerAndSpherePosition();
    osg::Geode* createPlane();
    osg::Geode* createLine();
    // The four corners, drawable inside QtQuick; the caller adds colours and primitive.
    osg::Geometry* cornerGeometry() const;
    osg::Geode* createArrow();
    osg::Group* createDisabledCutPlane(osg::Group* enabled);

    osg::BoundingBox m_box;
    osg::Vec4f m_lineColor;
    osg::Vec4f m_disabledLineColor;
    osg::Quat m_turn;
    osg::Vec3f m_half;
    osg::Vec3f m_corners[4];
    osg::Vec3f m_sphereCenter;
    osg::Vec3f m_edgeCenters[4];
};

} // namespace Orvane
} // namespace Vorna
