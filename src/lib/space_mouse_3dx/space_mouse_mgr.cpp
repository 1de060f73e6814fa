#include "space_mouse_mgr.h"

#include "orvane_log.h"

namespace Vorna {
namespace Orvane {

SpaceMouseMgr::SpaceMouseMgr(CanvasBase* canvas) : m_canvas(canvas)
{
    init(canvas);
}

SpaceMouseMgr::~SpaceMouseMgr()
{
    qCDebug(orvane) << "SpaceMouseMgr Renderer destroyed";
}

} // namespace Orvane
} // namespace Vorna
