// Zoom about the surface under the cursor, bounded by the model's radius on screen.
#include "customize_manipulator.h"

#include "depth_callbacks.h"
#include "orvane_log.h"
#include "scene_flags.h"
#include "view_info.h"

#include <QtGlobal>
#include <cmath>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/LineSegmentIntersector>

using namespace Vorna::Orvane;
using GA = osgGA::GUIEventAdapter;

namespace {

bool scanning()
{
    return SceneFlags::scanState();
}

bool hasNan(const osg::Vec3d& v)
{
    return std::isnan(v.x()) || std::isnan(v.y()) || std::isnan(v.z());
}

// Scales p about c in x and y, following the line from p to c in z.
osg::Vec3f scaleAbout(const osg::Vec3f& p, const osg::Vec3f& c, float scale)
{
    osg::Vec3f r;
    r.x() = c.x() - scale * (c.x() - p.x());
    r.y() = c.y() - scale * (c.y() - p.y());
    const float s = scale < 1.0f ? 1.0f : -1.0f;
    const float span = std::abs(c.x() - p.x());
    const float along = span > 0.0f ? std::abs(p.x() - r.x()) / span : 0.0f;
    r.z() = p.z() + ((c.z() - p.z()) * along) * s;
    return r;
}

} // namespace

bool CustomizeManipulator::handleMouseWheel(const GA& ea, osgGA::GUIActionAdapter& us)
{
    if (!m_enabled)
        return false;
    if ((ea.getModKeyMask() & GA::MODKEY_SHIFT) && !m_shiftWheelEnable)
        return true;
    const GA::ScrollingMotion motion = ea.getScrollingMotion();
    if ((_flags & SET_CENTER_ON_WHEEL_FORWARD_MOVEMENT) &&
        ((motion == GA::SCROLL_DOWN && _wheelZoomFactor > 0.0) ||
         (motion == GA::SCROLL_UP && _wheelZoomFactor < 0.0))) {
        if (getAnimationTime() <= 0.0)
            setCenterByMousePointerIntersection(ea, us);
        else if (!isAnimating())
            startAnimationByMousePointerIntersection(ea, us);
    }
    switch (motion) {
    case GA::SCROLL_UP:
        zoomModelCustom(ea, static_cast<float>(-_wheelZoomFactor), false);
        return true;
    case GA::SCROLL_DOWN:
        zoomModelCustom(ea, static_cast<float>(_wheelZoomFactor), true);
        return true;
    default:
        return false;
    }
}

void CustomizeManipulator::zoomModelCustom(const GA& ea, float dy, bool zoomOut)
{
    if (m_spaceMouseOpeState.spaceMouseOperating)
        return;
    // Softer wheel steps in perspective.
    const float scale = 1.0f + (m_manipulatorType == Perspective ? dy * 0.8f : dy);
    double newDistance = _distance * scale;
    if (!zoomOut) {
        const double limit = getRelativeFlag(_minimumDistanceFlagIndex)
                                 ? _minimumDistance * _modelSize
                                 : _minimumDistance;
        if (newDistance < limit)
            return;
    } else {
        const double limit = getRelativeFlag(m_maximumDistanceFlagIndex)
                                 ? _maximumDistance * _modelSize
                                 : _maximumDistance;
        if (newDistance > limit)
            return;
    }
    // The next frame brings a fresh depth image; this step uses the last one.
    if (auto* screen = findPostDrawCallback<ScreenPostDrawCallback>(camera()))
        screen->needReadPixels(true);
    if (dy < 0.0f && newDistance < 0.01)
        newDistance = 0.01;
    const osg::Vec3f savedCenter = _center;
    const bool scan = scanning();
    if (scan)
        m_scanDistanceChange = m_scanDistanceChange + static_cast<float>(newDistance - _distance);
    if (!zoomModelPost(ea, scale, zoomOut))
        return;

    _distance = newDistance;
    avoidDistanceNan();
    setDistance(_distance);
    avoidCenterNanWhenZoom(ea, savedCenter, scale);
    emit scaled();

    if (!scan && m_manipulatorType == Perspective && dy > 0.0f && m_pViewer &&
        ViewInfo::of(m_pViewer) && _node.valid()) {
        const float radius = _node->getBound().radius();
        if (_distance > radius * 3.5) {
            qCDebug(orvane) << "__vv__warning__"
                            << "zoomModelCustom" << __LINE__ << "auto fit after zoom"
                            << "scanState:" << scan << "cameraDistance:" << _distance
                            << "modelRadius:" << radius;
            OptimizeCameraParam();
        }
    }
}

void CustomizeManipulator::OptimizeCameraParam()
{
    const osg::Matrixd m = getMatrix();
    if (_node.valid()) {
        const double d = computeFitDistance(_node->getBound(), camera());
        if (d <= 0.0)
            return;
        _distance = d;
    }
    _center = osg::Vec3d(0.0, 0.0, -_distance) * m;
}

