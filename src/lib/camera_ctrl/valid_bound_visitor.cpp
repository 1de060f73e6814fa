#include "valid_bound_visitor.h"

#include <algorithm>
#include <cmath>
#include <osg/Drawable>
#include <osg/Transform>

namespace Vorna {
namespace Orvane {

namespace {
const char* const kValidKey = "valid_bounding_sphere";
} // namespace

bool isMarkedInvalid(const osg::Node& node)
{
    bool valid = true;
    return node.getUserValue(kValidKey, valid) && !valid;
}

ValidBoundSphereVisitor::ValidBoundSphereVisitor()
    : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ACTIVE_CHILDREN)
{
    init();
}

void ValidBoundSphereVisitor::init()
{
    m_sphere.init();
    m_result.init();
    m_box.init();
    m_validName.clear();
}

void ValidBoundSphereVisitor::apply(osg::Node& node)
{
    if (!isMarkedInvalid(node))
        traverse(node);
}

void ValidBoundSphereVisitor::apply(osg::Transform& transform)
{
    if (transform.getReferenceFrame() != osg::Transform::RELATIVE_RF)
        return;
    apply(static_cast<osg::Node&>(transform));
}

void ValidBoundSphereVisitor::apply(osg::Drawable& drawable)
{
    for (osg::Node* node : getNodePath()) {
        bool valid = true;
        if (!node->getUserValue(kValidKey, valid))
            continue;
        if (!valid)
            return;
        m_validName = node->getName();
    }
    const osg::BoundingSphere local(drawable.getBound());
    if (!local.valid())
        return;

    const osg::Matrix toWorld = osg::computeLocalToWorld(getNodePath(), true);
    const osg::Vec3 centre = local.center() * toWorld;
    float radius2 = 0.0f;
    for (const osg::Vec3& axis : {osg::X_AXIS, osg::Y_AXIS, osg::Z_AXIS})
        radius2 = std::max(radius2,
                           ((local.center() + axis * local.radius()) * toWorld - centre).length2());
    float radius = std::sqrt(radius2);
    float userRadius = -1.0f;
    if (drawable.getUserValue("radius", userRadius) && userRadius > 0.0f)
        radius = userRadius;

    const osg::BoundingSphere world(centre, radius);
    m_sphere.expandBy(world);
    m_box.expandBy(world);
}

osg::BoundingSphere ValidBoundSphereVisitor::getBoundingSphere()
{
    m_result.expandBy(m_box);
    // The box's sphere overshoots for spread-out content; never exceed the sphere of spheres.
    m_result.radius() = std::min(m_result.radius(), m_sphere.radius());
    return m_result;
}

void ValidBoundBoxVisitor::apply(osg::Transform& transform)
{
    if (transform.getReferenceFrame() != osg::Transform::RELATIVE_RF)
        return;
    osg::ComputeBoundsVisitor::apply(transform);
}

} // namespace Orvane
} // namespace Vorna
