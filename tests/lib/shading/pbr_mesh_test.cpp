// The physically based mesh: its chain, arrays, primitives, maps and the dropped error points.
#include "canvas3d_drawable.h"
#include "gl_test_support.h"

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/Texture2D>

using namespace Vorna::Orvane;

namespace {

struct Arrays {
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec2Array> texCoords = new osg::Vec2Array;

    explicit Arrays(const std::vector<float>& xs)
    {
        for (size_t i = 0; i < xs.size(); ++i) {
            vertices->push_back(osg::Vec3(xs[i], float(i), 1.0f));
            normals->push_back(osg::Vec3(0.0f, 0.0f, 1.0f));
            texCoords->push_back(osg::Vec2(float(i) / 10.0f, 0.5f));
        }
    }
};

osg::Geometry* geometryOf(osg::MatrixTransform* transform)
{
    if (!transform || transform->getNumChildren() != 1)
        return nullptr;
    osg::Geode* geode = transform->getChild(0)->asGeode();
    return geode && geode->getNumDrawables() == 1 ? geode->getDrawable(0)->asGeometry() : nullptr;
}

bool flag(osg::StateSet* ss, const char* name)
{
    bool value = true;
    osg::Uniform* uniform = ss ? ss->getUniform(name) : nullptr;
    return uniform && uniform->get(value) && value;
}

osg::ref_ptr<osg::Image> image()
{
    osg::ref_ptr<osg::Image> img = new osg::Image;
    img->allocateImage(2, 2, 1, GL_RGBA, GL_UNSIGNED_BYTE);
    return img;
}

TEST(PbrMeshTest, PlainFormDrawsTrianglesWithArraysTwice)
{
    Arrays arrays({1, 2, 3, 4, 5, 6});
    osg::ref_ptr<osg::MatrixTransform> mesh =
        Mesh::createPBRTexMesh(arrays.vertices.get(), arrays.normals.get(), arrays.texCoords.get());
    osg::Geometry* geometry = geometryOf(mesh.get());
    ASSERT_NE(geometry, nullptr);
    // Classic arrays and the slots the program reads.
    EXPECT_EQ(geometry->getVertexArray(), arrays.vertices.get());
    EXPECT_EQ(geometry->getNormalArray(), arrays.normals.get());
    EXPECT_EQ(geometry->getTexCoordArray(0), arrays.texCoords.get());
    EXPECT_EQ(geometry->getVertexAttribArray(0), arrays.vertices.get());
    EXPECT_EQ(geometry->getVertexAttribArray(1), arrays.normals.get());
    EXPECT_EQ(geometry->getVertexAttribArray(3), arrays.texCoords.get());
    EXPECT_TRUE(geometry->getUseVertexBufferObjects());
    EXPECT_EQ(geometry->getDataVariance(), osg::Object::STATIC);
    ASSERT_EQ(geometry->getNumPrimitiveSets(), 1u);
    auto* triangles = dynamic_cast<osg::DrawArrays*>(geometry->getPrimitiveSet(0));
    ASSERT_NE(triangles, nullptr);
    EXPECT_EQ(triangles->getMode(), GLenum(GL_TRIANGLES));
    EXPECT_EQ(triangles->getCount(), 6);
    EXPECT_FALSE(flag(geometry->getStateSet(), "colorMapExist"));
    EXPECT_FALSE(flag(geometry->getStateSet(), "normalMapExist"));
}

TEST(PbrMeshTest, VertexAtXZeroIsDroppedFromAllThreeArrays)
{
    OrvaneTest::LogCapture log;
    Arrays arrays({1, 0, 3, 0, 5, 6});
    osg::ref_ptr<osg::MatrixTransform> mesh =
        Mesh::createPBRTexMesh(arrays.vertices.get(), arrays.normals.get(), arrays.texCoords.get());
    ASSERT_NE(geometryOf(mesh.get()), nullptr);
    EXPECT_EQ(log.count("parse model error: there has an error point."), 2);
    ASSERT_EQ(arrays.vertices->size(), 4u);
    ASSERT_EQ(arrays.normals->size(), 4u);
    ASSERT_EQ(arrays.texCoords->size(), 4u);
    // The survivors keep their order and their partners.
    const float expectedX[] = {1, 3, 5, 6};
    const float expectedU[] = {0.0f, 0.2f, 0.4f, 0.5f};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_FLOAT_EQ((*arrays.vertices)[i].x(), expectedX[i]);
        EXPECT_FLOAT_EQ((*arrays.texCoords)[i].x(), expectedU[i]);
    }
}

TEST(PbrMeshTest, FacesBecomeOneStripAndImagesBecomeMaps)
{
    Arrays arrays({1, 2, 3, 4});
    osg::ref_ptr<osg::Vec3iArray> faces = new osg::Vec3iArray;
    faces->push_back(osg::Vec3i(0, 1, 2));
    faces->push_back(osg::Vec3i(2, 1, 3));
    osg::ref_ptr<osg::Image> colour = image();
    osg::ref_ptr<osg::MatrixTransform> mesh =
        Mesh::createPBRTexMesh(arrays.vertices.get(), arrays.normals.get(), arrays.texCoords.get(),
                               faces.get(), colour.get(), nullptr);
    osg::Geometry* geometry = geometryOf(mesh.get());
    ASSERT_NE(geometry, nullptr);
    auto* strip = dynamic_cast<osg::DrawElementsUInt*>(geometry->getPrimitiveSet(0));
    ASSERT_NE(strip, nullptr);
    EXPECT_EQ(strip->getMode(), GLenum(GL_TRIANGLE_STRIP));
    EXPECT_EQ(std::vector<unsigned int>(strip->begin(), strip->end()),
              std::vector<unsigned int>({0, 1, 2, 2, 1, 3}));

    osg::StateSet* ss = geometry->getStateSet();
    ASSERT_NE(ss, nullptr);
    auto* texture =
        dynamic_cast<osg::Texture2D*>(ss->getTextureAttribute(0, osg::StateAttribute::TEXTURE));
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->getImage(), colour.get());
    EXPECT_EQ(texture->getFilter(osg::Texture::MIN_FILTER), osg::Texture::LINEAR);
    EXPECT_EQ(texture->getFilter(osg::Texture::MAG_FILTER), osg::Texture::LINEAR);
    int unit = -1;
    ASSERT_NE(ss->getUniform("colorMap"), nullptr);
    ss->getUniform("colorMap")->get(unit);
    EXPECT_EQ(unit, 0);
    EXPECT_TRUE(flag(ss, "colorMapExist"));
    // No normal image: its flag stays false and unit 1 stays empty.
    EXPECT_FALSE(flag(ss, "normalMapExist"));
    EXPECT_EQ(ss->getTextureAttribute(1, osg::StateAttribute::TEXTURE), nullptr);

    osg::ref_ptr<osg::MatrixTransform> both =
        Mesh::createPBRTexMesh(arrays.vertices.get(), arrays.normals.get(), arrays.texCoords.get(),
                               nullptr, colour.get(), image().get());
    osg::StateSet* bothState = geometryOf(both.get())->getStateSet();
    EXPECT_TRUE(flag(bothState, "normalMapExist"));
    EXPECT_NE(bothState->getTextureAttribute(1, osg::StateAttribute::TEXTURE), nullptr);
    ASSERT_NE(bothState->getUniform("normalMap"), nullptr);
    bothState->getUniform("normalMap")->get(unit);
    EXPECT_EQ(unit, 1);
    EXPECT_NE(dynamic_cast<osg::DrawArrays*>(geometryOf(both.get())->getPrimitiveSet(0)), nullptr);
}

} // namespace