float CustomizeManipulator::getBoundingSphereScreenRadius(const osg::BoundingSphere& sphere) const
{
    osg::Camera* cam = camera();
    if (!cam || !cam->getViewport())
        return 0.0f;
    const osg::Matrixd toWindow =
        cam->getProjectionMatrix() * cam->getViewport()->computeWindowMatrix();
    const osg::Vec3d centre = sphere.center() * cam->getViewMatrix();
    const osg::Vec3d edge = centre + osg::Vec3d(sphere.radius(), 0.0, 0.0);
    return static_cast<float>(std::abs((edge * toWindow).x() - (centre * toWindow).x()));
}

bool CustomizeManipulator::zoomModelPost(const GA& ea, float scale, bool zoomOut)
{
    osg::Camera* cam = camera();
    if (!m_pViewer || !cam || !cam->getViewport() || !_node.valid())
        return false;
    const osg::BoundingSphere bound = _node->getBound();
    if (!(bound.radius() > 0.0f))
        return false;

    const float screenRadius = getBoundingSphereScreenRadius(bound);
    const int height = static_cast<int>(cam->getViewport()->height());
    const float minRadius = std::max(m_minZoomThreshold * height, 20.0f);
    const float maxRadius = m_maxZoomThreshold * height;
    const bool scan = scanning();
    if (zoomOut && screenRadius < minRadius) {
        qCDebug(orvane) << "__vv__warning__"
                        << "zoomModelPost" << __LINE__ << "zoom blocked by min screen radius"
                        << "scanState:" << scan << "screenRadius:" << screenRadius
                        << "minThreshold:" << minRadius;
        return false;
    }
    if (!zoomOut && screenRadius > maxRadius) {
        qCDebug(orvane) << "__vv__warning__"
                        << "zoomModelPost" << __LINE__ << "zoom blocked by max screen radius"
                        << "scanState:" << scan << "screenRadius:" << screenRadius
                        << "maxThreshold:" << maxRadius;
        return false;
    }
    osg::Vec3f point;
    if (!scan && !calculateZoomCenter(ea, point, zoomOut))
        return false;

    if (m_manipulatorType == Perspective) {
        if (!scan)
            _center = point + (osg::Vec3f(_center) - point) * scale;
        return true;
    }
    const osg::Matrixd view = cam->getViewMatrix();
    const osg::Vec3f zc = point * view;
    osg::Vec3f a = _center * view;
    a.z() += m_orthoCenterShift;
    a = scaleAbout(a, zc, scale);
    osg::Vec3f b = scaleAbout(_center * view, zc, scale);
    // The plane of the model's front.
    b.z() = (bound.center() * view).z() + bound.radius();
    m_orthoCenterShift = a.z() - b.z();
    _center = osg::Vec3d(b) * osg::Matrixd::inverse(view);
    return true;
}

bool CustomizeManipulator::calculateZoomCenter(const GA& ea, osg::Vec3f& out, bool keepLast)
{
    if (!m_pViewer || !camera() || !_node.valid() || !(_node->getBound().radius() > 0.0f))
        return false;
    osg::Vec3f point;
    if (!getZoomCenterEx(ea, point, keepLast))
        return false;
    out = point;
    return true;
}

bool CustomizeManipulator::getZoomCenterEx(const GA& ea, osg::Vec3f& out, bool keepLast)
{
    if (!m_pViewer) {
        qCWarning(orvane) << "m_pViewer is nullptr";
        return false;
    }
    if (!camera()) {
        qCWarning(orvane) << "camera is nullptr";
        return false;
    }
    float depth = 0.99f;
    if (getZoomCenterExDepth(ea, keepLast, depth))
        m_lastZoomDepth = depth;
    else if (!keepLast)
        return false;
    else
        depth = m_lastZoomDepth;
    const osg::Vec2f position = windowPosition(ea);
    out = osg::Vec3d(position.x(), position.y(), depth) * osg::Matrixd::inverse(worldToWindow());
    return true;
}

