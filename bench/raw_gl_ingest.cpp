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

#include "scan_scenes.h"

#include <cstring>
#include <osg/Matrixf>

namespace {

const char* const kLitVertex = R"(#version 410 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec3 color;
layout(location = 3) in float state;
uniform mat4 mvp;
uniform mat4 modelView;
out vec3 shade;
void main()
{
    gl_Position = state < 0.0 ? vec4(-2.0, -2.0, -2.0, 1.0) : mvp * vec4(position, 1.0);
    gl_PointSize = 1.0;
    vec3 n = normalize(mat3(modelView) * normal);
    shade = color * (0.5 + 0.5 * abs(n.z));
}
)";

} // namespace

struct RawGlCloud::Private {
    QOpenGLContext context;
    QOffscreenSurface surface;
    QOpenGLFunctions_4_1_Core* gl = nullptr;
    std::unique_ptr<QOpenGLFramebufferObject> fbo;
    QOpenGLShaderProgram program;
    GLuint vao = 0, buffers[4] = {};
    int capacity = 0, width = 0, height = 0;
    bool valid = false;
};

RawGlCloud::RawGlCloud(int capacity, int width, int height) : d(new Private)
{
    d->capacity = capacity;
    d->width = width;
    d->height = height;
    QSurfaceFormat format;
    format.setVersion(4, 1);
    format.setProfile(QSurfaceFormat::CoreProfile);
    format.setDepthBufferSize(24);
    d->context.setFormat(format);
    d->surface.setFormat(format);
    d->surface.create();
    if (!d->context.create() || !d->context.makeCurrent(&d->surface))
        return;
    d->gl = d->context.versionFunctions<QOpenGLFunctions_4_1_Core>();
    if (!d->gl || !d->gl->initializeOpenGLFunctions())
        return;
    d->fbo =
        std::make_unique<QOpenGLFramebufferObject>(width, height, QOpenGLFramebufferObject::Depth);
    if (!d->program.addShaderFromSourceCode(QOpenGLShader::Vertex, kLitVertex) ||
        !d->program.addShaderFromSourceCode(QOpenGLShader::Fragment, kFragment) ||
        !d->program.link())
        return;
    auto* gl = d->gl;
    gl->glGenVertexArrays(1, &d->vao);
    gl->glBindVertexArray(d->vao);
    gl->glGenBuffers(4, d->buffers);
    const GLint sizes[4] = {3, 3, 3, 1};
    const GLenum types[4] = {GL_FLOAT, GL_FLOAT, GL_FLOAT, GL_BYTE};
    const GLsizeiptr strides[4] = {12, 12, 12, 1};
    for (GLuint slot = 0; slot < 4; ++slot) {
        gl->glBindBuffer(GL_ARRAY_BUFFER, d->buffers[slot]);
        gl->glBufferData(GL_ARRAY_BUFFER, strides[slot] * GLsizeiptr(capacity), nullptr,
                         GL_DYNAMIC_DRAW);
        gl->glVertexAttribPointer(slot, sizes[slot], types[slot], GL_FALSE, 0, nullptr);
        gl->glEnableVertexAttribArray(slot);
    }
    // Never-written states read as 0, drawn.
    std::vector<signed char> zeros(static_cast<size_t>(capacity), 0);
    gl->glBindBuffer(GL_ARRAY_BUFFER, d->buffers[3]);
    gl->glBufferSubData(GL_ARRAY_BUFFER, 0, capacity, zeros.data());
    gl->glEnable(GL_PROGRAM_POINT_SIZE);
    gl->glEnable(GL_DEPTH_TEST);
    d->valid = true;
}

RawGlCloud::~RawGlCloud()
{
    if (d->gl && d->context.makeCurrent(&d->surface)) {
        d->gl->glDeleteBuffers(4, d->buffers);
        d->gl->glDeleteVertexArrays(1, &d->vao);
        d->fbo.reset();
        d->context.doneCurrent();
    }
}

bool RawGlCloud::isValid() const
{
    return d->valid;
}

