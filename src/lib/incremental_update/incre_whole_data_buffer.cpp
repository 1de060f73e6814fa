#include "incre_whole_data_buffer.h"

#include "orvane_log.h"
#include "software_rasterizer.h"
#include "zeroed_pages.h"

#include <QOpenGLContext>
#include <cstring>
#include <limits>
#include <new>

namespace Vorna {
namespace Orvane {

namespace {

constexpr qint64 kUintMax = std::numeric_limits<uint>::max();
constexpr qint64 kUploadRunVertices = 134217728;
constexpr qint64 kReadPieceBytes = 1073741824;

constexpr GLenum kExternalVirtualMemoryBuffer = 0x9160; // GL_EXTERNAL_VIRTUAL_MEMORY_BUFFER_AMD

// Address space reserved for each attribute: the live cloud's limit of 240M points and a few
// growth steps beyond it.
constexpr qint64 kReservedVertices = 250000000;

qint64 roundUp4096(qint64 bytes)
{
    return (bytes + 4095) / 4096 * 4096;
}

// Software rasterisers keep buffers in host memory: there, storage of our own costs nothing in
// drawing. On a GPU it would be read across the bus, so it is used nowhere else.
bool bufferStorageIsHostMemory(QOpenGLFunc* fn)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!fn || !context || !context->hasExtension("GL_AMD_pinned_memory"))
        return false;
    return isSoftwareRasterizer(reinterpret_cast<const char*>(fn->glGetString(GL_RENDERER)));
}

} // namespace

IncrePtDataWholeBuffer::IncrePtDataWholeBuffer()
    : m_elementSizes{{WDBI_Position, 12}, {WDBI_Normal, 12}, {WDBI_Color, 12}, {WDBI_State, 1}}
{
}

IncrePtDataWholeBuffer::~IncrePtDataWholeBuffer() = default;

bool IncrePtDataWholeBuffer::init(bool hasColor, QOpenGLFunc* fn)
{
    if (m_isInited) {
        qCInfo(orvane) << "init"
                       << "Already initialized";
        return true;
    }
    if (!fn) {
        qCWarning(orvane) << "init"
                          << "glFun is null !!";
        return false;
    }
    m_glFn = fn;
    m_hasColor = hasColor;
    if (!initInner()) {
        qCWarning(orvane) << "init"
                          << "initInner failed !!";
        return false;
    }
    m_isInited = true;
    return true;
}

void IncrePtDataWholeBuffer::release()
{
    if (!m_isInited) {
        qCInfo(orvane) << "release"
                       << "Already released";
        return;
    }
    releaseInner();
    m_isInited = false;
}

int IncrePtDataWholeBuffer::getBufElementSize(int bufIndex) const
{
    auto it = m_elementSizes.find(bufIndex);
    return it == m_elementSizes.end() ? -1 : it->second;
}

IncrePtCommonWholeBuffer::IncrePtCommonWholeBuffer() = default;

IncrePtCommonWholeBuffer::~IncrePtCommonWholeBuffer() = default;

bool IncrePtCommonWholeBuffer::initInner()
{
    m_adoptHostMemory = bufferStorageIsHostMemory(m_glFn);
    return createAllBuf(m_initVertNum);
}

void IncrePtCommonWholeBuffer::releaseInner()
{
    delAllBuf();
}

qint64 IncrePtCommonWholeBuffer::bufferBytes(GLuint buffer)
{
    GLint64 bytes = 0;
    m_glFn->glBindBuffer(GL_ARRAY_BUFFER, buffer);
    m_glFn->glGetBufferParameteri64v(GL_ARRAY_BUFFER, GL_BUFFER_SIZE, &bytes);
    m_glFn->glBindBuffer(GL_ARRAY_BUFFER, 0);
    return bytes;
}

