#include "camera_operations.h"

#include "animation_mgr.h"
#include "basic_shapes.h"
#include "customize_manipulator.h"
#include "orvane_log.h"
#include "view_info.h"

#include <cmath>
#include <osgGA/OrbitManipulator>

namespace Vorna {
namespace Orvane {

namespace {

bool hasNan(const osg::Matrixd& m)
{
    for (int i = 0; i < 16; ++i)
        if (std::isnan(m.ptr()[i]))
            return true;
    return false;
}

bool hasNan(const osg::Vec3d& v)
{
    return std::isnan(v.x()) || std::isnan(v.y()) || std::isnan(v.z());
}

double simulationTime(osgViewer::View* view)
{
    return view->getFrameStamp() ? view->getFrameStamp()->getSimulationTime() : 0.0;
}

// The point to orbit about so that `centre` shows at the view's fit screen coordinate.
osg::Vec3f screenCoordTarget(osgViewer::View* view, const ViewInfo& info, const osg::Vec3f& centre,
                             const osg::Quat& rotation, double distance)
{
    const osg::Matrixd viewMatrix = osg::Matrixd::translate(-centre) *
                                    osg::Matrixd::rotate(rotation.inverse()) *
                                    osg::Matrixd::translate(0.0, 0.0, -distance);
    auto* manipulator = dynamic_cast<CustomizeManipulator*>(view->getCameraManipulator());
    const osg::Matrixd projection = manipulator
                                        ? manipulator->getPrjMatAndOrthoAdjustByDist(distance)
                                        : view->getCamera()->getProjectionMatrix();
    const osg::Viewport* vp = view->getCamera()->getViewport();
    const osg::Matrixd toWindow = viewMatrix * projection * vp->computeWindowMatrix();
    const osg::Vec3d onScreen = osg::Vec3d(centre) * toWindow;
    const osg::Vec3d target(vp->width() - info.screenCoord.x(), vp->height() - info.screenCoord.y(),
                            onScreen.z());
    return target * osg::Matrixd::inverse(toWindow);
}

// Applies a fit: at once, or as a 0.25 s animation kept alive by the animation manager.
void applyFit(RenderInfo& renderInfo, osgViewer::View* view, CustomizeManipulator* manipulator,
              const osg::Quat& rotation, const osg::Vec3f& target, double distance, bool animated)
{
    if (!animated) {
        manipulator->setRotation(rotation);
        manipulator->setCenter(target);
        manipulator->setDistance(distance);
        return;
    }
    constexpr float kFitTime = 0.25f;
    manipulator->setTransformAnimation(rotation, target, static_cast<float>(distance), kFitTime,
                                       static_cast<float>(simulationTime(view)));
    AnimationMgr::instance()->addAnimation(renderInfo.canvas.get(), manipulator, kFitTime);
}

} // namespace

FitOperation::FitOperation(std::vector<osg::ref_ptr<osg::Node>> nodes, osgViewer::View* view,
                           bool animated, float distanceScale, const std::string& name)
    : OperationBase(name), m_nodes(std::move(nodes)), m_view(view), m_animated(animated),
      m_distanceScale(distanceScale)
{
}

void FitOperation::doOperation()
{
    if (m_nodes.empty())
        return;
    if (!m_view)
        m_view = m_renderInfo->mainView();
    ViewInfo* info = ViewInfo::of(m_view.get());
    osgGA::CameraManipulator* base = m_view ? m_view->getCameraManipulator() : nullptr;
    if (!info || !base)
        return;
    FitOperationAuto::restoreIfExistNanValue(m_view.get());
    osg::BoundingSphere sphere;
    for (const auto& node : m_nodes)
        if (node.valid())
            sphere.expandBy(node->getBound());
    if (!sphere.valid()) {
        qCWarning(orvane) << "bounding sphere is invalid, so return";
        return;
    }
    // A fit keeps the view direction.
    const osg::Quat rotation = base->getMatrix().getRotate();
    const osg::Vec3f centre = sphere.center();
    const double distance = sphere.radius() * m_distanceScale;
    auto* manipulator = dynamic_cast<CustomizeManipulator*>(base);
    osg::Vec3f target = centre;
    if (info->bFitByScreenCoord)
        target = screenCoordTarget(m_view.get(), *info, centre, rotation, distance);
    if (!manipulator) {
        auto* orbit = dynamic_cast<osgGA::OrbitManipulator*>(base);
        if (!orbit) {
            qCCritical(orvane) << "unknown camera manipulator type";
            return;
        }
        orbit->setRotation(rotation);
        orbit->setCenter(centre);
        orbit->setDistance(distance);
        return;
    }
    manipulator->checkIsAlreadyFit(static_cast<float>(distance), centre, false);
    manipulator->setRotateCenter(centre);
    applyFit(*m_renderInfo, m_view.get(), manipulator, rotation, target, distance, m_animated);
}

FitOperationAuto::FitOperationAuto(osgViewer::View* view, bool animated, bool isManualFitView,
                                   bool setRotateCenter, const std::string& name)
    : OperationBase(name), m_view(view), m_animated(animated), m_isManualFitView(isManualFitView),
      m_setRotateCenter(setRotateCenter)
{
}

void FitOperationAuto::restoreIfExistNanValue(osgViewer::View* view)
{
    auto* orbit =
        view ? dynamic_cast<osgGA::OrbitManipulator*>(view->getCameraManipulator()) : nullptr;
    if (!orbit)
        return;
    if (std::isnan(orbit->getDistance())) {
        qCWarning(orvane) << "camera manipulator's distance is nan, so reset";
        orbit->setDistance(100.0);
    }
    const osg::Quat q = orbit->getRotation();
    if (std::isnan(q.x()) || std::isnan(q.y()) || std::isnan(q.z()) || std::isnan(q.w())) {
        qCWarning(orvane) << "camera manipulator's rotation is nan, so reset";
        orbit->setRotation(osg::Quat());
    }
    if (hasNan(orbit->getCenter())) {
        qCWarning(orvane) << "camera manipulator's center is nan, so reset";
        orbit->setCenter(osg::Vec3d());
    }
    osg::Camera* camera = view->getCamera();
    if (hasNan(camera->getViewMatrix())) {
        qCWarning(orvane) << "camera's view matrix is nan, so reset";
        camera->setViewMatrix(osg::Matrixd::identity());
    }
    if (hasNan(camera->getProjectionMatrix())) {
        qCWarning(orvane) << "camera's projection matrix is nan, so reset";
        const osg::Viewport* vp = camera->getViewport();
        const double aspect = vp && vp->height() > 0 ? vp->width() / vp->height() : 1.0;
        auto* manipulator = dynamic_cast<CustomizeManipulator*>(orbit);
        if (manipulator &&
            manipulator->getManipulatorType() == CustomizeManipulator::Orthographic) {
            const double h = orbit->getDistance() * std::tan(osg::DegreesToRadians(20.0));
            camera->setProjectionMatrix(
                osg::Matrixd::ortho(-h * aspect, h * aspect, -h, h, 0.0, 10000.0));
        } else {
            camera->setProjectionMatrix(osg::Matrixd::perspective(40.0, aspect, 1.0, 10000.0));
        }
    }
}

void FitOperationAuto::doOperation()
{
    if (!m_view)
        m_view = m_renderInfo->mainView();
    ViewInfo* info = ViewInfo::of(m_view.get());
    auto* manipulator =
        m_view ? dynamic_cast<CustomizeManipulator*>(m_view->getCameraManipulator()) : nullptr;
    if (!info || !manipulator)
        return;
    restoreIfExistNanValue(m_view.get());
    osg::BoundingSphere sphere = manipulator->getValidBoundingSphere();
    if (!sphere.valid() && manipulator->getNode())
        sphere = manipulator->getNode()->getBound();
    if (!sphere.valid()) {
        qCWarning(orvane) << "bounding sphere is invalid, so return";
        return;
    }
    const osg::Quat rotation = manipulator->getMatrix().getRotate();
    const osg::Vec3f centre = sphere.center();
    const double distance = manipulator->computeFitDistance(sphere, m_view->getCamera());
    osg::Vec3f target = centre;
    if (info->bFitByScreenCoord)
        target = screenCoordTarget(m_view.get(), *info, centre, rotation, distance);
    manipulator->checkIsAlreadyFit(static_cast<float>(distance), centre, m_isManualFitView);
    if (m_setRotateCenter)
        manipulator->setRotateCenter(centre);
    applyFit(*m_renderInfo, m_view.get(), manipulator, rotation, target, distance, m_animated);
}

UpdateCameraOperation::UpdateCameraOperation(const Param& param)
    : OperationBase("updateCamera"), m_param(param)
{
}

void UpdateCameraOperation::useSceneBoundingOnce(osg::Group* group)
{
    m_param.node = group;
    m_fitOnce = true;
}

void UpdateCameraOperation::doOperation()
{
    osgViewer::View* view = m_param.view ? m_param.view.get() : m_renderInfo->mainView();
    ViewInfo* info = ViewInfo::of(view);
    if (!info) {
        qCCritical(orvane) << "viewInfo pointer is nullptr";
        return;
    }
    auto* manipulator = dynamic_cast<CustomizeManipulator*>(view->getCameraManipulator());
    if (!manipulator) {
        qCCritical(orvane) << "camera manipulator isn't CustomizeManipulator";
        return;
    }
    osg::Vec3f centre = m_param.center;
    double distance = m_param.distance;
    if (m_param.fitToNode || m_fitOnce) {
        m_fitOnce = false;
        osg::Node* node = m_param.node ? m_param.node.get()
                                       : (ViewInfo::of(view) ? ViewInfo::of(view)->root : nullptr);
        if (!node) {
            qCCritical(orvane) << "node is nullptr";
            return;
        }
        osg::BoundingSphere sphere = manipulator->getValidBoundingSphere();
        if (!sphere.valid())
            sphere = node->getBound();
        if (!sphere.valid()) {
            qCWarning(orvane) << "bounding sphere is invalid, so return";
            return;
        }
        centre = sphere.center();
        distance = sphere.radius() * m_param.distanceScale;
        // Tiny models are still framed from a sensible distance.
        if (m_distanceLimitActive)
            distance = std::max(distance, 0.01);
    }
    if (distance == 0.0)
        distance = manipulator->getDistance();
    if (m_param.setRotateCenter)
        manipulator->setRotateCenter(centre);
    if (m_param.keepCenter)
        centre = manipulator->getCenter();
    bool animated = m_param.animated;
    if (m_param.animationTime < 1e-06f) {
        animated = false;
        qCInfo(orvane) << " ============= UpdateCameraOperation, animation time is less than 0, no "
                          "animation ============";
    }
    if (info->bFitByScreenCoord) {
        qCInfo(orvane) << "========== UpdateCameraOperation, fit screen pos is:"
                       << info->screenCoord.x() << ", " << info->screenCoord.y() << ", ==========";
        centre = screenCoordTarget(view, *info, centre, m_param.rotation, distance);
    }
    if (!animated) {
        manipulator->setAnimationTime(0.0);
        AnimationMgr::instance()->finishAnimation(manipulator);
        manipulator->setRotation(m_param.rotation);
        manipulator->setCenter(centre);
        manipulator->setDistance(distance);
        return;
    }
    manipulator->setTransformAnimation(m_param.rotation, centre, static_cast<float>(distance),
                                       m_param.animationTime,
                                       static_cast<float>(simulationTime(view)));
    AnimationMgr::instance()->addAnimation(m_renderInfo->canvas.get(), manipulator,
                                           m_param.animationTime);
}

LookAtOperation::LookAtOperation(const osg::Vec3f& eye, const osg::Vec3f& center,
                                 const osg::Vec3f& up, const std::string& name)
    : OperationBase(name), m_eye(eye), m_center(center), m_up(up)
{
}

void LookAtOperation::doOperation()
{
    osgViewer::View* view = m_renderInfo->mainView();
    if (!view || !view->getCameraManipulator())
        return;
    osgGA::CameraManipulator* manipulator = view->getCameraManipulator();
    manipulator->setHomePosition(m_eye, m_center, m_up, false);
    if (auto* orbit = dynamic_cast<osgGA::StandardManipulator*>(manipulator))
        orbit->setTransformation(m_eye, m_center, m_up);
}

SetViewProjectionType::SetViewProjectionType(int type, osgViewer::View* view,
                                             const std::string& name)
    : OperationBase(name), m_type(type), m_view(view)
{
}

void SetViewProjectionType::doOperation()
{
    if (!m_view)
        m_view = m_renderInfo->mainView();
    auto* manipulator =
        m_view ? dynamic_cast<CustomizeManipulator*>(m_view->getCameraManipulator()) : nullptr;
    if (!manipulator) {
        qCWarning(orvane) << "view's cameraManipulator isn't CustomizeManipulator";
        return;
    }
    if (m_type == 0) {
        if (manipulator->getManipulatorType() != CustomizeManipulator::Perspective)
            manipulator->setManipulatorType(CustomizeManipulator::Perspective);
    } else {
        manipulator->setManipulatorType(CustomizeManipulator::Orthographic);
    }
}

SetCameraLBFuncOperation::SetCameraLBFuncOperation(int function, const std::string& name)
    : OperationBase(name), m_function(function)
{
}

void SetCameraLBFuncOperation::doOperation()
{
    osgViewer::View* view = m_renderInfo->mainView();
    auto* manipulator =
        view ? dynamic_cast<CustomizeManipulator*>(view->getCameraManipulator()) : nullptr;
    if (!manipulator)
        return;
    switch (m_function) {
    case 0:
        manipulator->setNone();
        break;
    case 1:
        manipulator->setMove();
        break;
    case 2:
        manipulator->setRotate();
        break;
    default:
        break;
    }
}

RangeBoxLineOperation::RangeBoxLineOperation(bool enable, const osg::BoundingBox& box,
                                             osgViewer::View* view, const osg::Vec3f& color,
                                             float lineWidth, const std::string& name)
    : OperationBase(name), m_enable(enable), m_box(box), m_view(view), m_color(color),
      m_lineWidth(lineWidth)
{
}

void RangeBoxLineOperation::doOperation()
{
    if (!m_view)
        m_view = m_renderInfo->mainView();
    ViewInfo* info = ViewInfo::of(m_view.get());
    osg::Group* other = info ? info->other : nullptr;
    if (!other)
        return;
    osg::Node* found = nullptr;
    for (unsigned int i = 0; i < other->getNumChildren() && !found; ++i)
        if (other->getChild(i)->getName() == "range_box_line")
            found = other->getChild(i);
    if (!m_enable) {
        if (found)
            other->removeChild(found);
    } else if (!found) {
        osg::Geode* frame = createLineFrame(m_box, m_color, m_lineWidth);
        frame->setName("range_box_line");
        other->addChild(frame);
    } else {
        updateFrame(m_box, found->asGeode());
    }
}

} // namespace Orvane
} // namespace Vorna
