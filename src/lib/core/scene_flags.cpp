#include "scene_flags.h"

#include <atomic>

namespace Vorna {
namespace Orvane {

namespace {
std::atomic<bool> g_scanState{false};
std::atomic<bool> g_scanStateChanged{false};
std::atomic<unsigned int> g_rectCutPlaneCount{0};
} // namespace

bool SceneFlags::scanState()
{
    return g_scanState.load();
}

bool SceneFlags::setScanState(bool scanning)
{
    if (g_scanState.exchange(scanning) == scanning)
        return false;
    g_scanStateChanged = true;
    return true;
}

bool SceneFlags::takeScanStateChanged()
{
    return g_scanStateChanged.exchange(false);
}

bool SceneFlags::rectCutPlaneExists()
{
    return g_rectCutPlaneCount.load() != 0;
}

void SceneFlags::addRectCutPlane()
{
    ++g_rectCutPlaneCount;
}

void SceneFlags::removeRectCutPlane()
{
    --g_rectCutPlaneCount;
}

} // namespace Orvane
} // namespace Vorna
