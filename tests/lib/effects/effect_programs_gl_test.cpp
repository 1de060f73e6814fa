// The effect programs drawn one by one on a bare context, against their formulas at chosen pixels.
#include "canvas3d_shadermanager.h"
#include "denoise_tool.h"
#include "fxaa_tool.h"
#include "gl_context_fixture.h"
#include "gl_shader.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLFunctions_4_1_Core>
#include <cmath>
#include <gtest/gtest.h>
#include <osg/Vec4>
#include <string>
#include <vector>

using namespace Vorna::Orvane;

namespace {

constexpr float kPi = 3.14159265358979f;
const osg::Vec3 kFront(0.05f, 0.695f, 1.0f);

struct Image {
    int width = 0;
    int height = 0;
    std::vector<osg::Vec4> texels;
    osg::Vec4& at(int x, int y) { return texels[static_cast<size_t>(y * width + x)]; }
    const osg::Vec4& at(int x, int y) const { return texels[static_cast<size_t>(y * width + x)]; }
};

Image flat(int width, int height, const osg::Vec4& colour)
{
    return {width, height, std::vector<osg::Vec4>(static_cast<size_t>(width * height), colour)};
}

std::string describe(const osg::Vec4& c)
{
    return "(" + std::to_string(c.r()) + ", " + std::to_string(c.g()) + ", " +
           std::to_string(c.b()) + ", " + std::to_string(c.a()) + ")";
}

::testing::AssertionResult near(const osg::Vec4& actual, const osg::Vec4& expected, float tolerance)
{
    for (int i = 0; i < 4; ++i) {
        if (!(std::fabs(actual[i] - expected[i]) <= tolerance))
            return ::testing::AssertionFailure()
                   << describe(actual) << ", expected " << describe(expected);
    }
    return ::testing::AssertionSuccess();
}

class EffectProgramsTest : public OrvaneTest::GLContextTest
{
protected:
    void SetUp() override
    {
        OrvaneTest::GLContextTest::SetUp();
        if (HasFatalFailure())
            return;
        m_manager.init();
        gl->glGenVertexArrays(1, &m_vao);
        gl->glBindVertexArray(m_vao);
        const float quad[] = {-1, -1, 0, 0, 0, 1, -1, 0, 1, 0, 1, 1, 0, 1, 1, -1, 1, 0, 0, 1};
        gl->glGenBuffers(1, &m_vbo);
        gl->glBindBuffer(GL_ARRAY_BUFFER, m_vbo);
        gl->glBufferData(GL_ARRAY_BUFFER, sizeof(quad), quad, GL_STATIC_DRAW);
    }

    void TearDown() override
    {
        if (gl) {
            for (GLuint texture : m_textures)
                gl->glDeleteTextures(1, &texture);
            gl->glDeleteBuffers(1, &m_vbo);
            gl->glDeleteVertexArrays(1, &m_vao);
        }
        m_shaders.clear();
        OrvaneTest::GLContextTest::TearDown();
    }

    // Links the stages of a catalogue or embedded program on this context and makes it current.
    GLShader& use(const osg::Program* program)
    {
        std::vector<std::string> sources;
        for (unsigned int i = 0; i < program->getNumShaders(); ++i)
            sources.push_back(program->getShader(i)->getShaderSource());
        std::vector<GLShader::ShaderInfo> rows;
        for (unsigned int i = 0; i < program->getNumShaders(); ++i)
            rows.push_back(
                {static_cast<GLenum>(program->getShader(i)->getType()), sources[i].c_str(), 0});
        rows.push_back({0, nullptr, 0});
        m_shaders.emplace_back(new GLShader(rows.data()));
        GLShader& shader = *m_shaders.back();
        EXPECT_NE(shader.getProgram(), 0u) << program->getName();
        shader.use();
        return shader;
    }

    GLShader& use(const std::string& name) { return use(m_manager.getShader(name)); }

    // Binds `image` on `unit`, nearest sampling; 8-bit unless `asFloat`.
    void bind(unsigned int unit, const Image& image, bool asFloat = false)
    {
        GLuint texture = 0;
        gl->glGenTextures(1, &texture);
        m_textures.push_back(texture);
        gl->glActiveTexture(GL_TEXTURE0 + unit);
        gl->glBindTexture(GL_TEXTURE_2D, texture);
        gl->glTexImage2D(GL_TEXTURE_2D, 0, asFloat ? GL_RGBA32F : GL_RGBA8, image.width,
                         image.height, 0, GL_RGBA, GL_FLOAT, image.texels.data());
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        gl->glActiveTexture(GL_TEXTURE0);
    }

