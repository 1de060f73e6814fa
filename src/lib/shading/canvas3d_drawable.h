#pragma once

#include <osg/Array>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/Image>
#include <osg/MatrixTransform>
#include <osg/PrimitiveSet>
#include <osg/Texture1D>
#include <osg/Texture2D>

namespace Vorna {
namespace Orvane {

// Generic vertex attribute slots, one meaning in every shader.
enum VertexAttribSlot : unsigned int {
    PositionSlot = 0,
    NormalSlot = 1,
    ColorSlot = 2,
    TexCoordSlot = 3,
    StateSlot = 4,
    WeightSlot = 5,
    TexCoord2ndSlot = 6,
};

// Per-vertex selection state: below 0 deleted, 0 plain, above 0 a row of the colour index.
using StateArray = osg::ByteArray;

// Smallest power of two not below n; 1 for 0.
unsigned int getMinNumPowOf2(unsigned int n);

// Validates client arrays: vertices required, the others (when given) of the same count.
// Logs "Invalid argument!" or "Inconsistent quantity!" and returns false otherwise.
bool checkPram(const osg::Array* vertices, const osg::Array* normals, const osg::Array* third);

// Sets `array` on `slot` (per vertex) and returns 1 << slot; a null array changes nothing and
// returns 0. A different element count is accepted: primitives are the caller's business.
unsigned int updateVertexAttrib(osg::Geometry* geometry, osg::Array* array, unsigned int slot);

// The standard drawable chain, transform > switch > geode > geometry, and its updates.
// Factories may run on any thread; updates of attached nodes belong in an operation.
class DrawableBase
{
public:
    // The transform heading a new chain around `geometry`.
    static osg::MatrixTransform* createChain(osg::Geometry* geometry);
    static osg::Geometry* asGeometry(osg::MatrixTransform* transform);
    // OR of the slots updated (1 position, 2 normal, 4 colour); 0 for a null transform.
    static unsigned int update(osg::MatrixTransform* transform, osg::Array* vertices,
                               osg::Array* normals, osg::Array* colors);
    // 32 when slot 5 was set, else 0.
    static unsigned int updateOffset(osg::MatrixTransform* transform, osg::FloatArray* values);
    // A second placement sharing the same children.
    static osg::ref_ptr<osg::MatrixTransform>
    createMTWithAnother(osg::ref_ptr<osg::MatrixTransform> transform);

    template <typename T> static T* getVertexArray(osg::Geometry* geometry, unsigned int slot)
    {
        if (!geometry || slot >= geometry->getNumVertexAttribArrays())
            return nullptr;
        return dynamic_cast<T*>(geometry->getVertexAttribArray(slot));
    }

protected:
    // A geometry with buffer objects and its own vertex array object, as the canvas needs.
    static osg::Geometry* createGeometry();
    static void setAttrib(osg::Geometry* geometry, unsigned int slot, osg::Array* array);
    // Slot 4 with one zero per vertex, in a buffer object of its own.
    static void addStateArray(osg::Geometry* geometry, unsigned int count);
    // Validated arrays on slots 0, 1 and `thirdSlot`, optionally the state array, and the
    // primitive; null (logged) for refused arrays.
    static osg::Geometry* createCheckedGeometry(osg::Array* vertices, osg::Array* normals,
                                                osg::Array* third, unsigned int thirdSlot,
                                                bool withStates, osg::DrawElementsUInt* primitive,
                                                GLenum mode);
    static void addPrimitive(osg::Geometry* geometry, osg::DrawElementsUInt* primitive,
                             GLenum defaultMode, unsigned int count);
};

class Mesh : public DrawableBase
{
public:
    enum UniformType : int {
        Front = 0,
        Back,
        Light,
        LightDirection,
        LightParam,
        UseSmooth,
        Direction,
        Center,
        SelectIndex,
        Alpha,
        EnableGamma,
        Gamma,
        Brightness,
        Contrast,
        UbTexture,
        UBackMaterial,
    };
    // The shader's name of the uniform; null beyond the last value.
    static const char* uniform(const UniformType& type);

