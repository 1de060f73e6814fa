// Camera animation, named view directions and the fit reports.
#include "customize_manipulator.h"

#include "animation_mgr.h"
#include "camera_operations.h"
#include "orvane_log.h"
#include "scene_flags.h"
#include "view_info.h"

#include <cmath>

using namespace Vorna::Orvane;
using GA = osgGA::GUIEventAdapter;

namespace {

// The short way round: q and -q are the same rotation.
void adjustQuat(osg::Quat& q)
{
    if (q.w() < 0.0)
        q = osg::Quat(-q.x(), -q.y(), -q.z(), -q.w());
}

constexpr float kDirectionTime = 0.25f;

} // namespace

void CustomizeManipulator::initRotateMap(std::map<DirectionType, osg::Quat>& map) const
{
    const osg::Vec3d z(0.0, 0.0, 1.0);
    const std::pair<DirectionType, osg::Vec3d> targets[] = {
        {Front, {0, 0, 1}}, {Back, {0, 0, -1}}, {Left, {-1, 0, 0}},
        {Right, {1, 0, 0}}, {Top, {0, 1, 0}},   {Bottom, {0, -1, 0}}};
    for (const auto& [type, target] : targets) {
        osg::Quat q;
        q.makeRotate(z, target);
        map[type] = q;
    }
}

osg::Quat CustomizeManipulator::directionRotation(DirectionType type) const
{
    auto it = m_rotateMap.find(type);
    osg::Quat r = it != m_rotateMap.end() ? it->second : getMatrix().getRotate();
    if (m_isFrontZDirUp) {
        r *= osg::Quat(osg::PI_2, osg::X_AXIS);
        if (m_isFrontXDirFront)
            r *= osg::Quat(osg::PI_2, osg::Z_AXIS);
    } else if (m_isFrontXDirFront) {
        r *= osg::Quat(osg::PI_2, osg::Y_AXIS);
    }
    return r;
}

osg::Quat CustomizeManipulator::getRotateByDirection(DirectionType type) const
{
    if (!m_rotateMap.count(type))
        return osg::Quat();
    return directionRotation(type);
}

void CustomizeManipulator::setTransformAnimation(const osg::Quat& rotation,
                                                 const osg::Vec3f& center, float distance,
                                                 float animationTime, float startTime)
{
    osg::ref_ptr<CameraTransformAnimationData> data = new CameraTransformAnimationData;
    data->m_startRotation = getRotation();
    osg::Quat d = rotation / data->m_startRotation;
    adjustQuat(d);
    const osg::Vec3d v = d.asVec3();
    const double l = v.length();
    data->m_angle = static_cast<float>(2.0 * std::atan(l / d.w()));
    data->m_axis = l <= 0.001 ? osg::Vec3f(0.0f, 0.0f, 1.0f) : osg::Vec3f(v / l);
    data->m_elapsed = 0.0f;
    data->m_startCenter = _center;
    data->m_startDistance = static_cast<float>(_distance);
    data->m_targetCenter = center;
    data->m_targetDistance = distance;
    data->_animationTime = animationTime;
    data->_startTime = startTime;
    data->_isAnimating = true;
    _animationData = data;
}

bool CustomizeManipulator::performAnimationMovement(const GA& ea, osgGA::GUIActionAdapter& us)
{
    auto* data = dynamic_cast<CameraTransformAnimationData*>(_animationData.get());
    ViewInfo* info = ViewInfo::of(m_pViewer);
    if (!data || !info || !info->canvas)
        return false;
    double t = 0.0;
    switch (info->canvas->getTriggerUpdateType()) {
    case 1: {
        // Frame-stepped: the same number of frames whatever the real frame time.
        const float rate = info->canvas->getMaxFrameRate();
        float step = rate > 0.0f ? 1.0f / rate : 1.0f / 60.0f;
        if (data->m_elapsed + step > data->_animationTime)
            step = static_cast<float>(data->_animationTime) - data->m_elapsed;
        data->m_elapsed += step;
        t = data->_animationTime > 0.0 ? data->m_elapsed / data->_animationTime : 1.0;
        break;
    }
    case 0:
        t = data->_animationTime > 0.0 ? (ea.getTime() - data->_startTime) / data->_animationTime
                                       : 1.0;
        break;
    default:
        qCCritical(orvane) << "TriggerUpdateType is undefined!";
        break;
    }
    if (t >= 1.0) {
        t = 1.0;
        data->_isAnimating = false;
        if (!_thrown)
            us.requestContinuousUpdate(false);
    }
    applyAnimationStep(t, data->_phase);
    data->_phase = t;
    us.requestRedraw();
    if (!data->_isAnimating)
        AnimationMgr::instance()->finishAnimation(this);
    return data->_isAnimating;
}

void CustomizeManipulator::applyAnimationStep(const double t, const double)
{
    auto* data = dynamic_cast<CameraTransformAnimationData*>(_animationData.get());
    Q_ASSERT_X(data, "applyAnimationStep", "cur_animation_data != nullptr");
    if (!data)
        return;
    setCenter(data->m_startCenter + (data->m_targetCenter - data->m_startCenter) * t);
    const double d = data->m_startDistance + t * (data->m_targetDistance - data->m_startDistance);
    if (d >= 1e-6) {
        setDistance(d);
    } else if (_node.valid() && _node->getBound().valid()) {
        setDistance(computeFitDistance(_node->getBound(), camera()));
    } else {
        qCCritical(orvane) << "bounding sphere is not valid, cannot compute distance.";
    }
    const double a = t * data->m_angle;
    const osg::Quat q(osg::Vec4d(osg::Vec3d(data->m_axis) * std::sin(a / 2.0), std::cos(a / 2.0)));
    setRotation(q * data->m_startRotation);
}