bool IncrePtCommonWholeBuffer::specifyStorage(int index, GLuint buffer, qint64 bytes)
{
    m_adopted.erase(buffer);
    if (m_adoptHostMemory) {
        Adopted adopted;
        const ZeroedPages* reserved =
            index >= 0 && index < WDBI_AttribBufNum ? m_reserved[index].get() : nullptr;
        if (reserved && static_cast<size_t>(bytes) <= reserved->size()) {
            adopted.data = reserved->data();
        } else {
            adopted.own = std::make_unique<ZeroedPages>(static_cast<size_t>(bytes));
            adopted.data = adopted.own->data();
        }
        if (adopted.data) {
            m_glFn->glBindBuffer(kExternalVirtualMemoryBuffer, buffer);
            m_glFn->glBufferData(kExternalVirtualMemoryBuffer, static_cast<GLsizeiptr>(bytes),
                                 adopted.data, GL_DYNAMIC_DRAW);
            m_glFn->glBindBuffer(kExternalVirtualMemoryBuffer, 0);
            m_glFn->glBindBuffer(GL_ARRAY_BUFFER, buffer);
            if (m_glFn->glGetError() == GL_NO_ERROR) {
                m_adopted[buffer] = std::move(adopted);
                return true;
            }
        }
        // Refused: ordinary storage below.
    }
    m_glFn->glBindBuffer(GL_ARRAY_BUFFER, buffer);
    m_glFn->glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(bytes), nullptr, GL_DYNAMIC_DRAW);
    return false;
}

bool IncrePtCommonWholeBuffer::shareStorage(GLuint a, GLuint b) const
{
    const auto first = m_adopted.find(a);
    const auto second = m_adopted.find(b);
    return first != m_adopted.end() && second != m_adopted.end() &&
           first->second.data == second->second.data;
}

void IncrePtCommonWholeBuffer::deleteBuffer(GLuint& buffer)
{
    if (!buffer)
        return;
    m_glFn->glDeleteBuffers(1, &buffer);
    // The rasteriser copies or shades vertices within the call that reads them, so no frame
    // still reads this memory once the buffer is gone.
    m_adopted.erase(buffer);
    buffer = 0;
}

bool IncrePtCommonWholeBuffer::allocateZeroed(int index, GLuint buffer, qint64 bytes)
{
    const qint64 rounded = roundUp4096(bytes);
    if (specifyStorage(index, buffer, rounded))
        return true;
    // A refused allocation leaves its error for the caller to report.
    GLint64 actual = 0;
    m_glFn->glGetBufferParameteri64v(GL_ARRAY_BUFFER, GL_BUFFER_SIZE, &actual);
    if (actual < rounded)
        return true;
    // Never-written points must read as zero. Cleared in place: a host array of zeros would
    // touch every page twice more, which for a large cloud costs more than drawing it.
    void* target = m_glFn->glMapBufferRange(GL_ARRAY_BUFFER, 0, static_cast<GLsizeiptr>(rounded),
                                            GL_MAP_WRITE_BIT | GL_MAP_INVALIDATE_BUFFER_BIT);
    if (!target)
        return false;
    std::memset(target, 0, static_cast<size_t>(rounded));
    return m_glFn->glUnmapBuffer(GL_ARRAY_BUFFER) == GL_TRUE;
}

bool IncrePtCommonWholeBuffer::createAllBuf(GLsizeiptr vertNum)
{
    if (!m_buffArr.empty()) {
        qCWarning(orvane) << "createAllBuf"
                          << "Failed, m_buffArr already created !!";
        return false;
    }
    m_buffArr.assign(WDBI_AttribBufNum, 0);
    for (int index = 0; index < WDBI_AttribBufNum; ++index) {
        if (index == WDBI_Color && !m_hasColor)
            continue;
        if (m_adoptHostMemory) {
            m_reserved[index] = std::make_unique<ZeroedPages>(
                static_cast<size_t>(roundUp4096(kReservedVertices * getBufElementSize(index))));
            // Refused: each buffer gets pages of its own, and growing copies.
            if (!m_reserved[index]->data())
                m_reserved[index].reset();
        }
        m_glFn->glGenBuffers(1, &m_buffArr[index]);
        if (!allocateZeroed(index, m_buffArr[index],
                            static_cast<qint64>(vertNum) * getBufElementSize(index))) {
            qCWarning(orvane) << "createAllBuf"
                              << "allocation failed, vertNum:" << vertNum;
            m_glFn->glBindBuffer(GL_ARRAY_BUFFER, 0);
            delAllBuf();
            return false;
        }
    }
    m_glFn->glBindBuffer(GL_ARRAY_BUFFER, 0);
    return true;
}

void IncrePtCommonWholeBuffer::delAllBuf()
{
    for (GLuint& id : m_buffArr)
        deleteBuffer(id);
    m_buffArr.clear();
    for (auto& reserved : m_reserved)
        reserved.reset();
}