void RawGlCloud::write(int first, int count, const float* position, const float* normal,
                       const float* colour)
{
    d->context.makeCurrent(&d->surface);
    const float* sources[3] = {position, normal, colour};
    for (GLuint slot = 0; slot < 3; ++slot) {
        d->gl->glBindBuffer(GL_ARRAY_BUFFER, d->buffers[slot]);
        d->gl->glBufferSubData(GL_ARRAY_BUFFER, 12 * GLintptr(first), 12 * GLsizeiptr(count),
                               sources[slot]);
    }
}

void RawGlCloud::replace(int count, const float* position, const float* normal, const float* colour)
{
    d->context.makeCurrent(&d->surface);
    const void* sources[3] = {position, normal, colour};
    for (GLuint slot = 0; slot < 3; ++slot) {
        d->gl->glBindBuffer(GL_ARRAY_BUFFER, d->buffers[slot]);
        d->gl->glBufferData(GL_ARRAY_BUFFER, 12 * GLsizeiptr(count), sources[slot],
                            GL_DYNAMIC_DRAW);
    }
}

void RawGlCloud::scatter(const std::vector<int>& ids, const float* position, const float* normal,
                         const float* colour)
{
    d->context.makeCurrent(&d->surface);
    const float* sources[3] = {position, normal, colour};
    for (GLuint slot = 0; slot < 3; ++slot) {
        d->gl->glBindBuffer(GL_ARRAY_BUFFER, d->buffers[slot]);
        auto* target = static_cast<float*>(d->gl->glMapBufferRange(
            GL_ARRAY_BUFFER, 0, 12 * GLsizeiptr(d->capacity), GL_MAP_WRITE_BIT));
        if (!target)
            continue;
        for (size_t i = 0; i < ids.size(); ++i)
            std::memcpy(target + 3 * size_t(ids[i]), sources[slot] + 3 * i, 12);
        d->gl->glUnmapBuffer(GL_ARRAY_BUFFER);
    }
}

double RawGlCloud::frameMs(int count, const float eye[3], int every)
{
    QElapsedTimer timer;
    timer.start();
    d->context.makeCurrent(&d->surface);
    auto* gl = d->gl;
    d->fbo->bind();
    gl->glViewport(0, 0, d->width, d->height);
    gl->glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
    gl->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    const osg::Matrixf view =
        osg::Matrixf::lookAt(osg::Vec3f(eye[0], eye[1], eye[2]), osg::Vec3f(), osg::Vec3f(0, 0, 1));
    const osg::Matrixf projection =
        osg::Matrixf::perspective(ScanScenes::kFovy, double(d->width) / d->height, 0.1, 10.0);
    const osg::Matrixf mvp = view * projection;
    d->program.bind();
    gl->glUniformMatrix4fv(d->program.uniformLocation("mvp"), 1, GL_FALSE, mvp.ptr());
    gl->glUniformMatrix4fv(d->program.uniformLocation("modelView"), 1, GL_FALSE, view.ptr());
    gl->glBindVertexArray(d->vao);
    // Every n-th point through strided attributes, the plainest way to thin a cloud.
    const auto setStride = [&](int n) {
        const GLint sizes[4] = {3, 3, 3, 1};
        const GLenum types[4] = {GL_FLOAT, GL_FLOAT, GL_FLOAT, GL_BYTE};
        const GLsizei bytes[4] = {12, 12, 12, 1};
        for (GLuint slot = 0; slot < 4; ++slot) {
            gl->glBindBuffer(GL_ARRAY_BUFFER, d->buffers[slot]);
            gl->glVertexAttribPointer(slot, sizes[slot], types[slot], GL_FALSE,
                                      n > 1 ? n * bytes[slot] : 0, nullptr);
        }
    };
    if (every > 1)
        setStride(every);
    gl->glDrawArrays(GL_POINTS, 0, every > 1 ? (count + every - 1) / every : count);
    gl->glFinish();
    if (every > 1)
        setStride(1);
    return timer.nsecsElapsed() / 1e6;
}