bool CustomizeManipulator::getZoomCenterExDepth(const GA& ea, bool keepLast, float& depth)
{
    auto* screen = findPostDrawCallback<ScreenPostDrawCallback>(camera());
    if (!screen) {
        qCInfo(orvane) << "ScreenPostDrawCallback is nullptr";
        return false;
    }
    osg::Image* image = screen->getScreenDepthImage();
    if (!image) {
        qCInfo(orvane) << "pImg is nullptr";
        return false;
    }
    const auto* values = reinterpret_cast<const float*>(image->data());
    if (!values) {
        qCInfo(orvane) << "pDepthArray is nullptr";
        return false;
    }
    const osg::Viewport* vp = camera()->getViewport();
    const int width = image->s(), height = image->t();
    if (!vp || width != static_cast<int>(vp->width()) || height != static_cast<int>(vp->height())) {
        qCInfo(orvane) << "current camera viewPort'size is not same as depth image'size, quit the "
                          "function of getZoomCenterExDepth";
        return false;
    }
    depth = 0.99f;
    const osg::Vec2f position = windowPosition(ea);
    const int x = static_cast<int>(position.x()), y = static_cast<int>(position.y());
    const int vx = static_cast<int>(vp->x()), vy = static_cast<int>(vp->y());
    const long long total = static_cast<long long>(width) * height;
    const long long index = x + static_cast<long long>(width) * (y - vy) - vx;

    // The exact pixel, unless it shows background or the near plane.
    if (index > 0 && index < total) {
        const float v = std::abs(values[index]);
        if (!qFuzzyCompare(v, 1.0f) && !qFuzzyCompare(v, 0.0f)) {
            depth = values[index];
            return true;
        }
    }
    const auto meanOf = [&](int x0, int x1, int y0, int y1, float& mean) {
        double sum = 0.0;
        long long found = 0;
        for (int row = y0; row <= y1; ++row) {
            for (int column = x0; column <= x1; ++column) {
                const long long i = column + static_cast<long long>(width) * row;
                if (i < 0 || i >= total)
                    continue;
                const float v = values[i];
                if (v > 0.0f && v < 1.0f) {
                    sum += v;
                    ++found;
                }
            }
        }
        if (found)
            mean = static_cast<float>(sum / found);
        return found > 0;
    };
    // Near the cursor, then anywhere on screen.
    constexpr int kReach = 200;
    const int x0 = std::max(x - vx - kReach, 0), x1 = std::min(x - vx + kReach, width) - 2;
    const int y0 = std::max(y - vy - kReach, 0), y1 = std::min(y - vy + kReach, height) - 2;
    if (meanOf(x0, x1, y0, y1, depth))
        return true;
    if (meanOf(0, width - 1, 0, height - 1, depth))
        return true;
    if (keepLast) {
        depth = m_lastZoomDepth;
        return true;
    }
    return false;
}

bool CustomizeManipulator::computeIntersect(const GA& ea, const osg::Node* node, osg::Vec3f& point)
{
    if (!node)
        return false;
    if (auto* reader = findPostDrawCallback<ReadMousePosPostDrawCallback>(camera())) {
        const float depth = reader->getDepth();
        if (1.0f - depth < 1e-8f) {
            qCDebug(orvane) << "depth is close to 1.0";
            return false;
        }
        qCDebug(orvane) << "depth:" << depth;
        const osg::Vec2f pos = reader->getMousePos();
        point = osg::Vec3d(pos.x(), pos.y(), depth) * osg::Matrixd::inverse(worldToWindow());
        return true;
    }
    if (!camera())
        return false;
    const osg::Vec2f pos = windowPosition(ea);
    osg::ref_ptr<osgUtil::LineSegmentIntersector> intersector =
        new osgUtil::LineSegmentIntersector(osgUtil::Intersector::WINDOW, pos.x(), pos.y());
    osgUtil::IntersectionVisitor visitor(intersector.get());
    camera()->accept(visitor);
    for (const auto& hit : intersector->getIntersections()) {
        if (std::find(hit.nodePath.begin(), hit.nodePath.end(), node) != hit.nodePath.end()) {
            point = hit.getWorldIntersectPoint();
            return true;
        }
    }
    return false;
}

void CustomizeManipulator::avoidDistanceNan()
{
    if (!std::isnan(_distance))
        return;
    qCInfo(orvane) << "camera _distance is nan, reset _distance";
    if (!_node.valid()) {
        qCInfo(orvane) << "did not find node, reset _distance as 1.0";
        _distance = 1.0;
        return;
    }
    if (!m_pViewer) {
        qCInfo(orvane) << "m_pViewer is nullptr, reset _distance as 1.0";
        _distance = 1.0;
        return;
    }
    const double d = computeFitDistance(_node->getBound(), camera());
    _distance = d > 0.0 ? d : 1.0;
}

void CustomizeManipulator::avoidCenterNanWhenZoom(const GA& ea, const osg::Vec3f& saved,
                                                  float scale)
{
    if (!hasNan(_center))
        return;
    qCInfo(orvane) << "manipulator's _center is nan: (" << _center.x() << "," << _center.y() << ","
                   << _center.z() << "), reset _center";
    if (!m_pViewer || !camera()) {
        qCInfo(orvane) << "m_pViewer is nullptr, reset _center to (0, 0, 0)";
        _center = osg::Vec3d();
        return;
    }
    osg::Vec3d c = saved;
    if (hasNan(c))
        c = osg::Vec3d(0.0, 0.0, -_distance) * osg::Matrixd::inverse(camera()->getViewMatrix());
    if (!_node.valid()) {
        _center = c;
        return;
    }
    const osg::BoundingSphere bound = _node->getBound();
    osg::Vec3d front = bound.center() * camera()->getViewMatrix();
    front.z() -= bound.radius();
    const osg::Camera* cam = camera();
    const double z =
        (front * cam->getProjectionMatrix() * cam->getViewport()->computeWindowMatrix()).z();
    const osg::Vec2f position = windowPosition(ea);
    const osg::Vec3d p =
        osg::Vec3d(position.x(), position.y(), z) * osg::Matrixd::inverse(worldToWindow());
    _center = p + (c - p) * scale;
}
