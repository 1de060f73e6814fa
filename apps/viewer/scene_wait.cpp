#include "scene_wait.h"

#include "orvane_operations.h"
#include "scan_simulator.h"

#include <algorithm>

using namespace Vorna::Orvane;

SceneWait::SceneWait(IncrePointGeometryApple* cloud, const ScanSimulator* scan, int points)
    : m_cloud(cloud), m_scan(cloud ? scan : nullptr), m_points(points)
{
    if (m_scan)
        m_points = m_points > 0 ? std::min(m_points, m_scan->totalPoints()) : m_scan->totalPoints();
}

osg::Operation* SceneWait::marker()
{
    // Operations run in the order they were added: once this one has run, so have the others.
    return new LambdaOperation([this](RenderInfo&) { m_sceneAdded = true; });
}

bool SceneWait::frameDrawn()
{
    ++m_frames;
    if (!m_sceneAdded)
        return false;
    if (!m_scan)
        return true;
    // The count first: a patch handed over before it is counted is either queued now or was
    // scattered by a frame already drawn.
    if (m_scan->sentPoints() < m_points)
        return false;
    return m_cloud->queuedPatchCount() == 0;
}

QString SceneWait::waitingFor() const
{
    if (m_frames == 0)
        return "the first frame, and none was drawn";
    if (!m_sceneAdded)
        return QString("the scene to be added, %1 frame(s) drawn without it").arg(m_frames);
    return QString("%1 scan points drawn, %2 sent so far and %3 patch(es) not yet drawn")
        .arg(m_points)
        .arg(m_scan->sentPoints())
        .arg(m_cloud->queuedPatchCount());
}
