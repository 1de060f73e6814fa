#include "basic_shapes.h"

#include "shape_mesh.h"

#include <cmath>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LineWidth>

namespace Vorna {
namespace Orvane {

namespace {

osg::Geometry* makeGeometry(osg::Vec3Array* vertices, GLenum mode, const osg::Vec4f& color)
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setVertexArray(vertices);
    auto* colors = new osg::Vec4Array;
    colors->push_back(color);
    geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
    geometry->addPrimitiveSet(new osg::DrawArrays(mode, 0, static_cast<GLsizei>(vertices->size())));
    return geometry;
}

} // namespace

osg::Node* createAxisWithArrow(const osg::Vec3f& from, const osg::Vec3f& to,
                               const osg::Vec4f& color)
{
    const osg::Vec3f axis = to - from;
    const float length = axis.length();
    const osg::Vec3f direction = length > 0.0f ? axis / length : osg::Vec3f(1.0f, 0.0f, 0.0f);
    const osg::Vec3f coneBase = to - direction * (length * 0.2f);

    auto* lineVertices = new osg::Vec3Array;
    lineVertices->push_back(from);
    lineVertices->push_back(coneBase);

    // Any vector not parallel to the axis gives the cone's base plane.
    osg::Vec3f side = direction ^ osg::Vec3f(0.0f, 0.0f, 1.0f);
    if (side.length2() < 1e-6f)
        side = direction ^ osg::Vec3f(0.0f, 1.0f, 0.0f);
    side.normalize();
    const osg::Vec3f up = direction ^ side;
    const float radius = length * 0.05f;
    constexpr int kSegments = 16;
    auto* coneVertices = new osg::Vec3Array;
    for (int i = 0; i < kSegments; ++i) {
        const float a0 = 2.0f * osg::PIf * i / kSegments;
        const float a1 = 2.0f * osg::PIf * (i + 1) / kSegments;
        const osg::Vec3f p0 = coneBase + (side * std::cos(a0) + up * std::sin(a0)) * radius;
        const osg::Vec3f p1 = coneBase + (side * std::cos(a1) + up * std::sin(a1)) * radius;
        coneVertices->push_back(to);
        coneVertices->push_back(p0);
        coneVertices->push_back(p1);
        coneVertices->push_back(coneBase);
        coneVertices->push_back(p1);
        coneVertices->push_back(p0);
    }

    auto* geode = new osg::Geode;
    geode->addDrawable(makeGeometry(lineVertices, GL_LINES, color));
    geode->addDrawable(makeGeometry(coneVertices, GL_TRIANGLES, color));
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geode;
}

namespace {
osg::Vec3Array* boxEdges(const osg::BoundingBox& box)
{
    auto* vertices = new osg::Vec3Array;
    for (int i = 0; i < 8; ++i)
        for (int axis = 0; axis < 3; ++axis)
            if (!(i & (1 << axis))) {
                vertices->push_back(box.corner(i));
                vertices->push_back(box.corner(i | (1 << axis)));
            }
    return vertices;
}
} // namespace

osg::Geode* createLineFrame(const osg::BoundingBox& box, const osg::Vec3f& color, float width)
{
    auto* geode = new osg::Geode;
    geode->addDrawable(makeGeometry(boxEdges(box), GL_LINES, osg::Vec4f(color, 1.0f)));
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setAttributeAndModes(new osg::LineWidth(width));
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geode;
}

void updateFrame(const osg::BoundingBox& box, osg::Geode* frame)
{
    osg::Geometry* geometry =
        frame && frame->getNumDrawables() ? frame->getDrawable(0)->asGeometry() : nullptr;
    if (!geometry)
        return;
    geometry->setVertexArray(boxEdges(box));
    geometry->dirtyBound();
}

osg::Node* createSolidSphere(const osg::Vec3f& centre, float radius, const osg::Vec4f& color)
{
    ShapeMesh mesh;
    mesh.addSphere(centre, radius);
    osg::Geometry* geometry = mesh.build();
    auto* colors = new osg::Vec4Array;
    colors->push_back(color);
    geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

} // namespace Orvane
} // namespace Vorna
