// Writing queued patches into the mapped whole-cloud buffers, and the frame matrices into their
// texture.
#include "incre_point_geomtry_apple.h"

#include "canvas3d_shadermanager.h"
#include "gl_shader.h"
#include "orvane_log.h"
#include "scene_flags.h"

#include <QOpenGLContext>
#include <QString>
#include <algorithm>
#include <cstddef>
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

const char* nullOr(const void* p)
{
    return p ? "not null" : "null";
}

} // namespace

void IncrePointGeometryApple::updateIncreasePatchs()
{
    // Only what is queued now: producers that keep pushing must not hold the frame forever.
    const size_t count = queuedPatchCount();
    if (!count)
        return;
    if (m_isIncreaseUpdate) {
        updatePatches(count);
    } else {
        for (size_t left = count; left > 0 && queuedPatchCount(); --left)
            updatePatchToWhole();
    }
    m_patchVertexSize = 0;
}

qint64 IncrePointGeometryApple::getBufferByteSize(GLuint id)
{
    if (!m_gl)
        return 0;
    GLint64 bytes = 0;
    m_gl->glBindBuffer(GL_ARRAY_BUFFER, id);
    m_gl->glGetBufferParameteri64v(GL_ARRAY_BUFFER, GL_BUFFER_SIZE, &bytes);
    m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    return bytes < 0 ? 0 : bytes;
}

void* IncrePointGeometryApple::getBufAddress(GLuint id)
{
    m_gl->glBindBuffer(GL_ARRAY_BUFFER, id);
    GLint64 bytes = 0;
    m_gl->glGetBufferParameteri64v(GL_ARRAY_BUFFER, GL_BUFFER_SIZE, &bytes);
    // Write and explicit flush; the plain unmap that follows publishes the writes.
    return m_gl->glMapBufferRange(GL_ARRAY_BUFFER, 0, bytes, 18);
}

bool IncrePointGeometryApple::isPatchUsable(const IncrePatchData& patch) const
{
    const bool hasColor = patch.clrArr && m_hasColor;
    if (!patch.vertArr || !patch.normArr) {
        qCWarning(orvane) << "updatePatch"
                          << "Unexpected patchData, vertArr:" << nullOr(patch.vertArr.get())
                          << ", normArr:" << nullOr(patch.normArr.get())
                          << ", clrArr:" << nullOr(patch.clrArr.get());
        return false;
    }
    const size_t n = patch.vertArr->size();
    // A colour array of another count would be read past its end by the scatter.
    if (patch.normArr->size() != n || patch.patchIdData.size() != n ||
        (patch.stateArr && patch.stateArr->size() != n) ||
        (!m_bRigidScan && patch.patchFrameIdData.size() != n) ||
        (hasColor && patch.clrArr->size() != n)) {
        qCWarning(orvane) << "updatePatch"
                          << "Unexpected patchData size, vertex:" << n
                          << ", normal:" << patch.normArr->size()
                          << ", patchId:" << patch.patchIdData.size()
                          << ", state:" << (patch.stateArr ? patch.stateArr->size() : 0u)
                          << ", frameId:" << patch.patchFrameIdData.size()
                          << ", color:" << (patch.clrArr ? patch.clrArr->size() : 0u);
        return false;
    }
    if (n == 0) {
        qCWarning(orvane) << "updatePatch"
                          << "Unexpected vertPathDataSize:" << n;
        return false;
    }
    return true;
}

