#pragma once

#include <QImage>
#include <osg/Image>

namespace Vorna {
namespace Orvane {

// Four-byte pixels between osg::Image (rows bottom-up, RGBA) and QImage (rows top-down,
// ARGB32). Any thread.
class ImageConvert
{
public:
    // A new image that owns its pixels.
    static osg::Image* convertQImageToOsgImage(const QImage& image);
    // A new QImage that frees its own buffer when the last copy goes; the caller owns it.
    // Null for a null image or one without data.
    static QImage* convertOsgImageToQImage(osg::Image* osgImg);
};

} // namespace Orvane
} // namespace Vorna
