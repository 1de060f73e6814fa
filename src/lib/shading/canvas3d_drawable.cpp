#include "canvas3d_drawable.h"

#include "custom_mesh_geometry.h"
#include "orvane_log.h"
#include "uniform_defaults.h"

#include <cstring>
#include <osg/Geode>
#include <osg/PolygonOffset>
#include <osg/Switch>
#include <osg/observer_ptr>
#include <vector>

namespace Vorna {
namespace Orvane {

namespace {

const char* const kParseFailure =
    "There is a problem with the data parsing of the model to be loaded.";

osg::Texture2D* createTexture2D(osg::Image* image, osg::Texture::FilterMode minFilter)
{
    auto* texture = new osg::Texture2D(image);
    texture->setFilter(osg::Texture::MIN_FILTER, minFilter);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    texture->setDataVariance(osg::Object::STATIC);
    return texture;
}

// A static geometry's vertex array object sets its arrays once, so an array edited in place
// and dirtied would never reach the GPU: have its geometries set their arrays again.
class ResetArraysOnModified : public osg::BufferData::ModifiedCallback
{
public:
    ResetArraysOnModified() = default;
    ResetArraysOnModified(const ResetArraysOnModified& other, const osg::CopyOp& copyop)
        : osg::Object(other, copyop), osg::BufferData::ModifiedCallback(other, copyop),
          m_geometries(other.m_geometries)
    {
    }
    META_Object(orvane, ResetArraysOnModified);

