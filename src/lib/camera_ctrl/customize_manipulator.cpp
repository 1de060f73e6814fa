#include "customize_manipulator.h"

#include "basic_shapes.h"
#include "depth_callbacks.h"
#include "orvane_log.h"
#include "scene_flags.h"
#include "selectDepthCallback.h"
#include "valid_bound_visitor.h"

#include <cmath>
#include <limits>
#include <osg/BoundsChecking>
#include <osg/ComputeBoundsVisitor>
#include <osg/Notify>

using namespace Vorna::Orvane;
using GA = osgGA::GUIEventAdapter;

int CustomizeManipulator::m_maximumDistanceFlagIndex = allocateRelativeFlag();

namespace {

bool scanning()
{
    return SceneFlags::scanState();
}

bool isOrthographic(const osg::Camera* camera)
{
    double l, r, b, t, n, f;
    return camera && camera->getProjectionMatrixAsOrtho(l, r, b, t, n, f);
}

// A touch point in [-1, 1] on the event's range.
osg::Vec2f normalisedTouch(const GA& ea, unsigned int index)
{
    const GA::TouchData::TouchData::TouchPoint& p = ea.getTouchData()->get(index);
    const float x = (p.x - ea.getXmin()) * 2.0f / (ea.getXmax() - ea.getXmin()) - 1.0f;
    const float y = (p.y - ea.getYmin()) * 2.0f / (ea.getYmax() - ea.getYmin()) - 1.0f;
    return osg::Vec2f(x, y);
}

} // namespace

CustomizeManipulator::CustomizeManipulator(int)
    : osgGA::OrbitManipulator(UPDATE_MODEL_SIZE | PROCESS_MOUSE_WHEEL),
      _maximumDistance(std::numeric_limits<double>::max())
{
    setVerticalAxisFixed(false);
    setAllowThrow(false);
    setAutoComputeHomePosition(true);
    setMinimumDistance(0.0, false);
    setMaximumDistance(std::numeric_limits<double>::max(), false);
    m_rotateSensitivity = 1.5f;

    const int alt = GA::MODKEY_ALT;   // 48, either Alt
    const int meta = GA::MODKEY_META; // 192, either Meta
    const int left = GA::LEFT_MOUSE_BUTTON;
    const int right = GA::RIGHT_MOUSE_BUTTON;
    if (m_interactOpPlatform) {
        m_deviceActionOperators[{0, right}] = Rotate;
        m_deviceActionOperators[{0, left | right}] = Move;
    } else {
        m_deviceActionOperators[{alt, left}] = Rotate;
        m_deviceActionOperators[{0, right}] = Move;
    }
    m_deviceActionOperators[{meta, right}] = Move;
    m_deviceActionOperators[{meta, left}] = Move;
    m_deviceActionOperators[{0, left}] = Rotate;
    m_deviceActionOperators[{GA::MODKEY_SHIFT, left}] = None;

    initRotateMap(m_rotateMap);
    m_showRotateCenter = false;
    initRotateCenterSphere();
    m_projectionHandle = nullptr;
}

CustomizeManipulator::~CustomizeManipulator() = default;

void CustomizeManipulator::initRotateCenterSphere()
{
    m_rotateCenterGroup = new osg::Group;
    m_rotateCenterGroup->setName("rotate_center_sphere");
    m_rotateCenterTransform = new osg::MatrixTransform;
    osg::Node* sphere = createSolidSphere(osg::Vec3f(), 1.0f, osg::Vec4f(1, 1, 0, 1));
    sphere->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::ON);
    sphere->getOrCreateStateSet()->setMode(GL_DEPTH_TEST, osg::StateAttribute::ON);
    m_rotateCenterTransform->addChild(sphere);
    m_rotateCenterGroup->addChild(m_rotateCenterTransform);
}

void CustomizeManipulator::setOSGViewer(osgViewer::View* view)
{
    if (view == m_pViewer)
        return;
    m_pViewer = view;
    if (!view)
        return;
    osg::Camera* cam = view->getCamera();
    cam->addPostDrawCallback(new ReadMousePosPostDrawCallback);
    cam->addPostDrawCallback(new ScreenPostDrawCallback(cam));
    cam->addPostDrawCallback(new SelectDepthCallback);
}

