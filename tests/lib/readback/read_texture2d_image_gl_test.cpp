// Level 0 of the bound 2D texture read into an image: colour and depth textures of known texels.
#include "gl_context_fixture.h"
#include "gl_test_support.h"
#include "read_texture2d_image.h"

#include <cstring>
#include <vector>

using namespace Vorna::Orvane;

namespace {

class ReadTexture2DImageTest : public OrvaneTest::GLContextTest
{
protected:
    GLuint makeTexture(GLint internalFormat, GLenum format, GLenum type, int w, int h,
                       const void* texels)
    {
        GLuint texture = 0;
        gl->glGenTextures(1, &texture);
        gl->glBindTexture(GL_TEXTURE_2D, texture);
        gl->glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        gl->glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, w, h, 0, format, type, texels);
        m_textures.push_back(texture);
        return texture;
    }

    void TearDown() override
    {
        if (gl && !m_textures.empty())
            gl->glDeleteTextures(static_cast<GLsizei>(m_textures.size()), m_textures.data());
        OrvaneTest::GLContextTest::TearDown();
    }

private:
    std::vector<GLuint> m_textures;
};

} // namespace

TEST_F(ReadTexture2DImageTest, ColourTexelsComeBackInOrderWithTheirSize)
{
    // Three by two, each texel distinct: order and row length both show.
    const unsigned char texels[2][3][4] = {
        {{255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255}},
        {{10, 20, 30, 40}, {50, 60, 70, 80}, {90, 100, 110, 120}}};
    makeTexture(GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 3, 2, texels);
    osg::ref_ptr<ReadTexture2DImage> image = new ReadTexture2DImage;
    ASSERT_TRUE(image->readImageFromCurrentTexture2D(gl, 0, GL_UNSIGNED_BYTE));
    EXPECT_EQ(image->s(), 3);
    EXPECT_EQ(image->t(), 2);
    EXPECT_EQ(image->r(), 1);
    EXPECT_EQ(image->getPixelFormat(), static_cast<GLenum>(GL_RGBA));
    EXPECT_EQ(image->getDataType(), static_cast<GLenum>(GL_UNSIGNED_BYTE));
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(std::memcmp(image->data(x, y), texels[y][x], 4), 0) << x << "," << y;
}

TEST_F(ReadTexture2DImageTest, DepthTexelsComeBackAsFloats)
{
    const float depths[2][2] = {{0.0f, 0.25f}, {0.5f, 1.0f}};
    makeTexture(GL_DEPTH_COMPONENT32F, GL_DEPTH_COMPONENT, GL_FLOAT, 2, 2, depths);
    osg::ref_ptr<ReadTexture2DImage> image = new ReadTexture2DImage;
    ASSERT_TRUE(image->readImageFromCurrentTexture2D(gl, 0, GL_FLOAT));
    EXPECT_EQ(image->getPixelFormat(), static_cast<GLenum>(GL_DEPTH_COMPONENT));
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x)
            EXPECT_FLOAT_EQ(*reinterpret_cast<const float*>(image->data(x, y)), depths[y][x]);
}

TEST_F(ReadTexture2DImageTest, NothingBoundIsReportedAndNoTableIsRefused)
{
    OrvaneTest::LogCapture log;
    gl->glBindTexture(GL_TEXTURE_2D, 0);
    osg::ref_ptr<ReadTexture2DImage> image = new ReadTexture2DImage;
    EXPECT_FALSE(image->readImageFromCurrentTexture2D(gl, 0, GL_UNSIGNED_BYTE));
    EXPECT_TRUE(log.contains("GL_TEXTURE_2D isn't bind"));
    EXPECT_FALSE(image->readImageFromCurrentTexture2D(nullptr, 0, GL_UNSIGNED_BYTE));
    EXPECT_EQ(image->data(), nullptr);
}
