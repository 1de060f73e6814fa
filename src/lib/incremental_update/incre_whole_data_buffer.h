#pragma once

#include <QOpenGLFunctions_4_1_Core>
#include <map>
#include <memory>
#include <osg/Array>
#include <vector>

namespace Vorna {
namespace Orvane {

using QOpenGLFunc = QOpenGLFunctions_4_1_Core;

// One patch of scan output, handed from a producer thread to the render thread.
struct IncrePatchData {
    osg::ref_ptr<osg::Vec3Array> vertArr;
    osg::ref_ptr<osg::Vec3Array> normArr;
    osg::ref_ptr<osg::Vec3Array> clrArr;   // may be null
    osg::ref_ptr<osg::ByteArray> stateArr; // may be null; below 0 deleted
    // Vertex number in the whole cloud for each point; negative: no target.
    std::vector<int> patchIdData;
    // Frame whose matrix moves each point; non-rigid scans only.
    std::vector<int> patchFrameIdData;
};

// One mapped view of the whole cloud.
struct WholePointBufferData {
    float* position = nullptr;
    float* normal = nullptr;
    float* color = nullptr;
    signed char* state = nullptr;
    int* frameId = nullptr;
    qint64 positionBytes = 0;
    qint64 normalBytes = 0;
    qint64 colorBytes = 0;
    qint64 stateBytes = 0;
    qint64 frameIdBytes = 0;
    bool hasColor = false;
    bool hasState = false;
    bool hasFrameId = false;
};

enum WholeDataBufIndex : int {
    WDBI_Position = 0,
    WDBI_Normal = 1,
    WDBI_Color = 2,
    WDBI_State = 3,
    WDBI_AttribBufNum = 4,
};

enum ResizeResult : int {
    RR_NoChange = 0,
    // Buffers were replaced: vertex array objects that refer to them must be rebuilt.
    RR_Resized = 1,
    // The old buffers are intact.
    RR_Failed = 2,
};

// Owner of the whole cloud's attribute buffers. Runs on the thread that holds the GL context
// current; locks nothing.
class IncrePtDataWholeBuffer
{
public:
    using Vec3ArrayRef = osg::ref_ptr<osg::Vec3Array>;
    using ByteArrayRef = osg::ref_ptr<osg::ByteArray>;

    IncrePtDataWholeBuffer();
    virtual ~IncrePtDataWholeBuffer();

    bool init(bool hasColor, QOpenGLFunc* fn);
    void release();
    void setHasColor(bool hasColor) { m_hasColor = hasColor; }
    bool hasColor() const { return m_hasColor; }
    bool isInited() const { return m_isInited; }
    // Bytes per vertex of a buffer; -1 for an unknown index.
    int getBufElementSize(int bufIndex) const;
    QOpenGLFunc* glFn() const { return m_glFn; }
    GLenum defTarget() const { return GL_ARRAY_BUFFER; }

    virtual GLuint getBuf(int bufIndex) = 0;
    virtual ResizeResult autoResizeByVertNum(bool increaseUpdate, uint wholeSize,
                                             uint patchSize) = 0;
    virtual bool fetchAttrib(int bufIndex, int fetchVertNum, char* dst) = 0;
    // Parks the cloud: frees the buffers and remembers their capacity.
    virtual bool delBufAndRecordSize() = 0;
    // Recreates parked buffers at their former capacity and loads the host arrays.
    virtual bool restorePreBuf(Vec3ArrayRef vertArr, Vec3ArrayRef normArr, Vec3ArrayRef clrArr,
                               ByteArrayRef stateArr) = 0;
    virtual bool wholeUpdate(Vec3ArrayRef vertArr, Vec3ArrayRef normArr, Vec3ArrayRef clrArr,
                             ByteArrayRef stateArr) = 0;
    virtual bool initInner() = 0;
    virtual void releaseInner() = 0;

protected:
    bool m_isInited = false;
    bool m_hasColor = false;
    QOpenGLFunc* m_glFn = nullptr;
    std::map<int, int> m_elementSizes;
};

// Four separate buffers, grown additively and all-or-nothing.
class ZeroedPages;

class IncrePtCommonWholeBuffer : public IncrePtDataWholeBuffer
{
public:
    IncrePtCommonWholeBuffer();
    ~IncrePtCommonWholeBuffer() override;
    GLuint getBuf(int bufIndex) override;
    ResizeResult autoResizeByVertNum(bool increaseUpdate, uint wholeSize, uint patchSize) override;
    bool fetchAttrib(int bufIndex, int fetchVertNum, char* dst) override;
    bool delBufAndRecordSize() override;
    bool restorePreBuf(Vec3ArrayRef vertArr, Vec3ArrayRef normArr, Vec3ArrayRef clrArr,
                       ByteArrayRef stateArr) override;
    bool wholeUpdate(Vec3ArrayRef vertArr, Vec3ArrayRef normArr, Vec3ArrayRef clrArr,
                     ByteArrayRef stateArr) override;
    bool initInner() override;
    void releaseInner() override;

    // Capacity in vertices, from the size GL reports for the position buffer; 0 without one.
    qint64 capacity();
    qint64 parkedCapacity() const { return m_preBufSize; }

    // Maps and unmaps a whole buffer for writing; unused by the library itself.
    static void* getBufAddressIOS(QOpenGLFunc* fn, unsigned bufferId);
    static void unmapBufferIOS(QOpenGLFunc* fn, unsigned bufferId);

protected:
    // A buffer of `bytes` rounded up to 4096 for attribute `index`, zero wherever the buffer it
    // replaces held nothing: unwritten vertices must read as zero. Virtual so that tests can
    // make one allocation fail, as a full GPU would.
    virtual bool allocateZeroed(int index, GLuint buffer, qint64 bytes);

private:
    bool createAllBuf(GLsizeiptr vertNum);
    void delAllBuf();
    qint64 bufferBytes(GLuint buffer);
    // New storage of `bytes` for the bound GL_ARRAY_BUFFER `buffer` of attribute `index`;
    // returns whether it is host memory of ours, zero past what the attribute's earlier buffers
    // held. Errors are left for the caller.
    bool specifyStorage(int index, GLuint buffer, qint64 bytes);
    // Whether two buffers are views of the same host memory, so that one holds the other's data.
    bool shareStorage(GLuint a, GLuint b) const;
    // Deletes a buffer and frees the host memory it had adopted, if any.
    void deleteBuffer(GLuint& buffer);

    std::vector<GLuint> m_buffArr;
    qint64 m_preBufSize = 0;
    int m_initVertNum = 5000000;
    int m_expandVertNum = 2000000;
    // Where buffer storage is host memory anyway (a software rasteriser with
    // GL_AMD_pinned_memory), buffers adopt zeroed pages of our own. Each attribute reserves
    // address space for the largest cloud up front, so that a grown buffer is a longer view of
    // the same pages and growing copies nothing; pages are only used once written.
    struct Adopted {
        const void* data = nullptr;
        std::unique_ptr<ZeroedPages> own; // null for a view of the reservation
    };
    bool m_adoptHostMemory = false;
    std::map<GLuint, Adopted> m_adopted;
    std::unique_ptr<ZeroedPages> m_reserved[WDBI_AttribBufNum];
};

} // namespace Orvane
} // namespace Vorna