GLuint IncrePtCommonWholeBuffer::getBuf(int bufIndex)
{
    if (!m_isInited) {
        qCWarning(orvane) << "getBuf"
                          << "Failed, not initialized !!";
        return 0;
    }
    if (m_buffArr.size() != WDBI_AttribBufNum) {
        // The normal answer while the cloud is parked.
        qCInfo(orvane) << "getBuf"
                       << "m_buffArr.size() != WDBI_AttribBufNum, return 0";
        return 0;
    }
    if (bufIndex < 0 || bufIndex >= WDBI_AttribBufNum) {
        qCWarning(orvane) << "getBuf"
                          << "Failed, bufIndex < 0 || bufIndex >= WDBI_AttribBufNum, bufIndex is "
                          << bufIndex;
        return 0;
    }
    return m_buffArr[bufIndex];
}

qint64 IncrePtCommonWholeBuffer::capacity()
{
    if (m_buffArr.size() != WDBI_AttribBufNum || !m_buffArr[WDBI_Position])
        return 0;
    return bufferBytes(m_buffArr[WDBI_Position]) / 12;
}

ResizeResult IncrePtCommonWholeBuffer::autoResizeByVertNum(bool increaseUpdate, uint wholeSize,
                                                           uint patchSize)
{
    if (!m_isInited) {
        qCWarning(orvane) << "autoResizeByVertNum"
                          << "Failed, not initialized !!";
        return RR_Failed;
    }
    if (m_buffArr.size() != WDBI_AttribBufNum) {
        qCWarning(orvane) << "autoResizeByVertNum"
                          << "Failed, m_buffArr.size() != WDBI_AttribBufNum !!";
        return RR_Failed;
    }
    qint64 required = wholeSize;
    if (increaseUpdate) {
        if (static_cast<qint64>(patchSize) > kUintMax - required) {
            qCWarning(orvane) << "autoResizeByVertNum"
                              << "vertex count overflow, whole:" << wholeSize
                              << " patch:" << patchSize;
            return RR_Failed;
        }
        required += patchSize;
    }
    const qint64 currentBytes = bufferBytes(m_buffArr[WDBI_Position]);
    if (currentBytes < 0) {
        qCWarning(orvane) << "autoResizeByVertNum"
                          << "invalid current buffer size:" << currentBytes;
        return RR_Failed;
    }
    const qint64 current = currentBytes / 12;
    // Strict: a buffer that exactly fits still grows, so a patch always has room.
    if (current > required)
        return RR_NoChange;

    const qint64 step = increaseUpdate ? m_expandVertNum : 20000;
    if (required > kUintMax - step) {
        qCWarning(orvane) << "autoResizeByVertNum"
                          << "expanded vertex count overflow, required:" << required;
        return RR_Failed;
    }
    const qint64 newVertexCount = std::max(current, required) + step;
    if (newVertexCount > kUintMax) {
        qCWarning(orvane) << "autoResizeByVertNum"
                          << "expanded vertex count exceeds uint:" << newVertexCount;
        return RR_Failed;
    }

    // All attributes grow into temporaries first; the old buffers go only when all succeeded.
    GLuint temporaries[WDBI_AttribBufNum] = {0, 0, 0, 0};
    const auto fail = [&]() {
        m_glFn->glBindBuffer(GL_ARRAY_BUFFER, 0);
        m_glFn->glBindBuffer(GL_COPY_READ_BUFFER, 0);
        for (GLuint& id : temporaries)
            deleteBuffer(id);
        return RR_Failed;
    };
    for (int index = 0; index < WDBI_AttribBufNum; ++index) {
        const GLuint old = getBuf(index);
        if (!old)
            continue;
        if (const GLenum pending = m_glFn->glGetError())
            qCWarning(orvane) << "autoResizeByVertNum"
                              << "=== before glGenBuffers: " << pending;
        const qint64 bytes = newVertexCount * getBufElementSize(index);
        if (bytes > std::numeric_limits<GLsizeiptr>::max()) {
            qCWarning(orvane) << "autoResizeByVertNum"
                              << "buffer size exceeds GLsizeiptr, index:" << index
                              << "bytes:" << bytes;
            return fail();
        }
        m_glFn->glGenBuffers(1, &temporaries[index]);
        if (!temporaries[index]) {
            qCWarning(orvane) << "autoResizeByVertNum"
                              << "glGenBuffers failed, index:" << index;
            return fail();
        }
        const qint64 rounded = roundUp4096(bytes);
        if (!allocateZeroed(index, temporaries[index], bytes)) {
            qCWarning(orvane) << "autoResizeByVertNum"
                              << "temporary buffer initialization allocation failed, new vertex "
                                 "count:"
                              << newVertexCount;
            return fail();
        }
        if (const GLenum error = m_glFn->glGetError()) {
            qCWarning(orvane) << "autoResizeByVertNum"
                              << "=== glBufferData failed, byte:" << rounded
                              << ", newVertexCount is:" << newVertexCount << error;
            return fail();
        }
        GLint64 actual = 0;
        m_glFn->glGetBufferParameteri64v(GL_ARRAY_BUFFER, GL_BUFFER_SIZE, &actual);
        const GLenum sizeError = m_glFn->glGetError();
        if (sizeError || actual < rounded) {
            qCWarning(orvane) << "autoResizeByVertNum"
                              << "buffer size verification failed, index:" << index
                              << "actual:" << actual << "need:" << rounded << "error:" << sizeError;
            return fail();
        }
        qCInfo(orvane) << "autoResizeByVertNum"
                       << "=== glBufferData succeed, tempDataBuffer byte: " << actual
                       << ", need byte: " << rounded << ", newVertexCount is:" << newVertexCount
                       << ", error:" << sizeError;
        // A longer view of the same pages holds the points already.
        if (shareStorage(temporaries[index], old)) {
            m_glFn->glBindBuffer(GL_ARRAY_BUFFER, 0);
            continue;
        }
        m_glFn->glBindBuffer(GL_COPY_READ_BUFFER, old);
        GLint64 copySize = 0;
        m_glFn->glGetBufferParameteri64v(GL_COPY_READ_BUFFER, GL_BUFFER_SIZE, &copySize);
        if (copySize < 0 || copySize > rounded) {
            qCWarning(orvane) << "autoResizeByVertNum"
                              << "invalid copy size, index:" << index << "copy:" << copySize
                              << "target:" << rounded;
            return fail();
        }
        m_glFn->glCopyBufferSubData(GL_COPY_READ_BUFFER, GL_ARRAY_BUFFER, 0, 0,
                                    static_cast<GLsizeiptr>(copySize));
        if (const GLenum error = m_glFn->glGetError()) {
            qCWarning(orvane) << "autoResizeByVertNum"
                              << "=== glCopyBufferSubData failed, error:" << error;
            return fail();
        }
        m_glFn->glBindBuffer(GL_ARRAY_BUFFER, 0);
        m_glFn->glBindBuffer(GL_COPY_READ_BUFFER, 0);
    }
    for (int index = 0; index < WDBI_AttribBufNum; ++index) {
        if (!temporaries[index])
            continue;
        deleteBuffer(m_buffArr[index]);
        m_buffArr[index] = temporaries[index];
        temporaries[index] = 0;
    }
    return RR_Resized;
}

