#pragma once

#include <atomic>

namespace Vorna {
namespace Orvane {

// The rectangle that cuts models and the live cloud. The live cloud asks, process-wide,
// whether any such plane exists, to switch its cut test on.
class RectCutPlane
{
public:
    RectCutPlane();
    virtual ~RectCutPlane();
    RectCutPlane(const RectCutPlane&) = delete;
    RectCutPlane& operator=(const RectCutPlane&) = delete;

    static bool hasRectCutPlane() { return s_count.load() != 0; }

private:
    static std::atomic<unsigned int> s_count;
};

} // namespace Orvane
} // namespace Vorna
