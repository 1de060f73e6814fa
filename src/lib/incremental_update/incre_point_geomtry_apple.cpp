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

constexpr int kFrameTextureSide = 1024;
constexpr qint64 kFrameIdGrowStep = 2000000;

const char* nullOr(const void* p)
{
    return p ? "not null" : "null";
}

// Scene-graph uniforms a parent may hold for the cloud: lights and the back colour switch.
bool isCloudUniformName(const std::string& name)
{
    static const char* const names[] = {"lightDirection",  "lightParam",       "light1Direction",
                                        "light1Param",     "light2Direction",  "light2Param",
                                        "light3Direction", "light3Param",      "light4Direction",
                                        "light4Param",     "lightBkDirection", "lightBkParam",
                                        "ubTexture",       "useBackColor"};
    for (const char* n : names)
        if (name == n)
            return true;
    return false;
}

} // namespace

IncrePointGeometryApple::IncrePointGeometryApple(bool hasColor, bool bindEditPointProgram,
                                                 bool useBasicLighting)
    : BaseGeometryApple(hasColor), m_bindEditPointProgram(bindEditPointProgram),
      m_useBasicLighting(useBasicLighting)
{
    setName("point_cloud_increase_geometry");
    osg::StateSet* ss = getOrCreateStateSet();
    ss->setMode(GL_PROGRAM_POINT_SIZE, osg::StateAttribute::ON);
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    setUseDisplayList(false);
    setUseVertexBufferObjects(true);
    // Made here rather than at GL set-up, so that a bound given early is kept.
    m_bboxCallback = new BBoxCallback;
    setComputeBoundingBoxCallback(m_bboxCallback);
}

IncrePointGeometryApple::~IncrePointGeometryApple()
{
    if (!QOpenGLContext::currentContext()) {
        qCWarning(orvane) << "OrvaneSingleton or QOpenGLContext is nullptr!";
        return;
    }
    releaseGLObjects();
}

void IncrePointGeometryApple::releaseGLObjects(osg::State* state) const
{
    BaseGeometryApple::releaseGLObjects(state);
    if (!QOpenGLContext::currentContext())
        return;
    auto* self = const_cast<IncrePointGeometryApple*>(this);
    self->deleteVertexArray(self->m_increGLBuffer.vao);
    if (m_wholeDataBuf && m_wholeDataBuf->isInited())
        m_wholeDataBuf->release();
    self->deleteGLBuffer(self->m_increGLBuffer.wholeFrameIdBuffer);
    self->m_drawProgram.reset();
}

void IncrePointGeometryApple::addIncreasePatchData(std::shared_ptr<IncrePatchData> patch)
{
    if (!m_isInited) {
        qCWarning(orvane) << "addIncreasePatchData"
                          << "Haven't inited !!";
        return;
    }
    if (!patch) {
        qCWarning(orvane) << "addIncreasePatchData"
                          << "patch is nullptr !!";
        return;
    }
    if (m_frameDbgLog) {
        QString line = patch->vertArr
                           ? QString("patch->vertArr eleNum is %1").arg(patch->vertArr->size())
                           : QString("patch->vertArr is null");
        line += patch->normArr
                    ? QString(", patch->normArr eleNum is %1").arg(patch->normArr->size())
                    : QString(", patch->normArr is null");
        line += patch->clrArr ? QString(", patch->clrArr eleNum is %1").arg(patch->clrArr->size())
                              : QString(", patch->clrArr is null");
        if (patch->stateArr) {
            int negative = 0;
            for (GLbyte s : *patch->stateArr)
                negative += s < 0 ? 1 : 0;
            line += QString(", patch->stateArr eleNum is %1 and negativeStateNum is %2")
                        .arg(patch->stateArr->size())
                        .arg(negative);
        } else {
            line += ", patch->stateArr is null";
        }
        line += QString(", patchIdData size is %1").arg(patch->patchIdData.size());
        line += QString(", patchFrameIdData size is %1").arg(patch->patchFrameIdData.size());
        qCInfo(orvane) << "frameDbgLog" << line;
    }
    QMutexLocker lock(&m_patchMutex);
    m_queuePatchData.push(std::move(patch));
}

std::shared_ptr<IncrePatchData> IncrePointGeometryApple::frontPatch()
{
    QMutexLocker lock(&m_patchMutex);
    return m_queuePatchData.empty() ? nullptr : m_queuePatchData.front();
}

void IncrePointGeometryApple::popPatch()
{
    QMutexLocker lock(&m_patchMutex);
    if (!m_queuePatchData.empty())
        m_queuePatchData.pop();
}

size_t IncrePointGeometryApple::queuedPatchCount()
{
    QMutexLocker lock(&m_patchMutex);
    return m_queuePatchData.size();
}

