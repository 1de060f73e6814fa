// The viewer's headless run: the saved frame must show the built-in scene, not just a clear colour.
#include "gl_test_support.h"

#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

#ifndef ORVANE_VIEWER_PATH
#error "ORVANE_VIEWER_PATH must name the viewer executable"
#endif

namespace {

// The viewer's own time-out in seconds: it then reports what it waited for.
constexpr int kViewerSeconds = 60;
// Longer than the viewer's own time-out.
constexpr int kViewerMs = 120000;

// Runs the viewer with `arguments` and returns the image it wrote.
QImage runViewer(const QStringList& arguments, const QString& png,
                 const QString& workingDirectory = {})
{
    QProcess viewer;
    viewer.setWorkingDirectory(workingDirectory);
    // A sanitized viewer draws its first frame several times slower.
    const int seconds = OrvaneTest::scaledTimeout(kViewerSeconds * 1000) / 1000;
    viewer.start(ORVANE_VIEWER_PATH, QStringList(arguments)
                                         << "--timeout" << QString::number(seconds));
    EXPECT_TRUE(viewer.waitForFinished(OrvaneTest::scaledTimeout(kViewerMs)));
    EXPECT_EQ(viewer.exitCode(), 0) << viewer.readAllStandardError().toStdString();
    return QImage(png);
}

// Keeps every core busy while alive, as a parallel build does: the viewer's threads get a
// fraction of the time they get on an idle machine.
class BusyCpu
{
public:
    BusyCpu()
    {
        const unsigned int spinners = std::max(1u, std::thread::hardware_concurrency());
        for (unsigned int i = 0; i < spinners; ++i)
            m_threads.emplace_back([this] {
                volatile unsigned long sink = 0;
                while (!m_stop.load(std::memory_order_relaxed))
                    sink = sink + 1;
            });
    }
    ~BusyCpu()
    {
        m_stop = true;
        for (std::thread& thread : m_threads)
            thread.join();
    }

private:
    std::atomic<bool> m_stop{false};
    std::vector<std::thread> m_threads;
};

void expectBuiltinScene(const QImage& image, const QSize& size = QSize(320, 240))
{
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), size);
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
    // Counts for 320x240, scaled by area for larger frames.
    const double scale = double(size.width()) * size.height() / (320.0 * 240.0);
    EXPECT_GT(warm, 2000 * scale) << "the mesh is missing";
    EXPECT_GT(blue, 200 * scale) << "the live scan is missing";
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

TEST(ViewerTest, OffscreenWithoutAPathWritesTheDefaultImageInTheWorkingDirectory)
{
    QTemporaryDir dir;
    expectBuiltinScene(runViewer({"--offscreen", "--size", "320x240"},
                                 dir.filePath("orvane_viewer.png"), dir.path()));
}

TEST(ViewerTest, TheWholeSceneIsSavedWhileTheCpuIsBusy)
{
    BusyCpu busy;
    QTemporaryDir dir;
    for (const QSize& size : {QSize(320, 240), QSize(1024, 768)}) {
        SCOPED_TRACE(size.width());
        const QString png = dir.filePath(QString("busy%1.png").arg(size.width()));
        const QString arg = QString("%1x%2").arg(size.width()).arg(size.height());
        expectBuiltinScene(runViewer({"--offscreen", "--size", arg, "--out", png}, png), size);
    }
    const QString grabbed = dir.filePath("busy_grab.png");
    expectBuiltinScene(runViewer({"--size", "320x240", "--grab", grabbed}, grabbed));
}

TEST(ViewerTest, AScanThatNeverEndsTimesOutSayingWhatItWaitedFor)
{
    QTemporaryDir dir;
    const QString png = dir.filePath("never.png");
    QProcess viewer;
    // Two patches a second of a million points: far from done after a second.
    viewer.start(ORVANE_VIEWER_PATH, {"--offscreen", "--size", "160x120", "--out", png, "--timeout",
                                      "1", "--scan-points", "1000000", "--patch-points", "100",
                                      "--patches-per-second", "2"});
    ASSERT_TRUE(viewer.waitForFinished(kViewerMs));
    EXPECT_EQ(viewer.exitCode(), 1);
    const QString error = viewer.readAllStandardError();
    EXPECT_TRUE(error.contains("gave up after 1 s waiting for")) << qPrintable(error);
    EXPECT_TRUE(error.contains("1000000 scan points drawn") || error.contains("the first frame") ||
                error.contains("the scene to be added"))
        << qPrintable(error);
    EXPECT_FALSE(QFile::exists(png));
}

