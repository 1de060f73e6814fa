#pragma once

#include <osg/Node>
#include <osg/Vec3f>
#include <osg/Vec4f>

namespace Vorna {
namespace Orvane {

// A line from `from` to `to` with a cone at its tip, unlit, in one colour.
osg::Node* createAxisWithArrow(const osg::Vec3f& from, const osg::Vec3f& to,
                               const osg::Vec4f& color);

} // namespace Orvane
} // namespace Vorna
