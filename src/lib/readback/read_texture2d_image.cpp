#include "read_texture2d_image.h"

#include "orvane_log.h"

#include <QOpenGLFunctions_4_1_Core>
#include <algorithm>
#include <new>
#include <osg/GLExtensions>
#include <osg/Notify>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/Texture>

namespace Vorna {
namespace Orvane {

bool ReadTexture2DImage::readImageFromCurrentTexture2D(QOpenGLFunctions_4_1_Core* gl,
                                                       unsigned int contextID, unsigned int type)
{
    if (!gl)
        return false;
    const osg::GLExtensions* ext = osg::GLExtensions::Get(contextID, true);
    GLint binding = 0;
    gl->glGetIntegerv(GL_TEXTURE_BINDING_2D, &binding);
    if (binding == 0) {
        qCCritical(orvane) << "GL_TEXTURE_2D isn't bind";
        return false;
    }
    const GLenum target = GL_TEXTURE_2D;
    GLint compressed = 0;
    if (ext && ext->isTextureCompressionARBSupported)
        gl->glGetTexLevelParameteriv(target, 0, GL_TEXTURE_COMPRESSED, &compressed);

    GLint internalFormat = 0, width = 0, height = 0, depth = 0;
    gl->glGetTexLevelParameteriv(target, 0, GL_TEXTURE_INTERNAL_FORMAT, &internalFormat);
    gl->glGetTexLevelParameteriv(target, 0, GL_TEXTURE_WIDTH, &width);
    gl->glGetTexLevelParameteriv(target, 0, GL_TEXTURE_HEIGHT, &height);
    gl->glGetTexLevelParameteriv(target, 0, GL_TEXTURE_DEPTH, &depth);
    if (width <= 0 || height <= 0)
        return false;
    depth = std::max(depth, 1);

    if (compressed == GL_TRUE && ext->glGetCompressedTexImage) {
        GLint size = 0;
        gl->glGetTexLevelParameteriv(target, 0, GL_TEXTURE_COMPRESSED_IMAGE_SIZE, &size);
        auto* data = new (std::nothrow) unsigned char[static_cast<size_t>(std::max(size, 1))];
        if (!data) {
            OSG_WARN << "Warning: Image::readImageFromCurrentTexture(..) out of memory, no image "
                        "read."
                     << std::endl;
            return false;
        }
        deallocateData();
        setData(data, USE_NEW_DELETE);
        _s = width;
        _t = height;
        _r = depth;
        _internalTextureFormat = internalFormat;
        _pixelFormat = internalFormat;
        _dataType = type;
        _packing = 1;
        ext->glGetCompressedTexImage(target, 0, data);
        dirty();
        return true;
    }

    GLint alignment = 4, rowLength = 0;
    gl->glGetIntegerv(GL_UNPACK_ALIGNMENT, &alignment);
    gl->glGetIntegerv(GL_UNPACK_ROW_LENGTH, &rowLength);
    gl->glPixelStorei(GL_PACK_ALIGNMENT, alignment);
    gl->glPixelStorei(GL_PACK_ROW_LENGTH, rowLength);

    const GLenum pixelFormat = osg::Image::computePixelFormat(internalFormat);
    const unsigned int rowWidth = osg::Image::computeRowWidthInBytes(
        rowLength > 0 ? rowLength : width, pixelFormat, type, alignment);
    const size_t total = static_cast<size_t>(rowWidth) * height * depth;
    deallocateData();
    auto* data = new (std::nothrow) unsigned char[std::max<size_t>(total, 1)];
    if (!data) {
        OSG_WARN << "Warning: Image::readImageFromCurrentTexture(..) out of memory, no image read."
                 << std::endl;
        return false;
    }
    setData(data, USE_NEW_DELETE);
    _s = width;
    _t = height;
    _r = depth;
    _internalTextureFormat = internalFormat;
    _pixelFormat = pixelFormat;
    _dataType = type;
    _packing = static_cast<unsigned int>(alignment);
    _rowLength = rowLength;
    gl->glGetTexImage(target, 0, pixelFormat, type, data);
    dirty();
    return true;
}

osg::ref_ptr<ReadTexture2DImage>
readColorAttachment(QOpenGLFunctions_4_1_Core* gl, osg::RenderInfo& renderInfo, osg::Camera* camera)
{
    osg::Texture* texture = nullptr;
    if (camera) {
        const osg::Camera::BufferAttachmentMap& map = camera->getBufferAttachmentMap();
        for (auto component : {osg::Camera::COLOR_BUFFER, osg::Camera::COLOR_BUFFER0}) {
            auto it = map.find(component);
            if (it != map.end() && it->second._texture.valid()) {
                texture = it->second._texture.get();
                break;
            }
        }
    }
    if (!texture) {
        qCCritical(orvane) << "color buffer not found";
        return nullptr;
    }
    osg::State& state = *renderInfo.getState();
    if (camera->getStateSet())
        state.apply(camera->getStateSet());
    state.applyTextureAttribute(0, texture);
    gl->glFinish();
    osg::ref_ptr<ReadTexture2DImage> image = new ReadTexture2DImage;
    if (!image->readImageFromCurrentTexture2D(gl, state.getContextID(), GL_UNSIGNED_BYTE)) {
        qCCritical(orvane) << "read current texture2D failed";
        return nullptr;
    }
    return image;
}

} // namespace Orvane
} // namespace Vorna
