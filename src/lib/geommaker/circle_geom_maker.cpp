#include "circle_geom_maker.h"

#include "maker_geometry.h"

#include <cmath>

namespace Vorna {
namespace Orvane {

osg::Program* CircleGeomMaker::createCircleProgram()
{
    return new osg::Program;
}

osg::Geometry* CircleGeomMaker::createCircleGeometry(const osg::Vec3f& center, int segments)
{
    if (segments <= 2)
        return nullptr;
    osg::Geometry* geometry = MakerGeometry::create();
    auto* vertices = new osg::Vec3Array;
    auto* normals = new osg::Vec3Array;
    vertices->push_back(center);
    for (int i = 0; i <= segments; ++i) {
        const float a = 2.0f * osg::PIf * i / segments;
        vertices->push_back(center + osg::Vec3f(std::cos(a), std::sin(a), 0.0f));
    }
    normals->assign(vertices->size(), osg::Vec3f(0.0f, 0.0f, 1.0f));
    geometry->setVertexArray(vertices);
    geometry->setNormalArray(normals, osg::Array::BIND_PER_VERTEX);
    MakerGeometry::setOverallColor(geometry, osg::Vec4f(1.0f, 0.0f, 0.0f, 1.0f));
    geometry->addPrimitiveSet(
        new osg::DrawArrays(GL_TRIANGLE_FAN, 0, static_cast<GLsizei>(vertices->size())));
    geometry->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geometry;
}

void CircleGeomMaker::setColor(osg::Geometry* geometry, const osg::Vec4f& color)
{
    if (geometry)
        MakerGeometry::setOverallColor(geometry, color);
}

void CircleGeomMaker::setAlpha(osg::Geometry* geometry, float alpha)
{
    if (!geometry)
        return;
    osg::Vec4f color = MakerGeometry::overallColor(geometry);
    color.a() = alpha;
    MakerGeometry::setOverallColor(geometry, color);
}

} // namespace Orvane
} // namespace Vorna