void IncrePointGeometryApple::setWholeSize(uint32_t size)
{
    m_wholeSize = size;
    if (m_frameDbgLog)
        qCInfo(orvane) << "frameDbgLog" << QString("m_wholeSize update to %1").arg(size);
}

void IncrePointGeometryApple::setFrameMatrix(const std::vector<std::array<float, 16>>& matrices)
{
    QMutexLocker lock(&m_frameMutex);
    m_frameRts = matrices;
}

void IncrePointGeometryApple::setIsRigidScan(bool rigid)
{
    m_bRigidScan = rigid;
    m_drawableCapacityDirty = true;
    qCInfo(orvane) << "setIsRigidScan"
                   << "m_bRigidScan is" << (rigid ? "rigid" : "non rigid");
}

void IncrePointGeometryApple::setBoxValue(const osg::Vec3f& min, const osg::Vec3f& max)
{
    if (!m_bboxCallback)
        return;
    m_bboxCallback->setValue(min, max);
    dirtyBound();
}

void IncrePointGeometryApple::initDrawCall()
{
    qCInfo(orvane) << "initDrawCall"
                   << "Begin";
    if (m_isInited)
        return;
    m_gl = getGlFun();
    initOsg();
    initDraw();
    if (initBuffer()) {
        m_isInited = true;
        qCInfo(orvane) << "initDrawCall"
                       << "End";
    } else {
        qCWarning(orvane) << "initDrawCall"
                          << "End, initBuffer failed !!";
    }
}

void IncrePointGeometryApple::initOsg()
{
    setUseDisplayList(false);
    setUseVertexBufferObjects(true);
    setUseVertexArrayObject(true);
    setDataVariance(osg::Object::DYNAMIC);
    setVertexAttribArray(0, new osg::Vec3Array, osg::Array::BIND_PER_VERTEX);
    setVertexAttribArray(1, new osg::Vec3Array, osg::Array::BIND_PER_VERTEX);
    if (m_hasColor) {
        qCInfo(orvane) << "initOsg"
                       << "Create Color Array";
        setVertexAttribArray(2, new osg::Vec3Array, osg::Array::BIND_PER_VERTEX);
    }
    auto* states = new osg::ByteArray;
    states->setPreserveDataType(true);
    states->setVertexBufferObject(new osg::VertexBufferObject);
    setVertexAttribArray(4, states, osg::Array::BIND_PER_VERTEX);
    addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, 0));

    // The frame matrix table: four texels a matrix, one per column.
    auto* image = new osg::Image;
    const size_t floats = static_cast<size_t>(kFrameTextureSide) * kFrameTextureSide * 4;
    auto* pixels = new float[floats];
    std::memset(pixels, 0, floats * sizeof(float));
    image->setImage(kFrameTextureSide, kFrameTextureSide, 1, GL_RGBA32F_ARB, GL_RGBA, GL_FLOAT,
                    reinterpret_cast<unsigned char*>(pixels), osg::Image::USE_NEW_DELETE);
    m_frameRtTexture.image = image;
    m_frameRtTexture.data = pixels;
    m_frameRtTexture.texture = new osg::Texture2D(image);
    m_frameRtTexture.texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    m_frameRtTexture.texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    m_frameRtTexture.texture->setTextureSize(kFrameTextureSide, kFrameTextureSide);
    osg::StateSet* ss = getOrCreateStateSet();
    ss->setTextureAttributeAndModes(0, m_frameRtTexture.texture.get(), osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("texFrameMatrix", 0));
    if (m_bindEditPointProgram)
        if (osg::Program* program = ShaderManager::instance()->getShader("edit_pointcolor"))
            ss->setAttribute(program);
}

void IncrePointGeometryApple::initDraw()
{
    qCInfo(orvane) << "initDraw"
                   << "======IncrePointGeometryApple::initDraw macos";
    m_drawProgram.reset(GLShader::fromResources(
        m_useBasicLighting ? ":/point/point_cloud_draw_whole_apple.vert"
                           : ":/point/point_cloud_draw_whole_apple_material.vert",
        ":/point/point_cloud_draw_whole_apple.frag"));
    qCInfo(orvane) << "initDraw"
                   << "======IncrePointGeometryApple::initDraw end ==============";
}

bool IncrePointGeometryApple::initBuffer()
{
    if (!m_gl)
        return false;
    if (m_wholeDataBuf && m_wholeDataBuf->isInited()) {
        qCInfo(orvane) << "initBuffer"
                       << "Already inited !!";
        return true;
    }
    listExtensions();
    m_gl->glGenVertexArrays(1, &m_increGLBuffer.vao);
    qCInfo(orvane) << "initBuffer"
                   << "m_wholeDataBuf use IncrePtCommonWholeBuffer";
    m_wholeDataBuf = createWholeDataBuffer();
    if (!m_wholeDataBuf->init(m_hasColor, m_gl)) {
        qCWarning(orvane) << "initBuffer"
                          << "m_wholeDataBuf init failed !!";
        return false;
    }
    m_gl->glGenBuffers(1, &m_increGLBuffer.wholeFrameIdBuffer);
    qCInfo(orvane) << "initBuffer"
                   << "m_bRigidScan is" << (m_bRigidScan ? "rigid" : "non rigid");
    if (!m_bRigidScan) {
        const qint64 bytes = (20000000 + 4095) / 4096 * 4096;
        std::vector<char> zeros(static_cast<size_t>(bytes), 0);
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, m_increGLBuffer.wholeFrameIdBuffer);
        m_gl->glBufferData(GL_ARRAY_BUFFER, bytes, zeros.data(), GL_DYNAMIC_DRAW);
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    }
    setVertexAttribute();
    return true;
}

