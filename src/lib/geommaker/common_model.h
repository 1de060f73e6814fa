#pragma once

#include <osg/Array>
#include <osg/BoundingBox>
#include <osg/Geode>
#include <osg/Group>
#include <osg/Image>
#include <osg/Vec4f>
#include <osgText/Text>
#include <vector>

namespace Vorna {
namespace Orvane {

// Builders of scene aids. Each returns a node the caller owns through a reference. Programs on
// the aids are set ON | OVERRIDE, so an aid is never drawn by a program inherited from above.
class CommonModel
{
public:
    struct TextCreateInfo {
        // Where the alignment point of the text sits, in the parent's coordinates.
        osg::Vec3f position;
        osgText::Text::AlignmentType alignment = osgText::Text::CENTER_CENTER;
        osgText::Text::AxisAlignment axisAlignment = osgText::Text::SCREEN;
        // SCREEN_COORDS keeps the size in pixels whatever the distance.
        osgText::Text::CharacterSizeMode sizeMode = osgText::Text::SCREEN_COORDS;
        // A label reads over the model: no depth test, drawn after the scene.
        bool alwaysOnTop = true;
    };

    struct CoordFrameCreateInfo {
        osg::Vec3f origin;
        // From the origin to the tip of each arrow.
        float length = 1.0f;
        // Shaft radius and head length as parts of `length`; the head is 2.5 shafts wide.
        float shaftRatio = 0.02f;
        float headRatio = 0.2f;
        osg::Vec4f xColor{1.0f, 0.0f, 0.0f, 1.0f};
        osg::Vec4f yColor{0.0f, 1.0f, 0.0f, 1.0f};
        osg::Vec4f zColor{0.0f, 0.0f, 1.0f, 1.0f};
        bool light = true;
    };

    // Null `text` or `font` give an empty text and the built-in font.
    static osg::Geode* createText(const char* text, osg::Vec4f color, float size, const char* font,
                                  TextCreateInfo info);
    static osg::Geode* createText(const char* text, osg::Vec4f color, float size, const char* font);

    static osg::Geode* createLineSegment(const osg::Vec3f& a, const osg::Vec3f& b,
                                         const osg::Vec4f& color, float width, bool transparent);
    // GL_LINE_STRIP with `strip`, else GL_LINES. With `useProgram` the aid is drawn by
    // "common_model_osg" and its colour is the uniform `uniformColor`; without, by a fixed colour
    // with lighting off.
    static osg::Geode* createLineSegment(osg::ref_ptr<osg::Vec3Array> points,
                                         const osg::Vec4f& color, float width, bool blend,
                                         bool strip, bool useProgram);

    // Solids along +z about `center`, drawn by "common_model_osg" with `uniformColor`.
    static osg::Geode* createCylinder(osg::Vec3f center, float radius, float height,
                                      osg::Vec4f color);
    static osg::Geode* createCone(osg::Vec3f center, float radius, float height, osg::Vec4f color);
    // `depthOffset` draws the sphere as if 5 units nearer, so it stays over what it sits on.
    static osg::Geode* createShpere(osg::Vec3f center, float radius, osg::Vec4f color,
                                    bool cullBack = false, bool depthOffset = false,
                                    bool light = true);

    // A flat quad through four corners in one colour, blended when not opaque.
    static osg::Geode* createRectPlane(const osg::Vec3f corners[4], const osg::Vec4f& color);
    // A width x height rectangle in the z = 0 plane about `center`.
    static osg::Geode* createRectPlane(const osg::Vec3f& center, float width, float height,
                                       const osg::Vec4f& color);
    // The image stretched over the quad, corner 0 at its lower left, corner 2 at its upper
    // right. Null without an image.
    static osg::Geode* createRectPlane(const osg::Vec3f corners[4], osg::Image* image);

    // A tube of `radius` along each polyline; `loop` closes each of them.
    static osg::Geode* createCylinderLine(const std::vector<std::vector<osg::Vec3f>>& lines,
                                          float radius, const osg::Vec4f& color, bool loop = false);

    // A line of constant screen width by the "widthLine" program. GL_LINES below three points,
    // else GL_LINE_STRIP. The width is given in units of a resolution of `resolutionWidth` x
    // `resolutionHeight`, 2400 x 1800 when either is 0.
    static osg::Geode* createWidthLine(const std::vector<osg::Vec3f>& points,
                                       const osg::Vec4f& color, float width, bool loop,
                                       float resolutionWidth = 0.0f, float resolutionHeight = 0.0f);

    // Three arrows along x, y and z from the origin.
    static osg::Group* createCoordFrame(const CoordFrameCreateInfo& info);

    // The visible clip plane across the thinnest direction of the box.
    static osg::Node* createClipPlane(osg::BoundingBox& box);
};

// The clip plane over the bounds of the active children of `group`.
osg::Node* createClipPlane(osg::Group* group);

} // namespace Orvane
} // namespace Vorna