void CustomizeManipulator::setDeviceActionOperatorType(const DeviceAction& action,
                                                       CCMOperatorType type)
{
    m_deviceActionOperators[action] = type;
}

CustomizeManipulator::CCMOperatorType
CustomizeManipulator::operatorOf(const DeviceAction& action) const
{
    auto it = m_deviceActionOperators.find(action);
    return it == m_deviceActionOperators.end() ? None : it->second;
}

bool CustomizeManipulator::getIsMoving() const
{
    auto it = m_deviceActionOperators.find({0, GA::LEFT_MOUSE_BUTTON});
    return it != m_deviceActionOperators.end() && it->second == Move;
}

void CustomizeManipulator::setRotateMode(bool useBaseTrackball, float sensitivity)
{
    m_useBaseTrackball = useBaseTrackball;
    m_rotateSensitivity = sensitivity;
}

void CustomizeManipulator::setMaximumDistance(double distance, bool relativeToModelSize)
{
    _maximumDistance = distance;
    setRelativeFlag(m_maximumDistanceFlagIndex, relativeToModelSize);
}

double CustomizeManipulator::getMaximumDistance(bool* relativeToModelSize) const
{
    if (relativeToModelSize)
        *relativeToModelSize = getRelativeFlag(m_maximumDistanceFlagIndex);
    return _maximumDistance;
}

void CustomizeManipulator::resetMouseEventStack()
{
    flushMouseEventStack();
    m_lastTouchEvent = nullptr;
}

void CustomizeManipulator::setTrackballSize(const double& size)
{
    _trackballSize = size;
    osg::clampBetweenRange(_trackballSize, 0.1, 1.0,
                           "TrackballManipulator::setTrackballSize(float)");
}

void CustomizeManipulator::setRotateCenter(const osg::Vec3f& center)
{
    m_rotateCenter = center;
    if (m_showRotateCenter)
        updateRotateCenterSpherePos();
}

void CustomizeManipulator::updateRotateCenterSpherePos()
{
    osg::Group* root = _node.valid() ? _node->asGroup() : nullptr;
    if (!root)
        return;
    bool present = false;
    for (unsigned int i = 0; i < root->getNumChildren(); ++i)
        present = present || root->getChild(i)->getName() == "rotate_center_sphere";
    if (!present)
        root->addChild(m_rotateCenterGroup.get());
    m_rotateCenterTransform->setMatrix(osg::Matrix::translate(m_rotateCenter));
}

double CustomizeManipulator::viewportAspect() const
{
    const osg::Viewport* vp = camera() ? camera()->getViewport() : nullptr;
    return vp && vp->height() > 0 ? vp->width() / vp->height() : 1.0;
}

osg::Matrixd CustomizeManipulator::worldToWindow() const
{
    osg::Camera* cam = camera();
    if (!cam || !cam->getViewport())
        return osg::Matrixd::identity();
    return cam->getViewMatrix() * cam->getProjectionMatrix() *
           cam->getViewport()->computeWindowMatrix();
}

osg::Vec2f CustomizeManipulator::getMultiTouchCenter(const GA& ea) const
{
    const auto& p0 = ea.getTouchData()->get(0);
    const auto& p1 = ea.getTouchData()->get(1);
    return osg::Vec2f((p0.x + p1.x) * 0.5f, (p0.y + p1.y) * 0.5f);
}

osg::Vec2f CustomizeManipulator::windowPosition(const GA& ea) const
{
    osg::Vec2f p(ea.getX(), ea.getY());
    if (ea.isMultiTouchEvent() && ea.getTouchData()->getNumTouchPoints() > 1)
        p = getMultiTouchCenter(ea);
    // Depth reads and the window matrix count rows from the bottom.
    if (ea.getMouseYOrientation() == GA::Y_INCREASING_DOWNWARDS)
        p.y() = ea.getYmin() + ea.getYmax() - p.y();
    return p;
}

void CustomizeManipulator::setNode(osg::Node* node)
{
    _node = node;
    _modelSize = node && node->getBound().valid() ? node->getBound().radius() : 0.0;
}