std::shared_ptr<IncrePtDataWholeBuffer> IncrePointGeometryApple::createWholeDataBuffer()
{
    return std::make_shared<IncrePtCommonWholeBuffer>();
}

void IncrePointGeometryApple::setVertexAttribute()
{
    if (!m_gl || !m_wholeDataBuf)
        return;
    m_gl->glBindVertexArray(m_increGLBuffer.vao);
    const GLsizei stride = static_cast<GLsizei>(m_drawStep * 12);
    for (int index : {WDBI_Position, WDBI_Normal, WDBI_Color}) {
        const GLuint id = m_wholeDataBuf->getBuf(index);
        if (!id) {
            m_gl->glDisableVertexAttribArray(index);
            continue;
        }
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, id);
        m_gl->glEnableVertexAttribArray(index);
        m_gl->glVertexAttribPointer(index, 3, GL_FLOAT, GL_FALSE, stride, nullptr);
    }
    if (const GLuint state = m_wholeDataBuf->getBuf(WDBI_State)) {
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, state);
        m_gl->glEnableVertexAttribArray(3);
        m_gl->glVertexAttribPointer(3, 1, GL_BYTE, GL_FALSE, 1, nullptr);
    }
    if (!m_bRigidScan && m_increGLBuffer.wholeFrameIdBuffer) {
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, m_increGLBuffer.wholeFrameIdBuffer);
        m_gl->glEnableVertexAttribArray(4);
        m_gl->glVertexAttribIPointer(4, 1, GL_INT, 4, nullptr);
    } else {
        m_gl->glDisableVertexAttribArray(4);
    }
    m_gl->glBindVertexArray(0);
    m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
}

bool IncrePointGeometryApple::beginOfIncreUpdate()
{
    qCInfo(orvane) << "beginOfIncreUpdate"
                   << "Begin";
    if (!m_isInited) {
        qCWarning(orvane) << "beginOfIncreUpdate"
                          << "End, m_isInited = false";
        return false;
    }
    if (m_isRunning) {
        qCInfo(orvane) << "beginOfIncreUpdate"
                       << "End, Already Running";
        return true;
    }
    if (!m_increGLBuffer.vao)
        m_gl->glGenVertexArrays(1, &m_increGLBuffer.vao);
    if (m_wholeDataBuf && m_wholeDataBuf->getBuf(0) == 0) {
        osg::ref_ptr<osg::Vec3Array> positions =
            dynamic_cast<osg::Vec3Array*>(getVertexAttribArray(0));
        osg::ref_ptr<osg::Vec3Array> normals =
            dynamic_cast<osg::Vec3Array*>(getVertexAttribArray(1));
        osg::ref_ptr<osg::Vec3Array> colors =
            getNumVertexAttribArrays() > 2 ? dynamic_cast<osg::Vec3Array*>(getVertexAttribArray(2))
                                           : nullptr;
        osg::ref_ptr<osg::ByteArray> states =
            getNumVertexAttribArrays() > 4 ? dynamic_cast<osg::ByteArray*>(getVertexAttribArray(4))
                                           : nullptr;
        qCInfo(orvane) << "beginOfIncreUpdate"
                       << "m_hasColor: " << m_hasColor;
        m_wholeDataBuf->setHasColor(m_hasColor);
        if (positions && (!states || states->size() != positions->size()))
            states = new osg::ByteArray(positions->size());
        m_wholeDataBuf->restorePreBuf(positions, normals, colors, states);
        m_drawableCapacityDirty = true;
        setVertexAttribute();
        setVertexAttribArray(0, new osg::Vec3Array, osg::Array::BIND_PER_VERTEX);
        setVertexAttribArray(1, new osg::Vec3Array, osg::Array::BIND_PER_VERTEX);
        setVertexAttribArray(2, m_hasColor ? new osg::Vec3Array : nullptr,
                             osg::Array::BIND_PER_VERTEX);
        auto* empty = new osg::ByteArray;
        empty->setPreserveDataType(true);
        setVertexAttribArray(4, empty, osg::Array::BIND_PER_VERTEX);
        setPrimitiveSet(0, new osg::DrawArrays(GL_POINTS, 0, 0));
        m_osgDrawPending = true;
    }
    m_cutPlaneInfo.enabled = false;
    m_isRunning = true;
    qCInfo(orvane) << "beginOfIncreUpdate"
                   << "End";
    return true;
}