    // Draws the quad (slot 0 position at `z`, slot 1 texture coordinates) into float targets
    // cleared to `clear`; returns each target.
    std::vector<Image> draw(int width, int height, int targets = 1, float z = 0.0f,
                            const osg::Vec4& clear = osg::Vec4(0, 0, 0, 0))
    {
        GLuint fbo = 0;
        gl->glGenFramebuffers(1, &fbo);
        gl->glBindFramebuffer(GL_FRAMEBUFFER, fbo);
        std::vector<GLuint> colour(static_cast<size_t>(targets));
        gl->glGenTextures(targets, colour.data());
        std::vector<GLenum> buffers;
        // A unit of its own, so that the targets don't replace the inputs.
        gl->glActiveTexture(GL_TEXTURE15);
        for (int i = 0; i < targets; ++i) {
            gl->glBindTexture(GL_TEXTURE_2D, colour[static_cast<size_t>(i)]);
            gl->glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32F, width, height, 0, GL_RGBA, GL_FLOAT,
                             nullptr);
            gl->glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0 + i, GL_TEXTURE_2D,
                                       colour[static_cast<size_t>(i)], 0);
            buffers.push_back(GL_COLOR_ATTACHMENT0 + i);
        }
        GLuint depth = 0;
        gl->glGenRenderbuffers(1, &depth);
        gl->glBindRenderbuffer(GL_RENDERBUFFER, depth);
        gl->glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width, height);
        gl->glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depth);
        gl->glActiveTexture(GL_TEXTURE0);
        gl->glDrawBuffers(targets, buffers.data());
        EXPECT_EQ(gl->glCheckFramebufferStatus(GL_FRAMEBUFFER), GLenum(GL_FRAMEBUFFER_COMPLETE));
        gl->glViewport(0, 0, width, height);
        gl->glClearColor(clear.r(), clear.g(), clear.b(), clear.a());
        gl->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        gl->glDisable(GL_DEPTH_TEST);
        gl->glDisable(GL_BLEND);

        const float quad[] = {-1, -1, z, 0, 0, 1, -1, z, 1, 0, 1, 1, z, 1, 1, -1, 1, z, 0, 1};
        gl->glBindBuffer(GL_ARRAY_BUFFER, m_vbo);
        gl->glBufferData(GL_ARRAY_BUFFER, sizeof(quad), quad, GL_STATIC_DRAW);
        gl->glEnableVertexAttribArray(0);
        gl->glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 5 * sizeof(float), nullptr);
        if (m_quadTexCoords) {
            gl->glEnableVertexAttribArray(1);
            gl->glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 5 * sizeof(float),
                                      reinterpret_cast<void*>(3 * sizeof(float)));
        } else {
            gl->glDisableVertexAttribArray(1);
        }
        gl->glDrawArrays(GL_TRIANGLE_FAN, 0, 4);
        EXPECT_EQ(gl->glGetError(), GLenum(GL_NO_ERROR));

        std::vector<Image> images;
        for (int i = 0; i < targets; ++i) {
            Image image = flat(width, height, osg::Vec4());
            gl->glReadBuffer(GL_COLOR_ATTACHMENT0 + i);
            gl->glReadPixels(0, 0, width, height, GL_RGBA, GL_FLOAT, image.texels.data());
            images.push_back(image);
        }
        gl->glBindFramebuffer(GL_FRAMEBUFFER, 0);
        gl->glDeleteRenderbuffers(1, &depth);
        gl->glDeleteTextures(targets, colour.data());
        gl->glDeleteFramebuffers(1, &fbo);
        return images;
    }

    ShaderManager m_manager;
    // Slot 1 carries the quad's texture coordinates unless a program reads a normal there.
    bool m_quadTexCoords = true;
    std::vector<std::unique_ptr<GLShader>> m_shaders;
    std::vector<GLuint> m_textures;
    GLuint m_vao = 0;
    GLuint m_vbo = 0;
};

// ---- Shadows ----

class ShadowProgramsTest : public EffectProgramsTest
{
protected:
    // The PCSS visibility of a receiver at light depth `receiver` over a flat map of `stored`.
    float pcss(float stored, float receiver)
    {
        Image map = flat(64, 64, osg::Vec4(stored, 0.0f, 0.0f, 1.0f));
        bind(0, map, true);
        GLShader& shader = use("shadow_PCSS");
        shader.setMat4("osg_ModelViewProjectionMatrix", osg::Matrixf::identity());
        shader.setFloat("uShadowmapSize", 64.0f);
        const Image out = draw(32, 32, 1, receiver).front();
        // Every pixel sees the same map: any one stands for all.
        EXPECT_TRUE(near(out.at(0, 0), out.at(31, 31), 0.0f));
        return out.at(16, 16).r();
    }
};

