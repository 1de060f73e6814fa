#include "incre_point_geomtry_apple.h"

#include "canvas3d_shadermanager.h"
#include "gl_shader.h"
#include "orvane_log.h"
#include "scene_flags.h"

#include <QCoreApplication>
#include <QOpenGLContext>
#include <QString>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <osg/Geode>
#include <osg/NodeVisitor>
#include <osg/State>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

namespace {
constexpr int kFrameTextureSide = 1024;

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
    // Held by a static, the cloud goes after the application and perhaps after the logging
    // category: no context can be current then, and nothing may be logged.
    if (!QCoreApplication::instance())
        return;
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
    self->deleteVertexArray(self->m_budgetVao);
    if (m_wholeDataBuf && m_wholeDataBuf->isInited())
        m_wholeDataBuf->release();
    self->deleteGLBuffer(self->m_increGLBuffer.wholeFrameIdBuffer);
    self->deleteGLBuffer(self->m_budgetIndexBuffer);
    self->m_budgetIndexCount = 0;
    for (auto& variant : self->m_drawVariants)
        variant.reset();
    self->m_drawProgram = nullptr;
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
    m_drawProgram = drawVariant(m_bRigidScan, SceneFlags::rectCutPlaneExists());
    qCInfo(orvane) << "initDraw"
                   << "======IncrePointGeometryApple::initDraw end ==============";
}

GLShader* IncrePointGeometryApple::drawVariant(bool rigid, bool cutPlane)
{
    std::unique_ptr<GLShader>& variant = m_drawVariants[(rigid ? 1 : 0) + (cutPlane ? 2 : 0)];
    if (!variant) {
        // A rigid scan never reads the frame table, and no plane means no plane test.
        std::string defines;
        if (rigid)
            defines += "#define WITH_FRAME_MATRICES 0\n";
        if (!cutPlane)
            defines += "#define WITH_CUT_PLANE 0\n";
        variant.reset(GLShader::fromResources(
            m_useBasicLighting ? ":/point/point_cloud_draw_whole_apple.vert"
                               : ":/point/point_cloud_draw_whole_apple_material.vert",
            ":/point/point_cloud_draw_whole_apple.frag", defines));
    }
    return variant && variant->getProgram() ? variant.get() : nullptr;
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
    bindWholeAttributes(m_increGLBuffer.vao, 1);
    // It names the buffers just replaced, and would keep them alive.
    deleteVertexArray(m_budgetVao);
}

void IncrePointGeometryApple::bindWholeAttributes(GLuint vao, uint32_t every)
{
    m_gl->glBindVertexArray(vao);
    const GLsizei stride = static_cast<GLsizei>(m_drawStep * 12 * every);
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
        m_gl->glVertexAttribPointer(3, 1, GL_BYTE, GL_FALSE, static_cast<GLsizei>(every), nullptr);
    }
    if (!m_bRigidScan && m_increGLBuffer.wholeFrameIdBuffer) {
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, m_increGLBuffer.wholeFrameIdBuffer);
        m_gl->glEnableVertexAttribArray(4);
        m_gl->glVertexAttribIPointer(4, 1, GL_INT, static_cast<GLsizei>(4 * every), nullptr);
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
    deleteVertexArray(m_budgetVao);
    m_wholeDataBuf->delBufAndRecordSize();
    m_isRunning = false;
    qCInfo(orvane) << "endOfIncreUpdate"
                   << "End";
    return true;
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
    m_patchesThisFrame = queuedPatchCount() > 0;
    if (resizeBuffer()) {
        updateIncreasePatchs();
        if (!m_bRigidScan)
            updateFrameMatrixBuffer();
    }
    drawWhole(renderInfo);
}

void IncrePointGeometryApple::drawWhole(osg::RenderInfo& renderInfo)
{
    const uint32_t whole = m_wholeSize;
    if (m_gl && whole > 0)
        m_drawProgram = drawVariant(m_bRigidScan, SceneFlags::rectCutPlaneExists());
    if (!m_gl || whole == 0 || !m_drawProgram || !m_drawProgram->getProgram()) {
        m_drawnPointCount = 0;
        return;
    }
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
    const uint32_t stride = budgetStride(renderInfo, static_cast<uint64_t>(drawCount));
    m_drawnPointCount =
        static_cast<uint32_t>((static_cast<uint64_t>(drawCount) + stride - 1) / stride);
    if (const GLenum pending = m_gl->glGetError())
        qCWarning(orvane) << "drawWhole"
                          << "OpenGL error before glDrawArrays, error:" << pending
                          << "drawCount:" << drawCount << "wholeSize:" << whole;
    if (stride > 1)
        drawThinned(static_cast<uint32_t>(drawCount), stride);
    else
        m_gl->glDrawArrays(GL_POINTS, 0, drawCount);
    if (const GLenum error = m_gl->glGetError())
        qCWarning(orvane) << "drawWhole"
                          << "glDrawArrays failed, error:" << error << "drawCount:" << drawCount
                          << "wholeSize:" << whole
                          << "drawableCapacity:" << m_drawablePointCapacity;
    finish();
}

bool IncrePointGeometryApple::startScan(osg::Group* parent, bool rigid)
{
    setIsRigidScan(rigid);
    initDrawCall();
    setIsIncreaseUpdate(true);
    const bool begun = beginOfIncreUpdate();
    if (parent) {
        auto* geode = new osg::Geode;
        geode->addDrawable(this);
        parent->addChild(geode);
    }
    return begun;
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