bool IncrePointGeometryApple::endOfIncreUpdate()
{
    qCInfo(orvane) << "endOfIncreUpdate"
                   << "Begin";
    if (!m_isInited) {
        qCWarning(orvane) << "endOfIncreUpdate"
                          << "End, m_isInited = false";
        return false;
    }
    if (!m_isRunning) {
        qCInfo(orvane) << "endOfIncreUpdate"
                       << "End, Already Paused";
        return true;
    }
    if (const size_t queued = queuedPatchCount()) {
        qCInfo(orvane) << "endOfIncreUpdate"
                       << "consume m_queuePatchData, size: " << queued;
        if (!resizeBuffer()) {
            qCWarning(orvane) << "endOfIncreUpdate"
                              << "buffer resize failed; cannot consume pending patch data";
            return false;
        }
        updateIncreasePatchs();
        if (!m_bRigidScan)
            updateFrameMatrixBuffer();
    }
    osg::ref_ptr<osg::Vec3Array> positions, normals, colors;
    osg::ref_ptr<osg::ByteArray> states;
    if (!fetchAndUpdateAttrib(positions, normals, colors, states)) {
        qCWarning(orvane) << "endOfIncreUpdate"
                          << "End, fetchAttribFromBuffer failed !!";
        return false;
    }
    states->setPreserveDataType(true);
    setVertexAttribArray(0, positions.get(), osg::Array::BIND_PER_VERTEX);
    setVertexAttribArray(1, normals.get(), osg::Array::BIND_PER_VERTEX);
    setVertexAttribArray(2, colors.get(), osg::Array::BIND_PER_VERTEX);
    setVertexAttribArray(4, states.get(), osg::Array::BIND_PER_VERTEX);
    setPrimitiveSet(0, new osg::DrawArrays(GL_POINTS, 0, static_cast<GLsizei>(positions->size())));
    deleteVertexArray(m_increGLBuffer.vao);
    m_wholeDataBuf->delBufAndRecordSize();
    m_isRunning = false;
    qCInfo(orvane) << "endOfIncreUpdate"
                   << "End";
    return true;
}

bool IncrePointGeometryApple::fetchAndUpdateAttrib(osg::ref_ptr<osg::Vec3Array>& vertArr,
                                                   osg::ref_ptr<osg::Vec3Array>& normArr,
                                                   osg::ref_ptr<osg::Vec3Array>& clrArr,
                                                   osg::ref_ptr<osg::ByteArray>& stateArr)
{
    qCInfo(orvane) << "fetchAndUpdateAttrib"
                   << "Begin";
    const uint32_t count = m_wholeSize;
    if (count == 0) {
        qCWarning(orvane) << "fetchAndUpdateAttrib"
                          << "End, wholeSize == 0 !!";
        return false;
    }
    if (!m_wholeDataBuf)
        return false;
    try {
        vertArr = new osg::Vec3Array(count);
        normArr = new osg::Vec3Array(count);
        clrArr = new osg::Vec3Array(count);
        stateArr = new osg::ByteArray(count);
        stateArr->setVertexBufferObject(new osg::VertexBufferObject);
    } catch (const std::bad_alloc&) {
        qCWarning(orvane) << "fetchAndUpdateAttrib"
                          << "OSG attribute allocation failed, point count:" << count;
        vertArr = normArr = clrArr = nullptr;
        stateArr = nullptr;
        return false;
    }
    char* targets[WDBI_AttribBufNum] = {
        reinterpret_cast<char*>(&vertArr->front()), reinterpret_cast<char*>(&normArr->front()),
        reinterpret_cast<char*>(&clrArr->front()), reinterpret_cast<char*>(&stateArr->front())};
    for (int index = 0; index < WDBI_AttribBufNum; ++index) {
        if (m_wholeDataBuf->fetchAttrib(index, static_cast<int>(count), targets[index]))
            continue;
        if (index == WDBI_Color) {
            qCInfo(orvane) << "fetchAndUpdateAttrib"
                           << "Have none color attrib";
            clrArr = nullptr;
            continue;
        }
        qCWarning(orvane) << "fetchAndUpdateAttrib"
                          << "End, cannot fetch attrib !! index:" << index;
        return false;
    }
    if (SceneFlags::rectCutPlaneExists() && m_cutPlaneInfo.enabled &&
        stateArr->size() == vertArr->size())
        bakeCutPlane(vertArr.get(), stateArr.get());
    qCInfo(orvane) << "fetchAndUpdateAttrib"
                   << "End";
    return true;
}