TEST_F(ShadowProgramsTest, PcssFullyLitAndFullyShadowed)
{
    // Nothing in front of the receiver: every filter sample passes.
    EXPECT_FLOAT_EQ(pcss(0.9f, 0.5f), 1.0f);
    // Everything in front by far more than the 0.01 bias: no sample passes.
    EXPECT_FLOAT_EQ(pcss(0.2f, 0.8f), 0.0f);
    // Within the bias of the filter's compare: still lit.
    EXPECT_FLOAT_EQ(pcss(0.5f, 0.505f), 1.0f);
}

TEST_F(ShadowProgramsTest, ShadowMapStoresDepthOverW)
{
    GLShader& shader = use("shadow_shadowmap");
    shader.setMat4("osg_ModelViewProjectionMatrix", osg::Matrixf::identity());
    const Image out = draw(8, 8, 1, 0.25f).front();
    // A single float target: z / w of the vertex, with w 1.
    EXPECT_NEAR(out.at(4, 4).r(), 0.25f, 1e-6f);
}

TEST_F(ShadowProgramsTest, FaceMaskIsGreenWhereShadowIsTaken)
{
    GLShader& shader = use("shadow_shadowmask");
    shader.setMat4("osg_ModelViewProjectionMatrix", osg::Matrixf::identity());
    EXPECT_TRUE(near(draw(4, 4).front().at(2, 2), osg::Vec4(0, 1, 0, 1), 0.0f));
    shader.setBool("bEnableShadow", false);
    EXPECT_TRUE(near(draw(4, 4).front().at(2, 2), osg::Vec4(1, 0, 0, 1), 0.0f));
}

class ShadowCompositeTest : public EffectProgramsTest
{
protected:
    const osg::Vec4 kColour{0.8f, 0.6f, 0.4f, 1.0f};

    osg::Vec4 composite(const osg::Vec4& mask, float pcss, float pcssAu, bool enableMask,
                        float strength)
    {
        bind(0, flat(4, 4, kColour), true);
        bind(1, flat(4, 4, osg::Vec4(pcss, pcss, pcss, 1)), true);
        bind(2, flat(4, 4, osg::Vec4(pcssAu, pcssAu, pcssAu, 1)), true);
        bind(3, flat(4, 4, mask), true);
        GLShader& shader = use("shadow_rect");
        shader.setBool("enableMask", enableMask);
        shader.setFloat("shadowStrength", strength);
        return draw(4, 4).front().at(1, 2);
    }
};

TEST_F(ShadowCompositeTest, MaskedPixelsTakeTheShadowOthersKeepTheirColour)
{
    const osg::Vec4 green(0, 1, 0, 1), red(1, 0, 0, 1);
    // Fill adds 30 percent of the second image: min(0.5 * 0.3 + 0.5, 1) = 0.65.
    const float visibility = 0.65f;
    const osg::Vec4 shadowed(kColour.r() * visibility, kColour.g() * visibility,
                             kColour.b() * visibility, 1.0f);
    // Float targets: only float rounding in the shader.
    EXPECT_TRUE(near(composite(green, 0.5f, 0.5f, true, 0.0f), shadowed, 1e-5f));
    EXPECT_TRUE(near(composite(red, 0.5f, 0.5f, true, 0.0f), kColour, 1e-5f));
    // Without the mask the whole image takes the shadow.
    EXPECT_TRUE(near(composite(red, 0.5f, 0.5f, false, 0.0f), shadowed, 1e-5f));
    // Fully lit stays the colour; the sum is capped at 1.
    EXPECT_TRUE(near(composite(green, 1.0f, 1.0f, true, 0.0f), kColour, 1e-5f));
    // Fully shadowed is black.
    EXPECT_TRUE(near(composite(green, 0.0f, 0.0f, true, 0.0f), osg::Vec4(0, 0, 0, 1), 1e-5f));
}

