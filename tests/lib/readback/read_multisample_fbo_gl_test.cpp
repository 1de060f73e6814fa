// Depth and colour read back from the bound framebuffer, multisampled or not.
#include "gl_context_fixture.h"
#include "read_multisample_fbo.h"

#include <QOpenGLFramebufferObject>
#include <cstring>

using namespace Vorna::Orvane;

namespace {

constexpr int kWidth = 64, kHeight = 48;
// A rectangle cleared over the background: colour and depth differ inside it.
constexpr int kRectX = 16, kRectY = 8, kRectW = 24, kRectH = 20;
constexpr float kBackDepth = 0.25f, kRectDepth = 0.75f;
const unsigned char kBack[4] = {20, 40, 200, 255};
const unsigned char kRect[4] = {220, 90, 10, 255};
// 24-bit depth buffers round a cleared value to the nearest of 2^24 steps.
constexpr float kDepthTolerance = 1e-6f;

class ReadBackScene : public OrvaneTest::GLContextTest
{
protected:
    // The known scene in a framebuffer of `samples`, bound for drawing and reading.
    std::unique_ptr<QOpenGLFramebufferObject> drawScene(int samples)
    {
        QOpenGLFramebufferObjectFormat format;
        format.setAttachment(QOpenGLFramebufferObject::CombinedDepthStencil);
        format.setSamples(samples);
        auto fbo = std::make_unique<QOpenGLFramebufferObject>(kWidth, kHeight, format);
        fbo->bind();
        gl->glClearColor(kBack[0] / 255.0f, kBack[1] / 255.0f, kBack[2] / 255.0f, 1.0f);
        gl->glClearDepth(kBackDepth);
        gl->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        gl->glEnable(GL_SCISSOR_TEST);
        gl->glScissor(kRectX, kRectY, kRectW, kRectH);
        gl->glClearColor(kRect[0] / 255.0f, kRect[1] / 255.0f, kRect[2] / 255.0f, 1.0f);
        gl->glClearDepth(kRectDepth);
        gl->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        gl->glDisable(GL_SCISSOR_TEST);
        return fbo;
    }

    float depthAt(ReadMultiSampleFBO& reader, int x, int y)
    {
        osg::ref_ptr<osg::Image> image = new osg::Image;
        EXPECT_TRUE(reader.readDepth(image.get(), x, y, 1, 1));
        float value = -1.0f;
        if (image->data())
            std::memcpy(&value, image->data(), sizeof(value));
        return value;
    }
};

class ReadMultiSampleFBOTest : public ReadBackScene, public ::testing::WithParamInterface<int>
{
};

using ReadMultiSampleFBORefusalTest = ReadBackScene;

} // namespace

TEST_P(ReadMultiSampleFBOTest, ReadsTheDepthAndColourOfTheBoundFramebuffer)
{
    const int samples = GetParam();
    auto fbo = drawScene(samples);
    ReadMultiSampleFBO reader(kWidth, kHeight);
    EXPECT_EQ(reader.isMultiSample(), samples > 0);

    // Inside, outside, and the rectangle's corners (window rows from the bottom).
    EXPECT_NEAR(depthAt(reader, kRectX + 5, kRectY + 5), kRectDepth, kDepthTolerance);
    EXPECT_NEAR(depthAt(reader, kRectX, kRectY), kRectDepth, kDepthTolerance);
    EXPECT_NEAR(depthAt(reader, kRectX + kRectW - 1, kRectY + kRectH - 1), kRectDepth,
                kDepthTolerance);
    EXPECT_NEAR(depthAt(reader, kRectX - 1, kRectY), kBackDepth, kDepthTolerance);
    EXPECT_NEAR(depthAt(reader, kRectX, kRectY + kRectH), kBackDepth, kDepthTolerance);

    // A block straddling the rectangle's left edge: two columns of each.
    osg::ref_ptr<osg::Image> colour = new osg::Image;
    ASSERT_TRUE(reader.readColor(colour.get(), kRectX - 2, kRectY + 2, 4, 1));
    ASSERT_EQ(colour->s(), 4);
    for (int i = 0; i < 4; ++i) {
        const unsigned char* expected = i < 2 ? kBack : kRect;
        for (int c = 0; c < 4; ++c)
            EXPECT_EQ(colour->data(i)[c], expected[c]) << "pixel " << i << " channel " << c;
    }
    EXPECT_EQ(reader.lastError(), 0u);
    // A multisampled source is read through the resolve target; reading leaves the source bound.
    GLint readBinding = 0;
    gl->glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &readBinding);
    EXPECT_EQ(static_cast<GLuint>(readBinding), fbo->handle());
    EXPECT_EQ(reader.isFBOInitialized(), samples > 0);
}

INSTANTIATE_TEST_SUITE_P(Samples, ReadMultiSampleFBOTest, ::testing::Values(0, 4));

TEST_F(ReadMultiSampleFBORefusalTest, ANullImageIsRefused)
{
    auto fbo = drawScene(0);
    ReadMultiSampleFBO reader(kWidth, kHeight);
    EXPECT_FALSE(reader.readDepth(nullptr, 0, 0, 1, 1));
    EXPECT_FALSE(reader.readColor(nullptr, 0, 0, 1, 1));
}