void IncrePointGeometryApple::bakeCutPlane(osg::Vec3Array* positions, osg::ByteArray* states) const
{
    // The shader's live test, made permanent in the states.
    const uint32_t count = static_cast<uint32_t>(positions->size());
    const unsigned int threads = count < 60 ? 1 : 6;
    const CutPlaneInfo plane = m_cutPlaneInfo;
    const auto work = [&](uint32_t first, uint32_t last) {
        for (uint32_t i = first; i < last; ++i)
            if ((*states)[i] >= 0 && ((*positions)[i] - plane.center) * plane.direction < 0.0f)
                (*states)[i] = static_cast<GLbyte>(plane.selectIndex);
    };
    std::vector<std::thread> workers;
    const uint32_t chunk = count / threads;
    for (unsigned int t = 0; t < threads; ++t)
        workers.emplace_back(work, t * chunk, t + 1 == threads ? count : (t + 1) * chunk);
    for (std::thread& worker : workers)
        worker.join();
}

void IncrePointGeometryApple::drawCall(osg::RenderInfo& renderInfo)
{
    checkIfSaveIncreDebugData(renderInfo);
    if (!m_isRunning || m_osgDrawPending) {
        osg::Geometry::drawImplementation(renderInfo);
        if (!m_isRunning)
            return;
        m_osgDrawPending = false;
    }
    m_contextId = renderInfo.getContextID();
    m_renderThreadId = std::this_thread::get_id();
    if (!m_gl)
        m_gl = getGlFun();
    if (resizeBuffer()) {
        updateIncreasePatchs();
        if (!m_bRigidScan)
            updateFrameMatrixBuffer();
    }
    drawWhole(renderInfo);
}

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
    const ResizeResult result = m_wholeDataBuf->autoResizeByVertNum(
        m_isIncreaseUpdate, whole, static_cast<uint>(std::max(patch, 0)));
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
        const qint64 needed = m_isIncreaseUpdate ? static_cast<qint64>(whole) + std::max(patch, 0)
                                                 : static_cast<qint64>(whole);
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

