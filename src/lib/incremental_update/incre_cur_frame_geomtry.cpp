#include "incre_cur_frame_geomtry.h"

#include "canvas3d_drawable.h"
#include "gl_shader.h"
#include "orvane_log.h"
#include "scene_flags.h"

#include <QOpenGLContext>
#include <cstring>
#include <osg/State>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

IncreCurFrameGeometry::IncreCurFrameGeometry(float alpha)
    : BaseGeometryApple(true), m_bboxCallback(new BBoxCallback), m_alpha(alpha)
{
    setName("point_cloud_cur_frame_geometry");
    osg::StateSet* ss = getOrCreateStateSet();
    ss->setMode(GL_PROGRAM_POINT_SIZE, osg::StateAttribute::ON);
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    setUseDisplayList(false);
}

IncreCurFrameGeometry::~IncreCurFrameGeometry()
{
    releaseGLObjects();
}

void IncreCurFrameGeometry::releaseGLObjects(osg::State* state) const
{
    BaseGeometryApple::releaseGLObjects(state);
    if (!QOpenGLContext::currentContext())
        return;
    auto* self = const_cast<IncreCurFrameGeometry*>(this);
    self->deleteVertexArray(self->m_vao);
    self->deleteGLBuffer(self->m_vbo);
}

void IncreCurFrameGeometry::setCurrentFramePointData(std::shared_ptr<CurrentFramePointData> data)
{
    QMutexLocker lock(&m_dataMutex);
    m_pointData = std::move(data);
}

void IncreCurFrameGeometry::setFrameMatrix(const std::vector<std::array<float, 16>>& matrices)
{
    QMutexLocker lock(&m_dataMutex);
    m_frameMatrices = matrices;
}

bool IncreCurFrameGeometry::setAlpha(float alpha)
{
    if (alpha < 0.0f || alpha > 1.0f)
        return false;
    m_alpha = alpha;
    return true;
}

void IncreCurFrameGeometry::setBoxValue(const osg::Vec3f& min, const osg::Vec3f& max)
{
    m_bboxCallback->setValue(min, max);
    setComputeBoundingBoxCallback(m_bboxCallback.get());
    dirtyBound();
}

bool IncreCurFrameGeometry::distanceArraysValid() const
{
    return m_distRanges && m_distColors && !m_distRanges->empty() &&
           m_distRanges->size() == 2 * m_distColors->size();
}

bool IncreCurFrameGeometry::cfgCurFrameDistClr(osg::FloatArray* ranges, osg::Vec3Array* colors)
{
    if (!ranges || !colors || ranges->empty() || ranges->size() != 2 * colors->size())
        return false;
    m_distRanges = new osg::FloatArray(*ranges);
    m_distColors = new osg::Vec3Array(*colors);
    m_segmentSize = colors->size();
    updateDistTexture();
    return true;
}

bool IncreCurFrameGeometry::enableCurFrameDistClr(bool enable)
{
    if (enable == m_distClrEnabled)
        return true;
    if (enable && !distanceArraysValid())
        return false;
    m_distClrEnabled = enable;
    return true;
}

void IncreCurFrameGeometry::initDrawCall()
{
    setComputeBoundingBoxCallback(m_bboxCallback.get());
    initDrawCurrent();
    initBuffer();
    initDistTexture();
}

void IncreCurFrameGeometry::initDrawCurrent()
{
    qCInfo(orvane) << "initDrawCurrent"
                   << "======IncreCurFrameGeometry::initDrawCurrent macos";
    m_drawProgram.reset(GLShader::fromResources(":/point/point_cloud_draw_current_apple.vert",
                                                ":/point/point_cloud_draw_current_apple.frag"));
}

void IncreCurFrameGeometry::initBuffer()
{
    QOpenGLFunctions_4_1_Core* gl = getGlFun();
    if (!gl)
        return;
    gl->glGenVertexArrays(1, &m_vao);
    gl->glGenBuffers(1, &m_vbo);
    gl->glBindVertexArray(m_vao);
    gl->glBindBuffer(GL_ARRAY_BUFFER, m_vbo);
    constexpr GLsizei kStride = 28;
    gl->glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, kStride, nullptr);
    gl->glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, kStride, reinterpret_cast<void*>(12));
    gl->glVertexAttribPointer(2, 1, GL_FLOAT, GL_FALSE, kStride, reinterpret_cast<void*>(24));
    for (GLuint slot : {0u, 1u, 2u})
        gl->glEnableVertexAttribArray(slot);
    gl->glBindVertexArray(0);
    gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void IncreCurFrameGeometry::initDistTexture()
{
    if (m_distanceTex)
        return;
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(2, 2, 1, GL_RED, GL_FLOAT);
    std::memset(image->data(), 0, image->getTotalSizeInBytes());
    image->setInternalTextureFormat(GL_R32F);
    m_distanceTex = new osg::Texture2D(image.get());
    m_distanceTex->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    m_distanceTex->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    m_distanceTex->setResizeNonPowerOfTwoHint(false);
    if (distanceArraysValid())
        updateDistTexture();
}

