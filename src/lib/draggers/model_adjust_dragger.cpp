#include "model_adjust_dragger.h"

#include "model_dragger_parts.h"
#include "rect_cut_plane_rotate_dragger.h"
#include "shape_mesh.h"

#include <osg/Geode>
#include <osgManipulator/RotateCylinderDragger>
#include <osgManipulator/Translate1DDragger>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

namespace {

constexpr int kAllCommands = 0x8ffffff;
constexpr int kRingSegments = 128;

} // namespace

ModelAdjustDragger::ModelAdjustDragger(bool ringStyle, float ringWidth, float barRadius)
    : m_ringStyle(ringStyle), m_ringWidth(ringWidth), m_barRadius(barRadius)
{
    const float normal = 0.65f;
    const osg::Vec4f red(1, 0, 0, 1), green(0, 1, 0, 1), lightBlue(0, 0.635f, 0.909f, 1);
    m_transColors = {{osg::Vec4f(normal, 0, 0, 1), osg::Vec4f(0, normal, 0, 1),
                      osg::Vec4f(0, 0, normal, 1), red, green, lightBlue}};
    // Rings run z, y, x.
    m_rotColors = {{osg::Vec4f(0, 0, normal, 1), osg::Vec4f(0, normal, 0, 1),
                    osg::Vec4f(normal, 0, 0, 1), lightBlue, green, red}};

    osg::StateSet* ss = getOrCreateStateSet();
    ss->setAttributeAndModes(ModelDraggerParts::createHandleProgram(),
                             osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss->addUniform(new osg::Uniform("lighting", 1));
}

ModelAdjustDragger::~ModelAdjustDragger() = default;

bool ModelAdjustDragger::connectMt(osg::ref_ptr<osg::MatrixTransform> mt)
{
    if (!mt)
        return false;
    m_bound.expandBy(mt->getBound());
    addTransformUpdating(mt.get(), kAllCommands);
    return true;
}

void ModelAdjustDragger::disconnect()
{
    getDraggerCallbacks().clear();
}

bool ModelAdjustDragger::enable(bool on)
{
    if (on == m_enabled)
        return true;
    if (on && getDraggerCallbacks().empty()) {
        setHandleEvents(false);
        return false;
    }
    if (on) {
        createRotDraggers();
        createTransDraggers();
        setMatrix(osg::Matrix::translate(m_bound.center()));
        setParentDragger(getParentDragger());
        setHandleEvents(true);
    } else {
        setHandleEvents(false);
        disconnect();
        for (auto* list : {&m_rotDraggers, &m_transDraggers}) {
            for (osg::ref_ptr<osgManipulator::Dragger>& dragger : *list) {
                removeDragger(dragger.get());
                removeChild(dragger.get());
                dragger = nullptr;
            }
        }
        m_curDragger = nullptr;
    }
    m_enabled = on;
    return true;
}

void ModelAdjustDragger::createRotDraggers()
{
    m_ringRadius = m_bound.valid() ? m_bound.radius() * 1.1f : 1.1f;
    const osg::Matrix poses[3] = {osg::Matrix(), osg::Matrix::rotate(osg::PI_2, osg::X_AXIS),
                                  osg::Matrix::rotate(osg::PI_2, osg::Y_AXIS)};
    for (int i = 0; i < 3; ++i) {
        osg::ref_ptr<RectCutPlaneRotateDragger> dragger = new RectCutPlaneRotateDragger(85.0);
        dragger->addChild(createRing(m_ringRadius, m_ringWidth, m_rotColors.rest(i)));
        dragger->setColor(m_rotColors.rest(i));
        dragger->setPickColor(m_rotColors.picked(i));
        dragger->setMatrix(poses[i]);
        dragger->projector()->setCylinder(
            new osg::Cylinder(osg::Vec3(), m_ringRadius, m_ringWidth));
        addDragger(dragger.get());
        addChild(dragger.get());
        m_rotDraggers[i] = dragger;
    }
}

void ModelAdjustDragger::createTransDraggers()
{
    const float radius = m_bound.valid() ? m_bound.radius() : 1.0f;
    m_barLength = radius * 2.0f * 1.5f;
    const osg::Vec3d axes[3] = {osg::X_AXIS, osg::Y_AXIS, osg::Z_AXIS};
    for (int i = 0; i < 3; ++i) {
        osg::Quat turn;
        turn.makeRotate(osg::Vec3d(0, 0, 1), axes[i]);
        osg::ref_ptr<osgManipulator::Translate1DDragger> dragger =
            new osgManipulator::Translate1DDragger(osg::Vec3d(0, 0, -1), osg::Vec3d(0, 0, 1));
        dragger->addChild(createLine(m_barLength, m_barRadius * 2.0f, m_transColors.rest(i)));
        dragger->setColor(m_transColors.rest(i));
        dragger->setPickColor(m_transColors.picked(i));
        dragger->setMatrix(osg::Matrix::rotate(turn));
        addDragger(dragger.get());
        addChild(dragger.get());
        m_transDraggers[i] = dragger;
    }
}

osg::Node* ModelAdjustDragger::createRing(float radius, float width, const osg::Vec4f& color)
{
    auto* geode = new osg::Geode;
    if (m_ringStyle)
        geode->addDrawable(ModelDraggerParts::createTorus(radius, width * 0.5f, 0, kRingSegments,
                                                          kRingSegments, 17));
    else
        geode->addDrawable(ModelDraggerParts::createBand(radius, width, kRingSegments));
    // The colour is the dragger's material, which hover and drag change.
    geode->getOrCreateStateSet()->setMode(GL_NORMALIZE, osg::StateAttribute::ON);
    return geode;
}

osg::Node* ModelAdjustDragger::createLine(float length, float width, const osg::Vec4f& color)
{
    ShapeMesh mesh;
    const osg::Vec3f end(0, 0, length * 0.5f);
    mesh.addTube(-end, end, width * 0.5f, 24);
    mesh.addSphere(-end, width * 1.1f);
    mesh.addSphere(end, width * 1.1f);
    auto* geode = new osg::Geode;
    geode->addDrawable(mesh.build());
    geode->getOrCreateStateSet()->setMode(GL_NORMALIZE, osg::StateAttribute::ON);
    return geode;
}

osgManipulator::Dragger* ModelAdjustDragger::handleOf(osg::Node* node) const
{
    for (const auto* list : {&m_rotDraggers, &m_transDraggers})
        for (const osg::ref_ptr<osgManipulator::Dragger>& dragger : *list)
            if (dragger && dragger.get() == node)
                return dragger.get();
    return nullptr;
}

void ModelAdjustDragger::setPicked(osgManipulator::Dragger* dragger, bool picked)
{
    if (auto* bar = dynamic_cast<osgManipulator::Translate1DDragger*>(dragger))
        osgManipulator::setMaterialColor(picked ? bar->getPickColor() : bar->getColor(), *bar);
    else if (auto* ring = dynamic_cast<osgManipulator::RotateCylinderDragger*>(dragger))
        osgManipulator::setMaterialColor(picked ? ring->getPickColor() : ring->getColor(), *ring);
}

bool ModelAdjustDragger::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (ea.getEventType() != osgGA::GUIEventAdapter::MOVE)
        return osgManipulator::Dragger::handle(ea, aa);
    auto* view = dynamic_cast<osgViewer::View*>(&aa);
    if (ea.getHandled() || !view)
        return false;
    osgManipulator::Dragger* found = nullptr;
    osgUtil::LineSegmentIntersector::Intersections hits;
    if (view->computeIntersections(ea, hits, _intersectionMask))
        for (osg::Node* node : hits.begin()->nodePath)
            if ((found = handleOf(node)))
                break;
    if (found != m_curDragger) {
        if (m_curDragger)
            setPicked(m_curDragger, false);
        if (found)
            setPicked(found, true);
        m_curDragger = found;
    }
    return false;
}

} // namespace Orvane
} // namespace Vorna