TEST_F(ShadowCompositeTest, StrengthDarkensAndIsClamped)
{
    const osg::Vec4 green(0, 1, 0, 1);
    const float half = 0.5f * 0.65f;
    EXPECT_TRUE(near(composite(green, 0.5f, 0.5f, true, 0.5f),
                     osg::Vec4(kColour.r() * half, kColour.g() * half, kColour.b() * half, 1),
                     1e-5f));
    EXPECT_TRUE(near(composite(green, 0.5f, 0.5f, true, 3.0f), osg::Vec4(0, 0, 0, 1), 1e-5f));
    EXPECT_TRUE(near(composite(green, 1.0f, 0.0f, true, -1.0f), kColour, 1e-5f));
}

// ---- Physically based shading ----

struct Material {
    float roughness = 0.0f;
    float metallic = 0.0f;
    float subsurface = 0.2f;
    float brightness = 3.0f;
    float clearcoat = 0.0f;
};

class PbrProgramsTest : public EffectProgramsTest
{
protected:
    // Draws a quad facing the eye, lit from the eye; the centre pixel sees N = V = L = H.
    std::vector<osg::Vec4> shade(const Material& m)
    {
        m_quadTexCoords = false;
        GLShader& shader = use("pbr_bsdf");
        shader.setMat4("osg_ModelViewMatrix", osg::Matrixf::translate(0.0f, 0.0f, -0.5f));
        shader.setMat4("osg_ProjectionMatrix", osg::Matrixf::identity());
        shader.setMat3("osg_NormalMatrix", osg::Matrix3Template<float>(1, 0, 0, 0, 1, 0, 0, 0, 1));
        shader.setFloat("roughnessUniform", m.roughness);
        shader.setFloat("metallic", m.metallic);
        shader.setFloat("subsurface", m.subsurface);
        shader.setFloat("brightnessUniform", m.brightness);
        shader.setFloat("clearcoat", m.clearcoat);
        shader.setFloat("model_id", 7.0f);
        QOpenGLContext::currentContext()->functions()->glVertexAttrib3f(1, 0.0f, 0.0f, 1.0f);
        QOpenGLContext::currentContext()->functions()->glVertexAttrib2f(3, 0.5f, 0.5f);
        QOpenGLContext::currentContext()->functions()->glVertexAttrib4f(4, 1.0f, 0.0f, 0.0f, 1.0f);
        // Odd size: the centre pixel's centre lies on the axis.
        const std::vector<Image> targets = draw(63, 63, 3);
        return {targets[0].at(31, 31), targets[1].at(31, 31), targets[2].at(31, 31)};
    }

    // Normal incidence: every Fresnel and masking term is 1 or 0.
    static osg::Vec3 diffuseAtNormalIncidence(const Material& m)
    {
        const osg::Vec3 base = kFront / kPi;
        const osg::Vec3 lobe = base * 1.25f * 0.5f;
        return (base * (1.0f - m.subsurface) + lobe * m.subsurface) * (1.0f - m.metallic) *
               (m.brightness + 0.2f);
    }

    static osg::Vec3 specularAtNormalIncidence(const Material& m)
    {
        const float a = std::max(0.0001f, m.roughness * m.roughness);
        const osg::Vec3 C0 =
            osg::Vec3(1, 1, 1) * (0.5f * 0.04f * (1.0f - m.metallic)) + kFront * m.metallic;
        const osg::Vec3 metal = C0 / (4.0f * kPi * a * a);
        // Clear coat of gloss 0: ag2 = 0.01; D = (ag2 - 1) / (pi ln(ag2) ag2).
        const float coat = 0.04f * (0.01f - 1.0f) / (kPi * std::log(0.01f) * 0.01f) / 4.0f;
        return (metal + osg::Vec3(coat, coat, coat) * 0.25f * m.clearcoat) * m.brightness;
    }

    void expectNear(const osg::Vec4& actual, const osg::Vec3& expected)
    {
        // Relative: float evaluation on the GPU and an eye vector a rounding off the axis.
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(actual[i], expected[i], 1e-4f + 1e-4f * std::fabs(expected[i]))
                << "channel " << i << " of " << describe(actual);
        EXPECT_FLOAT_EQ(actual.a(), 1.0f);
    }
};

TEST_F(PbrProgramsTest, RoughDielectricAtNormalIncidence)
{
    Material m;
    m.roughness = 1.0f;
    const auto out = shade(m);
    expectNear(out[0], diffuseAtNormalIncidence(m));
    expectNear(out[1], specularAtNormalIncidence(m));
    // Depth target: w of the position (1 with this projection) and the model number.
    EXPECT_TRUE(near(out[2], osg::Vec4(1.0f, 7.0f, 0.0f, 1.0f), 1e-6f));
}