osg::BoundingSphere CustomizeManipulator::getValidBoundingSphere() const
{
    if (!_node.valid())
        return osg::BoundingSphere();
    ValidBoundSphereVisitor visitor;
    const_cast<osg::Node*>(_node.get())->accept(visitor);
    return visitor.getBoundingSphere();
}

osg::BoundingBox CustomizeManipulator::getValidBoundingBox() const
{
    if (!_node.valid())
        return osg::BoundingBox();
    ValidBoundBoxVisitor visitor;
    const_cast<osg::Node*>(_node.get())->accept(visitor);
    return visitor.getBoundingBox();
}

double CustomizeManipulator::computeFitDistance(const osg::BoundingSphere& sphere,
                                                const osg::Camera* cam) const
{
    if (!sphere.valid() || !cam)
        return 0.0;
    double l, r, b, t, n, f;
    if (cam->getProjectionMatrixAsFrustum(l, r, b, t, n, f)) {
        const double h = std::min(std::abs(r - l) / n * 0.5, std::abs(t - b) / n * 0.5);
        return sphere.radius() / std::sin(std::atan2(h, 1.0));
    }
    if (cam->getProjectionMatrixAsOrtho(l, r, b, t, n, f))
        return sphere.radius() * 2.923;
    return sphere.radius() * 3.5;
}

void CustomizeManipulator::computeHomePosition(const osg::Camera* cam, bool useBoundingBox)
{
    if (!_node.valid())
        return;
    osg::BoundingSphere sphere;
    if (useBoundingBox) {
        osg::ComputeBoundsVisitor visitor;
        _node->accept(visitor);
        if (visitor.getBoundingBox().valid())
            sphere.expandBy(visitor.getBoundingBox());
        else
            sphere = _node->getBound();
    } else {
        sphere = _node->getBound();
    }
    sphere.radius() = std::max(static_cast<double>(sphere.radius()), 1e-6);
    if (cam && m_manipulatorType == Orthographic && camera() && camera()->getViewport()) {
        const osg::Viewport* vp = camera()->getViewport();
        const double w = sphere.radius() * vp->width() / vp->height();
        camera()->setProjectionMatrixAsOrtho(-w, w, -sphere.radius(), sphere.radius(), 1.0,
                                             10000.0);
        setRotateCenter(sphere.center());
    }
    // home(double) passes no camera; the view's own camera still knows the projection.
    const double d = computeFitDistance(sphere, cam ? cam : camera());
    setHomePosition(sphere.center() + osg::Vec3d(0.0, -d, 0.0), sphere.center(),
                    osg::Vec3d(0.0, 0.0, 1.0), getAutoComputeHomePosition());
}

void CustomizeManipulator::home(const GA& ea, osgGA::GUIActionAdapter& us)
{
    if (_node.valid() && _node->getBound().valid())
        osgGA::OrbitManipulator::home(ea, us);
}

void CustomizeManipulator::home(double currentTime)
{
    if (_node.valid() && _node->getBound().valid())
        osgGA::OrbitManipulator::home(currentTime);
}

void CustomizeManipulator::setCenter(const osg::Vec3d& center)
{
    m_orthoCenterShift = 0.0f;
    _center = center;
}

void CustomizeManipulator::writeOrthoFrustum(double top, double aspect, double zNear, double zFar)
{
    osg::Camera* cam = camera();
    const double right = top * aspect;
    cam->setProjectionMatrixAsOrtho(-right, right, -top, top, zNear, zFar);
    const float scale = m_frustum.refNear / m_frustum.zNear;
    m_frustum.left = static_cast<float>(-right / scale);
    m_frustum.right = static_cast<float>(right / scale);
    m_frustum.bottom = static_cast<float>(-top / scale);
    m_frustum.top = static_cast<float>(top / scale);
}

void CustomizeManipulator::setDistance(double distance)
{
    _distance = distance;
    osg::Camera* cam = camera();
    double l, r, b, t, n, f;
    if (!cam || !cam->getProjectionMatrixAsOrtho(l, r, b, t, n, f))
        return;
    const double top = distance * std::tan(osg::DegreesToRadians(m_perspectiveFov / 2.0));
    writeOrthoFrustum(top, viewportAspect(), n, f);
    cam->setViewMatrix(getInverseMatrix());
}