TEST(ViewerTest, AStatedPointCountEndsTheWaitBeforeTheScanEnds)
{
    QTemporaryDir dir;
    const QString png = dir.filePath("part.png");
    // The whole scan would take 500 s; the first 20000 points take a few.
    const QImage image = runViewer({"--offscreen", "--size", "320x240", "--out", png,
                                    "--scan-points", "1000000", "--patch-points", "10000",
                                    "--patches-per-second", "2", "--wait-points", "20000"},
                                   png);
    ASSERT_FALSE(image.isNull());
    int blue = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            blue += c.blue() > c.red() + 120 ? 1 : 0;
        }
    EXPECT_GT(blue, 0) << "the scan's first points are missing";
}

TEST(ViewerTest, AMeshFileWithoutNormalsIsShadedByTheMeshModel)
{
    QTemporaryDir dir;
    // A sphere of triangles, no normals in the file.
    QFile obj(dir.filePath("ball.obj"));
    ASSERT_TRUE(obj.open(QIODevice::WriteOnly));
    constexpr int kRings = 24;
    for (int i = 0; i <= kRings; ++i)
        for (int j = 0; j < kRings; ++j) {
            const double theta = M_PI * i / kRings, phi = 2 * M_PI * j / kRings;
            obj.write(QString("v %1 %2 %3\n")
                          .arg(std::sin(theta) * std::cos(phi))
                          .arg(std::sin(theta) * std::sin(phi))
                          .arg(std::cos(theta))
                          .toUtf8());
        }
    for (int i = 0; i < kRings; ++i)
        for (int j = 0; j < kRings; ++j) {
            const int a = i * kRings + j + 1, b = i * kRings + (j + 1) % kRings + 1;
            const int c = a + kRings, d = b + kRings;
            obj.write(QString("f %1 %2 %3\nf %3 %2 %4\n").arg(a).arg(c).arg(b).arg(d).toUtf8());
        }
    obj.close();
    const QString png = dir.filePath("ball.png");
    const QImage image =
        runViewer({obj.fileName(), "--offscreen", "--size", "320x240", "--out", png}, png);
    ASSERT_FALSE(image.isNull());
    // Facing the eye, the surface is the "mesh" front (0.05, 0.695, 1.0) times ambient plus
    // diffuse plus highlight: about (15, 204, 255). The fixed pipeline would give grey.
    const QColor centre = image.pixelColor(160, 120);
    EXPECT_LT(centre.red(), 30);
    EXPECT_NEAR(centre.green(), 200, 20);
    EXPECT_GT(centre.blue(), 240);
}

TEST(ViewerTest, BadSizeIsRefusedWithAMessage)
{
    QProcess viewer;
    viewer.start(ORVANE_VIEWER_PATH, {"--size", "0xabc"});
    ASSERT_TRUE(viewer.waitForFinished(30000));
    EXPECT_EQ(viewer.exitCode(), 2);
    EXPECT_TRUE(viewer.readAllStandardError().contains("bad --size"));
}

TEST(ViewerTest, TheOrientationCubeAndItsHomeButtonShowInTheBottomRightCorner)
{
    QTemporaryDir dir;
    const QString png = dir.filePath("gizmo.png");
    QProcess viewer;
    viewer.start(ORVANE_VIEWER_PATH, {"--offscreen", "--size", "1280x960", "--out", png});
    ASSERT_TRUE(viewer.waitForFinished(kViewerMs));
    // A crash at exit would leave the image written and only show here.
    EXPECT_EQ(viewer.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(viewer.exitCode(), 0);
    const QImage image(png);
    ASSERT_FALSE(image.isNull());
    // 200 pixels at 1920 x 1080, scaled by the smaller ratio: 133 here, 2 pixels from the right,
    // 1.3 from the bottom.
    const double side = 200.0 * std::min(1280.0 / 1920.0, 960.0 / 1080.0);
    const double left = 1280.0 - side - 2.0, bottom = 960.0 - 2.0 * side / 200.0;
    // The cube seen head on: its face beside the middle, off the label and the axes.
    const QColor face = image.pixelColor(int(left + side / 2 + 8), int(bottom - side / 2 - 8));
    // Flat grey of 0.7 with lighting off; a few steps for rounding.
    EXPECT_NEAR(face.red(), 179, 6) << face.name().toStdString();
    EXPECT_NEAR(face.green(), 179, 6);
    EXPECT_NEAR(face.blue(), 179, 6);
    // The house of the home button, white, 15 pixels in from the gizmo's lower left and 16 wide.
    const double s = side / 200.0;
    const QColor home = image.pixelColor(int(left + 15 + 12 * s), int(bottom - 15 - 12 * s));
    EXPECT_GT(home.lightness(), 200) << home.name().toStdString();
}
