#include "custom_base_geometry.h"

#include "gl_functions.h"

#include <QOpenGLContext>

namespace Vorna {
namespace Orvane {

CustomBaseGeometry::CustomBaseGeometry()
{
    // The arrays change in GL only, never under the scene graph's feet.
    setDataVariance(osg::Object::DYNAMIC);
    // A display list would record the raw calls once and replay stale buffers.
    setUseDisplayList(false);
    setUseVertexBufferObjects(true);
    setUseVertexArrayObject(true);
}

QOpenGLFunctions_4_1_Core* CustomBaseGeometry::getGlFun()
{
    return currentGlFunctions();
}

void CustomBaseGeometry::drawImplementation(osg::RenderInfo& renderInfo) const
{
    // Drawing changes the drawable's own GL objects, never its scene-graph state.
    const_cast<CustomBaseGeometry*>(this)->drawCall(renderInfo);
}

} // namespace Orvane
} // namespace Vorna
