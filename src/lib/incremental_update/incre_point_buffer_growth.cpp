// Growing the whole-cloud buffers ahead of the points that will fill them.
#include "incre_point_geomtry_apple.h"

#include "canvas3d_shadermanager.h"
#include "gl_shader.h"
#include "orvane_log.h"
#include "scene_flags.h"

#include <QOpenGLContext>
#include <QString>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <osg/NodeVisitor>
#include <osg/State>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

namespace {

constexpr qint64 kFrameIdGrowStep = 2000000;

} // namespace

bool IncrePointGeometryApple::calcMatBBox(const osg::Matrixf&, osg::Vec3f&, osg::Vec3f&)
{
    if (!m_isRunning) {
        qCInfo(orvane) << "calcMatBBox"
                       << "Cannot calculate, haven't started";
        return false;
    }
    if (!m_wholeDataBuf) {
        qCInfo(orvane) << "calcMatBBox"
                       << "Cannot calculate, m_wholeDataBuf is null";
        return false;
    }
    if (m_wholeSize == 0) {
        qCInfo(orvane) << "calcMatBBox"
                       << "Cannot calculate, m_wholeSize is 0";
        return false;
    }
    if (m_wholeDataBuf->getBuf(WDBI_Position) == 0) {
        qCInfo(orvane) << "calcMatBBox"
                       << "Cannot calculate, vertBuf is 0";
        return false;
    }
    // Nothing measures the cloud on the GPU yet: say so rather than hand back stale bounds.
    return false;
}

bool IncrePointGeometryApple::resizeBuffer()
{
    const uint32_t whole = m_wholeSize;
    const int patch = m_patchVertexSize;
    const auto failOnce = [this](auto log) {
        if (!m_resizeFailLogged)
            log();
        m_resizeFailLogged = true;
        return false;
    };
    if (!m_gl)
        return failOnce([&] {
            qCWarning(orvane) << "resizeBuffer"
                              << "cannot resize point buffer: OpenGL function table is null"
                              << "wholeSize:" << whole << "patchSize:" << patch;
        });
    if (!m_wholeDataBuf)
        return failOnce([&] {
            qCWarning(orvane) << "resizeBuffer"
                              << "cannot resize point buffer: whole data buffer is null"
                              << "wholeSize:" << whole << "patchSize:" << patch;
        });
    if (whole > kMaxPointCount)
        return failOnce([&] {
            qCWarning(orvane) << "resizeBuffer"
                              << "point count exceeds limit; skip update and draw available points"
                              << "wholeSize:" << whole << "limit:" << kMaxPointCount
                              << "patchSize:" << patch;
        });
    // The patch size is headroom only: a wild one must not ask for buffers past the limit.
    const uint32_t headroom = static_cast<uint32_t>(
        std::min<qint64>(std::max(patch, 0), static_cast<qint64>(kMaxPointCount) - whole));
    const ResizeResult result =
        m_wholeDataBuf->autoResizeByVertNum(m_isIncreaseUpdate, whole, headroom);
    if (result == RR_Failed)
        return failOnce([&] {
            qCWarning(orvane) << "resizeBuffer"
                              << "whole point buffer resize failed; skip update and draw available "
                                 "points"
                              << "wholeSize:" << whole << "patchSize:" << patch
                              << "increaseUpdate:" << m_isIncreaseUpdate;
        });
    if (result == RR_Resized) {
        m_drawableCapacityDirty = true;
        deleteVertexArray(m_increGLBuffer.vao);
        m_gl->glGenVertexArrays(1, &m_increGLBuffer.vao);
        setVertexAttribute();
    }
    if (!m_bRigidScan) {
        const qint64 bytes = getBufferByteSize(m_increGLBuffer.wholeFrameIdBuffer);
        const GLenum error = m_gl->glGetError();
        if (error || bytes < 0)
            return failOnce([&] {
                qCWarning(orvane) << "resizeBuffer"
                                  << "frameId buffer size query failed"
                                  << "error:" << error << "bytes:" << bytes
                                  << "wholeSize:" << whole;
            });
        const qint64 frameIdCount = bytes / 4;
        const qint64 needed =
            m_isIncreaseUpdate ? static_cast<qint64>(whole) + headroom : static_cast<qint64>(whole);
        if (frameIdCount <= needed) {
            const qint64 target = m_isIncreaseUpdate
                                      ? std::max<qint64>(frameIdCount, whole) + kFrameIdGrowStep
                                      : static_cast<qint64>(whole) + 20000;
            if (target > std::numeric_limits<uint32_t>::max())
                return failOnce([&] {
                    qCWarning(orvane) << "resizeBuffer"
                                      << "frame id vertex count exceeds uint32:" << target;
                });
            if (!expandWholeFrameIdBuffer(static_cast<uint32_t>(target)))
                return failOnce([&] {
                    qCWarning(orvane) << "resizeBuffer"
                                      << "frame id buffer resize failed; skip update and draw "
                                         "available points"
                                      << "wholeSize:" << whole << "targetVertexCount:" << target;
                });
            m_drawableCapacityDirty = true;
            setVertexAttribute();
        }
    }
    m_resizeFailLogged = false;
    return true;
}