void IncrePointGeometryApple::updatePatches(size_t count)
{
    if (!m_gl)
        return;
    const std::vector<std::shared_ptr<IncrePatchData>> batch = frontPatches(count);
    // The patches leave the queue whatever becomes of them.
    struct Pop {
        IncrePointGeometryApple* self;
        size_t count;
        ~Pop() { self->popPatches(count); }
    } pop{this, batch.size()};

    std::vector<const IncrePatchData*> usable;
    bool anyColor = false;
    for (const std::shared_ptr<IncrePatchData>& patch : batch) {
        if (!isPatchUsable(*patch))
            continue;
        usable.push_back(patch.get());
        anyColor = anyColor || (patch->clrArr && m_hasColor);
    }
    if (usable.empty())
        return;
    std::vector<GLuint> mapped;
    const auto map = [&](GLuint id) -> void* {
        if (!id)
            return nullptr;
        void* address = getBufAddress(id);
        if (address)
            mapped.push_back(id);
        return address;
    };
    WholePointBufferData data;
    data.position = static_cast<float*>(map(m_wholeDataBuf->getBuf(WDBI_Position)));
    Q_ASSERT_X(data.position, "updatePatch", "glPosBufAddress");
    data.normal = static_cast<float*>(map(m_wholeDataBuf->getBuf(WDBI_Normal)));
    if (anyColor) {
        const GLuint color = m_wholeDataBuf->getBuf(WDBI_Color);
        if (!color)
            qCWarning(orvane) << "updatePatch"
                              << "Invalid colorWholeDataBuf:" << color;
        data.color = static_cast<float*>(map(color));
    }
    const GLuint state = m_wholeDataBuf->getBuf(WDBI_State);
    if (!state)
        qCWarning(orvane) << "updatePatch"
                          << "Invalid stateWholeDataBuf:" << state;
    data.state = static_cast<signed char*>(map(state));
    if (!m_bRigidScan) {
        if (!m_increGLBuffer.wholeFrameIdBuffer)
            qCWarning(orvane) << "updatePatch"
                              << "Invalid frameIdWholeDataBuf:"
                              << m_increGLBuffer.wholeFrameIdBuffer;
        data.frameId = static_cast<int*>(map(m_increGLBuffer.wholeFrameIdBuffer));
    }
    data.hasFrameId = !m_bRigidScan && data.frameId;
    if (data.position && data.normal)
        scatterPatches(usable, data);
    for (GLuint id : mapped) {
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, id);
        m_gl->glUnmapBuffer(GL_ARRAY_BUFFER);
    }
    m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void IncrePointGeometryApple::scatterPatches(const std::vector<const IncrePatchData*>& patches,
                                             const WholePointBufferData& mapped)
{
    const qint64 positionBytes = getBufferByteSize(m_wholeDataBuf->getBuf(WDBI_Position));
    const qint64 bufferVertexCount = positionBytes < 1 ? 0 : positionBytes / 12;
    // Each worker owns the ids on its side of one split for the whole batch and walks every
    // patch in queue order, so a vertex sent twice, in one patch or in two, keeps its last
    // value, as a single pass would give. One split per frame, not per patch: waking a second
    // core costs up to a millisecond here, as much as scattering a sixth of a 100k patch.
    // Where in the patch the last of each kind was, -1 for none: the last in patch order is
    // then the later of the two workers'.
    struct Tally {
        int invalid = 0, tooLarge = 0;
        std::ptrdiff_t lastInvalidAt = -1, lastTooLargeAt = -1;
    };
    const auto scatterPatch = [&](const IncrePatchData& patch, qint64 firstId, qint64 endId,
                                  Tally& tally) {
        WholePointBufferData data = mapped;
        data.hasColor = patch.clrArr && m_hasColor && data.color;
        data.hasState = static_cast<bool>(patch.stateArr);
        const std::vector<int>& ids = patch.patchIdData;
        const osg::Vec3Array& v = *patch.vertArr;
        const osg::Vec3Array& nrm = *patch.normArr;
        // One entry: fixed sizes, so the copies stay inline moves.
        const auto writeOne = [&](size_t i) {
            const qint64 vid = ids[i];
            std::memcpy(data.position + 3 * vid, v[i].ptr(), 12);
            std::memcpy(data.normal + 3 * vid, nrm[i].ptr(), 12);
            if (data.hasColor)
                std::memcpy(data.color + 3 * vid, (*patch.clrArr)[i].ptr(), 12);
            // A patch without states clears the states of what it touches.
            if (data.state)
                data.state[vid] = data.hasState ? (*patch.stateArr)[i] : 0;
            if (data.hasFrameId)
                data.frameId[vid] = patch.patchFrameIdData[i];
        };
        // Entries [i, i + count) of the patch, whose ids run consecutively from ids[i].
        const auto writeRun = [&](size_t i, size_t count) {
            const qint64 vid = ids[i];
            std::memcpy(data.position + 3 * vid, v[i].ptr(), 12 * count);
            std::memcpy(data.normal + 3 * vid, nrm[i].ptr(), 12 * count);
            if (data.hasColor)
                std::memcpy(data.color + 3 * vid, (*patch.clrArr)[i].ptr(), 12 * count);
            if (data.state) {
                if (data.hasState)
                    std::memcpy(data.state + vid, &(*patch.stateArr)[i], count);
                else
                    std::memset(data.state + vid, 0, count);
            }
            if (data.hasFrameId)
                std::memcpy(data.frameId + vid, &patch.patchFrameIdData[i], 4 * count);
        };
        const qint64 last = std::min(endId, bufferVertexCount);
        for (size_t i = 0; i < ids.size();) {
            const int vid = ids[i];
            if (vid < firstId || vid >= endId) {
                ++i;
                continue;
            }
            if (vid < 0) {
                ++tally.invalid;
                tally.lastInvalidAt = static_cast<std::ptrdiff_t>(i);
                ++i;
                continue;
            }
            if (vid >= bufferVertexCount) {
                ++tally.tooLarge;
                tally.lastTooLargeAt = static_cast<std::ptrdiff_t>(i);
                ++i;
                continue;
            }
            // A growing scan sends runs of new ids: one copy an array for the whole run.
            size_t j = i + 1;
            while (j < ids.size() && ids[j] == ids[j - 1] + 1 && ids[j] < last)
                ++j;
            if (j - i == 1)
                writeOne(i);
            else
                writeRun(i, j - i);
            i = j;
        }
    };
    const size_t count = patches.size();
    std::vector<Tally> low(count), high(count);
    const auto scatterAll = [&](qint64 firstId, qint64 endId, std::vector<Tally>& tallies) {
        for (size_t k = 0; k < count; ++k)
            scatterPatch(*patches[k], firstId, endId, tallies[k]);
    };
    constexpr qint64 kAll = std::numeric_limits<qint64>::max();
    size_t entries = 0;
    for (const IncrePatchData* patch : patches)
        entries += patch->patchIdData.size();
    // Below this a second thread costs more than it saves.
    constexpr size_t kParallelEntries = 16384;
    if (entries >= kParallelEntries && std::thread::hardware_concurrency() > 1) {
        int minId = std::numeric_limits<int>::max(), maxId = std::numeric_limits<int>::min();
        for (const IncrePatchData* patch : patches) {
            const auto [least, most] =
                std::minmax_element(patch->patchIdData.begin(), patch->patchIdData.end());
            minId = std::min(minId, *least);
            maxId = std::max(maxId, *most);
        }
        const qint64 split = (static_cast<qint64>(minId) + maxId) / 2 + 1;
        std::thread worker(scatterAll, split, kAll, std::ref(high));
        scatterAll(-kAll, split, low);
        worker.join();
    } else {
        scatterAll(-kAll, kAll, low);
    }
    for (size_t k = 0; k < count; ++k) {
        const std::vector<int>& ids = patches[k]->patchIdData;
        const auto idAt = [&](std::ptrdiff_t a, std::ptrdiff_t b) {
            const std::ptrdiff_t at = std::max(a, b);
            return at < 0 ? 0 : ids[static_cast<size_t>(at)];
        };
        const int invalid = low[k].invalid + high[k].invalid;
        const int lastInvalid = idAt(low[k].lastInvalidAt, high[k].lastInvalidAt);
        const int tooLarge = low[k].tooLarge + high[k].tooLarge;
        const int lastTooLarge = idAt(low[k].lastTooLargeAt, high[k].lastTooLargeAt);
        if (invalid || tooLarge)
            qCWarning(orvane) << "updatePatchToWholeBuffer"
                              << "patch contains invalid vertex ids"
                              << "invalidVid:" << invalid << "lastInvalidVid:" << lastInvalid
                              << "tooLargeVid:" << tooLarge << "lastTooLargeVid:" << lastTooLarge
                              << "bufferVertexCount:" << bufferVertexCount
                              << "patchVertexCount:" << ids.size();
    }
}