void CustomizeManipulator::setTransformation(const osg::Vec3d& eye, const osg::Vec3d& center,
                                             const osg::Vec3d& up)
{
    osg::Vec3d f = center - eye;
    f.normalize();
    osg::Vec3d s = f ^ up;
    s.normalize();
    osg::Vec3d u = s ^ f;
    u.normalize();
    const osg::Matrixd rotation(s[0], u[0], -f[0], 0.0, s[1], u[1], -f[1], 0.0, s[2], u[2], -f[2],
                                0.0, 0.0, 0.0, 0.0, 1.0);
    // A running scan keeps its zoom, unless the scan has just changed state.
    if (!scanning() || SceneFlags::takeScanStateChanged())
        _distance = (center - eye).length();
    _center = center;
    _rotation = rotation.getRotate().inverse();
    if (getVerticalAxisFixed())
        fixVerticalAxis(_center, _rotation, true);

    osg::Camera* cam = camera();
    double l, r, b, t, n, fa;
    if (cam && cam->getProjectionMatrixAsOrtho(l, r, b, t, n, fa)) {
        const double top = _distance * std::tan(osg::DegreesToRadians(20.0));
        const double aspect = viewportAspect();
        cam->setProjectionMatrixAsOrtho(-top * aspect, top * aspect, -top, top, n, fa);
        cam->setViewMatrix(getInverseMatrix());
    }
}

void CustomizeManipulator::setManipulatorType(const ManipulatorType& type)
{
    m_manipulatorType = type;
    osg::Camera* cam = camera();
    if (!cam) {
        if (m_projectionHandle)
            m_projectionHandle(type == Perspective);
        return;
    }
    const double tanHalf = std::tan(osg::DegreesToRadians(m_perspectiveFov / 2.0));
    const double aspect = viewportAspect();
    if (type == Perspective) {
        if (m_orthoCenterShift != 0.0f) {
            osg::Vec3d inView = _center * cam->getViewMatrix();
            inView.z() += m_orthoCenterShift;
            _center = inView * osg::Matrixd::inverse(cam->getViewMatrix());
            m_orthoCenterShift = 0.0f;
        }
        double l, r, b, t, n, f;
        if (cam->getProjectionMatrixAsOrtho(l, r, b, t, n, f)) {
            _distance = t / tanHalf;
            _center = osg::Vec3d(0.0, 0.0, -_distance) * getMatrix();
            cam->setProjectionMatrixAsPerspective(m_perspectiveFov, aspect, 0.01, 1000.0);
        } else {
            cam->setProjectionMatrixAsPerspective(m_perspectiveFov, aspect, m_frustum.zNear,
                                                  m_frustum.zFar);
        }
    } else {
        updateAsLookAt();
        const double h = _distance * tanHalf;
        cam->setProjectionMatrixAsOrtho(-h * aspect, h * aspect, -h, h, m_frustum.zNear,
                                        m_frustum.zFar);
        m_frustum.top = static_cast<float>(h * m_frustum.zNear / m_frustum.refNear);
        m_frustum.bottom = -m_frustum.top;
        m_frustum.right = static_cast<float>(m_frustum.top * aspect);
        m_frustum.left = -m_frustum.right;
    }
    if (m_projectionHandle)
        m_projectionHandle(type == Perspective);
}

void CustomizeManipulator::updateAsLookAt()
{
    osg::Camera* cam = camera();
    const osg::Matrixd view = getInverseMatrix();
    if (m_boundingBox.valid()) {
        const double d = -(m_boundingBox.center() * view).z();
        if (d > 0.0)
            _distance = d;
        return;
    }
    if (_node.valid() && cam) {
        const double d = -(_node->getBound().center() * view).z();
        if (d > 0.0) {
            _distance = d;
            _center = osg::Vec3d(0.0, 0.0, -_distance) * getMatrix();
        }
        return;
    }
    _center = osg::Vec3d(0.0, 0.0, -_distance) * getMatrix();
}

