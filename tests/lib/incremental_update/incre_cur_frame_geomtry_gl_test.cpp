// The current scan frame drawn over the cloud: its colour rules and settings.
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "incre_cur_frame_geomtry.h"
#include "orvane_operations.h"

#include <gtest/gtest.h>
#include <osg/Geode>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

struct Point7 {
    osg::Vec3f position, normal;
};

std::shared_ptr<CurrentFramePointData> frameOf(const std::vector<Point7>& points)
{
    auto data = std::make_shared<CurrentFramePointData>();
    for (const Point7& p : points)
        data->data.insert(data->data.end(), {p.position.x(), p.position.y(), p.position.z(),
                                             p.normal.x(), p.normal.y(), p.normal.z(), 0.0f});
    return data;
}

// Pixels whose colour is dominated by one channel.
int countDominant(const QImage& image, int channel)
{
    int n = 0;
    for (int y = 0; y < CanvasWindow::kHeight; ++y)
        for (int x = 0; x < CanvasWindow::kCanvasWidth; ++x) {
            const QColor c = image.pixelColor(x, y);
            const int v[3] = {c.red(), c.green(), c.blue()};
            n += v[channel] > 150 && v[(channel + 1) % 3] < 80 && v[(channel + 2) % 3] < 80;
        }
    return n;
}

class CurrentFrameTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        w.item()->setClearColor(Qt::black);
        ASSERT_TRUE(w.show());
        frame = new IncreCurFrameGeometry(0.5f);
        frame->setBoxValue(osg::Vec3f(-1, 0, -1), osg::Vec3f(1, 0, 1));
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
            auto* geode = new osg::Geode;
            geode->addDrawable(frame.get());
            ViewMgr::getModel(info.mainView())->addChild(geode);
        }));
        w.item()->home();
        ASSERT_TRUE(w.run(nullptr));
    }

    void show(const std::vector<Point7>& points)
    {
        frame->setCurrentFramePointData(frameOf(points));
        frame->setCurFramePointCount(static_cast<unsigned>(points.size()));
        w.item()->frame();
        ASSERT_TRUE(w.run(nullptr));
        ASSERT_TRUE(w.run(nullptr));
    }

    CanvasWindow w;
    osg::ref_ptr<IncreCurFrameGeometry> frame;
};

} // namespace

TEST(CurrentFrameSettingsTest, AlphaAndDistanceBandsAreChecked)
{
    osg::ref_ptr<IncreCurFrameGeometry> frame = new IncreCurFrameGeometry(0.5f);
    EXPECT_FALSE(frame->setAlpha(1.5f));
    EXPECT_FLOAT_EQ(frame->alpha(), 0.5f);
    EXPECT_TRUE(frame->setAlpha(0.25f));
    EXPECT_FALSE(frame->enableCurFrameDistClr(true)) << "no bands yet";

    osg::ref_ptr<osg::Vec3Array> colours = new osg::Vec3Array(5);
    osg::ref_ptr<osg::FloatArray> oddRanges = new osg::FloatArray(9);
    osg::ref_ptr<osg::FloatArray> ranges = new osg::FloatArray(10);
    EXPECT_FALSE(frame->cfgCurFrameDistClr(oddRanges.get(), colours.get()));
    EXPECT_FALSE(frame->cfgCurFrameDistClr(nullptr, colours.get()));
    ASSERT_TRUE(frame->cfgCurFrameDistClr(ranges.get(), colours.get()));
    EXPECT_EQ(frame->segmentSize(), 5u);
    ASSERT_TRUE(frame->distanceTexture());
    EXPECT_EQ(frame->distanceTexture()->getImage()->s(), 16);
    EXPECT_EQ(frame->distanceTexture()->getImage()->t(), 2);
    EXPECT_TRUE(frame->enableCurFrameDistClr(true));
    EXPECT_TRUE(frame->enableCurFrameDistClr(true));
}

TEST_F(CurrentFrameTest, PointsDrawInTheBaseColour)
{
    const osg::Vec3f towardCamera(0, -1, 0);
    show({{{-0.5f, 0, 0}, towardCamera},
          {{0, 0, 0.5f}, towardCamera},
          {{0.5f, 0, -0.5f}, towardCamera}});
    EXPECT_GE(countDominant(w.grab(), 0), 3) << "three red points of size 5";
}

TEST_F(CurrentFrameTest, BadNormalsAndTheOriginAreNotDrawn)
{
    show(
        {{{0.3f, 0, 0.3f}, {0, 0, 1e39f}}, {{0, 0, 0}, {0, -1, 0}}, {{-0.3f, 0, 0.3f}, {0, 0, 0}}});
    EXPECT_EQ(countDominant(w.grab(), 0), 0);
}

TEST_F(CurrentFrameTest, DistanceBandsColourByHeight)
{
    osg::ref_ptr<osg::FloatArray> ranges = new osg::FloatArray;
    for (float v : {-1e6f, 0.0f, 0.0f, 1e6f})
        ranges->push_back(v);
    osg::ref_ptr<osg::Vec3Array> colours = new osg::Vec3Array;
    colours->push_back(osg::Vec3(0, 1, 0));
    colours->push_back(osg::Vec3(0, 0, 1));
    ASSERT_TRUE(frame->cfgCurFrameDistClr(ranges.get(), colours.get()));
    ASSERT_TRUE(frame->enableCurFrameDistClr(true));
    const osg::Vec3f towardCamera(0, -1, 0);
    show({{{-0.5f, 0, -0.5f}, towardCamera}, {{0.5f, 0, 0.5f}, towardCamera}});
    const QImage image = w.grab();
    EXPECT_GT(countDominant(image, 1), 0) << "the low point takes band 0";
    EXPECT_GT(countDominant(image, 2), 0) << "the high point takes band 1";
    EXPECT_EQ(countDominant(image, 0), 0);
}

TEST_F(CurrentFrameTest, PrintLogSwitchNamesTheCutPlaneUniformsItFetches)
{
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        osg::StateSet* ss = ViewMgr::getModel(info.mainView())->getOrCreateStateSet();
        ss->addUniform(new osg::Uniform("direction", osg::Vec3f(0, 0, 1)));
        ss->addUniform(new osg::Uniform("center", osg::Vec3f()));
    }));
    OrvaneTest::LogCapture log;
    IncreCurFrameGeometry::isPrintLog = true;
    show({{{-0.5f, 0, 0}, {0, -1, 0}}});
    IncreCurFrameGeometry::isPrintLog = false;
    EXPECT_TRUE(log.contains("fetchCutPlaneOsgUniform Begin"));
    EXPECT_TRUE(log.contains("fetchCutPlaneOsgUniform End"));
    EXPECT_TRUE(log.contains("fetchUniform name: direction, loc: "));
    EXPECT_TRUE(log.contains("fetchUniform name: center, loc: "));
    // Only the three cut-plane names are fetched.
    for (const QString& line : log.lines())
        if (line.contains("fetchUniform name: "))
            EXPECT_TRUE(line.contains("direction") || line.contains("center") ||
                        line.contains("selectIndex"))
                << qPrintable(line);

    const int lines = log.count("fetchUniform name: ");
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_EQ(log.count("fetchUniform name: "), lines) << "off again";
}
