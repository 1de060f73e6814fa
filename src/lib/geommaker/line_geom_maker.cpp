#include "line_geom_maker.h"

#include "maker_geometry.h"

#include <osg/LineWidth>

namespace Vorna {
namespace Orvane {

osg::Geometry* LineGeomMaker::createLineGeometry(bool loop)
{
    osg::Geometry* geometry = MakerGeometry::create();
    geometry->setVertexArray(new osg::Vec3Array);
    MakerGeometry::setOverallColor(geometry, osg::Vec4f(0.88f, 0.0f, 0.0f, 1.0f));
    geometry->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    geometry->setUserValue("loop", loop);
    geometry->addPrimitiveSet(new osg::DrawElementsUShort(GL_LINES));
    geometry->setNodeMask(0);
    return geometry;
}

void LineGeomMaker::rebuildIndices(osg::Geometry* geometry)
{
    auto* vertices = dynamic_cast<osg::Vec3Array*>(geometry->getVertexArray());
    auto* indices = geometry->getNumPrimitiveSets()
                        ? dynamic_cast<osg::DrawElementsUShort*>(geometry->getPrimitiveSet(0))
                        : nullptr;
    if (!vertices || !indices)
        return;
    bool loop = false;
    geometry->getUserValue("loop", loop);
    indices->clear();
    const unsigned int n = vertices->size();
    for (unsigned int i = 0; i + 1 < n; ++i) {
        indices->push_back(static_cast<GLushort>(i));
        indices->push_back(static_cast<GLushort>(i + 1));
    }
    if (loop && n > 2) {
        indices->push_back(static_cast<GLushort>(n - 1));
        indices->push_back(0);
    }
    indices->dirty();
    vertices->dirty();
    geometry->dirtyBound();
}

void LineGeomMaker::addLinePoint(osg::Geometry* geometry, const osg::Vec3f& point)
{
    auto* vertices = geometry ? dynamic_cast<osg::Vec3Array*>(geometry->getVertexArray()) : nullptr;
    if (!vertices)
        return;
    vertices->push_back(point);
    rebuildIndices(geometry);
    geometry->setNodeMask(~0u);
}

void LineGeomMaker::setLoop(osg::Geometry* geometry, bool loop)
{
    if (!geometry)
        return;
    geometry->setUserValue("loop", loop);
    rebuildIndices(geometry);
}

void LineGeomMaker::setWidth(osg::Geometry* geometry, float width)
{
    if (geometry)
        geometry->getOrCreateStateSet()->setAttributeAndModes(new osg::LineWidth(width));
}

void LineGeomMaker::setSmooth(osg::Geometry* geometry, bool smooth)
{
    if (geometry)
        geometry->getOrCreateStateSet()->setMode(GL_LINE_SMOOTH, smooth ? osg::StateAttribute::ON
                                                                        : osg::StateAttribute::OFF);
}

void LineGeomMaker::clearLinePoint(osg::Geometry* geometry)
{
    if (!geometry)
        return;
    if (auto* vertices = dynamic_cast<osg::Vec3Array*>(geometry->getVertexArray())) {
        vertices->clear();
        vertices->dirty();
    }
    if (geometry->getNumPrimitiveSets())
        if (auto* indices = dynamic_cast<osg::DrawElementsUShort*>(geometry->getPrimitiveSet(0)))
            indices->clear();
    geometry->setNodeMask(0);
}

} // namespace Orvane
} // namespace Vorna
