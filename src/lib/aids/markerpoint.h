#pragma once

// Glued reference targets drawn as discs cut out of a quad in the fragment stage, so the rim
// stays sharp at any zoom: plain two-ring targets and coded targets with a label.
#include <osg/BufferIndexBinding>
#include <osg/Camera>
#include <osg/Geode>
#include <osg/Group>
#include <osg/NodeCallback>
#include <osg/Vec2f>
#include <osg/Vec3f>
#include <osg/Vec4f>
#include <string>
#include <utility>
#include <vector>

namespace Vorna {
namespace Orvane {

struct MarkerParam {
    osg::Vec3f normal = osg::Vec3f(0, 0, 0);
    osg::Vec4f frontExternalColor = osg::Vec4f(0, 0, 0, 1);
    osg::Vec4f backExternalColor = osg::Vec4f(0, 0, 0, 1);
    osg::Vec4f frontInnerColor = osg::Vec4f(1, 1, 1, 1);
    osg::Vec4f backInnerColor = osg::Vec4f(1, 1, 1, 1);
    // x the outer radius, y the inner one.
    osg::Vec2f radius = osg::Vec2f(1.0f, 0.5f);
};

class MarkerPoint
{
public:
    static osg::ref_ptr<osg::Geode> createMarkerPoint(const MarkerParam& param,
                                                      bool useGeometryShader);
};

struct EcodedPointParam {
    float radius = 1.0f;
    float innerRadiusRatio = 0.25f;
    float medialRadiusRatio = 0.5f;
    float externalRadiusRatio = 0.9f;
    float outermostRadiusRatio = 1.0f;
    // Arcs of the pattern, start and end in degrees; the block holds at most 15.
    std::vector<std::pair<float, float>> fragments;
    std::string text;
    bool useVBO = true;
};

class EcodedPoint
{
public:
    static constexpr unsigned int kUboSize = 272;
    static constexpr int kMaxFragments = 15;

    static osg::ref_ptr<osg::Group> createEcodedPoint(const EcodedPointParam& param);
    static osg::ref_ptr<osg::UniformBufferBinding> createEcodedUBO(const EcodedPointParam& param);
    // Places the label of a group from createEcodedPoint before its first update traversal.
    static void initEcodeMatrix(osg::ref_ptr<osg::Group> group, float offset, osg::Camera* camera);
};

// Keeps a coded target's label at the rim of its disc, on the side away from the view's centre.
class UpdateEcodedPointTextMatrixCallback : public osg::NodeCallback
{
public:
    explicit UpdateEcodedPointTextMatrixCallback(float offset) : m_offset(offset) {}
    void operator()(osg::Node* node, osg::NodeVisitor* nv) override;

    static bool needEcodeLog;

private:
    float m_offset;
};

} // namespace Orvane
} // namespace Vorna