void CustomizeManipulator::finishAnimation()
{
    osgGA::OrbitManipulator::finishAnimation();
    auto* data = dynamic_cast<CameraTransformAnimationData*>(_animationData.get());
    if (data && data->_isAnimating) {
        data->_isAnimating = false;
        AnimationMgr::instance()->finishAnimation(this);
    }
}

void CustomizeManipulator::setCameraDirectionType(DirectionType type, bool animated)
{
    FitOperationAuto::restoreIfExistNanValue(m_pViewer);
    ViewInfo* info = ViewInfo::of(m_pViewer);
    if (!info || !info->canvas)
        return;
    const osg::Quat r = directionRotation(type);
    osg::ref_ptr<CustomizeManipulator> self = this;
    osg::ref_ptr<osgViewer::View> view = m_pViewer;
    osg::ref_ptr<CanvasBase> canvas = info->canvas;
    info->canvas->addOperation(new LambdaOperation([self, view, canvas, r, animated](RenderInfo&) {
        osg::BoundingSphere sphere = self->getValidBoundingSphere();
        if (!sphere.valid() && self->getNode())
            sphere = self->getNode()->getBound();
        osg::Vec3f centre;
        double distance = 1.0;
        if (sphere.valid()) {
            centre = sphere.center();
            distance = self->computeFitDistance(sphere, self->camera());
        }
        if (!animated) {
            self->_center = centre;
            self->_distance = distance;
            self->_rotation = r;
            return;
        }
        UpdateCameraOperation::Param param;
        param.rotation = r;
        param.center = centre;
        param.view = view;
        param.distance = static_cast<float>(distance);
        param.animationTime = kDirectionTime;
        osg::ref_ptr<UpdateCameraOperation> update = new UpdateCameraOperation(param);
        update->setDistanceLimitActive(false);
        canvas->addOperation(update.get());
    }));
}

osg::Operation* CustomizeManipulator::setCameraDirectionTypeOperation(DirectionType type,
                                                                      bool animated,
                                                                      float distanceScale)
{
    const osg::Quat r = directionRotation(type);
    if (animated)
        return setCameraPosWithAnimationOperation(r, true, kDirectionTime, distanceScale);
    UpdateCameraOperation::Param param;
    param.animated = false;
    param.rotation = r;
    param.distanceScale = distanceScale;
    param.view = m_pViewer;
    param.fitToNode = true;
    return new UpdateCameraOperation(param);
}

osg::Operation* CustomizeManipulator::setCameraPosWithAnimationOperation(const osg::Quat& rotation,
                                                                         bool fitToNode,
                                                                         float animationTime,
                                                                         float distanceScale)
{
    UpdateCameraOperation::Param param;
    param.animated = true;
    param.animationTime = animationTime;
    param.distanceScale = distanceScale;
    param.rotation = rotation;
    param.fitToNode = fitToNode;
    param.view = m_pViewer;
    return new UpdateCameraOperation(param);
}

void CustomizeManipulator::setCameraPosWithAnimation(const osg::Quat& rotation, bool fitToNode,
                                                     float animationTime)
{
    ViewInfo* info = ViewInfo::of(m_pViewer);
    if (!info || !info->canvas)
        return;
    info->canvas->addOperation(
        setCameraPosWithAnimationOperation(rotation, fitToNode, animationTime, 3.5f));
}

void CustomizeManipulator::checkIsAlreadyFit(float distance, const osg::Vec3f& center,
                                             bool isManualFitView)
{
    constexpr float e = 1e-4f;
    bool same = std::abs(distance - static_cast<float>(_distance)) < e;
    // During a scan only the distance counts.
    if (!SceneFlags::scanState()) {
        const osg::Vec3f c = _center;
        same = same && std::abs(c.x() - center.x()) < e && std::abs(c.y() - center.y()) < e &&
               std::abs(c.z() - center.z()) < e;
    }
    if (!same)
        return;
    emit isAlreadyFitState(isManualFitView);
    qCInfo(orvane) << "=== is already fit ===";
}

void CustomizeManipulator::setMouseInGizemoFitRegion(bool in)
{
    if (in != m_mouseInGizmoFitRegion) {
        emit isMouseInGizemoFitRegion(in);
        qCInfo(orvane) << "setMouseInGizemoFitRegion:" << (in ? "in" : "out");
    }
    m_mouseInGizmoFitRegion = in;
}

osg::Matrixd CustomizeManipulator::getPrjMatAndOrthoAdjustByDist(double distance) const
{
    osg::Camera* cam = camera();
    if (!cam)
        return osg::Matrixd::identity();
    double l, r, b, t, n, f;
    if (!cam->getProjectionMatrixAsOrtho(l, r, b, t, n, f))
        return cam->getProjectionMatrix();
    const double top = distance * std::tan(osg::DegreesToRadians(m_perspectiveFov / 2.0));
    const double aspect = t != b ? (r - l) / (t - b) : 1.0;
    return osg::Matrixd::ortho(-top * aspect, top * aspect, -top, top, n, f);
}
