#pragma once

#include <osg/Camera>
#include <osg/Image>

class QOpenGLFunctions_4_1_Core;

namespace Vorna {
namespace Orvane {

// Reads level 0 of the bound GL_TEXTURE_2D into this image through the Qt function table: the
// scene graph's own read doesn't work in the canvas's context. Render thread, context current.
class ReadTexture2DImage : public osg::Image
{
public:
    // `type` is the pixel type to read, e.g. GL_UNSIGNED_BYTE. False when no texture is bound.
    bool readImageFromCurrentTexture2D(QOpenGLFunctions_4_1_Core* gl, unsigned int contextID,
                                       unsigned int type);

protected:
    ~ReadTexture2DImage() override = default;
};

// Reads the colour attachment (COLOR_BUFFER or COLOR_BUFFER0) of a render-to-texture camera
// after its draw, rows bottom-up. Null after logging "color buffer not found" or "read current
// texture2D failed".
osg::ref_ptr<ReadTexture2DImage> readColorAttachment(QOpenGLFunctions_4_1_Core* gl,
                                                     osg::RenderInfo& renderInfo,
                                                     osg::Camera* camera);

} // namespace Orvane
} // namespace Vorna
