#pragma once

#include <osg/BoundingBox>
#include <osg/BoundingSphere>
#include <osg/ComputeBoundsVisitor>
#include <osg/NodeVisitor>
#include <string>

namespace Vorna {
namespace Orvane {

// Bounds of what counts for fit and zoom: nodes marked "valid_bounding_sphere" false (gizmos,
// aids) are left out with all below them, and so is anything under an absolute transform.
class ValidBoundSphereVisitor : public osg::NodeVisitor
{
public:
    ValidBoundSphereVisitor();
    void init();

    void apply(osg::Node& node) override;
    void apply(osg::Transform& transform) override;
    void apply(osg::Drawable& drawable) override;

    osg::BoundingSphere getBoundingSphere();
    const std::string& lastValidName() const { return m_validName; }

private:
    osg::BoundingSphere m_sphere;
    osg::BoundingSphere m_result;
    osg::BoundingBox m_box;
    std::string m_validName;
};

class ValidBoundBoxVisitor : public osg::ComputeBoundsVisitor
{
public:
    void apply(osg::Transform& transform) override;
};

// Whether the "valid_bounding_sphere" user value leaves the node out.
bool isMarkedInvalid(const osg::Node& node);

} // namespace Orvane
} // namespace Vorna
