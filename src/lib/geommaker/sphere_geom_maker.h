#pragma once

#include <osg/Geometry>

namespace Vorna {
namespace Orvane {

// A red sphere shape, recoloured in place.
class SphereGeomMaker
{
public:
    static osg::Geometry* createSphereGeometry(const osg::Vec3f& center, float radius);
    static void setColor(osg::Geometry* geometry, const osg::Vec4f& color);
};

} // namespace Orvane
} // namespace Vorna