void IncreCurFrameGeometry::updateDistTexture()
{
    if (!distanceArraysValid())
        return;
    if (!m_distanceTex)
        initDistTexture();
    const unsigned int width = getMinNumPowOf2(m_distColors->size() * 3);
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(static_cast<int>(width), 2, 1, GL_RED, GL_FLOAT, 1);
    image->setInternalTextureFormat(GL_R32F);
    auto* texels = reinterpret_cast<float*>(image->data());
    std::memset(texels, 0, image->getTotalSizeInBytes());
    std::memcpy(texels, m_distRanges->getDataPointer(), m_distRanges->size() * sizeof(float));
    std::memcpy(texels + width, m_distColors->getDataPointer(),
                m_distColors->size() * sizeof(osg::Vec3f));
    m_distanceTex->setImage(image.get());
    m_distanceTex->dirtyTextureObject();
}

void IncreCurFrameGeometry::updateCurrent()
{
    std::shared_ptr<CurrentFramePointData> data;
    {
        QMutexLocker lock(&m_dataMutex);
        data = m_pointData;
        m_frameMatrices.clear();
    }
    QOpenGLFunctions_4_1_Core* gl = getGlFun();
    if (!data || data->data.empty() || !gl)
        return;
    gl->glBindBuffer(GL_ARRAY_BUFFER, m_vbo);
    gl->glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(data->data.size() * 4),
                     data->data.data(), GL_DYNAMIC_DRAW);
    gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    // The buffer keeps this frame until the next one replaces it.
    QMutexLocker lock(&m_dataMutex);
    if (m_pointData == data)
        m_pointData->data.clear();
}

void IncreCurFrameGeometry::drawCall(osg::RenderInfo& renderInfo)
{
    if (!m_isInitDrawDone) {
        m_isInitDrawDone = true;
        initDrawCall();
    }
    updateCurrent();
    drawCurrent(renderInfo);
}

bool IncreCurFrameGeometry::fetchCutPlaneOsgUniform(osg::RenderInfo& renderInfo)
{
    osg::State* state = renderInfo.getState();
    if (!m_drawProgram || !state)
        return false;
    QOpenGLFunctions_4_1_Core* gl = getGlFun();
    if (isPrintLog)
        qCDebug(orvane) << "fetchCutPlaneOsgUniform"
                        << "Begin";
    const osg::GLExtensions* extensions = state->get<osg::GLExtensions>();
    for (const auto& [name, stack] : state->getUniformMap()) {
        if (name != "direction" && name != "center" && name != "selectIndex")
            continue;
        const GLint location = gl->glGetUniformLocation(m_drawProgram->getProgram(), name.c_str());
        if (isPrintLog)
            qCDebug(orvane).nospace()
                << "fetchUniform name: " << name.c_str() << ", loc: " << location;
        if (location < 0)
            continue;
        for (const auto& entry : stack.uniformVec)
            entry.first->apply(extensions, location);
    }
    if (isPrintLog)
        qCDebug(orvane) << "fetchCutPlaneOsgUniform"
                        << "End";
    return true;
}

std::atomic<bool> IncreCurFrameGeometry::isPrintLog{false};

void IncreCurFrameGeometry::drawCurrent(osg::RenderInfo& renderInfo)
{
    QOpenGLFunctions_4_1_Core* gl = getGlFun();
    const unsigned int pointCount = m_pointCount;
    if (!gl || !m_drawProgram || !m_drawProgram->getProgram() || pointCount == 0)
        return;
    GLShader& p = *m_drawProgram;
    p.use();
    p.setFloat("alphaVal", m_alpha);
    p.setVec3("baseColor", m_baseColor);
    p.setFloat("pointSize", m_pointSize);
    p.setFloat("zOffset", m_zOffset);
    const DrawMatrices m = drawMatrices(renderInfo);
    p.setMat4("modelMatrix", m.model);
    p.setMat4("modelViewMatrix", m.modelView);
    p.setMat3("normalMatrix", m.normal);
    p.setMat4("projectionMatrix", m.projection);
    p.setMat4("modelViewProjectionMatrix", m.modelView * m.projection);
    p.setBool("scanDistanceMapToLaserColor", m_distClrEnabled);
    p.setInt("segmentSize", static_cast<int>(m_segmentSize));
    p.setInt("distanceTex", 1);
    p.setUint("lightMode", m_lightMode);
    p.setVec3("lightPos", m_lightPos);
    p.setBool("isCutPlaneExist", SceneFlags::rectCutPlaneExists());
    fetchCutPlaneOsgUniform(renderInfo);
    p.setBool("isShowFront", m_isShowFront);
    osg::State* state = renderInfo.getState();
    if (distanceArraysValid() && m_distanceTex && state) {
        state->setActiveTextureUnit(1);
        m_distanceTex->apply(*state);
        state->setActiveTextureUnit(0);
    }
    gl->glBindVertexArray(m_vao);
    gl->glDrawArrays(GL_POINTS, 0, static_cast<GLsizei>(pointCount));
    gl->glBindVertexArray(0);
    p.cancel();
    if (state) {
        // OSG caches what it last applied: make it apply its own again.
        state->setLastAppliedProgramObject(nullptr);
        state->haveAppliedTextureAttribute(1, osg::StateAttribute::TEXTURE);
    }
}

} // namespace Orvane
} // namespace Vorna
