#include "track_view_range.h"

#include "common_model.h"

namespace Vorna {
namespace Orvane {

TrackViewRange::TrackViewRange()
{
    const float sections[2][3][3] = {{{2000, 2400, 1600}, {3000, 3200, 2500}, {4000, 4000, 3300}},
                                     {{2000, 2400, 1600}, {3000, 3200, 2500}, {4000, 6000, 5000}}};
    for (int type = 0; type < 2; ++type)
        for (int section = 0; section < 3; ++section)
            setCrossSection(type, section, sections[type][section][0], sections[type][section][1],
                            sections[type][section][2]);
    setColor(0, osg::Vec4f(0, 0, 0.8f, 0.5f), true, osg::Vec4f(0, 0, 0.6f, 0.3f));
    setColor(1, osg::Vec4f(0, 0.8f, 0, 0.5f), true, osg::Vec4f(0, 0.6f, 0, 0.3f));
    getOrCreateStateSet()->setRenderBinDetails(20, "DepthSortedBin");
    // An aid: fits and rotate-centre picks leave it out.
    setUserValue("valid_bounding_sphere", false);
    setUserValue("can_not_set_rotate_center", true);
    setUserValue("can_not_msg_rotate_center", true);
    addChild(new osg::Switch);
    addChild(new osg::Switch);
}

bool TrackViewRange::setCrossSection(int trackType, int section, float distance, float width,
                                     float height)
{
    if (trackType < 0 || trackType > 1 || section < 0 || section > 2 || distance < 0.0f ||
        width <= 0.0f || height <= 0.0f)
        return false;
    const float w = width * 0.5f, h = height * 0.5f;
    m_info[trackType].rects[section].corners = {
        osg::Vec3f(-w, -h, -distance), osg::Vec3f(-w, h, -distance), osg::Vec3f(w, h, -distance),
        osg::Vec3f(w, -h, -distance)};
    return true;
}

bool TrackViewRange::setColor(int trackType, const osg::Vec4f& faceColor, bool show,
                              const osg::Vec4f& lineColor)
{
    if (trackType < 0 || trackType > 1)
        return false;
    m_info[trackType].faceColor = faceColor;
    m_info[trackType].show = show;
    m_info[trackType].lineColor = lineColor;
    return true;
}

std::vector<osg::Vec4f> TrackViewRange::framePlanes(const CrossSecRect& a, const CrossSecRect& b)
{
    // Planes of the frustum between two rectangles, each facing inwards.
    osg::Vec3f inside;
    for (int i = 0; i < 4; ++i)
        inside += (a.corners[i] + b.corners[i]) * 0.125f;
    const auto plane = [&](const osg::Vec3f& p0, const osg::Vec3f& p1, const osg::Vec3f& p2) {
        osg::Vec3f n = (p1 - p0) ^ (p2 - p0);
        n.normalize();
        osg::Vec4f eq(n, -1.0f * (n * p0));
        if (eq.x() * inside.x() + eq.y() * inside.y() + eq.z() * inside.z() + eq.w() < 0.0f)
            eq = -eq;
        return eq;
    };
    std::vector<osg::Vec4f> planes;
    planes.push_back(plane(a.corners[0], a.corners[1], a.corners[2]));
    planes.push_back(plane(b.corners[0], b.corners[1], b.corners[2]));
    for (int i = 0; i < 4; ++i)
        planes.push_back(plane(a.corners[i], a.corners[(i + 1) % 4], b.corners[i]));
    return planes;
}

osg::Group* TrackViewRange::buildGroup(CrossSecInfo& info) const
{
    auto* group = new osg::Group;
    for (const auto& [section, rect] : info.rects)
        group->addChild(CommonModel::createRectPlane(rect.corners.data(), info.faceColor));
    for (int i = 0; i < 4; ++i) {
        osg::ref_ptr<osg::Vec3Array> line = new osg::Vec3Array;
        for (const auto& [section, rect] : info.rects)
            line->push_back(rect.corners[i]);
        group->addChild(
            CommonModel::createLineSegment(line, info.lineColor, 2.0f, true, true, false));
    }
    info.nearPlanes = framePlanes(info.rects[0], info.rects[1]);
    info.farPlanes = framePlanes(info.rects[1], info.rects[2]);
    return group;
}

bool TrackViewRange::build()
{
    for (int type = 0; type < 2; ++type) {
        auto* toggle = static_cast<osg::Switch*>(getChild(type));
        toggle->removeChildren(0, toggle->getNumChildren());
        toggle->addChild(buildGroup(m_info[type]), m_info[type].show);
    }
    return switchTrackType(m_trackType);
}

bool TrackViewRange::switchTrackType(int trackType)
{
    if (trackType < 0 || trackType > 1)
        return false;
    for (int type = 0; type < 2; ++type) {
        auto* toggle = static_cast<osg::Switch*>(getChild(type));
        type == trackType ? toggle->setAllChildrenOn() : toggle->setAllChildrenOff();
    }
    m_trackType = trackType;
    return true;
}

bool TrackViewRange::isPtInViewRange(const osg::Vec3f& worldPoint) const
{
    // The parental path runs from the root down to this transform, which it includes.
    const osg::NodePathList paths = getParentalNodePaths();
    const osg::NodePath path =
        paths.empty() ? osg::NodePath{const_cast<TrackViewRange*>(this)} : paths.front();
    const osg::Vec3f local = worldPoint * osg::computeWorldToLocal(path);
    if (m_trackType < 0 || m_trackType > 1)
        return false;
    const CrossSecInfo& info = m_info[m_trackType];
    for (const auto* planes : {&info.nearPlanes, &info.farPlanes}) {
        if (planes->empty())
            continue;
        bool inside = true;
        for (const osg::Vec4f& p : *planes)
            inside =
                inside && p.x() * local.x() + p.y() * local.y() + p.z() * local.z() + p.w() >= 0.0f;
        if (inside)
            return true;
    }
    return false;
}

} // namespace Orvane
} // namespace Vorna
