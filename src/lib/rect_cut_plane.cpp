#include "rect_cut_plane.h"

namespace Vorna {
namespace Orvane {

std::atomic<unsigned int> RectCutPlane::s_count{0};

RectCutPlane::RectCutPlane()
{
    ++s_count;
}

RectCutPlane::~RectCutPlane()
{
    --s_count;
}

} // namespace Orvane
} // namespace Vorna
