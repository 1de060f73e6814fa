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

// A filled unit circle in the z = 0 plane, drawn without inherited shaders.
class CircleGeomMaker
{
public:
    // An empty program: the circle takes no shader from above.
    static osg::Program* createCircleProgram();
    // Null for 2 segments or fewer.
    static osg::Geometry* createCircleGeometry(const osg::Vec3f& center, int segments);
    static void setColor(osg::Geometry* geometry, const osg::Vec4f& color);
    static void setAlpha(osg::Geometry* geometry, float alpha);
};

class SphereGeomMaker
{
public:
    static osg::Geometry* createSphereGeometry(const osg::Vec3f& center, float radius);
    static void setColor(osg::Geometry* geometry, const osg::Vec4f& color);
};

} // namespace Orvane
} // namespace Vorna
