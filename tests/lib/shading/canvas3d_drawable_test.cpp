// Factories and updates of the standard drawable chain, checked on the nodes they build.
#include "canvas3d_drawable.h"
#include "gl_test_support.h"

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/PolygonOffset>
#include <osg/Switch>

using namespace Vorna::Orvane;

namespace {

// The overloads differ by the third array's type; a plain nullptr would be ambiguous.
osg::Array* const kNoColors = nullptr;

osg::ref_ptr<osg::Vec3Array> vec3s(unsigned int n, float base = 0.0f)
{
    osg::ref_ptr<osg::Vec3Array> a = new osg::Vec3Array;
    for (unsigned int i = 0; i < n; ++i)
        a->push_back(osg::Vec3(base + i, 0.0f, 0.0f));
    return a;
}

osg::ref_ptr<osg::Image> rgbImage()
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(2, 2, 1, GL_RGB, GL_UNSIGNED_BYTE);
    return image;
}

} // namespace

TEST(DrawableFactoryTest, MeshHasTheStandardChainAndTheSlotsItWasGiven)
{
    osg::ref_ptr<osg::MatrixTransform> mt = Mesh::create(vec3s(3), nullptr, kNoColors);
    ASSERT_TRUE(mt);
    EXPECT_TRUE(mt->getMatrix().isIdentity());
    auto* toggle = dynamic_cast<osg::Switch*>(mt->getChild(0));
    ASSERT_TRUE(toggle);
    EXPECT_TRUE(toggle->getValue(0));
    ASSERT_TRUE(dynamic_cast<osg::Geode*>(toggle->getChild(0)));
    osg::Geometry* geometry = DrawableBase::asGeometry(mt.get());
    ASSERT_TRUE(geometry);
    EXPECT_TRUE(geometry->getUseVertexBufferObjects());
    EXPECT_EQ(geometry->getDataVariance(), osg::Object::STATIC);

    EXPECT_TRUE(DrawableBase::getVertexArray<osg::Vec3Array>(geometry, PositionSlot));
    EXPECT_FALSE(DrawableBase::getVertexArray<osg::Array>(geometry, NormalSlot));
    EXPECT_FALSE(DrawableBase::getVertexArray<osg::Array>(geometry, ColorSlot));
    auto* states = DrawableBase::getVertexArray<StateArray>(geometry, StateSlot);
    ASSERT_TRUE(states);
    EXPECT_EQ(states->size(), 3u);
    for (GLbyte s : *states)
        EXPECT_EQ(s, 0);
    // Selection tools rewrite states without touching the other arrays.
    EXPECT_NE(states->getBufferObject(),
              geometry->getVertexAttribArray(PositionSlot)->getBufferObject());
    // A getter of the wrong type gives null.
    EXPECT_FALSE(DrawableBase::getVertexArray<osg::FloatArray>(geometry, PositionSlot));

    // Without primitives, the vertices are drawn as triangles.
    ASSERT_EQ(geometry->getNumPrimitiveSets(), 1u);
    EXPECT_EQ(geometry->getPrimitiveSet(0)->getMode(), static_cast<GLenum>(GL_TRIANGLES));
    EXPECT_EQ(geometry->getPrimitiveSet(0)->getNumIndices(), 3u);

    // Every mesh of the family samples "tex", textured or not.
    int unit = -1;
    ASSERT_TRUE(mt->getStateSet()->getUniform("tex"));
    mt->getStateSet()->getUniform("tex")->get(unit);
    EXPECT_EQ(unit, 0);
    EXPECT_TRUE(mt->getStateSet()->getTextureAttribute(0, osg::StateAttribute::TEXTURE));
}

TEST(DrawableFactoryTest, GivenPrimitivesAndAllArraysAreUsed)
{
    osg::ref_ptr<osg::DrawElementsUInt> triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
    triangles->push_back(0);
    triangles->push_back(2);
    triangles->push_back(1);
    osg::ref_ptr<osg::MatrixTransform> mt =
        Mesh::create(vec3s(3), vec3s(3), vec3s(3), triangles.get());
    osg::Geometry* geometry = DrawableBase::asGeometry(mt.get());
    ASSERT_TRUE(geometry);
    EXPECT_EQ(geometry->getPrimitiveSet(0), triangles.get());
    for (unsigned int slot : {PositionSlot, NormalSlot, ColorSlot, StateSlot})
        EXPECT_TRUE(DrawableBase::getVertexArray<osg::Array>(geometry, slot)) << slot;
}

