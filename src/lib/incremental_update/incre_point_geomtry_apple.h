#pragma once

#include "incre_base_geomtry_apple.h"
#include "incre_whole_data_buffer.h"

#include <QElapsedTimer>
#include <QMutex>
#include <QString>
#include <array>
#include <atomic>
#include <deque>
#include <memory>
#include <osg/Texture2D>
#include <thread>

namespace Vorna {
namespace Orvane {

class GLShader;

// The live scan cloud. Producer threads push patches and sizes at any time; the render thread
// scatters them by vertex id into the whole-cloud buffers and draws from those with one
// glDrawArrays. Paused, the cloud lives in ordinary scene-graph arrays and the GPU buffers are
// released.
class IncrePointGeometryApple : public BaseGeometryApple
{
public:
    static constexpr uint32_t kMaxPointCount = 240000000;

    struct CutPlaneInfo {
        bool enabled = false;
        float selectIndex = 1.0f;
        osg::Vec3 direction;
        osg::Vec3 center;
    };

    IncrePointGeometryApple(bool hasColor, bool bindEditPointProgram = true,
                            bool useBasicLighting = true);

    // Any thread.
    // Frees the cloud's GL buffers while their context is current (the viewer closing its
    // window); the destructor frees whatever is left only if a context is current then.
    void releaseGLObjects(osg::State* state = nullptr) const override;
    // Starts a scan as an application does: the scan kind (set first, so that a rigid scan
    // makes no frame-id buffer), GPU buffers, incremental updates on, and the cloud in a geode
    // under `parent`. Render thread. False when the buffers could not be begun.
    bool startScan(osg::Group* parent, bool rigid);

    void addIncreasePatchData(std::shared_ptr<IncrePatchData> patch);
    void setWholeSize(uint32_t size);
    void setPatchVertexSize(int size) { m_patchVertexSize = size; }
    void setFrameMatrix(const std::vector<std::array<float, 16>>& matrices);
    void markFrameRtsDirty(bool dirty) { m_frameRtTexture.dirty = dirty; }
    void setIsIncreaseUpdate(bool increase) { m_isIncreaseUpdate = increase; }
    void setIsRigidScan(bool rigid);
    void setHasState(bool hasState) { m_hasState = hasState; }
    void showColorSpectrum(bool show) { m_showColorSpectrum = show; }
    void openFrameDbgLogOpen(bool open) { m_frameDbgLog = open; }
    void setBoxValue(const osg::Vec3f& min, const osg::Vec3f& max);
    void setForbidenSparseBuffer(bool) {}
    // At most `points` points a frame while the view moves or patches stream in, spread evenly
    // over the whole cloud; once nothing has changed for a moment a full frame follows on its
    // own once `settleMs` have passed without a change. 0, the default, draws every point in
    // every frame. Any thread.
    void setPointBudget(uint32_t points, int settleMs = 250);
    uint32_t pointBudget() const { return m_pointBudget; }
    // Points the cloud's last frame drew.
    uint32_t drawnPointCount() const { return m_drawnPointCount; }

    // With a current GL context (render thread).
    void initDrawCall() override;
    bool beginOfIncreUpdate();
    bool endOfIncreUpdate();
    bool fetchAndUpdateAttrib(osg::ref_ptr<osg::Vec3Array>& vertArr,
                              osg::ref_ptr<osg::Vec3Array>& normArr,
                              osg::ref_ptr<osg::Vec3Array>& clrArr,
                              osg::ref_ptr<osg::ByteArray>& stateArr);
    void drawCall(osg::RenderInfo& renderInfo) override;
    // Logs why no bound of the cloud under `matrix` can be had. Nothing measures the GPU copy
    // yet, so it returns false in every case and leaves min and max as they were.
    bool calcMatBBox(const osg::Matrixf& matrix, osg::Vec3f& min, osg::Vec3f& max);

    bool isRunning() const { return m_isRunning; }
    bool isInited() const { return m_isInited; }
    uint32_t wholeSize() const { return m_wholeSize; }
    uint64_t drawablePointCapacity() const { return m_drawablePointCapacity; }
    std::shared_ptr<IncrePtDataWholeBuffer> wholeDataBuffer() const { return m_wholeDataBuf; }
    const CutPlaneInfo& cutPlaneInfo() const { return m_cutPlaneInfo; }
    size_t queuedPatchCount();

    // Debug switch, off: adds "Begin", "End" and each fetched uniform with its location.
    // Atomic: a test flips it while the render thread draws.
    static std::atomic<bool> isPrintLog;
    // Gives the private programs the start values of their uniforms, as the shader declares them
    // except bRigidScan (false): a value a scene uniform left behind goes. Render thread; not
    // called per frame.
    void setWholePCDefaultUniform(osg::RenderInfo& renderInfo);
    // No compute pass on this platform: nothing to build, nothing to record.
    void initPatchComputeShader() {}
    bool genRecordPatchFile() { return true; }
    // Unmaps whatever GL_ARRAY_BUFFER holds and unbinds it. Render thread.
    void unmapBuffer();

protected:
    ~IncrePointGeometryApple() override;
    // Where the debug dump makes its time-stamped folder.
    virtual QString debugDumpBaseDir() const;
    // The owner of the whole-cloud buffers; tests hand in one whose allocations fail.
    virtual std::shared_ptr<IncrePtDataWholeBuffer> createWholeDataBuffer();

private:
    struct IncrePointGLBuffer {
        GLuint vao = 0;
        GLuint wholeFrameIdBuffer = 0;
    };
    struct IncreFrameRtTexture {
        osg::ref_ptr<osg::Image> image;
        float* data = nullptr;
        osg::ref_ptr<osg::Texture2D> texture;
        bool useFloat = true;
        bool dirty = true;
    };