void IncrePointGeometryApple::updateIncreasePatchs()
{
    if (!queuedPatchCount())
        return;
    while (queuedPatchCount()) {
        if (m_isIncreaseUpdate)
            updatePatch();
        else
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

void IncrePointGeometryApple::updatePatch()
{
    if (!m_gl)
        return;
    std::shared_ptr<IncrePatchData> patch = frontPatch();
    if (!patch)
        return;
    // The patch leaves the queue whatever becomes of it.
    struct Pop {
        IncrePointGeometryApple* self;
        ~Pop() { self->popPatch(); }
    } pop{this};

    const bool hasColor = patch->clrArr && m_hasColor;
    if (!patch->vertArr || !patch->normArr) {
        qCWarning(orvane) << "updatePatch"
                          << "Unexpected patchData, vertArr:" << nullOr(patch->vertArr.get())
                          << ", normArr:" << nullOr(patch->normArr.get())
                          << ", clrArr:" << nullOr(patch->clrArr.get());
        return;
    }
    const size_t n = patch->vertArr->size();
    const bool hasState = patch->stateArr && patch->stateArr->size() == n;
    if (patch->normArr->size() != n || patch->patchIdData.size() != n ||
        (patch->stateArr && patch->stateArr->size() != n) ||
        (!m_bRigidScan && patch->patchFrameIdData.size() != n)) {
        qCWarning(orvane) << "updatePatch"
                          << "Unexpected patchData size, vertex:" << n
                          << ", normal:" << patch->normArr->size()
                          << ", patchId:" << patch->patchIdData.size()
                          << ", state:" << (patch->stateArr ? patch->stateArr->size() : 0u)
                          << ", frameId:" << patch->patchFrameIdData.size();
        return;
    }
    if (n == 0) {
        qCWarning(orvane) << "updatePatch"
                          << "Unexpected vertPathDataSize:" << n;
        return;
    }
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
    if (hasColor) {
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
    data.hasColor = hasColor && data.color;
    data.hasState = hasState;
    data.hasFrameId = !m_bRigidScan && data.frameId;
    if (data.position && data.normal)
        updatePatchToWholeBuffer(patch.get(), data);
    for (GLuint id : mapped) {
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, id);
        m_gl->glUnmapBuffer(GL_ARRAY_BUFFER);
    }
    m_gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void IncrePointGeometryApple::updatePatchToWholeBuffer(IncrePatchData* patch,
                                                       const WholePointBufferData& data)
{
    if (!patch) {
        qCWarning(orvane) << "updatePatchToWholeBuffer"
                          << "pPatch null!";
        return;
    }
    const qint64 positionBytes = getBufferByteSize(m_wholeDataBuf->getBuf(WDBI_Position));
    const qint64 bufferVertexCount = positionBytes < 1 ? 0 : positionBytes / 12;
    const std::vector<int>& ids = patch->patchIdData;
    const osg::Vec3Array& v = *patch->vertArr;
    const osg::Vec3Array& nrm = *patch->normArr;
    // Each worker owns the ids on its side of a split and walks the whole patch in order, so a
    // vertex sent twice keeps its last value, as a single pass would give.
    struct Tally {
        int invalid = 0, lastInvalid = 0, tooLarge = 0, lastTooLarge = 0;
    };
    // One entry: fixed sizes, so the copies stay inline moves.
    const auto writeOne = [&](size_t i) {
        const qint64 vid = ids[i];
        std::memcpy(data.position + 3 * vid, v[i].ptr(), 12);
        std::memcpy(data.normal + 3 * vid, nrm[i].ptr(), 12);
        if (data.hasColor)
            std::memcpy(data.color + 3 * vid, (*patch->clrArr)[i].ptr(), 12);
        // A patch without states clears the states of what it touches.
        if (data.state)
            data.state[vid] = data.hasState ? (*patch->stateArr)[i] : 0;
        if (data.hasFrameId)
            data.frameId[vid] = patch->patchFrameIdData[i];
    };
    // Entries [i, i + count) of the patch, whose ids run consecutively from ids[i].
    const auto writeRun = [&](size_t i, size_t count) {
        const qint64 vid = ids[i];
        std::memcpy(data.position + 3 * vid, v[i].ptr(), 12 * count);
        std::memcpy(data.normal + 3 * vid, nrm[i].ptr(), 12 * count);
        if (data.hasColor)
            std::memcpy(data.color + 3 * vid, (*patch->clrArr)[i].ptr(), 12 * count);
        if (data.state) {
            if (data.hasState)
                std::memcpy(data.state + vid, &(*patch->stateArr)[i], count);
            else
                std::memset(data.state + vid, 0, count);
        }
        if (data.hasFrameId)
            std::memcpy(data.frameId + vid, &patch->patchFrameIdData[i], 4 * count);
    };
    const auto scatter = [&](qint64 firstId, qint64 endId, Tally& tally) {
        const qint64 last = std::min(endId, bufferVertexCount);
        for (size_t i = 0; i < ids.size();) {
            const int vid = ids[i];
            if (vid < firstId || vid >= endId) {
                ++i;
                continue;
            }
            if (vid < 0) {
                ++tally.invalid;
                tally.lastInvalid = vid;
                ++i;
                continue;
            }
            if (vid >= bufferVertexCount) {
                ++tally.tooLarge;
                tally.lastTooLarge = vid;
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
    constexpr qint64 kAll = std::numeric_limits<qint64>::max();
    Tally low, high;
    // Below this a second thread costs more than it saves.
    constexpr size_t kParallelPatch = 16384;
    if (ids.size() >= kParallelPatch && std::thread::hardware_concurrency() > 1) {
        const auto [minId, maxId] = std::minmax_element(ids.begin(), ids.end());
        const qint64 split = (static_cast<qint64>(*minId) + *maxId) / 2 + 1;
        std::thread worker(scatter, split, kAll, std::ref(high));
        scatter(-kAll, split, low);
        worker.join();
    } else {
        scatter(-kAll, kAll, low);
    }
    const int invalid = low.invalid + high.invalid;
    const int lastInvalid = high.invalid ? high.lastInvalid : low.lastInvalid;
    const int tooLarge = low.tooLarge + high.tooLarge;
    const int lastTooLarge = high.tooLarge ? high.lastTooLarge : low.lastTooLarge;
    if (invalid || tooLarge)
        qCWarning(orvane) << "updatePatchToWholeBuffer"
                          << "patch contains invalid vertex ids"
                          << "invalidVid:" << invalid << "lastInvalidVid:" << lastInvalid
                          << "tooLargeVid:" << tooLarge << "lastTooLargeVid:" << lastTooLarge
                          << "bufferVertexCount:" << bufferVertexCount
                          << "patchVertexCount:" << patch->patchIdData.size();
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
    if (m_frameRtTexture.texture && m_frameRtTexture.dirty &&
        std::this_thread::get_id() == m_renderThreadId) {
        m_gl->glActiveTexture(GL_TEXTURE0);
        if (m_gl->glGetError())
            qCWarning(orvane) << "updateFrameMatrixBuffer"
                              << "glActiveTexture failed";
        osg::Texture::TextureObject* object =
            m_frameRtTexture.texture->getTextureObject(m_contextId);
        if (object) {
            m_gl->glBindTexture(GL_TEXTURE_2D, object->id());
            if (m_gl->glGetError())
                qCWarning(orvane) << "updateFrameMatrixBuffer"
                                  << "glBindTexture failed";
            const osg::Image* image = m_frameRtTexture.image.get();
            m_gl->glTexImage2D(GL_TEXTURE_2D, 0, image->getInternalTextureFormat(), image->s(),
                               image->t(), 0, image->getPixelFormat(),
                               m_frameRtTexture.useFloat ? GL_FLOAT : GL_UNSIGNED_BYTE,
                               image->data());
            m_gl->glBindTexture(GL_TEXTURE_2D, 0);
        }
    }
    m_frameRts.clear();
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

void IncrePointGeometryApple::drawWhole(osg::RenderInfo& renderInfo)
{
    const uint32_t whole = m_wholeSize;
    if (!m_gl || whole == 0 || !m_drawProgram || !m_drawProgram->getProgram())
        return;
    m_drawProgram->use();
    setWholePointCloudUniform(renderInfo);
    m_gl->glBindVertexArray(m_increGLBuffer.vao);
    const auto finish = [&]() {
        m_gl->glBindVertexArray(0);
        m_drawProgram->cancel();
        // OSG caches the program it last applied: make it apply its own again.
        renderInfo.getState()->setLastAppliedProgramObject(nullptr);
    };
    if (m_drawableCapacityDirty && !updateDrawablePointCapacity()) {
        finish();
        return;
    }
    const uint64_t count = std::min<uint64_t>(whole, m_drawablePointCapacity);
    if (count < whole) {
        if (!m_drawLimitLogged)
            qCWarning(orvane) << "drawWhole"
                              << "draw point count is limited by buffer capacity, requested:"
                              << whole << "actual:" << count
                              << "capacity:" << m_drawablePointCapacity
                              << "rigidScan:" << m_bRigidScan;
        m_drawLimitLogged = true;
    } else {
        m_drawLimitLogged = false;
    }
    const GLsizei drawCount = static_cast<GLsizei>(count / m_drawStep);
    if (const GLenum pending = m_gl->glGetError())
        qCWarning(orvane) << "drawWhole"
                          << "OpenGL error before glDrawArrays, error:" << pending
                          << "drawCount:" << drawCount << "wholeSize:" << whole;
    m_gl->glDrawArrays(GL_POINTS, 0, drawCount);
    if (const GLenum error = m_gl->glGetError())
        qCWarning(orvane) << "drawWhole"
                          << "glDrawArrays failed, error:" << error << "drawCount:" << drawCount
                          << "wholeSize:" << whole
                          << "drawableCapacity:" << m_drawablePointCapacity;
    finish();
}

void IncrePointGeometryApple::setWholePointCloudUniform(osg::RenderInfo& renderInfo)
{
    const DrawMatrices m = drawMatrices(renderInfo);
    GLShader& p = *m_drawProgram;
    p.setMat3("normalMatrix", m.normal);
    p.setMat4("modelMatrix", m.model);
    p.setMat4("modelViewMatrix", m.modelView);
    p.setMat4("projectMatrix", m.projection);
    p.setMat4("modelViewProjectMatrix", m.modelView * m.projection);
    p.setBool("hasColor", m_hasColor);
    p.setBool("showColorSpectrum", m_showColorSpectrum);
    if (m_frameRtTexture.image)
        p.setVec2("texFrameMatrixPicSize", static_cast<float>(m_frameRtTexture.image->s()),
                  static_cast<float>(m_frameRtTexture.image->t()));
    bool useClipPlane = false;
    if (getStateSet() && getStateSet()->getUniform("useClipPlane") &&
        getStateSet()->getUniform("useClipPlane")->get(useClipPlane))
        p.setBool("useClipPlane", useClipPlane);
    // Two samplers of different types may not share a unit: the frame table is on 0, the state
    // colours on 1, where the scene publishes them.
    p.setInt("texFrameMatrix", 0);
    p.setInt("colorIndex", 1);
    p.setBool("bRigidScan", m_bRigidScan);
    p.setBool("isCutPlaneExist", SceneFlags::rectCutPlaneExists());
    fetchOsgUniform(renderInfo);
}

bool IncrePointGeometryApple::fetchOsgUniform(osg::RenderInfo& renderInfo)
{
    osg::State* state = renderInfo.getState();
    if (!m_drawProgram) {
        qCWarning(orvane) << "fetchOsgUniform"
                          << "drawProgram is nullptr";
        return false;
    }
    if (!state) {
        qCWarning(orvane) << "fetchOsgUniform"
                          << "state is nullptr";
        return false;
    }
    if (!m_gl) {
        qCWarning(orvane) << "fetchOsgUniform"
                          << "glFun is nullptr";
        return false;
    }
    if (isPrintLog)
        qCDebug(orvane) << "fetchOsgUniform"
                        << "Begin";
    const GLuint program = m_drawProgram->getProgram();
    const osg::GLExtensions* extensions = state->get<osg::GLExtensions>();
    const bool cutPlane = SceneFlags::rectCutPlaneExists();
    int cutBits = 0;
    const auto apply = [&](const osg::Uniform* uniform) {
        if (!uniform)
            return;
        const std::string& name = uniform->getName();
        const GLint location = m_gl->glGetUniformLocation(program, name.c_str());
        if (isPrintLog)
            qCDebug(orvane).nospace()
                << "fetchUniform name: " << name.c_str() << ", loc: " << location;
        if (location >= 0)
            uniform->apply(extensions, location);
        if (!cutPlane)
            return;
        if (name == "direction" && uniform->get(m_cutPlaneInfo.direction))
            cutBits |= 1;
        else if (name == "center" && uniform->get(m_cutPlaneInfo.center))
            cutBits |= 2;
        else if (name == "selectIndex" && uniform->get(m_cutPlaneInfo.selectIndex))
            cutBits |= 4;
    };
    for (const auto& [name, stack] : state->getUniformMap())
        for (const auto& entry : stack.uniformVec)
            apply(entry.first);
    const auto applyListed = [&](const osg::StateSet* ss) {
        if (!ss)
            return;
        for (const auto& [name, pair] : ss->getUniformList())
            if (isCloudUniformName(name))
                apply(pair.first.get());
    };
    applyListed(getStateSet());
    if (getNumParents() == 1 && getParent(0))
        applyListed(getParent(0)->getStateSet());
    m_cutPlaneInfo.enabled = cutPlane && cutBits == 7;
    if (isPrintLog)
        qCDebug(orvane) << "fetchOsgUniform"
                        << "End";
    return true;
}

bool IncrePointGeometryApple::isPrintLog = false;

void IncrePointGeometryApple::setWholePCDefaultUniform(osg::RenderInfo& renderInfo)
{
    if (!m_drawProgram || !m_drawProgram->getProgram())
        return;
    GLShader& p = *m_drawProgram;
    p.use();
    p.setBool("isCutPlaneExist", false);
    p.setFloat("selectIndex", 1.0f);
    p.setVec3("front", 0.05f, 0.695f, 1.0f);
    p.setVec3("back", 0.03f, 0.556f, 0.8f);
    p.setBool("useBackColor", true);
    p.setVec3("lightDirection", 0.0f, 0.0f, 1.0f);
    p.setVec4("lightParam", 0.5f, 0.5f, 0.15f, 128.0f);
    p.setVec3("light1Direction", 0.11162f, 0.66604f, 0.63302f);
    p.setVec4("light1Param", 0.0f, 0.0f, 0.0f, 1.0f);
    p.setVec3("light2Direction", -0.045f, -0.96593f, 0.25489f);
    p.setVec4("light2Param", 0.0f, 0.0f, 0.0f, 1.0f);
    p.setVec3("light3Direction", 0.93969f, 0.0f, -0.34202f);
    p.setVec4("light3Param", 0.0f, 0.0f, 0.0f, 1.0f);
    p.setVec3("light4Direction", -0.93969f, 0.0f, -0.34202f);
    p.setVec4("light4Param", 0.0f, 0.0f, 0.0f, 1.0f);
    p.setVec3("lightBkDirection", 0.0f, 0.0f, 1.0f);
    p.setVec4("lightBkParam", 0.5f, 0.5f, 0.0f, 1.0f);
    p.setBool("specularSeparate", false);
    p.setBool("showColorSpectrum", true);
    p.setBool("hasColor", false);
    p.setBool("bRigidScan", false);
    p.setFloat("pointSize", 3.0f);
    p.setFloat("pointDis", 0.2f);
    p.setBool("useFixedSize", true);
    p.setInt("texFrameMatrix", 0);
    if (m_frameRtTexture.image)
        p.setVec2("texFrameMatrixPicSize", static_cast<float>(m_frameRtTexture.image->s()),
                  static_cast<float>(m_frameRtTexture.image->t()));
    p.cancel();
    // OSG caches the program it last applied: make it apply its own again.
    if (renderInfo.getState())
        renderInfo.getState()->setLastAppliedProgramObject(nullptr);
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

void IncrePointGeometryApple::listExtensions()
{
    GLint count = 0;
    m_gl->glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    m_sparseBufferSupported = false;
    for (GLint i = 0; i < count; ++i) {
        const auto* name = reinterpret_cast<const char*>(
            m_gl->glGetStringi(GL_EXTENSIONS, static_cast<GLuint>(i)));
        if (!name)
            continue;
        std::printf("%s\n", name);
        if (std::strcmp(name, "GL_ARB_sparse_buffer") == 0)
            m_sparseBufferSupported = true;
    }
}

IncrePointGeometryApple* findIncrePointGeometryApple(osg::Node* root)
{
    if (!root)
        return nullptr;
    if (auto* found = dynamic_cast<IncrePointGeometryApple*>(root))
        return found;
    if (osg::Group* group = root->asGroup())
        for (unsigned int i = 0; i < group->getNumChildren(); ++i)
            if (IncrePointGeometryApple* found = findIncrePointGeometryApple(group->getChild(i)))
                return found;
    return nullptr;
}

} // namespace Orvane
} // namespace Vorna
