#include "scan_simulator.h"

#include "canvas_base.h"

#include <chrono>
#include <cmath>

using namespace Vorna::Orvane;

ScanSimulator::ScanSimulator(IncrePointGeometryApple* cloud, int totalPoints, int patchPoints,
                             int patchesPerSecond)
    : m_cloud(cloud), m_totalPoints(totalPoints), m_patchPoints(std::max(1, patchPoints)),
      m_patchesPerSecond(patchesPerSecond)
{
}

ScanSimulator::~ScanSimulator()
{
    m_stop = true;
    if (m_thread.joinable())
        m_thread.join();
}

void ScanSimulator::setSource(osg::ref_ptr<osg::Vec3Array> points,
                              osg::ref_ptr<osg::Vec3Array> normals)
{
    m_sourcePoints = points;
    m_sourceNormals = normals && points && normals->size() == points->size() ? normals : nullptr;
    m_totalPoints = points ? static_cast<int>(points->size()) : 0;
}

void ScanSimulator::start(CanvasBase* canvas)
{
    if (m_thread.joinable() || !canvas)
        return;
    m_canvas = canvas;
    m_thread = std::thread([this] { run(); });
}

QString ScanSimulator::progress() const
{
    return QString("live scan: %1 / %2 points").arg(m_sent.load()).arg(m_totalPoints);
}

void ScanSimulator::run()
{
    // A sphere swept in latitude bands, the way a turntable scan fills in.
    constexpr float kRadius = 0.8f;
    const osg::Vec3f centre(2.6f, 0.0f, 0.0f);
    const int rows = static_cast<int>(std::sqrt(m_totalPoints / 2.0));
    const int columns = m_totalPoints / std::max(rows, 1);
    int id = 0;
    const auto interval = std::chrono::milliseconds(1000 / std::max(1, m_patchesPerSecond));
    while (!m_stop && id < m_totalPoints) {
        auto patch = std::make_shared<IncrePatchData>();
        patch->vertArr = new osg::Vec3Array;
        patch->normArr = new osg::Vec3Array;
        for (int i = 0; i < m_patchPoints && id < m_totalPoints; ++i, ++id) {
            if (m_sourcePoints) {
                patch->vertArr->push_back((*m_sourcePoints)[id]);
                // The scan's normals, or one towards the viewer when the file has none.
                patch->normArr->push_back(m_sourceNormals ? (*m_sourceNormals)[id]
                                                          : osg::Vec3f(0.0f, -1.0f, 0.0f));
                patch->patchIdData.push_back(id);
                continue;
            }
            const float theta = osg::PIf * (id / columns + 0.5f) / rows;
            const float phi = 2.0f * osg::PIf * (id % columns) / columns;
            const osg::Vec3f n(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi),
                               std::cos(theta));
            patch->vertArr->push_back(centre + n * kRadius);
            patch->normArr->push_back(n);
            patch->patchIdData.push_back(id);
        }
        m_cloud->setWholeSize(static_cast<uint32_t>(id));
        m_cloud->setPatchVertexSize(static_cast<int>(patch->vertArr->size()));
        m_cloud->addIncreasePatchData(patch);
        // Counted before the frame is asked for, so that the frame that draws the patch sees it.
        m_sent = id;
        m_canvas->frame();
        emit progressChanged();
        std::this_thread::sleep_for(interval);
    }
}