bool IncrePtCommonWholeBuffer::delBufAndRecordSize()
{
    if (m_buffArr.empty()) {
        qCWarning(orvane) << "delBufAndRecordSize"
                          << "m_buffArr is already empty !!";
        return false;
    }
    m_preBufSize = bufferBytes(m_buffArr[WDBI_Position]) / 12;
    delAllBuf();
    return true;
}

bool IncrePtCommonWholeBuffer::restorePreBuf(Vec3ArrayRef vertArr, Vec3ArrayRef normArr,
                                             Vec3ArrayRef clrArr, ByteArrayRef stateArr)
{
    const char* op = "restorePreBuf";
    if (m_preBufSize == 0) {
        qCWarning(orvane) << op << "Failed, m_preBufSize == 0 !!";
        return false;
    }
    if (!vertArr) {
        qCWarning(orvane) << op << "Failed, vertArr == nullptr !!";
        return false;
    }
    if (!normArr) {
        qCWarning(orvane) << op << "Failed, normArr == nullptr !!";
        return false;
    }
    if (!stateArr) {
        qCWarning(orvane) << op << "Failed, stateArr == nullptr !!";
        return false;
    }
    const qint64 count = vertArr->size();
    if (vertArr->empty() || normArr->empty() || stateArr->empty() ||
        static_cast<qint64>(normArr->size()) != count ||
        static_cast<qint64>(stateArr->size()) != count) {
        qCWarning(orvane) << op << "Invalid position or normal or state array !!";
        return false;
    }
    if (clrArr && static_cast<qint64>(clrArr->size()) != count) {
        qCWarning(orvane) << op << "Invalid color array !!";
        return false;
    }
    if (!clrArr && m_hasColor) {
        qCWarning(orvane) << op << "Invalid colour array 1 !!";
        return false;
    }
    if (m_preBufSize < count) {
        qCWarning(orvane) << op << "Failed, m_preBufSize < needWriteEleNum !!";
        return false;
    }
    if (!createAllBuf(static_cast<GLsizeiptr>(m_preBufSize))) {
        qCWarning(orvane) << op << "createAllBuf failed !!";
        return false;
    }
    const void* host[WDBI_AttribBufNum] = {vertArr->getDataPointer(), normArr->getDataPointer(),
                                           clrArr ? clrArr->getDataPointer() : nullptr,
                                           stateArr->getDataPointer()};
    for (qint64 first = 0; first < count; first += kUploadRunVertices) {
        const qint64 run = std::min(kUploadRunVertices, count - first);
        for (int index = 0; index < WDBI_AttribBufNum; ++index) {
            if (!host[index] || !m_buffArr[index])
                continue;
            const qint64 size = getBufElementSize(index);
            m_glFn->glBindBuffer(GL_ARRAY_BUFFER, m_buffArr[index]);
            m_glFn->glBufferSubData(GL_ARRAY_BUFFER, static_cast<GLintptr>(first * size),
                                    static_cast<GLsizeiptr>(run * size),
                                    static_cast<const char*>(host[index]) + first * size);
        }
    }
    m_glFn->glBindBuffer(GL_ARRAY_BUFFER, 0);
    return true;
}

