#pragma once

namespace Vorna {
namespace Orvane {

// Facts about the scene that lower layers read and only the layer that owns them writes:
// the façade sets the scan state, each rectangular cut plane counts itself. Any thread.
class SceneFlags
{
public:
    static bool scanState();
    // Returns whether the state changed; a change is remembered until taken.
    static bool setScanState(bool scanning);
    static bool takeScanStateChanged();

    static bool rectCutPlaneExists();
    static void addRectCutPlane();
    static void removeRectCutPlane();
};

} // namespace Orvane
} // namespace Vorna