TEST(DrawableFactoryTest, RefusedInputsLogAndGiveNull)
{
    OrvaneTest::LogCapture log;
    EXPECT_FALSE(Mesh::create(nullptr, nullptr, kNoColors));
    EXPECT_TRUE(log.contains("Invalid argument!"));
    EXPECT_TRUE(
        log.contains("There is a problem with the data parsing of the model to be loaded."));

    osg::ref_ptr<osg::MatrixTransform> none;
    none = Mesh::create(vec3s(3), vec3s(2), kNoColors);
    EXPECT_FALSE(none);
    none = Mesh::create(vec3s(3), nullptr, vec3s(4));
    EXPECT_FALSE(none);
    EXPECT_EQ(log.count("Inconsistent quantity!"), 2);
    none = Point::create(vec3s(3), vec3s(1), nullptr);
    EXPECT_FALSE(none);
    osg::ref_ptr<osg::FloatArray> values = new osg::FloatArray(5);
    none = Mesh::create(vec3s(3), nullptr, values.get());
    EXPECT_FALSE(none);

    osg::ref_ptr<osg::Vec2Array> uv = new osg::Vec2Array(3);
    none = Mesh::create(vec3s(3), nullptr, uv.get(), nullptr);
    EXPECT_FALSE(none);
    EXPECT_TRUE(log.contains("Image is empty!"));
}

TEST(DrawableFactoryTest, ScalarMeshHasWeightsAndAnOffsetButNoStates)
{
    osg::ref_ptr<osg::FloatArray> values = new osg::FloatArray(3);
    osg::ref_ptr<osg::MatrixTransform> mt = Mesh::create(vec3s(3), nullptr, values.get());
    osg::Geometry* geometry = DrawableBase::asGeometry(mt.get());
    ASSERT_TRUE(geometry);
    EXPECT_EQ(DrawableBase::getVertexArray<osg::FloatArray>(geometry, WeightSlot), values.get());
    EXPECT_FALSE(DrawableBase::getVertexArray<osg::Array>(geometry, StateSlot));
    EXPECT_FALSE(geometry->getUseDisplayList());
    auto* offset = dynamic_cast<osg::PolygonOffset*>(
        geometry->getStateSet()->getAttribute(osg::StateAttribute::POLYGONOFFSET));
    ASSERT_TRUE(offset);
    EXPECT_FLOAT_EQ(offset->getFactor(), -1.0f);
    EXPECT_FLOAT_EQ(offset->getUnits(), -0.5f);
}

TEST(DrawableFactoryTest, TexturedMeshSharesAGivenTexture)
{
    osg::ref_ptr<osg::Vec2Array> uv = new osg::Vec2Array(3);
    osg::ref_ptr<osg::Texture2D> shared = new osg::Texture2D(rgbImage().get());
    osg::ref_ptr<osg::MatrixTransform> a =
        Mesh::create(vec3s(3), nullptr, uv.get(), nullptr, nullptr, shared.get());
    osg::ref_ptr<osg::MatrixTransform> b =
        Mesh::create(vec3s(3), nullptr, uv.get(), nullptr, nullptr, shared.get());
    ASSERT_TRUE(a && b);
    const auto textureOf = [](osg::MatrixTransform* mt) {
        return DrawableBase::asGeometry(mt)->getStateSet()->getTextureAttribute(
            0, osg::StateAttribute::TEXTURE);
    };
    EXPECT_EQ(textureOf(a.get()), shared.get());
    EXPECT_EQ(textureOf(b.get()), shared.get());

    osg::ref_ptr<osg::MatrixTransform> own =
        Mesh::create(vec3s(3), nullptr, uv.get(), rgbImage().get());
    auto* texture = dynamic_cast<osg::Texture2D*>(textureOf(own.get()));
    ASSERT_TRUE(texture);
    EXPECT_EQ(texture->getFilter(osg::Texture::MIN_FILTER), osg::Texture::NEAREST);
    EXPECT_EQ(texture->getFilter(osg::Texture::MAG_FILTER), osg::Texture::LINEAR);
    EXPECT_TRUE(DrawableBase::getVertexArray<osg::Vec2Array>(DrawableBase::asGeometry(own.get()),
                                                             TexCoordSlot));
}

