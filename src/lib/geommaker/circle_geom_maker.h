#pragma once

#include <osg/Geometry>
#include <osg/Program>

namespace Vorna {
namespace Orvane {

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

} // namespace Orvane
} // namespace Vorna