void CustomizeManipulator::setPerspectiveFovy(float fovy)
{
    if (fovy == m_perspectiveFov)
        return;
    m_perspectiveFov = fovy;
    osg::Camera* cam = camera();
    if (!cam)
        return;
    double fov, aspect, n, f, l, r, b, t;
    if (cam->getProjectionMatrixAsPerspective(fov, aspect, n, f)) {
        cam->setProjectionMatrixAsPerspective(fovy, aspect, n, f);
    } else if (cam->getProjectionMatrixAsOrtho(l, r, b, t, n, f)) {
        const double top = _distance * std::tan(osg::DegreesToRadians(fovy / 2.0));
        writeOrthoFrustum(top, t != b ? (r - l) / (t - b) : 1.0, n, f);
    }
}

void CustomizeManipulator::updateCamera(osg::Camera& cam)
{
    emit updated();
    cam.setViewMatrix(getInverseMatrix());
    bool differs = false;
    if (_rotation != m_lastRotation) {
        m_lastRotation = _rotation;
        differs = true;
    }
    if (_center != m_lastCenter) {
        m_lastCenter = _center;
        differs = true;
    }
    if (_distance != m_lastDistance) {
        m_lastDistance = _distance;
        differs = true;
    }
    if (differs)
        emit changed();
}

void CustomizeManipulator::updateSelectDepthCallback()
{
    if (!m_pViewer || !m_isNonThroughSelect)
        return;
    if (auto* callback = findPostDrawCallback<SelectDepthCallback>(camera()))
        callback->setIsReadDepth(true);
}

void CustomizeManipulator::updateMousePosInPostDrawCallback(const GA& ea)
{
    if (auto* callback = findPostDrawCallback<ReadMousePosPostDrawCallback>(camera()))
        callback->setMousePos(windowPosition(ea));
}

bool CustomizeManipulator::handle(const GA& ea, osgGA::GUIActionAdapter& us)
{
    if (m_isNonThroughSelect != m_lastNonThroughSelect) {
        m_lastNonThroughSelect = m_isNonThroughSelect;
        updateSelectDepthCallback();
    }
    const GA::EventType type = ea.getEventType();
    if (type == GA::MOVE || type == GA::DRAG || type == GA::SCROLL)
        updateMousePosInPostDrawCallback(ea);

    // A running scan owns the camera: only the wheel may zoom.
    if (scanning())
        return type == GA::SCROLL ? handleMouseWheel(ea, us) : false;

    if (type == GA::FRAME)
        return handleFrame(ea, us);
    if (type == GA::RESIZE)
        return handleResize(ea, us);

    m_spaceMouseOpeState.mouseOperating = false;
    const unsigned int buttons =
        GA::LEFT_MOUSE_BUTTON | GA::MIDDLE_MOUSE_BUTTON | GA::RIGHT_MOUSE_BUTTON;
    if (((type == GA::PUSH || type == GA::DRAG) && (ea.getButtonMask() & buttons)) ||
        type == GA::SCROLL) {
        m_spaceMouseOpeState.mouseOperating = true;
        m_spaceMouseOpeState.spaceMouseOperating = false;
    }
    if (ea.getHandled())
        return false;
    if (auto* view = dynamic_cast<osgViewer::View*>(us.asView()))
        setNode(view->getSceneData());

    if ((type == GA::PUSH || type == GA::RELEASE || type == GA::DRAG) && handleMultiTouch(ea, us))
        return true;

    switch (type) {
    case GA::PUSH:
        return handleMousePush(ea, us);
    case GA::RELEASE:
        return handleMouseRelease(ea, us);
    case GA::DRAG:
        return handleMouseDrag(ea, us);
    case GA::MOVE:
        return osgGA::OrbitManipulator::handleMouseMove(ea, us);
    case GA::KEYDOWN:
        return handleKeyDown(ea, us);
    case GA::KEYUP:
        return handleKeyUp(ea, us);
    case GA::SCROLL:
        return (_flags & PROCESS_MOUSE_WHEEL) ? handleMouseWheel(ea, us) : false;
    default:
        return false;
    }
}

bool CustomizeManipulator::handleKeyDown(const GA& ea, osgGA::GUIActionAdapter&)
{
    if (ea.getKey() == '1')
        m_rotateCenterKeyDown = true;
    return false;
}

bool CustomizeManipulator::handleKeyUp(const GA& ea, osgGA::GUIActionAdapter&)
{
    if (ea.getKey() == '1')
        m_rotateCenterKeyDown = false;
    return false;
}

