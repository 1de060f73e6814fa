#include "view_datum_event_handler.h"

#include "camera_operations.h"
#include "customize_manipulator.h"
#include "scene_flags.h"
#include "view_info.h"

#include <QtGlobal>
#include <osgText/Text>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>

namespace Vorna {
namespace Orvane {

namespace {

using GA = osgGA::GUIEventAdapter;

CustomizeManipulator* manipulatorOf(osgViewer::View* view)
{
    return view ? dynamic_cast<CustomizeManipulator*>(view->getCameraManipulator()) : nullptr;
}

void setGeometryColor(osg::Geode* geode, const osg::Vec3f& color)
{
    osg::Geometry* geometry =
        geode->getNumDrawables() ? geode->getDrawable(0)->asGeometry() : nullptr;
    if (!geometry)
        return;
    auto* colors = dynamic_cast<osg::Vec4Array*>(geometry->getColorArray());
    if (!colors || colors->empty()) {
        colors = new osg::Vec4Array(1);
        geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
    }
    (*colors)[0] = osg::Vec4f(color, 1.0f);
    colors->dirty();
    geometry->dirtyGLObjects();
}

void setTextColor(osg::Geode* geode, const osg::Vec4f& color)
{
    for (unsigned int i = 0; i < geode->getNumDrawables(); ++i)
        if (auto* text = dynamic_cast<osgText::Text*>(geode->getDrawable(i)))
            text->setColor(color);
}

// The pointer in window pixels with rows counted from the bottom, as viewports are.
osg::Vec2d windowPosition(const GA& ea)
{
    osg::Vec2d p(ea.getX(), ea.getY());
    if (ea.getMouseYOrientation() == GA::Y_INCREASING_DOWNWARDS)
        p.y() = ea.getYmin() + ea.getYmax() - p.y();
    return p;
}

// The view whose gizmo fit region was last entered, for all handlers: every view renders on
// one thread. Observed, so that a view deleted meanwhile reads as none.
osg::observer_ptr<osgViewer::View>& preHilightFitBtnView()
{
    static osg::observer_ptr<osgViewer::View> view;
    return view;
}

} // namespace

ViewDatumEventHandler::ViewDatumEventHandler()
{
    setName("ViewDatumHandler");
}

ViewDatumEventHandler::~ViewDatumEventHandler() = default;

bool ViewDatumEventHandler::handle(const GA& ea, osgGA::GUIActionAdapter& aa)
{
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    if (!view || !ViewInfo::of(view))
        return false;
    switch (ea.getEventType()) {
    case GA::RELEASE:
        resetCubeDefaultColor(view);
        return false;
    case GA::MOVE:
    case GA::DRAG:
        return MouseMove(ea, aa);
    case GA::PUSH:
        if (ea.getButtonMask() == GA::LEFT_MOUSE_BUTTON)
            return LBPress(ea, aa);
        return false;
    default:
        return false;
    }
}

bool ViewDatumEventHandler::resetCubeDefaultColor(osgViewer::View* view)
{
    if (!view || m_cubePlanes.empty())
        return false;
    for (const auto& entry : m_cubePlanes) {
        osg::Geode* plane = entry.second;
        auto* planeInfo = dynamic_cast<ViewDatum::PlaneInfo*>(plane->getUserData());
        Q_ASSERT(planeInfo != nullptr);
        if (!planeInfo)
            continue;
        planeInfo->highlighted = false;
        if (plane->getNodeMask() == ViewDatum::getCubePlaneMask())
            setGeometryColor(plane, entry.first == m_homeName ? ViewDatum::getDefaultHomeColor()
                                                              : ViewDatum::getDefaultPlaneColor());
        const auto text = m_cubePlanes.find(entry.first + "Text");
        if (text != m_cubePlanes.end()) {
            auto* textInfo = dynamic_cast<ViewDatum::PlaneInfo*>(text->second->getUserData());
            Q_ASSERT(textInfo != nullptr);
            if (textInfo)
                textInfo->highlighted = false;
            setTextColor(text->second, ViewDatum::getDefaultTextColor());
        }
    }
    return true;
}

bool ViewDatumEventHandler::MouseMove(const GA& ea, osgGA::GUIActionAdapter& aa)
{
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    if (!view)
        return false;
    resetCubeDefaultColor(view);
    osg::observer_ptr<osgViewer::View>& previous = preHilightFitBtnView();
    if (previous.get() != view) {
        if (previous.valid()) {
            if (CustomizeManipulator* m = manipulatorOf(previous.get()))
                m->setMouseInGizemoFitRegion(false);
            resetCubeDefaultColor(previous.get());
        }
        previous = nullptr;
    }
    std::string name;
    osg::Node* node = nullptr;
    CustomizeManipulator* manipulator = manipulatorOf(view);
    if (!computeIntersect(aa, ea, name, node)) {
        if (manipulator)
            manipulator->setMouseInGizemoFitRegion(false);
        previous = nullptr;
        return false;
    }
    if (manipulator && name != m_homeName)
        manipulator->setMouseInGizemoFitRegion(false);
    hightLightPlaneAndText(name, view);
    previous = manipulator && manipulator->bMouseInGizmoFitRegion() ? view : nullptr;
    return true;
}

void ViewDatumEventHandler::hightLightPlaneAndText(const std::string& name, osgViewer::View* view)
{
    const auto plane = m_cubePlanes.find(name);
    if (plane == m_cubePlanes.end())
        return;
    if (auto* info = dynamic_cast<ViewDatum::PlaneInfo*>(plane->second->getUserData()))
        info->highlighted = true;
    setGeometryColor(plane->second, ViewDatum::getHightLightPlaneColor());
    if (name == m_homeName) {
        if (CustomizeManipulator* m = manipulatorOf(view))
            m->setMouseInGizemoFitRegion(true);
    }
    const auto text = m_cubePlanes.find(name + "Text");
    if (text != m_cubePlanes.end()) {
        if (auto* info = dynamic_cast<ViewDatum::PlaneInfo*>(text->second->getUserData()))
            info->highlighted = true;
        setTextColor(text->second, ViewDatum::getHightLightTextColor());
    }
}

bool ViewDatumEventHandler::computeIntersect(osgGA::GUIActionAdapter&, const GA& ea,
                                             std::string& name, osg::Node*& node)
{
    if (!m_viewDatum.valid())
        return false;
    const osg::Vec2d p = windowPosition(ea);
    osg::Camera* cameras[2] = {m_viewDatum.get(), m_viewDatum->getHomeCamera()};
    for (osg::Camera* camera : cameras) {
        if (!camera)
            continue;
        osg::ref_ptr<osgUtil::LineSegmentIntersector> picker =
            new osgUtil::LineSegmentIntersector(osgUtil::Intersector::WINDOW, p.x(), p.y());
        osgUtil::IntersectionVisitor iv(picker.get());
        iv.setTraversalMask(ViewDatum::getCubePlaneMask());
        camera->accept(iv);
        if (!picker->containsIntersections())
            continue;
        const osg::NodePath& path = picker->getFirstIntersection().nodePath;
        for (auto it = path.rbegin(); it != path.rend(); ++it) {
            if ((*it)->getNodeMask() == ViewDatum::getCubePlaneMask() &&
                dynamic_cast<ViewDatum::PlaneInfo*>((*it)->getUserData())) {
                node = *it;
                name = node->getName();
                return true;
            }
        }
    }
    return false;
}

bool ViewDatumEventHandler::LBPress(const GA& ea, osgGA::GUIActionAdapter& aa)
{
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    ViewInfo* info = ViewInfo::of(view);
    osgViewer::CompositeViewer* viewer = info ? info->compViewer : nullptr;
    std::string name;
    osg::Node* node = nullptr;
    if (!computeIntersect(aa, ea, name, node)) {
        if (viewer)
            viewer->setUserValue("intersect_view_datum", false);
        return false;
    }
    if (viewer)
        viewer->setUserValue("intersect_view_datum", true);
    setViewDirection(aa, node);
    return true;
}

void ViewDatumEventHandler::setViewDirection(osgGA::GUIActionAdapter& aa, osg::Node* node) const
{
    if (SceneFlags::scanState())
        setViewDirection_scan(aa, node);
    else
        setViewDirection_normal(aa, node);
}

void ViewDatumEventHandler::setViewDirection_scan(osgGA::GUIActionAdapter& aa,
                                                  osg::Node* node) const
{
    turnTo(aa, node, true);
}

void ViewDatumEventHandler::setViewDirection_normal(osgGA::GUIActionAdapter& aa,
                                                    osg::Node* node) const
{
    turnTo(aa, node, false);
}

void ViewDatumEventHandler::turnTo(osgGA::GUIActionAdapter& aa, osg::Node* node,
                                   bool scanning) const
{
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    ViewInfo* info = ViewInfo::of(view);
    CustomizeManipulator* manipulator = manipulatorOf(view);
    auto* planeInfo = node ? dynamic_cast<ViewDatum::PlaneInfo*>(node->getUserData()) : nullptr;
    Q_ASSERT(planeInfo != nullptr);
    if (!planeInfo || !info || !manipulator || !info->canvas)
        return;

    osg::BoundingSphere sphere = manipulator->getValidBoundingSphere();
    if (!sphere.valid()) {
        sphere = node->getBound();
        // During a scan the cloud grows; frame it a little closer.
        if (scanning)
            sphere.radius() *= 0.5f;
    }
    osg::Vec3f centre;
    float distance = 1.0f;
    if (sphere.valid()) {
        centre = sphere.center();
        distance = float(manipulator->computeFitDistance(sphere, view->getCamera()));
    }

    osg::Quat rotation;
    if (node->getName() == m_homeName) {
        FitOperationAuto::restoreIfExistNanValue(view);
        rotation = manipulator->getMatrix().getRotate();
        manipulator->checkIsAlreadyFit(distance, centre, true);
    } else {
        if (!m_viewDatum.valid())
            return;
        rotation = planeInfo->rotation;
        // The gizmo's frame has y up; the scene has z up.
        if (m_viewDatum->getIsFrontZDirUp())
            rotation *= osg::Quat(osg::PI_2, osg::X_AXIS);
    }

    UpdateCameraOperation::Param param;
    param.rotation = rotation;
    param.center = centre;
    param.view = view;
    param.setRotateCenter = m_ifResetRotateCenter;
    param.distance = distance;
    param.animated = true;
    param.animationTime = scanning ? 0.0f : 0.25f;
    osg::ref_ptr<UpdateCameraOperation> op = new UpdateCameraOperation(param);
    op->setName("updateCamera");
    op->setDistanceLimitActive(false);
    info->canvas->addOperation(op.get());
}

void ViewDatumEventHandler::Fit(osgGA::GUIActionAdapter& aa, bool fitToNode)
{
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    ViewInfo* info = ViewInfo::of(view);
    CustomizeManipulator* manipulator = manipulatorOf(view);
    if (!info || !manipulator || !info->canvas)
        return;
    UpdateCameraOperation::Param param;
    param.animated = true;
    param.distanceScale = 3.5f;
    param.animationTime = 0.25f;
    param.rotation = manipulator->getMatrix().getRotate();
    param.fitToNode = fitToNode;
    param.view = view;
    info->canvas->addOperation(new UpdateCameraOperation(param));
}

} // namespace Orvane
} // namespace Vorna
