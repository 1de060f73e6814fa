#pragma once

#include "incre_point_geomtry_apple.h"

#include <QObject>
#include <atomic>
#include <osg/Array>
#include <osg/ref_ptr>
#include <thread>

namespace Vorna {
namespace Orvane {
class CanvasBase;
}
} // namespace Vorna

// Plays a scanner: a thread that streams a generated object into the live cloud in patches,
// as a scanning application's own threads would.
class ScanSimulator : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString progress READ progress NOTIFY progressChanged)
public:
    ScanSimulator(Vorna::Orvane::IncrePointGeometryApple* cloud, int totalPoints, int patchPoints,
                  int patchesPerSecond);
    ~ScanSimulator() override;

    // Replays these points (normals may be null) instead of the generated sphere.
    void setSource(osg::ref_ptr<osg::Vec3Array> points, osg::ref_ptr<osg::Vec3Array> normals);

    // Streams into the cloud and asks `canvas` for a frame after each patch.
    void start(Vorna::Orvane::CanvasBase* canvas);
    QString progress() const;
    // Points handed to the cloud so far (any thread), and the scan's total.
    int sentPoints() const { return m_sent.load(); }
    int totalPoints() const { return m_totalPoints; }

signals:
    void progressChanged();

private:
    void run();

    osg::ref_ptr<Vorna::Orvane::IncrePointGeometryApple> m_cloud;
    osg::ref_ptr<Vorna::Orvane::CanvasBase> m_canvas;
    osg::ref_ptr<osg::Vec3Array> m_sourcePoints;
    osg::ref_ptr<osg::Vec3Array> m_sourceNormals;
    int m_totalPoints;
    int m_patchPoints;
    int m_patchesPerSecond;
    std::atomic<int> m_sent{0};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};
