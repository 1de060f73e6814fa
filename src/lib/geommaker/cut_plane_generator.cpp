#include "cut_plane_generator.h"

#include "cut_plane_programs.h"
#include "shape_mesh.h"

#include <algorithm>
#include <osg/CopyOp>
#include <osg/Depth>
#include <osg/Geometry>
#include <osg/LineWidth>
#include <osg/Switch>

namespace Vorna {
namespace Orvane {

CutPlaneGenerator::CutPlaneGenerator(const osg::BoundingBox& box)
    : m_box(box), m_lineColor(0.007843138f, 0.53333336f, 0.9411765f, 1.0f),
      m_disabledLineColor(0.007843138f, 0.53333336f, 0.9411765f, 1.0f)
{
}

osg::Program* CutPlaneGenerator::createLineDepthOffsetProgram()
{
    return CutPlanePrograms::createLineDepthOffsetProgram(0.001f);
}

osg::Program* CutPlaneGenerator::createGeometryProgram()
{
    return CutPlanePrograms::createGeometryProgram();
}

void CutPlaneGenerator::convertBBAppropriatly(const osg::BoundingBox& box)
{
    const osg::Vec3f size = box.valid() ? box._max - box._min : osg::Vec3f(1, 1, 1);
    std::vector<AxisLength> axes = {{0, size.x()}, {1, size.y()}, {2, size.z()}};
    std::stable_sort(axes.begin(), axes.end(),
                     [](const AxisLength& a, const AxisLength& b) { return a.length < b.length; });
    // The thinnest direction becomes the plane's normal.
    m_turn = CutPlanePrograms::turnAxisToZ(axes.front().axis);
    m_half = CutPlanePrograms::localHalfExtents(m_turn, size * 0.5f);
}

void CutPlaneGenerator::computeCornerAndSpherePosition()
{
    const float x = m_half.x(), y = m_half.y();
    m_corners[0].set(-x, -y, 0);
    m_corners[1].set(x, -y, 0);
    m_corners[2].set(x, y, 0);
    m_corners[3].set(-x, y, 0);
    m_sphereCenter = (m_corners[0] + m_corners[1] + m_corners[2] + m_corners[3]) * 0.25f;
    for (int i = 0; i < 4; ++i)
        m_edgeCenters[i] = (m_corners[i] + m_corners[(i + 1) % 4]) * 0.5f;
}

osg::Geometry* CutPlaneGenerator::cornerGeometry() const
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setVertexArray(new osg::Vec3Array(m_corners, m_corners + 4));
    return geometry;
}

osg::Geode* CutPlaneGenerator::createTranslucentPlane(const osg::Vec3f& a, const osg::Vec3f& b,
                                                      const osg::Vec3f& c, const osg::Vec3f& d)
{
    auto* geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    auto* vertices = new osg::Vec3Array;
    for (const osg::Vec3f* corner : {&a, &b, &c, &d})
        vertices->push_back(*corner);
    geometry->setVertexArray(vertices);
    auto* colors = new osg::Vec4Array;
    colors->push_back(osg::Vec4f(1, 1, 1, 0.1f));
    geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_FAN, 0, 4));
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    geode->setNodeMask(65535);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    ss->setMode(GL_BLEND, osg::StateAttribute::ON);
    ss->setMode(GL_CULL_FACE, osg::StateAttribute::OFF);
    ss->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
    ss->setAttributeAndModes(new osg::Depth(osg::Depth::LESS, 0.0, 1.0, false));
    ss->setAttributeAndModes(new osg::Program,
                             osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    return geode;
}

osg::Geode* CutPlaneGenerator::createPlane()
{
    return createTranslucentPlane(m_corners[0], m_corners[1], m_corners[2], m_corners[3]);
}

osg::Geode* CutPlaneGenerator::createLine()
{
    osg::Geometry* geometry = cornerGeometry();
    auto* colors = new osg::Vec4Array;
    colors->assign(4, m_lineColor);
    geometry->setVertexAttribArray(3, colors, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_LINE_LOOP, 0, 4));
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setAttributeAndModes(new osg::LineWidth(2.0f));
    ss->setAttributeAndModes(createLineDepthOffsetProgram(),
                             osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    return geode;
}

osg::Geode* CutPlaneGenerator::createArrow()
{
    const float length = 0.3f * std::max(m_half.x(), m_half.y());
    const float radius = length * 0.03f;
    ShapeMesh mesh;
    mesh.addTube(m_sphereCenter, m_sphereCenter + osg::Vec3f(0, 0, length * 0.75f), radius);
    mesh.addCone(m_sphereCenter + osg::Vec3f(0, 0, length * 0.75f),
                 m_sphereCenter + osg::Vec3f(0, 0, length), radius * 3.0f);
    auto* geode = new osg::Geode;
    geode->addDrawable(mesh.build(2));
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setAttributeAndModes(createGeometryProgram(),
                             osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    ss->addUniform(new osg::Uniform("baseColor", m_lineColor));
    return geode;
}

osg::Group* CutPlaneGenerator::createDisabledCutPlane(osg::Group* enabled)
{
    auto* disabled = static_cast<osg::Group*>(enabled->clone(osg::CopyOp(0x7fffffff)));
    // OVERRIDE: the copied parts carry their own colours below.
    disabled->getOrCreateStateSet()->addUniform(
        new osg::Uniform("baseColor", osg::Vec4f(1, 1, 1, 1)),
        osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    return disabled;
}

osg::MatrixTransform* CutPlaneGenerator::create(const osg::BoundingBox& box)
{
    m_box = box;
    convertBBAppropriatly(m_box);
    computeCornerAndSpherePosition();

    auto* enabled = new osg::Group;
    enabled->addChild(createPlane());
    enabled->addChild(createLine());
    enabled->addChild(createArrow());
    auto* toggle = new osg::Switch;
    toggle->addChild(enabled, true);
    toggle->addChild(createDisabledCutPlane(enabled), false);

    const osg::Vec3f center = m_box.valid() ? m_box.center() : osg::Vec3f();
    auto* transform =
        new osg::MatrixTransform(osg::Matrix::rotate(m_turn) * osg::Matrix::translate(center));
    transform->setName("clip_plane");
    transform->addChild(toggle);
    return transform;
}

} // namespace Orvane
} // namespace Vorna
