// Pixels between osg::Image and QImage: orientation and byte order.
#include "image_convert.h"

#include <QScopedPointer>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;

TEST(ImageConvertTest, ToAndFroKeepsThePixelsAndTheOrientation)
{
    QImage source(3, 2, QImage::Format_ARGB32);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            source.setPixelColor(x, y, QColor(10 + x * 40, 20 + y * 100, 200 - x * 30, 255));

    osg::ref_ptr<osg::Image> osgImage = ImageConvert::convertQImageToOsgImage(source);
    ASSERT_EQ(osgImage->s(), 3);
    ASSERT_EQ(osgImage->t(), 2);
    // OpenGL rows run bottom-up in RGBA: the top-left pixel is the first of the last row.
    const unsigned char* topLeft = osgImage->data(0, 1);
    EXPECT_EQ(topLeft[0], 10);
    EXPECT_EQ(topLeft[1], 20);
    EXPECT_EQ(topLeft[2], 200);

    QScopedPointer<QImage> back(ImageConvert::convertOsgImageToQImage(osgImage.get()));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->size(), source.size());
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(back->pixelColor(x, y), source.pixelColor(x, y)) << x << "," << y;
}

TEST(ImageConvertTest, NullOrEmptyImagesGiveNull)
{
    EXPECT_EQ(ImageConvert::convertOsgImageToQImage(nullptr), nullptr);
    osg::ref_ptr<osg::Image> empty = new osg::Image;
    EXPECT_EQ(ImageConvert::convertOsgImageToQImage(empty.get()), nullptr);
}

TEST(ImageConvertTest, ThreeBytePixelsBecomeOpaqueAndOtherFormatsAreRefused)
{
    osg::ref_ptr<osg::Image> rgb = new osg::Image;
    rgb->allocateImage(3, 2, 1, GL_RGB, GL_UNSIGNED_BYTE);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) {
            unsigned char* p = rgb->data(x, y);
            p[0] = static_cast<unsigned char>(10 * x);
            p[1] = static_cast<unsigned char>(100 + y);
            p[2] = 200;
        }
    std::unique_ptr<QImage> image(Vorna::Orvane::ImageConvert::convertOsgImageToQImage(rgb.get()));
    ASSERT_TRUE(image);
    // OpenGL rows run bottom-up: row 0 of the osg image is the last row of the QImage.
    EXPECT_EQ(image->pixelColor(2, 1), QColor(20, 100, 200, 255));
    EXPECT_EQ(image->pixelColor(1, 0), QColor(10, 101, 200, 255));

    osg::ref_ptr<osg::Image> floats = new osg::Image;
    floats->allocateImage(2, 2, 1, GL_RGBA, GL_FLOAT);
    EXPECT_EQ(Vorna::Orvane::ImageConvert::convertOsgImageToQImage(floats.get()), nullptr);
}
