#pragma once

#include "incre_point_geomtry_apple.h"

#include <QString>
#include <atomic>
#include <osg/OperationThread>
#include <osg/ref_ptr>

class ScanSimulator;

// Tells whether a drawn frame shows the whole scene, so that a saved image never depends on how
// fast the machine happens to be: every operation added before marker() has run and, with a
// scan, `points` of it have been handed to the cloud and no patch of them still waits to be
// scattered.
class SceneWait
{
public:
    // `scan` and `cloud` may be null (no scan); `points` of 0 or less means the whole scan.
    SceneWait(Vorna::Orvane::IncrePointGeometryApple* cloud, const ScanSimulator* scan, int points);

    // Add after the scene's own operations.
    osg::Operation* marker();
    // After a frame has been drawn, on the thread that drew it: whether that frame showed the
    // whole scene.
    bool frameDrawn();
    // What is still missing, for the message of a time-out.
    QString waitingFor() const;

private:
    osg::ref_ptr<Vorna::Orvane::IncrePointGeometryApple> m_cloud;
    const ScanSimulator* m_scan;
    int m_points;
    std::atomic<bool> m_sceneAdded{false};
    std::atomic<int> m_frames{0};
};
