// Cost of each full-screen effect pass at 1280x720 on the current GL driver: milliseconds per
// pass, the median of 9 runs of 5 passes each, glFinish-bounded. Prints "name value unit".
#include "canvas3d_shadermanager.h"
#include "denoise_tool.h"
#include "fxaa_tool.h"
#include "gl_shader.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions_4_1_Core>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace Vorna::Orvane;

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;

QOpenGLFunctions_4_1_Core* gl = nullptr;

std::unique_ptr<GLShader> build(const osg::Program* program)
{
    std::vector<std::string> sources;
    for (unsigned int i = 0; i < program->getNumShaders(); ++i)
        sources.push_back(program->getShader(i)->getShaderSource());
    std::vector<GLShader::ShaderInfo> rows;
    for (unsigned int i = 0; i < program->getNumShaders(); ++i)
        rows.push_back(
            {static_cast<GLenum>(program->getShader(i)->getType()), sources[i].c_str(), 0});
    rows.push_back({0, nullptr, 0});
    return std::make_unique<GLShader>(rows.data());
}

GLuint texture(GLint format, int width, int height, const std::vector<float>& rgba)
{
    GLuint id = 0;
    gl->glGenTextures(1, &id);
    gl->glBindTexture(GL_TEXTURE_2D, id);
    gl->glTexImage2D(GL_TEXTURE_2D, 0, format, width, height, 0, GL_RGBA, GL_FLOAT, rgba.data());
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    return id;
}

// A speckled scene-like image: mid greys, a diagonal edge, and empty corners.
std::vector<float> sceneImage(int width, int height)
{
    std::vector<float> rgba(static_cast<size_t>(width * height * 4));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            float* p = &rgba[static_cast<size_t>((y * width + x) * 4)];
            const float v = x > y ? 0.8f : 0.3f;
            const bool speck = ((x * 7 + y * 13) % 97) == 0;
            p[0] = p[1] = p[2] = speck ? 0.5f : v;
            p[3] = (x < 64 && y < 64) ? 0.0f : 1.0f;
        }
    return rgba;
}

