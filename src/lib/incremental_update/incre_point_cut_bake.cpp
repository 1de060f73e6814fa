// Baking a rectangular cut plane into the states of a fetched copy of the cloud, on worker threads.
#include "incre_point_geomtry_apple.h"

#include "canvas3d_shadermanager.h"
#include "gl_shader.h"
#include "orvane_log.h"
#include "scene_flags.h"

#include <QOpenGLContext>
#include <QString>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <osg/NodeVisitor>
#include <osg/State>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

bool IncrePointGeometryApple::fetchAndUpdateAttrib(osg::ref_ptr<osg::Vec3Array>& vertArr,
                                                   osg::ref_ptr<osg::Vec3Array>& normArr,
                                                   osg::ref_ptr<osg::Vec3Array>& clrArr,
                                                   osg::ref_ptr<osg::ByteArray>& stateArr)
{
    qCInfo(orvane) << "fetchAndUpdateAttrib"
                   << "Begin";
    const uint32_t count = m_wholeSize;
    if (count == 0) {
        qCWarning(orvane) << "fetchAndUpdateAttrib"
                          << "End, wholeSize == 0 !!";
        return false;
    }
    if (!m_wholeDataBuf)
        return false;
    try {
        vertArr = new osg::Vec3Array(count);
        normArr = new osg::Vec3Array(count);
        clrArr = new osg::Vec3Array(count);
        stateArr = new osg::ByteArray(count);
        stateArr->setVertexBufferObject(new osg::VertexBufferObject);
    } catch (const std::bad_alloc&) {
        qCWarning(orvane) << "fetchAndUpdateAttrib"
                          << "OSG attribute allocation failed, point count:" << count;
        vertArr = normArr = clrArr = nullptr;
        stateArr = nullptr;
        return false;
    }
    char* targets[WDBI_AttribBufNum] = {
        reinterpret_cast<char*>(&vertArr->front()), reinterpret_cast<char*>(&normArr->front()),
        reinterpret_cast<char*>(&clrArr->front()), reinterpret_cast<char*>(&stateArr->front())};
    for (int index = 0; index < WDBI_AttribBufNum; ++index) {
        if (m_wholeDataBuf->fetchAttrib(index, static_cast<int>(count), targets[index]))
            continue;
        if (index == WDBI_Color) {
            qCInfo(orvane) << "fetchAndUpdateAttrib"
                           << "Have none color attrib";
            clrArr = nullptr;
            continue;
        }
        qCWarning(orvane) << "fetchAndUpdateAttrib"
                          << "End, cannot fetch attrib !! index:" << index;
        return false;
    }
    if (SceneFlags::rectCutPlaneExists() && m_cutPlaneInfo.enabled &&
        stateArr->size() == vertArr->size())
        bakeCutPlane(vertArr.get(), stateArr.get());
    qCInfo(orvane) << "fetchAndUpdateAttrib"
                   << "End";
    return true;
}

void IncrePointGeometryApple::bakeCutPlane(osg::Vec3Array* positions, osg::ByteArray* states) const
{
    // The shader's live test, made permanent in the states.
    const uint32_t count = static_cast<uint32_t>(positions->size());
    const unsigned int threads = count < 60 ? 1 : 6;
    const CutPlaneInfo plane = m_cutPlaneInfo;
    const auto work = [&](uint32_t first, uint32_t last) {
        for (uint32_t i = first; i < last; ++i)
            if ((*states)[i] >= 0 && ((*positions)[i] - plane.center) * plane.direction < 0.0f)
                (*states)[i] = static_cast<GLbyte>(plane.selectIndex);
    };
    std::vector<std::thread> workers;
    const uint32_t chunk = count / threads;
    for (unsigned int t = 0; t < threads; ++t)
        workers.emplace_back(work, t * chunk, t + 1 == threads ? count : (t + 1) * chunk);
    for (std::thread& worker : workers)
        worker.join();
}

} // namespace Orvane
} // namespace Vorna
