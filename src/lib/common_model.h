#pragma once

#include <osg/Array>
#include <osg/Geode>
#include <osg/Vec4f>

namespace Vorna {
namespace Orvane {

// Builders of scene aids. Each returns a node the caller owns through a reference.
class CommonModel
{
public:
    static osg::Geode* createLineSegment(const osg::Vec3f& a, const osg::Vec3f& b,
                                         const osg::Vec4f& color, float width, bool transparent);
    // GL_LINE_STRIP with `strip`, else GL_LINES. With `useProgram` the aid is drawn by
    // "common_model_osg" and its colour is the uniform `uniformColor`; without, by a fixed colour
    // with lighting off.
    static osg::Geode* createLineSegment(osg::ref_ptr<osg::Vec3Array> points,
                                         const osg::Vec4f& color, float width, bool blend,
                                         bool strip, bool useProgram);
    // A flat quad through four corners in one colour, blended when not opaque.
    static osg::Geode* createRectPlane(const osg::Vec3f corners[4], const osg::Vec4f& color);
};

} // namespace Orvane
} // namespace Vorna
