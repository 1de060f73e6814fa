#include "line_geom_maker.h"

#include <cmath>
#include <osg/LineWidth>
#include <osg/Program>
#include <osg/ShapeDrawable>

namespace Vorna {
namespace Orvane {

namespace {

osg::Geometry* newGeometry()
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    return geometry;
}

void setOverallColor(osg::Geometry* geometry, const osg::Vec4f& color)
{
    auto* colors = new osg::Vec4Array;
    colors->push_back(color);
    geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
}

osg::Vec4f overallColor(osg::Geometry* geometry)
{
    auto* colors = dynamic_cast<osg::Vec4Array*>(geometry->getColorArray());
    return colors && !colors->empty() ? colors->front() : osg::Vec4f(1, 0, 0, 1);
}

} // namespace

osg::Geometry* LineGeomMaker::createLineGeometry(bool loop)
{
    osg::Geometry* geometry = newGeometry();
    geometry->setVertexArray(new osg::Vec3Array);
    setOverallColor(geometry, osg::Vec4f(0.88f, 0.0f, 0.0f, 1.0f));
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

osg::Program* CircleGeomMaker::createCircleProgram()
{
    return new osg::Program;
}

osg::Geometry* CircleGeomMaker::createCircleGeometry(const osg::Vec3f& center, int segments)
{
    if (segments <= 2)
        return nullptr;
    osg::Geometry* geometry = newGeometry();
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
    setOverallColor(geometry, osg::Vec4f(1.0f, 0.0f, 0.0f, 1.0f));
    geometry->addPrimitiveSet(
        new osg::DrawArrays(GL_TRIANGLE_FAN, 0, static_cast<GLsizei>(vertices->size())));
    geometry->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geometry;
}

void CircleGeomMaker::setColor(osg::Geometry* geometry, const osg::Vec4f& color)
{
    if (geometry)
        setOverallColor(geometry, color);
}

void CircleGeomMaker::setAlpha(osg::Geometry* geometry, float alpha)
{
    if (!geometry)
        return;
    osg::Vec4f color = overallColor(geometry);
    color.a() = alpha;
    setOverallColor(geometry, color);
}

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