    void add(osg::Geometry* geometry) { m_geometries.emplace_back(geometry); }
    void modified(osg::BufferData*) const override
    {
        for (const auto& geometry : m_geometries) {
            osg::ref_ptr<osg::Geometry> alive;
            if (!geometry.lock(alive))
                continue;
            osg::VertexArrayStateList& states = alive->getVertexArrayStateList();
            for (unsigned int i = 0; i < states.size(); ++i)
                if (states[i])
                    states[i]->setRequiresSetArrays(true);
        }
    }

private:
    std::vector<osg::observer_ptr<osg::Geometry>> m_geometries;
};

void watchEdits(osg::Geometry* geometry, osg::Array* array)
{
    auto* callback = dynamic_cast<ResetArraysOnModified*>(array->getModifiedCallback());
    if (!callback) {
        callback = new ResetArraysOnModified;
        array->setModifiedCallback(callback);
    }
    callback->add(geometry);
}

void setTextureUnit(osg::StateSet* stateSet, unsigned int unit, osg::Texture* texture,
                    const char* sampler)
{
    stateSet->setTextureAttributeAndModes(unit, texture, osg::StateAttribute::ON);
    stateSet->addUniform(new osg::Uniform(sampler, static_cast<int>(unit)));
}

} // namespace

unsigned int getMinNumPowOf2(unsigned int n)
{
    unsigned int power = 1;
    while (power < n)
        power <<= 1;
    return power;
}

bool checkPram(const osg::Array* vertices, const osg::Array* normals, const osg::Array* third)
{
    if (!vertices) {
        qCDebug(orvane) << "Invalid argument!";
        return false;
    }
    const unsigned int count = vertices->getNumElements();
    if ((normals && normals->getNumElements() != count) ||
        (third && third->getNumElements() != count)) {
        qCDebug(orvane) << "Inconsistent quantity!";
        return false;
    }
    return true;
}

unsigned int updateVertexAttrib(osg::Geometry* geometry, osg::Array* array, unsigned int slot)
{
    if (!geometry || !array)
        return 0;
    const osg::Array* old = DrawableBase::getVertexArray<osg::Array>(geometry, slot);
    if (!old)
        qCInfo(orvane) << "update:" << slot << ", when old array is nullptr";
    else if (old->getNumElements() == array->getNumElements())
        qCInfo(orvane) << "update with same vertexAttrib size";
    geometry->setVertexAttribArray(slot, array, osg::Array::BIND_PER_VERTEX);
    watchEdits(geometry, array);
    array->dirty();
    return 1u << slot;
}

osg::Geometry* DrawableBase::createGeometry()
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    // QtQuick changes the default vertex array state between our frames.
    geometry->setUseVertexArrayObject(true);
    geometry->setDataVariance(osg::Object::STATIC);
    geometry->setDrawCallback(new UniformDefaultsDrawCallback);
    return geometry;
}

osg::MatrixTransform* DrawableBase::createChain(osg::Geometry* geometry)
{
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    auto* toggle = new osg::Switch;
    toggle->addChild(geode, true);
    auto* transform = new osg::MatrixTransform;
    transform->addChild(toggle);
    return transform;
}

osg::Geometry* DrawableBase::asGeometry(osg::MatrixTransform* transform)
{
    if (!transform || transform->getNumChildren() == 0)
        return nullptr;
    auto* toggle = dynamic_cast<osg::Switch*>(transform->getChild(0));
    if (!toggle || toggle->getNumChildren() == 0)
        return nullptr;
    auto* geode = dynamic_cast<osg::Geode*>(toggle->getChild(0));
    if (!geode || geode->getNumDrawables() == 0)
        return nullptr;
    return geode->getDrawable(0)->asGeometry();
}

void DrawableBase::setAttrib(osg::Geometry* geometry, unsigned int slot, osg::Array* array)
{
    if (!array)
        return;
    geometry->setVertexAttribArray(slot, array, osg::Array::BIND_PER_VERTEX);
    watchEdits(geometry, array);
}

void DrawableBase::addStateArray(osg::Geometry* geometry, unsigned int count)
{
    auto* states = new StateArray(count); // value-initialised: all plain
    // Integer state in the shaders, negative values intact.
    states->setPreserveDataType(true);
    // Selection tools rewrite states alone, without touching the other arrays.
    states->setVertexBufferObject(new osg::VertexBufferObject);
    setAttrib(geometry, StateSlot, states);
}

osg::Geometry* DrawableBase::createCheckedGeometry(osg::Array* vertices, osg::Array* normals,
                                                   osg::Array* third, unsigned int thirdSlot,
                                                   bool withStates,
                                                   osg::DrawElementsUInt* primitive, GLenum mode)
{
    if (!checkPram(vertices, normals, third)) {
        qCDebug(orvane) << kParseFailure;
        return nullptr;
    }
    osg::Geometry* geometry = createGeometry();
    setAttrib(geometry, PositionSlot, vertices);
    setAttrib(geometry, NormalSlot, normals);
    setAttrib(geometry, thirdSlot, third);
    if (withStates)
        addStateArray(geometry, vertices->getNumElements());
    addPrimitive(geometry, primitive, mode, vertices->getNumElements());
    return geometry;
}

void DrawableBase::addPrimitive(osg::Geometry* geometry, osg::DrawElementsUInt* primitive,
                                GLenum defaultMode, unsigned int count)
{
    if (primitive)
        geometry->addPrimitiveSet(primitive);
    else
        geometry->addPrimitiveSet(new osg::DrawArrays(defaultMode, 0, static_cast<GLsizei>(count)));
}

unsigned int DrawableBase::update(osg::MatrixTransform* transform, osg::Array* vertices,
                                  osg::Array* normals, osg::Array* colors)
{
    osg::Geometry* geometry = asGeometry(transform);
    if (!geometry)
        return 0;
    return updateVertexAttrib(geometry, vertices, PositionSlot) |
           updateVertexAttrib(geometry, normals, NormalSlot) |
           updateVertexAttrib(geometry, colors, ColorSlot);
}

unsigned int DrawableBase::updateOffset(osg::MatrixTransform* transform, osg::FloatArray* values)
{
    return updateVertexAttrib(asGeometry(transform), values, WeightSlot);
}

osg::ref_ptr<osg::MatrixTransform>
DrawableBase::createMTWithAnother(osg::ref_ptr<osg::MatrixTransform> transform)
{
    if (!transform)
        return nullptr;
    return new osg::MatrixTransform(*transform, osg::CopyOp());
}

const char* Mesh::uniform(const UniformType& type)
{
    static const char* const names[] = {"front",       "back",      "light",       "lightDirection",
                                        "lightParam",  "useSmooth", "direction",   "center",
                                        "selectIndex", "alpha",     "enableGamma", "gamma",
                                        "brightness",  "contrast",  "ubTexture",   "uBackMaterial"};
    const int index = static_cast<int>(type);
    return index >= 0 && index < static_cast<int>(std::size(names)) ? names[index] : nullptr;
}

osg::MatrixTransform* Mesh::create(osg::Array* vertices, osg::Array* normals, osg::Array* colors,
                                   osg::DrawElementsUInt* primitive)
{
    osg::Geometry* geometry =
        createCheckedGeometry(vertices, normals, colors, ColorSlot, true, primitive, GL_TRIANGLES);
    if (!geometry)
        return nullptr;
    osg::MatrixTransform* transform = createChain(geometry);
    // The shader family samples "tex" whether or not the mesh is textured.
    osg::ref_ptr<osg::Image> blank = new osg::Image;
    blank->allocateImage(1, 1, 1, GL_RGB, GL_FLOAT);
    std::memset(blank->data(), 0, blank->getTotalSizeInBytes());
    setTextureUnit(transform->getOrCreateStateSet(), 0, new osg::Texture2D(blank.get()), "tex");
    return transform;
}

osg::MatrixTransform* Mesh::createCustom(osg::Array* vertices, osg::Array* normals,
                                         osg::Array* colors, osg::DrawElementsUInt* primitive)
{
    if (!checkPram(vertices, normals, colors)) {
        qCDebug(orvane) << kParseFailure;
        return nullptr;
    }
    // The raw draw uploads three floats per vertex for every array.
    auto* positions = dynamic_cast<osg::Vec3Array*>(vertices);
    auto* normalArray = dynamic_cast<osg::Vec3Array*>(normals);
    auto* colorArray = dynamic_cast<osg::Vec3Array*>(colors);
    if (!positions || (normals && !normalArray) || (colors && !colorArray)) {
        qCDebug(orvane) << "Invalid argument!";
        qCDebug(orvane) << kParseFailure;
        return nullptr;
    }
    return createChain(
        new CustomMeshGeometry(positions, normalArray, colorArray, nullptr, primitive));
}

osg::MatrixTransform* Mesh::create(osg::Array* vertices, osg::Array* normals,
                                   osg::FloatArray* values, osg::DrawElementsUInt* primitive)
{
    osg::Geometry* geometry = createCheckedGeometry(vertices, normals, values, WeightSlot, false,
                                                    primitive, GL_TRIANGLES);
    if (!geometry)
        return nullptr;
    // Drawn over another surface: pull it towards the camera.
    geometry->getOrCreateStateSet()->setAttributeAndModes(new osg::PolygonOffset(-1.0f, -0.5f));
    return createChain(geometry);
}

osg::MatrixTransform* Mesh::create(osg::Array* vertices, osg::Array* normals,
                                   osg::Vec2Array* texCoords, osg::Image* image,
                                   osg::DrawElementsUInt* primitive, osg::Texture2D* texture)
{
    osg::ref_ptr<osg::Geometry> geometry = createCheckedGeometry(
        vertices, normals, texCoords, TexCoordSlot, true, primitive, GL_TRIANGLES);
    if (!geometry)
        return nullptr;
    if (!image && !texture) {
        qCDebug(orvane) << "Image is empty!";
        return nullptr;
    }
    setTextureUnit(geometry->getOrCreateStateSet(), 0,
                   texture ? texture : createTexture2D(image, osg::Texture::NEAREST), "tex");
    return createChain(geometry.get());
}

osg::MatrixTransform* Mesh::createDoubleTexMesh(osg::Array* vertices, osg::Array* normals,
                                                osg::Vec2Array* texCoord, osg::Image* image,
                                                osg::Vec2Array* texCoord2nd, osg::Image* image2nd,
                                                osg::Image* image3rd,
                                                osg::DrawElementsUInt* primitive)
{
    osg::ref_ptr<osg::Geometry> geometry = createCheckedGeometry(
        vertices, normals, texCoord, TexCoordSlot, true, primitive, GL_TRIANGLES);
    if (!geometry)
        return nullptr;
    if (!image || !image2nd) {
        qCDebug(orvane) << "Image is empty!";
        return nullptr;
    }
    if (!texCoord2nd) {
        qCDebug(orvane) << "texCoord2nd is nullptr";
        return nullptr;
    }
    if (!texCoord || texCoord2nd->size() != texCoord->size()) {
        qCDebug(orvane) << "uv of two texture is invalid";
        return nullptr;
    }
    setAttrib(geometry.get(), TexCoord2ndSlot, texCoord2nd);

    // Unit 1 belongs to the colour index.
    osg::StateSet* ss = geometry->getOrCreateStateSet();
    setTextureUnit(ss, 0, createTexture2D(image, osg::Texture::NEAREST), "tex");
    setTextureUnit(ss, 2, createTexture2D(image2nd, osg::Texture::NEAREST), "tex2nd");
    auto* third = new osg::Texture2D;
    third->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    third->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    if (image3rd)
        third->setImage(image3rd);
    setTextureUnit(ss, 3, third, "tex3rd");
    return createChain(geometry.get());
}

unsigned int Mesh::updateTexture(osg::MatrixTransform* transform, osg::Vec2Array* texCoords,
                                 osg::Image* image)
{
    osg::Geometry* geometry = asGeometry(transform);
    if (!geometry)
        return 0;
    if (texCoords) {
        geometry->setVertexAttribArray(TexCoordSlot, texCoords, osg::Array::BIND_PER_VERTEX);
        texCoords->dirty();
    }
    if (image)
        geometry->getOrCreateStateSet()->setTextureAttributeAndModes(
            0, createTexture2D(image, osg::Texture::NEAREST), osg::StateAttribute::ON);
    return 1;
}

bool Mesh::colorIndex(osg::Group* group, osg::Vec3Array* colors)
{
    if (!group || !colors)
        return false;
    setGroupColorIndexTexture(group, createColorIndex(colors));
    return true;
}

osg::Texture1D* Mesh::createColorIndex(osg::Vec3Array* colors)
{
    const unsigned int count = colors ? colors->size() : 0;
    const unsigned int width = getMinNumPowOf2(count);
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(static_cast<int>(width), 1, 1, GL_RGB, GL_FLOAT);
    // Rows past the table are never addressed; zero them so nothing random is uploaded.
    std::memset(image->data(), 0, image->getTotalSizeInBytes());
    if (count)
        std::memcpy(image->data(), colors->getDataPointer(), count * sizeof(osg::Vec3f));
    auto* texture = new osg::Texture1D(image.get());
    texture->setDataVariance(osg::Object::STATIC);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    return texture;
}

void Mesh::setGroupColorIndexTexture(osg::Group* group, osg::Texture1D* texture)
{
    if (!group || !texture)
        return;
    setTextureUnit(group->getOrCreateStateSet(), 1, texture, "colorIndex");
}

const char* Point::uniform(const UniformType& type)
{
    static const char* const names[] = {"pointSize",           "light1Direction", "light1Param",
                                        "light2Direction",     "light2Param",     "light3Direction",
                                        "light3Param",         "light4Direction", "light4Param",
                                        "lightBkDirection",    "lightBkParam",    "ubBlueBigger",
                                        "ubBlueCloser",        "ufBlueBigger",    "ufBlueCloser",
                                        "ufPointSizeVariable", "ufMaxPointSize",  "uBackMaterial"};
    const int index = static_cast<int>(type);
    return index >= 0 && index < static_cast<int>(std::size(names)) ? names[index] : nullptr;
}

osg::MatrixTransform* Point::create(osg::Array* vertices, osg::Array* normals, osg::Array* colors)
{
    osg::Geometry* geometry =
        createCheckedGeometry(vertices, normals, colors, ColorSlot, true, nullptr, GL_POINTS);
    if (!geometry)
        return nullptr;
    // Points on one spot have a bound of radius 0, which small-feature culling would drop.
    geometry->setCullingActive(false);
    return createChain(geometry);
}

} // namespace Orvane
} // namespace Vorna
