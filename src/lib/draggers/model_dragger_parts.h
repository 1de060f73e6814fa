#pragma once

#include <osg/AutoTransform>
#include <osg/BoundingSphere>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osg/NodeCallback>
#include <osg/Program>
#include <osg/Vec4f>
#include <osg/observer_ptr>
#include <vector>

namespace Vorna {
namespace Orvane {
namespace ModelDraggerParts {

// Flat or head-lit handles coloured by their material's diffuse colour, which is what
// osgManipulator changes on press and release. The int uniform "lighting" chooses.
osg::Program* createHandleProgram();

// Sections [fromSection, toSection) of a torus in the xy plane cut into `sections` around z,
// each a triangle strip of `steps` around the tube.
osg::Geometry* createTorus(float radius, float tube, int fromSection, int toSection,
                           int sections = 100, int steps = 101);

// A flat band around z between radius - width / 2 and radius + width / 2, drawn as one strip.
osg::Geometry* createBand(float radius, float width, int segments);

// Puts `color` on the node as the material's diffuse and ambient colour.
void setMaterial(osg::Node* node, const osg::Vec4f& color);

// The union of the bounds of `nodes`, in their parents' frame.
osg::BoundingSphere computeNodesBound(const std::vector<osg::ref_ptr<osg::MatrixTransform>>& nodes);

// Keeps the screen scale that an osg::AutoTransform computes while culling, so that picking
// and dragging, which ask the transform outside a cull, see the handles where they are drawn.
// A cull callback of the transform's parent.
class KeepScreenScale : public osg::NodeCallback
{
public:
    explicit KeepScreenScale(osg::AutoTransform* transform) : m_transform(transform) {}
    void operator()(osg::Node* node, osg::NodeVisitor* nv) override;

private:
    osg::observer_ptr<osg::AutoTransform> m_transform;
};

} // namespace ModelDraggerParts
} // namespace Orvane
} // namespace Vorna