TEST_F(PbrProgramsTest, MetalHasNoDiffuseAndReflectsItsBaseColour)
{
    Material m;
    m.roughness = 0.5f;
    m.metallic = 1.0f;
    m.brightness = 0.2f;
    const auto out = shade(m);
    expectNear(out[0], osg::Vec3(0, 0, 0));
    expectNear(out[1], specularAtNormalIncidence(m));
}

TEST_F(PbrProgramsTest, ClearCoatAddsAQuarterOfItsLobe)
{
    Material m;
    m.roughness = 1.0f;
    m.clearcoat = 1.0f;
    m.subsurface = 1.0f;
    const auto out = shade(m);
    expectNear(out[0], diffuseAtNormalIncidence(m));
    expectNear(out[1], specularAtNormalIncidence(m));
}

TEST_F(PbrProgramsTest, ZeroRoughnessIsAMirrorLobeWithoutNaN)
{
    const auto out = shade(Material());
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(std::isfinite(out[1][i])) << describe(out[1]);
        // 1 / (4 pi 1e-8) times the reflectance: a spike, not a division by zero.
        EXPECT_GT(out[1][i], 1e5f) << describe(out[1]);
    }
}

TEST_F(PbrProgramsTest, MaskMarksScatteringPixels)
{
    GLShader& shader = use("ssss_mask");
    shader.setMat4("osg_ModelViewProjectionMatrix", osg::Matrixf::identity());
    EXPECT_TRUE(near(draw(4, 4).front().at(2, 2), osg::Vec4(0, 1, 0, 1), 0.0f));
    shader.setBool("bEnableSSSS", false);
    EXPECT_TRUE(near(draw(4, 4).front().at(2, 2), osg::Vec4(1, 0, 0, 1), 0.0f));
}

class SubsurfaceBlurTest : public EffectProgramsTest
{
protected:
    const osg::Vec4 kDiffuse{0.5f, 0.3f, 0.2f, 1.0f};
    const osg::Vec4 kSpecular{0.1f, 0.1f, 0.1f, 1.0f};
    const osg::Vec4 kScreen{0.9f, 0.0f, 0.9f, 1.0f};

    osg::Vec4 blur(const osg::Vec4& diffuse, const osg::Vec4& mask, bool secondPass, bool gamma,
                   const osg::Vec4& clear = osg::Vec4())
    {
        bind(0, flat(16, 16, diffuse), true);
        bind(1, flat(16, 16, kSpecular), true);
        bind(2, flat(16, 16, osg::Vec4(2.0f, 1.0f, 0.0f, 1.0f)), true);
        bind(3, flat(16, 16, kScreen), true);
        bind(4, flat(16, 16, mask), true);
        GLShader& shader = use("pbr_ssss");
        shader.setVec2("dir", 0.0f, 1.0f);
        shader.setBool("second_pass", secondPass);
        shader.setBool("gammaEnable", gamma);
        return draw(16, 16, 1, 0.0f, clear).front().at(8, 8);
    }
};

TEST_F(SubsurfaceBlurTest, FlatSkinKeepsItsColourThroughBothPasses)
{
    const osg::Vec4 green(0, 1, 0, 1), red(1, 0, 0, 1);
    // The kernel's weights add up to 1 per channel; float sums of 41 rows.
    const float tolerance = 1e-4f;
    EXPECT_TRUE(near(blur(kDiffuse, green, false, false), kDiffuse, tolerance));
    const osg::Vec4 lit(0.6f, 0.4f, 0.3f, 1.0f);
    EXPECT_TRUE(near(blur(kDiffuse, green, true, false), lit, tolerance));
    // Outside the mask the screen's colour stays.
    EXPECT_TRUE(near(blur(kDiffuse, red, true, false), kScreen, tolerance));
    // Gamma ignores the mask.
    const float g = 1.0f / 1.2f;
    EXPECT_TRUE(near(blur(kDiffuse, red, true, true),
                     osg::Vec4(std::pow(0.6f, g), std::pow(0.4f, g), std::pow(0.3f, g), 1.0f),
                     tolerance));
}

TEST_F(SubsurfaceBlurTest, EmptyPixelsAreLeftAlone)
{
    const osg::Vec4 clear(0.25f, 0.5f, 0.75f, 1.0f);
    EXPECT_TRUE(
        near(blur(osg::Vec4(0.5f, 0.3f, 0.2f, 0.0f), osg::Vec4(0, 1, 0, 1), true, false, clear),
             clear, 0.0f));
}