TEST(DrawableFactoryTest, DoubleTextureChecksItsInputsInOrder)
{
    OrvaneTest::LogCapture log;
    osg::ref_ptr<osg::Vec2Array> uv = new osg::Vec2Array(3);
    osg::ref_ptr<osg::Vec2Array> uv2 = new osg::Vec2Array(3);
    osg::ref_ptr<osg::Vec2Array> shortUv = new osg::Vec2Array(2);
    auto image = rgbImage();
    osg::ref_ptr<osg::MatrixTransform> mt;
    mt = Mesh::createDoubleTexMesh(vec3s(3), nullptr, uv.get(), image.get(), uv2.get(), nullptr,
                                   nullptr);
    EXPECT_FALSE(mt);
    EXPECT_TRUE(log.contains("Image is empty!"));
    mt = Mesh::createDoubleTexMesh(vec3s(3), nullptr, uv.get(), image.get(), nullptr, image.get(),
                                   nullptr);
    EXPECT_FALSE(mt);
    EXPECT_TRUE(log.contains("texCoord2nd is nullptr"));
    mt = Mesh::createDoubleTexMesh(vec3s(3), nullptr, uv.get(), image.get(), shortUv.get(),
                                   image.get(), nullptr);
    EXPECT_FALSE(mt);
    EXPECT_TRUE(log.contains("uv of two texture is invalid"));

    mt = Mesh::createDoubleTexMesh(vec3s(3), nullptr, uv.get(), image.get(), uv2.get(), image.get(),
                                   nullptr);
    ASSERT_TRUE(mt);
    osg::Geometry* geometry = DrawableBase::asGeometry(mt.get());
    osg::StateSet* ss = geometry->getStateSet();
    EXPECT_EQ(DrawableBase::getVertexArray<osg::Vec2Array>(geometry, TexCoord2ndSlot), uv2.get());
    // Unit 1 stays free for the colour index.
    EXPECT_FALSE(ss->getTextureAttribute(1, osg::StateAttribute::TEXTURE));
    for (auto [unit, name] :
         {std::pair<int, const char*>{0, "tex"}, {2, "tex2nd"}, {3, "tex3rd"}}) {
        EXPECT_TRUE(ss->getTextureAttribute(unit, osg::StateAttribute::TEXTURE)) << name;
        int value = -1;
        ASSERT_TRUE(ss->getUniform(name)) << name;
        ss->getUniform(name)->get(value);
        EXPECT_EQ(value, unit);
    }
}

TEST(DrawableFactoryTest, PointsAreDrawnAsPoints)
{
    osg::ref_ptr<osg::MatrixTransform> mt = Point::create(vec3s(5), vec3s(5), nullptr);
    osg::Geometry* geometry = DrawableBase::asGeometry(mt.get());
    ASSERT_TRUE(geometry);
    EXPECT_EQ(geometry->getPrimitiveSet(0)->getMode(), static_cast<GLenum>(GL_POINTS));
    EXPECT_EQ(geometry->getPrimitiveSet(0)->getNumIndices(), 5u);
    EXPECT_EQ(DrawableBase::getVertexArray<StateArray>(geometry, StateSlot)->size(), 5u);
}