bool CustomizeManipulator::handleMousePush(const GA& ea, osgGA::GUIActionAdapter& us)
{
    if ((ea.getModKeyMask() & GA::MODKEY_ALT) && m_rotateCenterKeyDown)
        m_pickRotateCenterOnRelease = true;
    return osgGA::OrbitManipulator::handleMousePush(ea, us);
}

bool CustomizeManipulator::handleMouseDrag(const GA& ea, osgGA::GUIActionAdapter& us)
{
    return osgGA::OrbitManipulator::handleMouseDrag(ea, us);
}

bool CustomizeManipulator::handleMouseRelease(const GA& ea, osgGA::GUIActionAdapter& us)
{
    if (m_pickRotateCenterOnRelease) {
        osg::Vec3f point;
        // A miss keeps the pick armed for the next release.
        if (computeIntersect(ea, _node.get(), point)) {
            m_rotateCenter = point;
            m_pickRotateCenterOnRelease = false;
        }
    }
    return osgGA::OrbitManipulator::handleMouseRelease(ea, us);
}

bool CustomizeManipulator::performMovement()
{
    if (!m_enabled || !_ga_t0.valid() || !_ga_t1.valid())
        return false;
    double dt = _ga_t0->getTime() - _ga_t1->getTime();
    if (dt < 0.0) {
        OSG_WARN << "Manipulator warning: eventTimeDelta = " << dt << std::endl;
        dt = 0.0;
    }
    const float dx = _ga_t0->getXnormalized() - _ga_t1->getXnormalized();
    const float dy = _ga_t0->getYnormalized() - _ga_t1->getYnormalized();
    if (dx == 0.0f && dy == 0.0f)
        return false;
    const unsigned int buttons = _ga_t1->getButtonMask();
    auto it = m_deviceActionOperators.find(
        {static_cast<int>(_ga_t1->getModKeyMask()), static_cast<int>(buttons)});
    if (it == m_deviceActionOperators.end())
        return false;
    switch (it->second) {
    case Rotate:
        if ((buttons == GA::LEFT_MOUSE_BUTTON && !m_lbEnable) ||
            (buttons == GA::RIGHT_MOUSE_BUTTON && !m_rbEnable))
            return true;
        rotate(dt, dx, dy);
        return true;
    case Move:
        move(dt, dx, dy);
        return true;
    case Zoom:
        zoomModelCustom(*_ga_t1, dy * getThrowScale(dt), true);
        return true;
    default:
        return false;
    }
}

void CustomizeManipulator::rotate(double dt, double dx, double dy)
{
    if (!getVerticalAxisFixed())
        rotateTrackball(_ga_t0->getXnormalized(), _ga_t0->getYnormalized(),
                        _ga_t1->getXnormalized(), _ga_t1->getYnormalized(), getThrowScale(dt));
    else
        rotateWithFixedVertical(dx, dy);
    emit rotated();
}

void CustomizeManipulator::rotateTrackball(const float px0, const float py0, const float px1,
                                           const float py1, const float scale)
{
    const float a = px0 + (px1 - px0) * scale;
    const float b = py0 + (py1 - py0) * scale;
    osg::Vec3d axis;
    float angle = 0.0f;
    if (m_useBaseTrackball)
        trackball(axis, angle, a, b, px0, py0);
    else
        trackballCustom(axis, angle, a, b, px0, py0);
    const osg::Quat newRotate(angle * m_rotateSensitivity, axis);
    _rotation = _rotation * newRotate;
    // The orbit centre is carried around the rotate centre, so the view turns about it.
    const osg::Vec3f offset = osg::Vec3f(_center) - m_rotateCenter;
    const osg::Vec3f rotated = offset * osg::Matrixf::rotate(newRotate);
    _center = m_rotateCenter + rotated;
}

