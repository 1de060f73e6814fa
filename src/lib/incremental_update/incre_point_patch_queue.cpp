// The producers' side of the live cloud: patches, sizes and frame matrices queued under the mutex.
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

void IncrePointGeometryApple::addIncreasePatchData(std::shared_ptr<IncrePatchData> patch)
{
    if (!m_isInited) {
        qCWarning(orvane) << "addIncreasePatchData"
                          << "Haven't inited !!";
        return;
    }
    if (!patch) {
        qCWarning(orvane) << "addIncreasePatchData"
                          << "patch is nullptr !!";
        return;
    }
    if (m_frameDbgLog) {
        QString line = patch->vertArr
                           ? QString("patch->vertArr eleNum is %1").arg(patch->vertArr->size())
                           : QString("patch->vertArr is null");
        line += patch->normArr
                    ? QString(", patch->normArr eleNum is %1").arg(patch->normArr->size())
                    : QString(", patch->normArr is null");
        line += patch->clrArr ? QString(", patch->clrArr eleNum is %1").arg(patch->clrArr->size())
                              : QString(", patch->clrArr is null");
        if (patch->stateArr) {
            int negative = 0;
            for (GLbyte s : *patch->stateArr)
                negative += s < 0 ? 1 : 0;
            line += QString(", patch->stateArr eleNum is %1 and negativeStateNum is %2")
                        .arg(patch->stateArr->size())
                        .arg(negative);
        } else {
            line += ", patch->stateArr is null";
        }
        line += QString(", patchIdData size is %1").arg(patch->patchIdData.size());
        line += QString(", patchFrameIdData size is %1").arg(patch->patchFrameIdData.size());
        qCInfo(orvane) << "frameDbgLog" << line;
    }
    QMutexLocker lock(&m_patchMutex);
    m_queuePatchData.push_back(std::move(patch));
}

std::shared_ptr<IncrePatchData> IncrePointGeometryApple::frontPatch()
{
    QMutexLocker lock(&m_patchMutex);
    return m_queuePatchData.empty() ? nullptr : m_queuePatchData.front();
}

std::vector<std::shared_ptr<IncrePatchData>> IncrePointGeometryApple::frontPatches(size_t count)
{
    QMutexLocker lock(&m_patchMutex);
    const size_t taken = std::min(count, m_queuePatchData.size());
    return {m_queuePatchData.begin(),
            m_queuePatchData.begin() + static_cast<std::ptrdiff_t>(taken)};
}

void IncrePointGeometryApple::popPatch()
{
    popPatches(1);
}

void IncrePointGeometryApple::popPatches(size_t count)
{
    QMutexLocker lock(&m_patchMutex);
    const size_t popped = std::min(count, m_queuePatchData.size());
    m_queuePatchData.erase(m_queuePatchData.begin(),
                           m_queuePatchData.begin() + static_cast<std::ptrdiff_t>(popped));
}

size_t IncrePointGeometryApple::queuedPatchCount()
{
    QMutexLocker lock(&m_patchMutex);
    return m_queuePatchData.size();
}

void IncrePointGeometryApple::setWholeSize(uint32_t size)
{
    m_wholeSize = size;
    if (m_frameDbgLog)
        qCInfo(orvane) << "frameDbgLog" << QString("m_wholeSize update to %1").arg(size);
}

void IncrePointGeometryApple::setFrameMatrix(const std::vector<std::array<float, 16>>& matrices)
{
    QMutexLocker lock(&m_frameMutex);
    m_frameRts = matrices;
}

void IncrePointGeometryApple::setIsRigidScan(bool rigid)
{
    m_bRigidScan = rigid;
    m_drawableCapacityDirty = true;
    qCInfo(orvane) << "setIsRigidScan"
                   << "m_bRigidScan is" << (rigid ? "rigid" : "non rigid");
}

void IncrePointGeometryApple::setBoxValue(const osg::Vec3f& min, const osg::Vec3f& max)
{
    if (!m_bboxCallback)
        return;
    m_bboxCallback->setValue(min, max);
    dirtyBound();
}

} // namespace Orvane
} // namespace Vorna