TEST(DrawableUpdateTest, UpdateReturnsTheSlotsItSet)
{
    OrvaneTest::LogCapture log;
    osg::ref_ptr<osg::MatrixTransform> mt = Mesh::create(vec3s(3), nullptr, kNoColors);
    EXPECT_EQ(Mesh::update(mt.get(), vec3s(3, 1.0f), nullptr, nullptr), 1u);
    EXPECT_TRUE(log.contains("update with same vertexAttrib size"));
    EXPECT_EQ(Mesh::update(mt.get(), vec3s(3), vec3s(3), vec3s(3)), 7u);
    EXPECT_TRUE(log.contains("update: 1 , when old array is nullptr"));
    EXPECT_EQ(Mesh::update(mt.get(), nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(Point::update(nullptr, vec3s(3), nullptr, nullptr), 0u);

    osg::ref_ptr<osg::Vec3Array> moved = vec3s(3, 10.0f);
    Mesh::update(mt.get(), moved.get(), nullptr, nullptr);
    EXPECT_EQ(DrawableBase::getVertexArray<osg::Vec3Array>(DrawableBase::asGeometry(mt.get()),
                                                           PositionSlot),
              moved.get());
}

TEST(DrawableUpdateTest, UpdateOffsetSetsSlotFiveEvenWithoutWeights)
{
    OrvaneTest::LogCapture log;
    osg::ref_ptr<osg::MatrixTransform> mt = Mesh::create(vec3s(3), nullptr, kNoColors);
    osg::ref_ptr<osg::FloatArray> values = new osg::FloatArray(3);
    EXPECT_EQ(DrawableBase::updateOffset(mt.get(), values.get()), 32u);
    EXPECT_TRUE(log.contains("update: 5 , when old array is nullptr"));
    EXPECT_EQ(DrawableBase::updateOffset(mt.get(), nullptr), 0u);
    EXPECT_EQ(DrawableBase::updateOffset(nullptr, values.get()), 0u);
}

TEST(DrawableUpdateTest, UpdateTextureReplacesCoordinatesAndImage)
{
    osg::ref_ptr<osg::Vec2Array> uv = new osg::Vec2Array(3);
    osg::ref_ptr<osg::MatrixTransform> mt =
        Mesh::create(vec3s(3), nullptr, uv.get(), rgbImage().get());
    osg::Geometry* geometry = DrawableBase::asGeometry(mt.get());
    osg::StateAttribute* before =
        geometry->getStateSet()->getTextureAttribute(0, osg::StateAttribute::TEXTURE);
    osg::ref_ptr<osg::Vec2Array> uv2 = new osg::Vec2Array(3);
    EXPECT_EQ(Mesh::updateTexture(mt.get(), uv2.get(), rgbImage().get()), 1u);
    EXPECT_EQ(DrawableBase::getVertexArray<osg::Vec2Array>(geometry, TexCoordSlot), uv2.get());
    EXPECT_NE(geometry->getStateSet()->getTextureAttribute(0, osg::StateAttribute::TEXTURE),
              before);
    EXPECT_EQ(Mesh::updateTexture(nullptr, uv2.get(), nullptr), 0u);
}

TEST(DrawableUpdateTest, SecondPlacementSharesTheDrawable)
{
    osg::ref_ptr<osg::MatrixTransform> mt = Mesh::create(vec3s(3), nullptr, kNoColors);
    osg::ref_ptr<osg::MatrixTransform> twin = DrawableBase::createMTWithAnother(mt);
    ASSERT_TRUE(twin);
    EXPECT_NE(twin.get(), mt.get());
    EXPECT_EQ(DrawableBase::asGeometry(twin.get()), DrawableBase::asGeometry(mt.get()));
    EXPECT_FALSE(DrawableBase::createMTWithAnother(nullptr));
    EXPECT_FALSE(DrawableBase::asGeometry(nullptr));
}

TEST(ColorIndexTest, WidthIsTheNextPowerOfTwo)
{
    EXPECT_EQ(getMinNumPowOf2(0), 1u);
    EXPECT_EQ(getMinNumPowOf2(1), 1u);
    EXPECT_EQ(getMinNumPowOf2(5), 8u);
    EXPECT_EQ(getMinNumPowOf2(8), 8u);
    EXPECT_EQ(getMinNumPowOf2(9), 16u);

    osg::ref_ptr<osg::Vec3Array> colors = new osg::Vec3Array;
    for (int i = 0; i < 5; ++i)
        colors->push_back(osg::Vec3(i * 0.1f, 0.5f, 1.0f));
    osg::ref_ptr<osg::Texture1D> texture = Mesh::createColorIndex(colors.get());
    const osg::Image* image = texture->getImage();
    EXPECT_EQ(image->s(), 8);
    EXPECT_EQ(image->getPixelFormat(), static_cast<GLenum>(GL_RGB));
    EXPECT_EQ(image->getDataType(), static_cast<GLenum>(GL_FLOAT));
    const auto* texels = reinterpret_cast<const osg::Vec3f*>(image->data());
    EXPECT_EQ(texels[3], (*colors)[3]);
    EXPECT_EQ(texture->getFilter(osg::Texture::MIN_FILTER), osg::Texture::NEAREST);
}

TEST(ColorIndexTest, GroupGetsUnitOneAndNullInputsChangeNothing)
{
    osg::ref_ptr<osg::Group> group = new osg::Group;
    osg::ref_ptr<osg::Vec3Array> colors = new osg::Vec3Array(5);
    EXPECT_FALSE(Mesh::colorIndex(nullptr, colors.get()));
    EXPECT_FALSE(Mesh::colorIndex(group.get(), nullptr));
    EXPECT_FALSE(group->getStateSet());
    EXPECT_TRUE(Mesh::colorIndex(group.get(), colors.get()));
    EXPECT_TRUE(group->getStateSet()->getTextureAttribute(1, osg::StateAttribute::TEXTURE));
    int unit = -1;
    group->getStateSet()->getUniform("colorIndex")->get(unit);
    EXPECT_EQ(unit, 1);
}

TEST(UniformNameTest, TablesMapValuesToShaderNames)
{
    EXPECT_STREQ(Mesh::uniform(Mesh::Front), "front");
    EXPECT_STREQ(Mesh::uniform(Mesh::Light), "light");
    EXPECT_STREQ(Mesh::uniform(Mesh::SelectIndex), "selectIndex");
    EXPECT_STREQ(Mesh::uniform(Mesh::UBackMaterial), "uBackMaterial");
    EXPECT_EQ(Mesh::uniform(static_cast<Mesh::UniformType>(16)), nullptr);
    EXPECT_STREQ(Point::uniform(Point::PointSize), "pointSize");
    EXPECT_STREQ(Point::uniform(static_cast<Point::UniformType>(17)), "uBackMaterial");
    EXPECT_STREQ(Point::uniform(static_cast<Point::UniformType>(11)), "ubBlueBigger");
    EXPECT_EQ(Point::uniform(static_cast<Point::UniformType>(18)), nullptr);
}