void CustomizeManipulator::trackballCustom(osg::Vec3d& axis, float& angle, float p1x, float p1y,
                                           float p2x, float p2y)
{
    const osg::Matrixd rotation = osg::Matrixd::rotate(_rotation);
    const osg::Vec3d uv = osg::Vec3d(0, 1, 0) * rotation;
    const osg::Vec3d sv = osg::Vec3d(1, 0, 0) * rotation;
    const osg::Vec3d lv = osg::Vec3d(0, 0, -1) * rotation;
    osg::Vec2f c;
    if (camera() && camera()->getViewport()) {
        const osg::Viewport* vp = camera()->getViewport();
        const osg::Vec3d w = osg::Vec3d(m_rotateCenter) * worldToWindow();
        c.set((w.x() - vp->x()) * 2.0 / vp->width() - 1.0,
              (w.y() - vp->y()) * 2.0 / vp->height() - 1.0);
    }
    p1x -= c.x();
    p1y -= c.y();
    p2x -= c.x();
    p2y -= c.y();
    const osg::Vec3d p1 = sv * p1x + uv * p1y - lv * tb_project_to_sphere(_trackballSize, p1x, p1y);
    const osg::Vec3d p2 = sv * p2x + uv * p2y - lv * tb_project_to_sphere(_trackballSize, p2x, p2y);
    axis = p2 ^ p1;
    axis.normalize();
    const double t = osg::clampBetween((p2 - p1).length() / (2.0 * _trackballSize), -1.0, 1.0);
    angle = static_cast<float>(std::asin(t));
}

void CustomizeManipulator::move(double dt, double dx, double dy)
{
    osg::Camera* cam = camera();
    if (!cam)
        return;
    double l, r, b, t, n, f;
    if (cam->getProjectionMatrixAsFrustum(l, r, b, t, n, f)) {
        const double w0 =
            std::abs(_distance * std::tan(osg::DegreesToRadians(m_perspectiveFov / 2.0)) * 2.0);
        double w = std::max(r - l, w0);
        w = std::max(w, 0.2 * std::abs(f - n));
        const double s = w * -0.5 * getThrowScale(dt);
        const double sy = s * (t - b) / (r - l);
        panModel(static_cast<float>(dx * s), static_cast<float>(dy * sy), 0.0f);
    } else if (cam->getProjectionMatrixAsOrtho(l, r, b, t, n, f) && cam->getViewport()) {
        const double s = (r - l) * -0.5 * getThrowScale(dt);
        const double sy = s * cam->getViewport()->height() / cam->getViewport()->width();
        panModel(static_cast<float>(dx * s), static_cast<float>(dy * sy), 0.0f);
    }
    emit moved();
}

void CustomizeManipulator::panModel(const float dx, const float dy, const float dz)
{
    _center += osg::Vec3d(dx, dy, dz) * osg::Matrixd::rotate(_rotation);
}

bool CustomizeManipulator::handleMultiTouch(const GA& ea, osgGA::GUIActionAdapter&)
{
    if (!ea.isMultiTouchEvent() || ea.getName() == "addtionalTouch")
        return false;
    constexpr double kStep = 1.0 / 60.0;
    const GA::TouchData* touches = ea.getTouchData();
    const unsigned int count = touches->getNumTouchPoints();
    unsigned int ended = 0;
    for (unsigned int i = 0; i < count; ++i)
        ended += touches->get(i).phase == GA::TOUCH_ENDED ? 1 : 0;

    if (ended == 0) {
        const GA* last = m_lastTouchEvent.get();
        const unsigned int lastCount =
            last && last->isMultiTouchEvent() ? last->getTouchData()->getNumTouchPoints() : 0;
        if (count == 3 || (count == 1 && touches->get(0).tapCount > 1)) {
            flushMouseEventStack();
            _thrown = false;
            m_lastTouchEvent = nullptr;
        } else if (count == 2) {
            if (lastCount > 1)
                handleMultiTouchDrag(&ea, last, kStep);
        } else if (count == 1 && lastCount == 1) {
            auto it = m_deviceActionOperators.find({0, GA::LEFT_MOUSE_BUTTON});
            if (it == m_deviceActionOperators.end())
                return false;
            if (it->second == Rotate)
                handleMultiTouchRotate(&ea, last, kStep);
            else if (it->second == Move)
                handleMultiTouchDrag(&ea, last, kStep);
            else
                return false;
        }
    }
    m_lastTouchEvent = new GA(ea, osg::CopyOp::DEEP_COPY_ALL);
    if (ended > 0)
        m_lastTouchEvent = nullptr;
    return true;
}