    void initOsg();
    void initDraw();
    // The whole-cloud program compiled for this kind of cloud, built on first use; null when it
    // does not compile.
    GLShader* drawVariant(bool rigid, bool cutPlane);
    bool initBuffer();
    void setVertexAttribute();
    // Points the attributes of `vao` at the whole-cloud buffers, every `every`-th point.
    void bindWholeAttributes(GLuint vao, uint32_t every);
    bool resizeBuffer();
    bool expandWholeFrameIdBuffer(uint32_t vertexCount);
    void updateIncreasePatchs();
    // Scatters the first `count` queued patches into the whole-cloud buffers, mapped once for
    // all of them, and takes them off the queue.
    void updatePatches(size_t count);
    // Whether a patch's arrays agree with one another; logs why not.
    bool isPatchUsable(const IncrePatchData& patch) const;
    void scatterPatches(const std::vector<const IncrePatchData*>& patches,
                        const WholePointBufferData& mapped);
    void updatePatchToWhole();
    void updateFrameMatrixBuffer();
    void drawWhole(osg::RenderInfo& renderInfo);
    // Every how many points the frame draws one: 1, or more under a budget while the view or
    // the cloud changes. Arms the full frame that follows.
    uint32_t budgetStride(osg::RenderInfo& renderInfo, uint64_t count);
    void requestFrameAfter(osg::RenderInfo& renderInfo, qint64 delayMs);
    // Every `stride`-th of the first `count` points, in one draw through an index list (a
    // vertex stride that large is beyond what GL allows). The vertex array object is bound.
    void drawThinned(uint32_t count, uint32_t stride);
    bool updateDrawablePointCapacity();
    void setWholePointCloudUniform(osg::RenderInfo& renderInfo);
    bool fetchOsgUniform(osg::RenderInfo& renderInfo);
    void setDefaultUniforms(GLShader& program);
    // The debug dump, asked for by the bool uniform "saveIncreData" on the camera.
    void checkIfSaveIncreDebugData(osg::RenderInfo& renderInfo);
    void logCutPlaneUniforms();
    void getFrameIdAndMatrixFromGLBuffer(std::vector<int>& frameIds,
                                         std::vector<osg::Matrixf>& matrices);
    void bakeCutPlane(osg::Vec3Array* positions, osg::ByteArray* states) const;
    std::shared_ptr<IncrePatchData> frontPatch();
    // The first `count` queued patches, or all there are; they stay queued.
    std::vector<std::shared_ptr<IncrePatchData>> frontPatches(size_t count);
    void popPatch();
    void popPatches(size_t count);
    qint64 getBufferByteSize(GLuint id);
    void* getBufAddress(GLuint id);
    // Prints the context's extensions; sparse buffers would be noted, but none are used.
    void listExtensions();

    QOpenGLFunc* m_gl = nullptr;
    unsigned int m_contextId = 0;
    std::thread::id m_renderThreadId;
    bool m_isInited = false;
    CutPlaneInfo m_cutPlaneInfo;
    BBoxCallback* m_bboxCallback = nullptr;
    // Indexed by rigid + 2 * cutPlane; m_drawProgram is the one in use.
    std::array<std::unique_ptr<GLShader>, 4> m_drawVariants;
    GLShader* m_drawProgram = nullptr;
    QMutex m_patchMutex;
    std::deque<std::shared_ptr<IncrePatchData>> m_queuePatchData;
    std::atomic<int> m_patchVertexSize{0};
    bool m_hasState = false;
    bool m_bRigidScan = false;
    std::vector<std::array<float, 16>> m_frameRts;
    QMutex m_frameMutex;
    IncrePointGLBuffer m_increGLBuffer;
    IncreFrameRtTexture m_frameRtTexture;
    std::atomic<uint32_t> m_wholeSize{0};
    uint64_t m_drawablePointCapacity = 0;
    bool m_drawableCapacityDirty = true;
    bool m_capacityFailLogged = false;
    bool m_drawLimitLogged = false;
    bool m_resizeFailLogged = false;
    bool m_isIncreaseUpdate = false;
    uint32_t m_drawStep = 1;
    bool m_isRunning = false;
    bool m_osgDrawPending = false;
    bool m_showColorSpectrum = true;
    bool m_bindEditPointProgram;
    bool m_useBasicLighting;
    std::shared_ptr<IncrePtDataWholeBuffer> m_wholeDataBuf;
    bool m_frameDbgLog = false;
    bool m_sparseBufferSupported = false;
    std::atomic<uint32_t> m_pointBudget{0};
    std::atomic<int> m_settleMs{250};
    std::atomic<uint32_t> m_drawnPointCount{0};
    // Thinned draws read every k-th point through strides in a second vertex array object,
    // or through an index buffer where the stride passes the GL's limit.
    GLuint m_budgetVao = 0;
    uint32_t m_budgetVaoStride = 0; // meaningful while m_budgetVao exists
    GLint m_maxAttribStride = 0;
    GLuint m_budgetIndexBuffer = 0;
    uint32_t m_budgetIndexCount = 0;
    uint32_t m_budgetIndexStride = 0;
    bool m_patchesThisFrame = false;
    osg::Matrixf m_frameViewProjection;
    osg::Matrixf m_lastViewProjection;
    uint32_t m_lastWholeSize = 0;
    QElapsedTimer m_sinceChange;
    // When the armed wake-up frame is due (steady-clock ms), 0 when none is armed; shared with
    // the timer, which may outlive the cloud.
    std::shared_ptr<std::atomic<qint64>> m_wakeDue = std::make_shared<std::atomic<qint64>>(0);
};

// Depth-first search for the live cloud under `root`.
IncrePointGeometryApple* findIncrePointGeometryApple(osg::Node* root);

} // namespace Orvane
} // namespace Vorna