// ---- Antialiasing and denoise ----

// An 8-bit texel read as float and the test's own k / 255 may differ in the last bit.
constexpr float kUnorm = 1e-6f;

class ScreenPassProgramsTest : public EffectProgramsTest
{
protected:
    Image run(osg::Program* program, const Image& input)
    {
        bind(0, input);
        GLShader& shader = use(program);
        shader.setInt("tex", 0);
        shader.setVec4("viewport", 0.0f, 0.0f, float(input.width), float(input.height));
        return draw(input.width, input.height).front();
    }

    static float byte(float v) { return std::round(v * 255.0f) / 255.0f; }
    static osg::Vec4 grey(float v, float a = 1.0f)
    {
        return osg::Vec4(byte(v), byte(v), byte(v), a);
    }
};

TEST_F(ScreenPassProgramsTest, FxaaLeavesAFlatImageUnchanged)
{
    const Image input = flat(16, 16, grey(0.4f));
    const Image out = run(FXAATool::program(), input);
    for (const osg::Vec4& texel : out.texels)
        ASSERT_TRUE(near(texel, input.texels.front(), kUnorm));
}

TEST_F(ScreenPassProgramsTest, FxaaSoftensAHardDiagonalEdge)
{
    Image input = flat(32, 32, grey(0.0f));
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x)
            if (x > y)
                input.at(x, y) = grey(1.0f);
    const Image out = run(FXAATool::program(), input);

    int softened = 0;
    for (int i = 2; i < 30; ++i) {
        for (int x : {i, i + 1}) {
            const float v = out.at(x, i).r();
            if (v > 0.05f && v < 0.95f)
                ++softened;
        }
    }
    // Both sides of the staircase along its length take in-between values.
    EXPECT_GE(softened, 40) << "of 56 pixels on the diagonal";
    // Far from the edge the image is untouched.
    EXPECT_TRUE(near(out.at(28, 3), grey(1.0f), kUnorm));
    EXPECT_TRUE(near(out.at(3, 28), grey(0.0f), kUnorm));
}

TEST_F(ScreenPassProgramsTest, FxaaTreatsEmptyTexelsAsTheBackgroundAndKeepsTheirAlpha)
{
    const Image out = run(FXAATool::program(), flat(8, 8, osg::Vec4(0, 0, 0, 0)));
    // The grey is written as a float constant into a float target.
    EXPECT_TRUE(near(out.at(4, 4), osg::Vec4(0.117647f, 0.117647f, 0.117647f, 0.0f), kUnorm));
}

TEST_F(ScreenPassProgramsTest, DenoiseLeavesAFlatImageUnchanged)
{
    const Image input = flat(16, 16, grey(0.3f));
    const Image out = run(DenoiseTool::program(), input);
    for (const osg::Vec4& texel : out.texels)
        ASSERT_TRUE(near(texel, input.texels.front(), kUnorm));
}

TEST_F(ScreenPassProgramsTest, DenoiseReplacesASpeckByItsNeighbours)
{
    Image input = flat(16, 16, grey(0.2f));
    input.at(8, 8) = grey(0.5f);
    input.at(3, 3) = grey(0.9f);   // white: tested by the window
    input.at(12, 12) = grey(0.7f); // bright but not white: left alone
    const Image out = run(DenoiseTool::program(), input);
    // All 24 neighbours differ by more than the threshold: their mean.
    EXPECT_TRUE(near(out.at(8, 8), grey(0.2f), kUnorm));
    EXPECT_TRUE(near(out.at(3, 3), grey(0.2f), kUnorm));
    EXPECT_TRUE(near(out.at(12, 12), grey(0.7f), kUnorm));
    // A neighbour of the speck differs from 1 of its 24: it stays.
    EXPECT_TRUE(near(out.at(9, 8), grey(0.2f), kUnorm));
}

TEST_F(ScreenPassProgramsTest, DenoiseKeepsAnEdgeBetweenTwoLargeAreas)
{
    Image input = flat(16, 16, grey(0.1f));
    for (int y = 0; y < 16; ++y)
        for (int x = 8; x < 16; ++x)
            input.at(x, y) = grey(0.5f);
    const Image out = run(DenoiseTool::program(), input);
    // At most 10 of 25 differ on either side of a straight edge, below the 18 needed.
    for (int x = 5; x < 11; ++x)
        EXPECT_TRUE(near(out.at(x, 8), input.at(x, 8), kUnorm)) << "x " << x;
}

} // namespace