bool CustomizeManipulator::handleMultiTouchDrag(const GA* now, const GA* last, double dt)
{
    const auto gap = [](const GA* e) {
        const auto& p0 = e->getTouchData()->get(0);
        const auto& p1 = e->getTouchData()->get(1);
        return osg::Vec2f(p0.x - p1.x, p0.y - p1.y).length();
    };
    if (now->getTouchData()->getNumTouchPoints() < 2 ||
        last->getTouchData()->getNumTouchPoints() < 2)
        return handleMultiTouchMove(now, last, dt);
    const float before = gap(last);
    const float z = before != 0.0f ? (before - gap(now)) / before : 0.0f;
    if (std::abs(z) <= 0.02f)
        return handleMultiTouchMove(now, last, dt);
    zoomModelCustom(*now, z, z > 0.0f);
    return true;
}

bool CustomizeManipulator::handleMultiTouchMove(const GA* now, const GA* last, double dt)
{
    const unsigned int points = std::min(now->getTouchData()->getNumTouchPoints(),
                                         last->getTouchData()->getNumTouchPoints());
    if (points == 0)
        return false;
    osg::Vec2f delta = normalisedTouch(*now, 0) - normalisedTouch(*last, 0);
    if (points > 1)
        delta = (delta + normalisedTouch(*now, 1) - normalisedTouch(*last, 1)) * 0.5f;
    move(dt, delta.x(), delta.y());
    return true;
}

bool CustomizeManipulator::handleMultiTouchRotate(const GA* now, const GA* last, double dt)
{
    const osg::Vec2f p = normalisedTouch(*now, 0);
    const osg::Vec2f q = normalisedTouch(*last, 0);
    if (p.x() == q.x() && p.y() == q.y())
        return false;
    const float saved = m_rotateSensitivity;
    m_rotateSensitivity = 3.5f;
    rotateTrackball(p.x(), p.y(), q.x(), q.y(), getThrowScale(dt));
    m_rotateSensitivity = saved;
    emit rotated();
    return true;
}

float CustomizeManipulator::getBBoxRadius2D(float radius) const
{
    osg::Camera* cam = camera();
    if (!cam || !cam->getViewport())
        return 0.0f;
    // The camera's own x axis, so that the span is what the last frame showed.
    const osg::Vec3d side =
        osg::Matrixd::transform3x3(osg::Vec3d(1.0, 0.0, 0.0), cam->getInverseViewMatrix());
    const osg::Matrixd toWindow = worldToWindow();
    const osg::Vec3d centre = osg::Vec3d(m_rotateCenter) * toWindow;
    const osg::Vec3d edge = (osg::Vec3d(m_rotateCenter) + side * radius) * toWindow;
    return static_cast<float>(std::abs(edge.x() - centre.x()));
}

void CustomizeManipulator::rotateTrackballCustom(float scale, osg::Vec3d& axis, float& angle)
{
    if (!_node.valid())
        return;
    const osg::BoundingSphere bound = _node->getBound();
    if (!bound.valid())
        qCCritical(orvane) << "rotateTrackballCustom"
                           << "Boudingsphere is not valid.";
    if (!_ga_t0.valid() || !_ga_t1.valid())
        return;
    const float r = getBBoxRadius2D(bound.radius());
    // A degenerate disc maps every point to infinity.
    if (!(r > 0.0f))
        return;
    const osg::Vec3d c = osg::Vec3d(m_rotateCenter) * worldToWindow();
    const auto onDisc = [&](const osgGA::GUIEventAdapter& ea) {
        const osg::Vec2f p = windowPosition(ea);
        osg::Vec2f d(((p.x() - (c.x() - r)) * 2.0f) / (r * 2.0f) - 1.0f,
                     ((p.y() - (c.y() - r)) * 2.0f) / (r * 2.0f) - 1.0f);
        if (d.length() > 1.0f)
            d /= d.length();
        return d;
    };
    const osg::Vec2f p0 = onDisc(*_ga_t0);
    const osg::Vec2f p1 = onDisc(*_ga_t1);
    trackball(axis, angle, p0.x() + (p1.x() - p0.x()) * scale, p0.y() + (p1.y() - p0.y()) * scale,
              p0.x(), p0.y());
}
