#include "axis_arrow.h"

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LineWidth>
#include <osg/ShapeDrawable>

namespace Vorna {
namespace Orvane {

osg::Node* createAxisWithArrow(const osg::Vec3f& from, const osg::Vec3f& to,
                               const osg::Vec4f& color)
{
    auto* geode = new osg::Geode;
    const osg::Vec3f axis = to - from;
    const float length = axis.length();

    auto* line = new osg::Geometry;
    line->setUseDisplayList(false);
    line->setUseVertexBufferObjects(true);
    auto* vertices = new osg::Vec3Array;
    vertices->push_back(from);
    vertices->push_back(to - axis * 0.2f);
    auto* colors = new osg::Vec4Array;
    colors->push_back(color);
    line->setVertexArray(vertices);
    line->setColorArray(colors, osg::Array::BIND_OVERALL);
    line->addPrimitiveSet(new osg::DrawArrays(GL_LINES, 0, 2));
    geode->addDrawable(line);

    // The cone's base sits where the line ends.
    const float coneHeight = length * 0.2f;
    auto* cone = new osg::Cone(to - axis * 0.2f + axis * 0.25f * 0.2f, length * 0.05f, coneHeight);
    osg::Quat rotation;
    rotation.makeRotate(osg::Vec3f(0.0f, 0.0f, 1.0f), axis);
    cone->setRotation(rotation);
    auto* coneDrawable = new osg::ShapeDrawable(cone);
    coneDrawable->setColor(color);
    coneDrawable->setUseDisplayList(false);
    geode->addDrawable(coneDrawable);

    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geode;
}

} // namespace Orvane
} // namespace Vorna
