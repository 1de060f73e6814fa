#pragma once

#include <osg/Drawable>
#include <osg/Node>

namespace Vorna {
namespace Orvane {

// For full-screen quads and other nodes that must never take part in a fit.
struct InvalidComputeBoundingSphere : public osg::Node::ComputeBoundingSphereCallback {
    osg::BoundingSphere computeBound(const osg::Node&) const override
    {
        return osg::BoundingSphere();
    }
};

struct InvalidComputeBoundingBox : public osg::Drawable::ComputeBoundingBoxCallback {
    osg::BoundingBox computeBound(const osg::Drawable&) const override
    {
        return osg::BoundingBox();
    }
};

} // namespace Orvane
} // namespace Vorna
