#include "orvane_singleton.h"

#include "canvas_base.h"
#include "orvane_log.h"

namespace Vorna {
namespace Orvane {

OrvaneSingleton::OrvaneSingleton(QObject* parent) : QObject(parent)
{
    qCDebug(orvane) << "multi-touch orvane singleton created";
    m_shaderManager.init();
}

OrvaneSingleton* OrvaneSingleton::instance()
{
    static OrvaneSingleton* singleton = new OrvaneSingleton;
    return singleton;
}

void OrvaneSingleton::setCanvas(CanvasBase* canvas)
{
    m_canvas = canvas;
}

CanvasBase* OrvaneSingleton::getCanvas() const
{
    return m_canvas.get();
}

} // namespace Orvane
} // namespace Vorna