bool IncrePointGeometryApple::expandWholeFrameIdBuffer(uint32_t vertexCount)
{
    const char* op = "expandWholeFrameIdBuffer";
    if (const GLenum pending = m_gl->glGetError())
        qCWarning(orvane) << op << "begin, glError:" << pending;
    GLuint fresh = 0;
    m_gl->glGenBuffers(1, &fresh);
    if (!fresh) {
        qCWarning(orvane) << op << "glGenBuffers failed";
        return false;
    }
    const auto fail = [&]() {
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
        m_gl->glBindBuffer(GL_COPY_READ_BUFFER, 0);
        m_gl->glDeleteBuffers(1, &fresh);
        return false;
    };
    const qint64 bytes = static_cast<qint64>(vertexCount) * 4;
    if (bytes > std::numeric_limits<GLsizeiptr>::max()) {
        qCWarning(orvane) << op << "frame id buffer size exceeds GLsizeiptr:" << bytes;
        return fail();
    }
    const qint64 rounded = (bytes + 4095) / 4096 * 4096;
    std::vector<char> zeros;
    try {
        zeros.assign(static_cast<size_t>(rounded), 0);
    } catch (const std::bad_alloc&) {
        qCWarning(orvane) << op
                          << "frame id buffer initialization allocation failed, new vertex count:"
                          << vertexCount;
        return fail();
    }
    m_gl->glBindBuffer(GL_ARRAY_BUFFER, fresh);
    m_gl->glBufferData(GL_ARRAY_BUFFER, rounded, zeros.data(), GL_DYNAMIC_DRAW);
    if (m_gl->glGetError()) {
        qCWarning(orvane) << op << "glBufferData failed, new vertex count:" << vertexCount;
        return fail();
    }
    GLint64 actual = 0;
    m_gl->glGetBufferParameteri64v(GL_ARRAY_BUFFER, GL_BUFFER_SIZE, &actual);
    const GLenum sizeError = m_gl->glGetError();
    if (sizeError || actual < rounded) {
        qCWarning(orvane) << op << "frame id buffer size verification failed, actual:" << actual
                          << "need:" << rounded << "error:" << sizeError;
        return fail();
    }
    m_gl->glBindBuffer(GL_COPY_READ_BUFFER, m_increGLBuffer.wholeFrameIdBuffer);
    if (const GLenum error = m_gl->glGetError())
        qCWarning(orvane) << op << "glError:" << error << "m_increGLBuffer.wholeFrameIdBuffer is"
                          << m_increGLBuffer.wholeFrameIdBuffer;
    GLint64 copySize = 0;
    m_gl->glGetBufferParameteri64v(GL_COPY_READ_BUFFER, GL_BUFFER_SIZE, &copySize);
    if (m_gl->glGetError() || copySize < 0 || copySize > rounded) {
        qCWarning(orvane) << op << "copySize is: " << copySize;
        return fail();
    }
    if (copySize > 0)
        m_gl->glCopyBufferSubData(GL_COPY_READ_BUFFER, GL_ARRAY_BUFFER, 0, 0, copySize);
    if (const GLenum error = m_gl->glGetError()) {
        qCWarning(orvane) << op << "glCopyBufferSubData failed:" << error
                          << "copySize is: " << copySize << "new vertex count:" << vertexCount;
        return fail();
    }
    m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    m_gl->glBindBuffer(GL_COPY_READ_BUFFER, 0);
    m_gl->glDeleteBuffers(1, &m_increGLBuffer.wholeFrameIdBuffer);
    m_increGLBuffer.wholeFrameIdBuffer = fresh;
    return true;
}

bool IncrePointGeometryApple::updateDrawablePointCapacity()
{
    const auto fail = [this](auto log) {
        if (!m_capacityFailLogged)
            log();
        m_capacityFailLogged = true;
        m_drawablePointCapacity = 0;
        return false;
    };
    if (!m_gl || !m_wholeDataBuf)
        return fail([&] {
            qCWarning(orvane) << "updateDrawablePointCapacity"
                              << "cannot refresh drawable point capacity"
                              << "glFunValid:" << (m_gl != nullptr)
                              << "wholeDataBufValid:" << (m_wholeDataBuf != nullptr)
                              << "wholeSize:" << m_wholeSize.load()
                              << "cachedCapacity:" << m_drawablePointCapacity;
        });
    struct Source {
        const char* name;
        GLuint id;
        int bytesPerVertex;
    };
    std::vector<Source> sources = {{"position", m_wholeDataBuf->getBuf(WDBI_Position), 12},
                                   {"normal", m_wholeDataBuf->getBuf(WDBI_Normal), 12}};
    if (m_hasColor)
        sources.push_back({"color", m_wholeDataBuf->getBuf(WDBI_Color), 12});
    sources.push_back({"state", m_wholeDataBuf->getBuf(WDBI_State), 1});
    if (!m_bRigidScan)
        sources.push_back({"frameId", m_increGLBuffer.wholeFrameIdBuffer, 4});
    uint64_t capacity = std::numeric_limits<uint64_t>::max();
    for (const Source& source : sources) {
        GLint64 bytes = 0;
        GLenum error = 0;
        if (source.id) {
            m_gl->glBindBuffer(GL_ARRAY_BUFFER, source.id);
            m_gl->glGetBufferParameteri64v(GL_ARRAY_BUFFER, GL_BUFFER_SIZE, &bytes);
            m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
            error = m_gl->glGetError();
        }
        if (!source.id || error || bytes < 0)
            return fail([&] {
                qCWarning(orvane) << "updateDrawablePointCapacity"
                                  << (source.id ? "buffer size query failed" : "buffer is invalid")
                                  << "buffer:" << source.name << "id:" << source.id
                                  << "bytes:" << bytes << "error:" << error
                                  << "wholeSize:" << m_wholeSize.load()
                                  << "cachedCapacity:" << m_drawablePointCapacity;
            });
        capacity =
            std::min<uint64_t>(capacity, static_cast<uint64_t>(bytes) / source.bytesPerVertex);
    }
    m_drawablePointCapacity = capacity;
    m_drawableCapacityDirty = false;
    m_capacityFailLogged = false;
    return true;
}

} // namespace Orvane
} // namespace Vorna