bool IncrePtCommonWholeBuffer::wholeUpdate(Vec3ArrayRef vertArr, Vec3ArrayRef normArr,
                                           Vec3ArrayRef clrArr, ByteArrayRef stateArr)
{
    const char* op = "wholeUpdate";
    if (m_buffArr.empty()) {
        qCWarning(orvane) << op << "Failed, m_buffArr is empty !!";
        return false;
    }
    if (!vertArr || !normArr || vertArr->empty() || normArr->size() < vertArr->size()) {
        qCWarning(orvane) << op << "Failed, invalid position or normal array !!";
        return false;
    }
    const qint64 count = vertArr->size();
    if (m_hasColor && clrArr && static_cast<qint64>(clrArr->size()) < count) {
        qCWarning(orvane) << op << "Failed, invalid color array !!";
        return false;
    }
    if (stateArr && static_cast<qint64>(stateArr->size()) < count) {
        qCWarning(orvane) << op << "Failed, invalid state array !!";
        return false;
    }
    const void* host[WDBI_AttribBufNum] = {vertArr->getDataPointer(), normArr->getDataPointer(),
                                           clrArr ? clrArr->getDataPointer() : nullptr,
                                           stateArr ? stateArr->getDataPointer() : nullptr};
    for (int index = 0; index < WDBI_AttribBufNum; ++index) {
        const qint64 size = getBufElementSize(index);
        const qint64 need = count * size;
        const GLuint buffer = m_buffArr[index];
        if (!buffer) {
            qCInfo(orvane) << op << "dataBuf is invalid, bufIndex:" << index;
            continue;
        }
        if (bufferBytes(buffer) < need)
            specifyStorage(index, buffer, need + 500000 * size);
        if (!host[index]) {
            qCInfo(orvane) << op << "dataPtr is null, bufIndex:" << index;
            continue;
        }
        m_glFn->glBindBuffer(GL_ARRAY_BUFFER, buffer);
        m_glFn->glBufferSubData(GL_ARRAY_BUFFER, 0, static_cast<GLsizeiptr>(need), host[index]);
    }
    m_glFn->glBindBuffer(GL_ARRAY_BUFFER, 0);
    return true;
}