double msPerPass(const std::function<void()>& pass)
{
    std::vector<double> runs;
    pass();
    gl->glFinish();
    for (int run = 0; run < 9; ++run) {
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 5; ++i)
            pass();
        gl->glFinish();
        runs.push_back(timer.nsecsElapsed() / 1e6 / 5.0);
    }
    std::sort(runs.begin(), runs.end());
    return runs[runs.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    QSurfaceFormat format;
    format.setProfile(QSurfaceFormat::CompatibilityProfile);
    format.setVersion(4, 1);
    QOffscreenSurface surface;
    surface.setFormat(format);
    surface.create();
    QOpenGLContext context;
    context.setFormat(format);
    if (!context.create() || !context.makeCurrent(&surface)) {
        std::fprintf(stderr, "no OpenGL context\n");
        return 1;
    }
    gl = context.versionFunctions<QOpenGLFunctions_4_1_Core>();
    gl->initializeOpenGLFunctions();

    GLuint vao = 0, vbo = 0, fbo = 0, target = 0;
    gl->glGenVertexArrays(1, &vao);
    gl->glBindVertexArray(vao);
    const float quad[] = {-1, -1, 0.5f, 0, 0, 1,  -1, 0.5f, 1, 0,
                          1,  1,  0.5f, 1, 1, -1, 1,  0.5f, 0, 1};
    gl->glGenBuffers(1, &vbo);
    gl->glBindBuffer(GL_ARRAY_BUFFER, vbo);
    gl->glBufferData(GL_ARRAY_BUFFER, sizeof(quad), quad, GL_STATIC_DRAW);
    gl->glEnableVertexAttribArray(0);
    gl->glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 5 * sizeof(float), nullptr);
    gl->glEnableVertexAttribArray(1);
    gl->glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 5 * sizeof(float),
                              reinterpret_cast<void*>(3 * sizeof(float)));
    target = texture(GL_RGBA8, kWidth, kHeight, std::vector<float>());
    gl->glGenFramebuffers(1, &fbo);
    gl->glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    gl->glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, target, 0);
    gl->glViewport(0, 0, kWidth, kHeight);

    const std::vector<float> image = sceneImage(kWidth, kHeight);
    gl->glActiveTexture(GL_TEXTURE0);
    texture(GL_RGBA8, kWidth, kHeight, image);
    auto draw = [] { gl->glDrawArrays(GL_TRIANGLE_FAN, 0, 4); };

    for (auto [name, program] : {std::pair<const char*, osg::Program*>{"fxaa", FXAATool::program()},
                                 {"denoise", DenoiseTool::program()}}) {
        std::unique_ptr<GLShader> shader = build(program);
        shader->use();
        shader->setInt("tex", 0);
        shader->setVec4("viewport", 0.0f, 0.0f, float(kWidth), float(kHeight));
        std::printf("%s_pass_ms_1280x720 %.2f ms\n", name, msPerPass(draw));
    }

    ShaderManager manager;
    manager.init();
    {
        // The light's map: 1024 square, half of it holding a blocker in front of the receiver.
        std::vector<float> map(1024 * 1024 * 4, 0.95f);
        for (size_t i = 0; i < map.size() / 2; i += 4)
            map[i] = 0.85f;
        gl->glActiveTexture(GL_TEXTURE0);
        texture(GL_R32F, 1024, 1024, map);
        std::unique_ptr<GLShader> shader = build(manager.getShader(g_shadowPCSSProgramStr));
        shader->use();
        shader->setMat4("osg_ModelViewProjectionMatrix", osg::Matrixf::identity());
        // Receiver at light depth 0.9: shadowed on one half, lit on the other.
        shader->setMat4("uLightMVP", osg::Matrixf::translate(0.0f, 0.0f, 0.4f));
        shader->setFloat("uShadowmapSize", 1024.0f);
        std::printf("pcss_pass_ms_1280x720 %.2f ms\n", msPerPass(draw));
    }
    {
        for (unsigned int unit = 1; unit < 4; ++unit) {
            gl->glActiveTexture(GL_TEXTURE0 + unit);
            texture(GL_RGBA8, kWidth, kHeight, image);
        }
        std::unique_ptr<GLShader> shader = build(manager.getShader(g_shadowRectProgramStr));
        shader->use();
        std::printf("shadow_composite_pass_ms_1280x720 %.2f ms\n", msPerPass(draw));
    }
    {
        for (unsigned int unit = 0; unit < 5; ++unit) {
            gl->glActiveTexture(GL_TEXTURE0 + unit);
            texture(GL_RGBA8, kWidth, kHeight, image);
        }
        std::unique_ptr<GLShader> shader = build(manager.getShader(g_meshPBRSSSSProgramStr));
        shader->use();
        shader->setVec2("dir", 1.0f, 0.0f);
        std::printf("ssss_blur_pass_ms_1280x720 %.2f ms\n", msPerPass(draw));
    }
    {
        std::unique_ptr<GLShader> shader = build(manager.getShader(g_meshPBRBSDFProgramStr));
        shader->use();
        shader->setMat4("osg_ModelViewMatrix", osg::Matrixf::translate(0.0f, 0.0f, -0.5f));
        shader->setMat4("osg_ProjectionMatrix", osg::Matrixf::identity());
        shader->setMat3("osg_NormalMatrix", osg::Matrix3Template<float>(1, 0, 0, 0, 1, 0, 0, 0, 1));
        shader->setFloat("roughnessUniform", 0.5f);
        gl->glDisableVertexAttribArray(1);
        std::printf("pbr_bsdf_fill_ms_1280x720 %.2f ms\n", msPerPass(draw));
    }
    context.doneCurrent();
    return 0;
}
