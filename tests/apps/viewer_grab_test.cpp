// The viewer's headless run: the saved frame must show the built-in scene, not just a clear colour.
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <set>

#ifndef ORVANE_VIEWER_PATH
#error "ORVANE_VIEWER_PATH must name the viewer executable"
#endif

namespace {

// Runs the viewer with `arguments` and returns the image it wrote.
QImage runViewer(const QStringList& arguments, const QString& png)
{
    QProcess viewer;
    viewer.start(ORVANE_VIEWER_PATH, arguments);
    EXPECT_TRUE(viewer.waitForFinished(60000));
    EXPECT_EQ(viewer.exitCode(), 0) << viewer.readAllStandardError().toStdString();
    return QImage(png);
}

void expectBuiltinScene(const QImage& image)
{
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), QSize(320, 240));
    const QColor background(0x20, 0x24, 0x2c);
    EXPECT_EQ(image.pixelColor(5, 5), background);
    // The torus is lit warm and the live scan blue, against a cool grey background.
    int warm = 0, blue = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            warm += c.red() > c.blue() + 60 ? 1 : 0;
            blue += c.blue() > c.red() + 120 ? 1 : 0;
        }
    }
    EXPECT_GT(warm, 2000) << "the mesh is missing";
    EXPECT_GT(blue, 200) << "the live scan is missing";
    std::set<QRgb> colours;
    for (int y = 0; y < image.height(); y += 4)
        for (int x = 0; x < image.width(); x += 4)
            colours.insert(image.pixel(x, y));
    EXPECT_GT(colours.size(), 50u) << "the frame is nearly uniform";
}

} // namespace

TEST(ViewerTest, GrabWritesAFrameShowingTheBuiltinScene)
{
    QTemporaryDir dir;
    const QString png = dir.filePath("frame.png");
    expectBuiltinScene(runViewer({"--size", "320x240", "--grab", png}, png));
}

TEST(ViewerTest, OffscreenWritesTheSameSceneWithoutAWindow)
{
    QTemporaryDir dir;
    const QString png = dir.filePath("offscreen.png");
    expectBuiltinScene(runViewer({"--offscreen", "--size", "320x240", "--out", png}, png));
}

TEST(ViewerTest, BadSizeIsRefusedWithAMessage)
{
    QProcess viewer;
    viewer.start(ORVANE_VIEWER_PATH, {"--size", "0xabc"});
    ASSERT_TRUE(viewer.waitForFinished(30000));
    EXPECT_EQ(viewer.exitCode(), 2);
    EXPECT_TRUE(viewer.readAllStandardError().contains("bad --size"));
}
