#pragma once

#include "incre_base_geomtry_apple.h"

#include <QMutex>
#include <array>
#include <atomic>
#include <memory>
#include <osg/Texture2D>
#include <vector>

namespace Vorna {
namespace Orvane {

class GLShader;

// The frame the scanner has just taken: seven floats a point (position, normal, frame index).
struct CurrentFramePointData {
    std::vector<float> data;
};

// Draws the current scan frame over the cloud, in its own colour or by distance bands, a little
// nearer to the viewer. The host sets data from any thread; drawing is the render thread's.
class IncreCurFrameGeometry : public BaseGeometryApple
{
public:
    explicit IncreCurFrameGeometry(float alpha = 0.5f);

    void setCurrentFramePointData(std::shared_ptr<CurrentFramePointData> data);
    void setCurFramePointCount(unsigned int count) { m_pointCount = count; }
    void setFrameMatrix(const std::vector<std::array<float, 16>>& matrices);
    // False, and nothing changes, outside 0..1.
    bool setAlpha(float alpha);
    void setLightMode(unsigned int mode) { m_lightMode = mode; }
    void setLightPos(const osg::Vec3& position) { m_lightPos = position; }
    void enableShowFront(bool front) { m_isShowFront = front; }
    void setBoxValue(const osg::Vec3f& min, const osg::Vec3f& max);
    // Distance bands: 2 x n limits and n colours.
    bool cfgCurFrameDistClr(osg::FloatArray* ranges, osg::Vec3Array* colors);
    bool enableCurFrameDistClr(bool enable);

    float alpha() const { return m_alpha; }
    unsigned int segmentSize() const { return m_segmentSize; }
    const osg::Texture2D* distanceTexture() const { return m_distanceTex.get(); }

    void initDrawCall() override;
    void drawCall(osg::RenderInfo& renderInfo) override;

    // Debug switch, off: adds "Begin", "End" and each fetched cut-plane uniform with its location.
    // Atomic: a test flips it while the render thread draws.
    static std::atomic<bool> isPrintLog;

    // Frees the VAO and buffer while their context is current.
    void releaseGLObjects(osg::State* state = nullptr) const override;

protected:
    ~IncreCurFrameGeometry() override;

private:
    bool distanceArraysValid() const;
    void initDrawCurrent();
    void initBuffer();
    void initDistTexture();
    void updateDistTexture();
    void updateCurrent();
    void drawCurrent(osg::RenderInfo& renderInfo);
    bool fetchCutPlaneOsgUniform(osg::RenderInfo& renderInfo);

    osg::ref_ptr<BBoxCallback> m_bboxCallback;
    std::unique_ptr<GLShader> m_drawProgram;
    unsigned int m_vao = 0;
    unsigned int m_vbo = 0;
    float m_pointSize = 5.0f;
    float m_zOffset = 0.001f;
    osg::Vec3 m_baseColor{1.0f, 0.0f, 0.0f};
    // Atomic: set from the application's thread, read by the draw.
    std::atomic<unsigned int> m_pointCount{0};
    QMutex m_dataMutex;
    std::shared_ptr<CurrentFramePointData> m_pointData;
    std::vector<std::array<float, 16>> m_frameMatrices;
    osg::ref_ptr<osg::FloatArray> m_distRanges = new osg::FloatArray;
    osg::ref_ptr<osg::Vec3Array> m_distColors = new osg::Vec3Array;
    bool m_distClrEnabled = false;
    unsigned int m_segmentSize = 0;
    float m_alpha;
    bool m_isInitDrawDone = false;
    unsigned int m_lightMode = 0;
    osg::Vec3 m_lightPos;
    bool m_isShowFront = false;
    osg::ref_ptr<osg::Texture2D> m_distanceTex;
};

} // namespace Orvane
} // namespace Vorna
