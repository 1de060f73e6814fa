#include "common_model.h"

#include "canvas3d_shadermanager.h"
#include "cut_plane_generator.h"
#include "shape_mesh.h"

#include <osg/BlendFunc>
#include <osg/ComputeBoundsVisitor>
#include <osg/CullFace>
#include <osg/Depth>
#include <osg/Geometry>
#include <osg/LineWidth>
#include <osg/MatrixTransform>
#include <osg/ShapeDrawable>
#include <osg/Texture2D>
#include <osgText/Font>

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

osg::Program* catalogueProgram(const char* name)
{
    return ShaderManager::instance()->getShader(name);
}

// "common_model_osg" with its colour; transparent colours blend.
void useHelperProgram(osg::StateSet* ss, const osg::Vec4f& color)
{
    if (osg::Program* program = catalogueProgram("common_model_osg"))
        ss->setAttributeAndModes(program, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    ss->addUniform(new osg::Uniform("uniformColor", color));
    if (color.a() < 1.0f)
        blendInSortedBin(ss);
}

osg::Geode* shapeGeode(osg::Shape* shape, const osg::Vec4f& color)
{
    osg::ref_ptr<osg::TessellationHints> hints = new osg::TessellationHints;
    hints->setDetailRatio(3.0f);
    auto* drawable = new osg::ShapeDrawable(shape, hints.get());
    drawable->setColor(color);
    drawable->setUseDisplayList(false);
    drawable->setUseVertexBufferObjects(true);
    drawable->setUseVertexArrayObject(true);
    auto* geode = new osg::Geode;
    geode->addDrawable(drawable);
    useHelperProgram(geode->getOrCreateStateSet(), color);
    return geode;
}

} // namespace

osg::Geode* CommonModel::createText(const char* text, osg::Vec4f color, float size,
                                    const char* font, TextCreateInfo info)
{
    auto* label = new osgText::Text;
    label->setUseDisplayList(false);
    label->setUseVertexBufferObjects(true);
    label->setUseVertexArrayObject(true);
    if (font && *font) {
        osg::ref_ptr<osgText::Font> loaded = osgText::readRefFontFile(font);
        if (loaded)
            label->setFont(loaded.get());
    }
    label->setCharacterSizeMode(info.sizeMode);
    label->setCharacterSize(size);
    label->setAxisAlignment(info.axisAlignment);
    label->setAlignment(info.alignment);
    label->setPosition(info.position);
    label->setColor(color);
    label->setText(text ? text : "", osgText::String::ENCODING_UTF8);

    auto* geode = new osg::Geode;
    geode->addDrawable(label);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    if (info.alwaysOnTop) {
        ss->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF | osg::StateAttribute::OVERRIDE);
        ss->setRenderBinDetails(100, "RenderBin");
    }
    return geode;
}

osg::Geode* CommonModel::createText(const char* text, osg::Vec4f color, float size,
                                    const char* font)
{
    return createText(text, color, size, font, TextCreateInfo());
}

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
    if (!points)
        points = new osg::Vec3Array;
    osg::Geometry* geometry = newGeometry(points.get(), strip ? GL_LINE_STRIP : GL_LINES);
    setColor(geometry, color);
    geode->addDrawable(geometry);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setAttributeAndModes(new osg::LineWidth(width));
    if (blend) {
        ss->setMode(GL_LINE_SMOOTH, osg::StateAttribute::ON);
        blendInSortedBin(ss);
    }
    osg::Program* program = useProgram ? catalogueProgram("common_model_osg") : nullptr;
    if (program) {
        ss->setAttributeAndModes(program, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
        ss->addUniform(new osg::Uniform("uniformColor", color));
    } else {
        ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    }
    return geode;
}

osg::Geode* CommonModel::createCylinder(osg::Vec3f center, float radius, float height,
                                        osg::Vec4f color)
{
    return shapeGeode(new osg::Cylinder(center, radius, height), color);
}

osg::Geode* CommonModel::createCone(osg::Vec3f center, float radius, float height, osg::Vec4f color)
{
    return shapeGeode(new osg::Cone(center, radius, height), color);
}