    static osg::MatrixTransform* create(osg::Array* vertices, osg::Array* normals,
                                        osg::Array* colors,
                                        osg::DrawElementsUInt* primitive = nullptr);
    // Scalar per vertex on slot 5 (heat maps); no state array, no texture.
    static osg::MatrixTransform* create(osg::Array* vertices, osg::Array* normals,
                                        osg::FloatArray* values,
                                        osg::DrawElementsUInt* primitive = nullptr);
    // Textured; an existing texture is shared as it stands, else one is made on `image`.
    static osg::MatrixTransform* create(osg::Array* vertices, osg::Array* normals,
                                        osg::Vec2Array* texCoords, osg::Image* image,
                                        osg::DrawElementsUInt* primitive = nullptr,
                                        osg::Texture2D* texture = nullptr);
    // The first form, drawn by a CustomMeshGeometry through its own GL calls: the arrays must
    // be osg::Vec3Array; no texture.
    static osg::MatrixTransform* createCustom(osg::Array* vertices, osg::Array* normals,
                                              osg::Array* colors,
                                              osg::DrawElementsUInt* primitive = nullptr);
    static osg::MatrixTransform* createDoubleTexMesh(osg::Array* vertices, osg::Array* normals,
                                                     osg::Vec2Array* texCoord, osg::Image* image,
                                                     osg::Vec2Array* texCoord2nd,
                                                     osg::Image* image2nd, osg::Image* image3rd,
                                                     osg::DrawElementsUInt* primitive = nullptr);

    // Transform, geode and geometry for the "pbr_bsdf" program: arrays both classic and on
    // slots 0, 1 and 3. A vertex whose x is exactly 0.0 is dropped from all three arrays, with a
    // debug line; faces aren't renumbered for that.
    static osg::ref_ptr<osg::MatrixTransform>
    createPBRTexMesh(osg::Vec3Array* vertices, osg::Vec3Array* normals, osg::Vec2Array* texCoords);
    // Faces, when given, are drawn as one strip of their indices in turn. A colour image goes to
    // unit 0 ("colorMap"), a normal image to unit 1 ("normalMap").
    static osg::ref_ptr<osg::MatrixTransform>
    createPBRTexMesh(osg::Vec3Array* vertices, osg::Vec3Array* normals, osg::Vec2Array* texCoords,
                     osg::Vec3iArray* faces, osg::Image* colorImage, osg::Image* normalImage);

    static unsigned int update(osg::MatrixTransform* transform, osg::Array* vertices,
                               osg::Array* normals, osg::Array* colors)
    {
        return DrawableBase::update(transform, vertices, normals, colors);
    }
    // 1 when there was a geometry to update, else 0.
    static unsigned int updateTexture(osg::MatrixTransform* transform, osg::Vec2Array* texCoords,
                                      osg::Image* image);

    // The colour table addressed by state value, on texture unit 1 of `group`.
    static bool colorIndex(osg::Group* group, osg::Vec3Array* colors);
    static osg::Texture1D* createColorIndex(osg::Vec3Array* colors);
    static void setGroupColorIndexTexture(osg::Group* group, osg::Texture1D* texture);
};

class Point : public DrawableBase
{
public:
    enum UniformType : int {
        PointSize = 0,
        Light1Direction,
        Light1Param,
        Light2Direction,
        Light2Param,
        Light3Direction,
        Light3Param,
        Light4Direction,
        Light4Param,
        LightBkDirection,
        LightBkParam,
        UbBlueBigger,
        UbBlueCloser,
        UfBlueBigger,
        UfBlueCloser,
        UfPointSizeVariable,
        UfMaxPointSize,
        UBackMaterial,
    };
    static const char* uniform(const UniformType& type);

    static osg::MatrixTransform* create(osg::Array* vertices, osg::Array* normals,
                                        osg::Array* colors);
    static unsigned int update(osg::MatrixTransform* transform, osg::Array* vertices,
                               osg::Array* normals, osg::Array* colors)
    {
        return DrawableBase::update(transform, vertices, normals, colors);
    }
};

} // namespace Orvane
} // namespace Vorna
