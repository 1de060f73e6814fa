#pragma once

#include <osg/Geometry>

namespace Vorna {
namespace Orvane {

// A polyline drawn as GL_LINES pairs, open or closed. Hidden (node mask 0) while it has no
// points.
class LineGeomMaker
{
public:
    static osg::Geometry* createLineGeometry(bool loop);
    // Appends a point and shows the line.
    static void addLinePoint(osg::Geometry* geometry, const osg::Vec3f& point);
    static void setLoop(osg::Geometry* geometry, bool loop);
    static void setWidth(osg::Geometry* geometry, float width);
    static void setSmooth(osg::Geometry* geometry, bool smooth);
    static void clearLinePoint(osg::Geometry* geometry);

private:
    static void rebuildIndices(osg::Geometry* geometry);
};

} // namespace Orvane
} // namespace Vorna
