#include "canvas_base.h"

namespace Vorna {
namespace Orvane {

CanvasBase::CanvasBase() = default;
CanvasBase::~CanvasBase() = default;

void CanvasBase::setRendererCreated()
{
    if (m_rendererCreated)
        return;
    m_rendererCreated = true;
    emit rendererCreated();
}

} // namespace Orvane
} // namespace Vorna