void IncrePointGeometryApple::updatePatchToWhole()
{
    std::shared_ptr<IncrePatchData> patch = frontPatch();
    if (!m_wholeDataBuf || !patch) {
        popPatch();
        return;
    }
    m_wholeDataBuf->wholeUpdate(patch->vertArr, patch->normArr, patch->clrArr, patch->stateArr);
    {
        QMutexLocker lock(&m_frameMutex);
        const size_t count = std::min(m_frameRts.size(), size_t(262144));
        std::memcpy(m_frameRtTexture.data, m_frameRts.data(), count * 64);
        qCInfo(orvane) << "updatePatchToWhole"
                       << "frameId size=" << patch->patchFrameIdData.size()
                       << "matrix size =" << m_frameRts.size();
    }
    if (!patch->patchFrameIdData.empty() && m_gl) {
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, m_increGLBuffer.wholeFrameIdBuffer);
        m_gl->glBufferData(GL_ARRAY_BUFFER,
                           static_cast<GLsizeiptr>(patch->patchFrameIdData.size() * 4),
                           patch->patchFrameIdData.data(), GL_DYNAMIC_DRAW);
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
        setVertexAttribute();
    }
    popPatch();
}

void IncrePointGeometryApple::updateFrameMatrixBuffer()
{
    QMutexLocker lock(&m_frameMutex);
    if (!m_gl || m_frameRts.empty())
        return;
    // The table of all frames always starts at frame 0.
    const size_t count = std::min(m_frameRts.size(), size_t(262144));
    std::memcpy(m_frameRtTexture.data, m_frameRts.data(), count * 64);
    osg::Texture::TextureObject* object =
        m_frameRtTexture.texture ? m_frameRtTexture.texture->getTextureObject(m_contextId)
                                 : nullptr;
    if (object && m_frameRtTexture.dirty && std::this_thread::get_id() == m_renderThreadId) {
        // OSG believes its own binding is still current: put back what we replace, or this
        // frame's draw samples no table at all.
        GLint unit = GL_TEXTURE0, bound = 0;
        m_gl->glGetIntegerv(GL_ACTIVE_TEXTURE, &unit);
        m_gl->glActiveTexture(GL_TEXTURE0);
        m_gl->glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
        m_gl->glBindTexture(GL_TEXTURE_2D, object->id());
        if (m_gl->glGetError())
            qCWarning(orvane) << "updateFrameMatrixBuffer"
                              << "glBindTexture failed";
        const osg::Image* image = m_frameRtTexture.image.get();
        m_gl->glTexImage2D(GL_TEXTURE_2D, 0, image->getInternalTextureFormat(), image->s(),
                           image->t(), 0, image->getPixelFormat(),
                           m_frameRtTexture.useFloat ? GL_FLOAT : GL_UNSIGNED_BYTE, image->data());
        m_gl->glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(bound));
        m_gl->glActiveTexture(static_cast<GLenum>(unit));
    } else if (!object && m_frameRtTexture.image) {
        // No texture of ours yet: OSG uploads the table when it first applies it.
        m_frameRtTexture.image->dirty();
    }
    m_frameRts.clear();
}

void IncrePointGeometryApple::unmapBuffer()
{
    if (!m_gl)
        m_gl = getGlFun();
    if (!m_gl)
        return;
    m_gl->glUnmapBuffer(GL_ARRAY_BUFFER);
    m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
}

} // namespace Orvane
} // namespace Vorna
