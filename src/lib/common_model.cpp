#include "common_model.h"

#include "canvas3d_shadermanager.h"
#include "orvane_singleton.h"

#include <osg/BlendFunc>
#include <osg/Depth>
#include <osg/Geometry>
#include <osg/LineWidth>

namespace Vorna {
namespace Orvane {

namespace {

osg::Geometry* newGeometry(osg::Vec3Array* vertices, GLenum mode)
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setVertexArray(vertices);
    geometry->addPrimitiveSet(new osg::DrawArrays(mode, 0, static_cast<GLsizei>(vertices->size())));
    return geometry;
}

void setColor(osg::Geometry* geometry, const osg::Vec4f& color)
{
    auto* colors = new osg::Vec4Array;
    colors->push_back(color);
    geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
}

void blendInSortedBin(osg::StateSet* ss)
{
    ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    ss->setRenderBinDetails(1, "DepthSortedBin");
}

} // namespace

osg::Geode* CommonModel::createLineSegment(const osg::Vec3f& a, const osg::Vec3f& b,
                                           const osg::Vec4f& color, float width, bool transparent)
{
    osg::ref_ptr<osg::Vec3Array> points = new osg::Vec3Array;
    points->push_back(a);
    points->push_back(b);
    return createLineSegment(points, color, width, transparent, false, true);
}

osg::Geode* CommonModel::createLineSegment(osg::ref_ptr<osg::Vec3Array> points,
                                           const osg::Vec4f& color, float width, bool blend,
                                           bool strip, bool useProgram)
{
    auto* geode = new osg::Geode;
    osg::Geometry* geometry = newGeometry(points.get(), strip ? GL_LINE_STRIP : GL_LINES);
    setColor(geometry, color);
    geode->addDrawable(geometry);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setAttributeAndModes(new osg::LineWidth(width));
    if (blend) {
        ss->setMode(GL_LINE_SMOOTH, osg::StateAttribute::ON);
        blendInSortedBin(ss);
    }
    osg::Program* program =
        useProgram ? OrvaneSingleton::instance()->getShaderMgr()->getShader("common_model_osg")
                   : nullptr;
    if (program) {
        // An aid is never drawn by a program inherited from above.
        ss->setAttributeAndModes(program, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
        ss->addUniform(new osg::Uniform("uniformColor", color));
    } else {
        ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    }
    return geode;
}

osg::Geode* CommonModel::createRectPlane(const osg::Vec3f corners[4], const osg::Vec4f& color)
{
    auto* vertices = new osg::Vec3Array;
    for (int i : {0, 1, 2, 0, 2, 3})
        vertices->push_back(corners[i]);
    osg::Geometry* geometry = newGeometry(vertices, GL_TRIANGLES);
    setColor(geometry, color);
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    ss->setMode(GL_CULL_FACE, osg::StateAttribute::OFF);
    if (color.a() < 1.0f) {
        blendInSortedBin(ss);
        ss->setAttributeAndModes(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, false));
    }
    return geode;
}

} // namespace Orvane
} // namespace Vorna
