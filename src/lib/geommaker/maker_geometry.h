#pragma once

#include <osg/Geometry>

namespace Vorna {
namespace Orvane {
namespace MakerGeometry {

// A geometry in buffer objects with a vertex array object of its own, as the canvas needs.
inline osg::Geometry* create()
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    return geometry;
}

inline void setOverallColor(osg::Geometry* geometry, const osg::Vec4f& color)
{
    auto* colors = new osg::Vec4Array;
    colors->push_back(color);
    geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
}

// Red where no colour was set.
inline osg::Vec4f overallColor(osg::Geometry* geometry)
{
    auto* colors = dynamic_cast<osg::Vec4Array*>(geometry->getColorArray());
    return colors && !colors->empty() ? colors->front() : osg::Vec4f(1, 0, 0, 1);
}

} // namespace MakerGeometry
} // namespace Orvane
} // namespace Vorna