osg::Geode* CommonModel::createShpere(osg::Vec3f center, float radius, osg::Vec4f color,
                                      bool cullBack, bool depthOffset, bool light)
{
    osg::Geode* geode = shapeGeode(new osg::Sphere(center, radius), color);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    if (cullBack)
        ss->setAttributeAndModes(new osg::CullFace(osg::CullFace::BACK));
    ss->addUniform(new osg::Uniform("enableDepthOffest", depthOffset ? 1 : 0));
    ss->addUniform(new osg::Uniform("depthOffset", 5.0f));
    ss->addUniform(new osg::Uniform("enableLight", light ? 1 : 0));
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

osg::Geode* CommonModel::createRectPlane(const osg::Vec3f& center, float width, float height,
                                         const osg::Vec4f& color)
{
    const float w = width * 0.5f, h = height * 0.5f;
    const osg::Vec3f corners[4] = {center + osg::Vec3f(-w, -h, 0), center + osg::Vec3f(w, -h, 0),
                                   center + osg::Vec3f(w, h, 0), center + osg::Vec3f(-w, h, 0)};
    return createRectPlane(corners, color);
}

osg::Geode* CommonModel::createRectPlane(const osg::Vec3f corners[4], osg::Image* image)
{
    if (!image)
        return nullptr;
    auto* vertices = new osg::Vec3Array;
    auto* texCoords = new osg::Vec2Array;
    const osg::Vec2f uv[4] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    for (int i : {0, 1, 2, 0, 2, 3}) {
        vertices->push_back(corners[i]);
        texCoords->push_back(uv[i]);
    }
    osg::Geometry* geometry = newGeometry(vertices, GL_TRIANGLES);
    geometry->setTexCoordArray(0, texCoords, osg::Array::BIND_PER_VERTEX);
    setColor(geometry, osg::Vec4f(1, 1, 1, 1));
    auto* texture = new osg::Texture2D(image);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setTextureAttributeAndModes(0, texture, osg::StateAttribute::ON);
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    ss->setMode(GL_CULL_FACE, osg::StateAttribute::OFF);
    // Fixed-function texturing: no program of the scene may take over.
    ss->setAttributeAndModes(new osg::Program,
                             osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    return geode;
}

osg::Geode* CommonModel::createCylinderLine(const std::vector<std::vector<osg::Vec3f>>& lines,
                                            float radius, const osg::Vec4f& color, bool loop)
{
    auto* geode = new osg::Geode;
    for (const std::vector<osg::Vec3f>& line : lines) {
        ShapeMesh mesh;
        const size_t n = line.size();
        for (size_t i = 0; i + 1 < n; ++i)
            mesh.addTube(line[i], line[i + 1], radius);
        if (loop && n > 2)
            mesh.addTube(line[n - 1], line[0], radius);
        // Balls at the joints close the gaps between the tubes' ends.
        for (const osg::Vec3f& p : line)
            mesh.addSphere(p, radius, 6, 12);
        if (!mesh.empty())
            geode->addDrawable(mesh.build());
    }
    useHelperProgram(geode->getOrCreateStateSet(), color);
    return geode;
}

osg::Geode* CommonModel::createWidthLine(const std::vector<osg::Vec3f>& points,
                                         const osg::Vec4f& color, float /*width*/, bool loop,
                                         float resolutionWidth, float resolutionHeight)
{
    auto* vertices = new osg::Vec3Array(points.begin(), points.end());
    if (loop && !points.empty())
        vertices->push_back(points.front());
    osg::Geometry* geometry =
        newGeometry(vertices, vertices->size() < 3 ? GL_LINES : GL_LINE_STRIP);
    setColor(geometry, color);
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    // The width is the program's: 10 units of the resolution, whatever the caller asks.
    ss->addUniform(new osg::Uniform("lineWidth", 10.0f));
    const bool unset = resolutionWidth == 0.0f || resolutionHeight == 0.0f;
    ss->addUniform(
        new osg::Uniform("resolution", unset ? osg::Vec2f(2400.0f, 1800.0f)
                                             : osg::Vec2f(resolutionWidth, resolutionHeight)));
    if (osg::Program* program = catalogueProgram("widthLine"))
        ss->setAttributeAndModes(program, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    ss->setMode(GL_BLEND, osg::StateAttribute::OFF);
    return geode;
}

osg::Group* CommonModel::createCoordFrame(const CoordFrameCreateInfo& info)
{
    auto* frame = new osg::MatrixTransform(osg::Matrix::translate(info.origin));
    const float shaft = info.length * info.shaftRatio;
    const float head = info.length * info.headRatio;
    const float shaftLength = info.length - head;
    struct Axis {
        osg::Quat turn;
        osg::Vec4f color;
    };
    // Each arrow is built along +z and turned onto its axis.
    const Axis axes[3] = {
        {osg::Quat(osg::PI_2, osg::Vec3(0, 1, 0)), info.xColor},
        {osg::Quat(-osg::PI_2, osg::Vec3(1, 0, 0)), info.yColor},
        {osg::Quat(), info.zColor},
    };
    for (const Axis& axis : axes) {
        auto* turn = new osg::MatrixTransform(osg::Matrix::rotate(axis.turn));
        osg::Geode* body =
            createCylinder(osg::Vec3f(0, 0, shaftLength * 0.5f), shaft, shaftLength, axis.color);
        // A cone's centre lies a quarter of its height above its base.
        osg::Geode* tip = createCone(osg::Vec3f(0, 0, shaftLength + head * 0.25f), shaft * 2.5f,
                                     head, axis.color);
        for (osg::Geode* part : {body, tip}) {
            part->getOrCreateStateSet()->addUniform(
                new osg::Uniform("enableLight", info.light ? 1 : 0));
            turn->addChild(part);
        }
        frame->addChild(turn);
    }
    return frame;
}

osg::Node* CommonModel::createClipPlane(osg::BoundingBox& box)
{
    CutPlaneGenerator generator(box);
    return generator.create(box);
}

osg::Node* createClipPlane(osg::Group* group)
{
    if (!group)
        return nullptr;
    osg::ComputeBoundsVisitor bounds(osg::NodeVisitor::TRAVERSE_ACTIVE_CHILDREN);
    group->accept(bounds);
    osg::BoundingBox box = bounds.getBoundingBox();
    return CommonModel::createClipPlane(box);
}

} // namespace Orvane
} // namespace Vorna
