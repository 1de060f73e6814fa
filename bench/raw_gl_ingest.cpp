#include "raw_gl_ingest.h"

#include <QElapsedTimer>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions_4_1_Core>
#include <QOpenGLShaderProgram>
#include <memory>
#include <vector>

namespace {

const char* const kVertex = R"(#version 410 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec3 color;
layout(location = 3) in float state;
out vec3 shade;
void main()
{
    // The scanned patch, x 0.5..1.5 and z 0..2, across most of the view.
    gl_Position = vec4((position.x - 1.0) * 1.6, (position.z - 1.0) * 0.9, 0.0, 1.0);
    gl_PointSize = state < 0.0 ? 0.0 : 3.0;
    shade = color * (0.5 + 0.5 * max(dot(normalize(normal), vec3(0.0, -1.0, 0.0)), 0.0));
}
)";

const char* const kFragment = R"(#version 410 core
in vec3 shade;
out vec4 fragColor;
void main() { fragColor = vec4(shade, 1.0); }
)";

} // namespace

double rawGlIngestMpts(int total, int patch, int frameEvery, int width, int height)
{
    QSurfaceFormat format;
    format.setVersion(4, 1);
    format.setProfile(QSurfaceFormat::CoreProfile);
    format.setDepthBufferSize(24);
    QOpenGLContext context;
    context.setFormat(format);
    QOffscreenSurface surface;
    surface.setFormat(format);
    surface.create();
    if (!context.create() || !context.makeCurrent(&surface))
        return 0.0;
    auto* gl = context.versionFunctions<QOpenGLFunctions_4_1_Core>();
    if (!gl || !gl->initializeOpenGLFunctions())
        return 0.0;
    double result = 0.0;
    {
        QOpenGLFramebufferObject fbo(width, height, QOpenGLFramebufferObject::Depth);
        QOpenGLShaderProgram program;
        if (!program.addShaderFromSourceCode(QOpenGLShader::Vertex, kVertex) ||
            !program.addShaderFromSourceCode(QOpenGLShader::Fragment, kFragment) || !program.link())
            return 0.0;

        GLuint vao = 0, buffers[4] = {};
        gl->glGenVertexArrays(1, &vao);
        gl->glBindVertexArray(vao);
        gl->glGenBuffers(4, buffers);
        const GLint sizes[4] = {3, 3, 3, 1};
        const GLenum types[4] = {GL_FLOAT, GL_FLOAT, GL_FLOAT, GL_BYTE};
        const GLsizeiptr strides[4] = {12, 12, 12, 1};
        for (GLuint slot = 0; slot < 4; ++slot) {
            gl->glBindBuffer(GL_ARRAY_BUFFER, buffers[slot]);
            gl->glBufferData(GL_ARRAY_BUFFER, strides[slot] * total, nullptr, GL_DYNAMIC_DRAW);
            gl->glVertexAttribPointer(slot, sizes[slot], types[slot], GL_FALSE, 0, nullptr);
            gl->glEnableVertexAttribArray(slot);
        }
        gl->glEnable(GL_PROGRAM_POINT_SIZE);
        gl->glEnable(GL_DEPTH_TEST);

        QElapsedTimer timer;
        timer.start();
        std::vector<float> position(3 * patch), normal(3 * patch), color(3 * patch);
        std::vector<signed char> state(patch);
        for (int first = 0; first < total; first += patch) {
            // The producer's side, as the canvas benchmark builds its patches.
            for (int i = 0; i < patch; ++i) {
                const int id = first + i;
                position[3 * i] = 0.5f + (id % 1000) * 0.001f;
                position[3 * i + 1] = 1.0f;
                position[3 * i + 2] = (id / 1000) * 1e-4f;
                normal[3 * i] = 0.0f;
                normal[3 * i + 1] = -1.0f;
                normal[3 * i + 2] = 0.0f;
                color[3 * i] = 0.8f;
                color[3 * i + 1] = 0.5f;
                color[3 * i + 2] = 0.2f;
            }
            const void* sources[4] = {position.data(), normal.data(), color.data(), state.data()};
            for (GLuint slot = 0; slot < 4; ++slot) {
                gl->glBindBuffer(GL_ARRAY_BUFFER, buffers[slot]);
                gl->glBufferSubData(GL_ARRAY_BUFFER, strides[slot] * first, strides[slot] * patch,
                                    sources[slot]);
            }
            if ((first + patch) % frameEvery == 0) {
                fbo.bind();
                gl->glViewport(0, 0, width, height);
                gl->glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
                gl->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
                program.bind();
                gl->glBindVertexArray(vao);
                gl->glDrawArrays(GL_POINTS, 0, first + patch);
                gl->glFinish();
            }
        }
        result = total / (timer.nsecsElapsed() * 1e-9) / 1e6;
        gl->glDeleteBuffers(4, buffers);
        gl->glDeleteVertexArrays(1, &vao);
    }
    context.doneCurrent();
    return result;
}
