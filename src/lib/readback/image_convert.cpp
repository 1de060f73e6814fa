#include "image_convert.h"

#include "orvane_log.h"

#include <cstring>

namespace Vorna {
namespace Orvane {

namespace {
void freeBuffer(void* buffer)
{
    delete[] static_cast<uchar*>(buffer);
}

// Mirrors the rows and exchanges bytes 0 and 2 of each pixel: the conversion is its own inverse.
// A source of three bytes a pixel is made opaque.
void mirrorSwap(const uchar* src, int srcStride, int srcPixelBytes, uchar* dst, int dstStride,
                int width, int height)
{
    for (int row = 0; row < height; ++row) {
        const uchar* s = src + static_cast<size_t>(row) * srcStride;
        uchar* d = dst + static_cast<size_t>(height - 1 - row) * dstStride;
        for (int col = 0; col < width; ++col, s += srcPixelBytes, d += 4) {
            d[0] = s[2];
            d[1] = s[1];
            d[2] = s[0];
            d[3] = srcPixelBytes == 4 ? s[3] : 255;
        }
    }
}
} // namespace

osg::Image* ImageConvert::convertQImageToOsgImage(const QImage& image)
{
    // Four bytes a pixel are assumed; anything else is brought to that first.
    const QImage copy = image.depth() == 32 ? image : image.convertToFormat(QImage::Format_ARGB32);
    const int width = copy.width();
    const int height = copy.height();
    auto* buffer = new uchar[static_cast<size_t>(width) * height * 4];
    mirrorSwap(copy.constBits(), copy.bytesPerLine(), 4, buffer, width * 4, width, height);
    auto* out = new osg::Image;
    out->setImage(width, height, 1, 4, GL_RGBA, GL_UNSIGNED_BYTE, buffer,
                  osg::Image::USE_NEW_DELETE);
    return out;
}

QImage* ImageConvert::convertOsgImageToQImage(osg::Image* osgImg)
{
    if (!osgImg) {
        qCDebug(orvane) << "osgImg is nullptr";
        return nullptr;
    }
    const uchar* pImgData = osgImg->data();
    if (!pImgData) {
        qCDebug(orvane) << "pImgData is nullptr";
        return nullptr;
    }
    const int width = osgImg->s();
    const int height = osgImg->t();
    // Byte RGB or RGBA only; anything else would be read with the wrong stride.
    const unsigned int pixelBits = osgImg->getPixelSizeInBits();
    if (osgImg->getDataType() != GL_UNSIGNED_BYTE || (pixelBits != 24 && pixelBits != 32)) {
        qCDebug(orvane) << "unsupported image format, bits per pixel:" << pixelBits;
        return nullptr;
    }
    auto* buffer = new uchar[static_cast<size_t>(width) * height * 4];
    mirrorSwap(pImgData, static_cast<int>(osgImg->getRowStepInBytes()),
               static_cast<int>(pixelBits / 8), buffer, width * 4, width, height);
    return new QImage(buffer, width, height, width * 4, QImage::Format_ARGB32, freeBuffer, buffer);
}

} // namespace Orvane
} // namespace Vorna