bool IncrePtCommonWholeBuffer::fetchAttrib(int bufIndex, int fetchVertNum, char* dst)
{
    const char* op = "fetchAttrib";
    if (!m_isInited) {
        qCWarning(orvane) << op << "Failed, not initialized !!";
        return false;
    }
    if (bufIndex < 0 || bufIndex >= WDBI_AttribBufNum) {
        qCWarning(orvane) << op << "Invalid bufIndex:" << bufIndex;
        return false;
    }
    if (fetchVertNum <= 0) {
        qCWarning(orvane) << op << "Failed, fetchVertNum <= 0, fetchVertNum:" << fetchVertNum;
        return false;
    }
    const GLuint buffer = m_buffArr.size() == WDBI_AttribBufNum ? m_buffArr[bufIndex] : 0;
    // A cloud without colour has no colour buffer: no message.
    if (!buffer || !dst)
        return false;
    const qint64 required = static_cast<qint64>(fetchVertNum) * getBufElementSize(bufIndex);
    const qint64 available = bufferBytes(buffer);
    if (available < required) {
        qCWarning(orvane) << op << "buffer is smaller than requested read size"
                          << "bufIndex:" << bufIndex << "bufferBytes:" << available
                          << "requiredBytes:" << required << "fetchVertNum:" << fetchVertNum;
        return false;
    }
    m_glFn->glBindBuffer(GL_ARRAY_BUFFER, buffer);
    for (qint64 offset = 0; offset < required; offset += kReadPieceBytes) {
        const qint64 size = std::min(kReadPieceBytes, required - offset);
        m_glFn->glGetBufferSubData(GL_ARRAY_BUFFER, static_cast<GLintptr>(offset),
                                   static_cast<GLsizeiptr>(size), dst + offset);
        if (const GLenum error = m_glFn->glGetError()) {
            qCWarning(orvane) << op << "glGetBufferSubData failed"
                              << "bufIndex:" << bufIndex << "error:" << error << "offset:" << offset
                              << "size:" << size;
            m_glFn->glBindBuffer(GL_ARRAY_BUFFER, 0);
            return false;
        }
    }
    m_glFn->glBindBuffer(GL_ARRAY_BUFFER, 0);
    return true;
}

void* IncrePtCommonWholeBuffer::getBufAddressIOS(QOpenGLFunc* fn, unsigned bufferId)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    using MapRange = void*(QOPENGLF_APIENTRYP)(GLenum, GLintptr, GLsizeiptr, GLbitfield);
    auto map =
        context ? reinterpret_cast<MapRange>(context->getProcAddress("glMapBufferRange")) : nullptr;
    auto unmap = context ? context->getProcAddress("glUnmapBuffer") : nullptr;
    if (!fn || !map || !unmap) {
        qCWarning(orvane) << "getBufAddressIOS"
                          << "glMapBufferRange function is invalid";
        return nullptr;
    }
    fn->glBindBuffer(GL_ARRAY_BUFFER, bufferId);
    GLint size = 0;
    fn->glGetBufferParameteriv(GL_ARRAY_BUFFER, GL_BUFFER_SIZE, &size);
    qCInfo(orvane) << "getBufAddressIOS"
                   << "========== bufferId : " << bufferId << " glBufSize is :" << size;
    void* address = map(GL_ARRAY_BUFFER, 0, size, GL_MAP_WRITE_BIT);
    qCInfo(orvane) << "getBufAddressIOS"
                   << "========== ios glMapBufferRange is : " << reinterpret_cast<void*>(map)
                   << "========== ios glMapBufferRange glBufferAddress : " << address;
    return address;
}

void IncrePtCommonWholeBuffer::unmapBufferIOS(QOpenGLFunc* fn, unsigned bufferId)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    using Unmap = GLboolean(QOPENGLF_APIENTRYP)(GLenum);
    auto unmap =
        context ? reinterpret_cast<Unmap>(context->getProcAddress("glUnmapBuffer")) : nullptr;
    if (!fn || !unmap || !context->getProcAddress("glMapBufferRange")) {
        qCWarning(orvane) << "unmapBufferIOS"
                          << "glMapBufferRange function is invalid";
        return;
    }
    fn->glBindBuffer(GL_ARRAY_BUFFER, bufferId);
    unmap(GL_ARRAY_BUFFER);
    fn->glBindBuffer(GL_ARRAY_BUFFER, 0);
}

} // namespace Orvane
} // namespace Vorna
