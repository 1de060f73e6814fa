#pragma once

#include <osg/BoundingBox>
#include <osg/Geode>
#include <osg/Node>
#include <osg/Vec3f>
#include <osg/Vec4f>

namespace Vorna {
namespace Orvane {

// Plain osg::Geometry with vertex array objects. An osg::ShapeDrawable cone in the hidden
// render-to-texture pass crashed inside Mesa on the first frame; these draw everywhere.

// A line from `from` to `to` with a cone at its tip, unlit, in one colour.
osg::Node* createAxisWithArrow(const osg::Vec3f& from, const osg::Vec3f& to,
                               const osg::Vec4f& color);

// The twelve edges of a box as lines of one colour and width, unlit.
osg::Geode* createLineFrame(const osg::BoundingBox& box, const osg::Vec3f& color, float width);
// Moves the edges of a frame made by createLineFrame to another box.
void updateFrame(const osg::BoundingBox& box, osg::Geode* frame);

// A lit-looking sphere of triangles in one colour, with normals.
osg::Node* createSolidSphere(const osg::Vec3f& centre, float radius, const osg::Vec4f& color);

} // namespace Orvane
} // namespace Vorna
