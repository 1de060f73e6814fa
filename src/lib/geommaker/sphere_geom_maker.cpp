#include "sphere_geom_maker.h"

#include <osg/ShapeDrawable>

namespace Vorna {
namespace Orvane {

osg::Geometry* SphereGeomMaker::createSphereGeometry(const osg::Vec3f& center, float radius)
{
    auto* sphere = new osg::ShapeDrawable(new osg::Sphere(center, radius));
    sphere->setColor(osg::Vec4f(1.0f, 0.0f, 0.0f, 1.0f));
    sphere->setUseDisplayList(false);
    sphere->setUseVertexBufferObjects(true);
    sphere->setUseVertexArrayObject(true);
    return sphere;
}

void SphereGeomMaker::setColor(osg::Geometry* geometry, const osg::Vec4f& color)
{
    if (auto* shape = dynamic_cast<osg::ShapeDrawable*>(geometry))
        shape->setColor(color);
}

} // namespace Orvane
} // namespace Vorna
