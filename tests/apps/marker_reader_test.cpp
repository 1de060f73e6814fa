// The viewer's marker file reader: good lines become targets, bad ones are reported by number and
// skipped, and codes turn into the arcs of the pattern.
#include "marker_reader.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <osg/MatrixTransform>

namespace {

class MarkerReaderTest : public ::testing::Test
{
protected:
    QString write(const QByteArray& text)
    {
        const QString path = m_dir.filePath("targets.txt");
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
        return path;
    }

    QTemporaryDir m_dir;
};

TEST_F(MarkerReaderTest, GoodLinesWithAndWithoutCode)
{
    const MarkerFile file = readMarkerFile(write("# x y z nx ny nz radius [code]\n"
                                                 "1 2 3 0 0 2 0.5\n"
                                                 "\n"
                                                 "  -1.5\t0 4e-1 1 0 0 0.25 37\n"));
    EXPECT_TRUE(file.readable);
    EXPECT_TRUE(file.problems.isEmpty()) << file.problems.join("; ").toStdString();
    ASSERT_EQ(file.markers.size(), 2u);
    EXPECT_EQ(file.markers[0].position, osg::Vec3f(1, 2, 3));
    // Normals come out of unit length.
    EXPECT_EQ(file.markers[0].normal, osg::Vec3f(0, 0, 1));
    EXPECT_FLOAT_EQ(file.markers[0].radius, 0.5f);
    EXPECT_EQ(file.markers[0].code, -1);
    EXPECT_EQ(file.markers[1].position, osg::Vec3f(-1.5f, 0, 0.4f));
    EXPECT_EQ(file.markers[1].code, 37);
}

TEST_F(MarkerReaderTest, BadLinesReportedByNumberAndSkipped)
{
    const MarkerFile file = readMarkerFile(write("0 0 0 0 0 1 1\n"
                                                 "0 0 0 0 0 1\n"
                                                 "0 0 zero 0 0 1 1\n"
                                                 "0 0 0 0 0 0 1\n"
                                                 "0 0 0 0 0 1 -2\n"
                                                 "0 0 0 0 0 1 1 4096\n"
                                                 "0 0 0 0 0 1 1 7.5\n"
                                                 "0 0 0 0 0 1 1 2 extra\n"
                                                 "5 5 5 0 1 0 2 1\n"));
    ASSERT_EQ(file.markers.size(), 2u);
    EXPECT_EQ(file.markers[1].position, osg::Vec3f(5, 5, 5));
    ASSERT_EQ(file.problems.size(), 7);
    for (int i = 0; i < 7; ++i)
        EXPECT_TRUE(file.problems[i].startsWith(QString("targets.txt:%1: ").arg(i + 2)))
            << file.problems[i].toStdString();
    EXPECT_TRUE(file.problems[1].contains("'zero'"));
    EXPECT_TRUE(file.problems[2].contains("normal"));
    EXPECT_TRUE(file.problems[3].contains("radius"));
}

TEST_F(MarkerReaderTest, MissingFileIsReported)
{
    const MarkerFile file = readMarkerFile(m_dir.filePath("absent.txt"));
    EXPECT_FALSE(file.readable);
    ASSERT_EQ(file.problems.size(), 1);
    EXPECT_TRUE(file.problems[0].contains("absent.txt"));
}

TEST(MarkerCodeTest, BitsBecomeArcsAndNeighboursMerge)
{
    using Arcs = std::vector<std::pair<float, float>>;
    EXPECT_EQ(codeArcs(0), Arcs());
    EXPECT_EQ(codeArcs(1), Arcs({{0.0f, 30.0f}}));
    // Bits 0, 2, 3 and 11.
    EXPECT_EQ(codeArcs(0x80D), Arcs({{0.0f, 30.0f}, {60.0f, 120.0f}, {330.0f, 360.0f}}));
    EXPECT_EQ(codeArcs(4095), Arcs({{0.0f, 360.0f}}));
}

TEST(MarkerCodeTest, SceneHasOneTargetPerMarker)
{
    MarkerEntry plain{osg::Vec3f(1, 0, 0), osg::Vec3f(0, 0, 1), 0.5f, -1};
    MarkerEntry coded{osg::Vec3f(0, 2, 0), osg::Vec3f(1, 0, 0), 0.5f, 5};
    osg::ref_ptr<osg::Group> group = buildMarkers({plain, coded});
    ASSERT_EQ(group->getNumChildren(), 2u);
    auto* second = dynamic_cast<osg::MatrixTransform*>(group->getChild(1));
    ASSERT_TRUE(second);
    // The coded disc's plane turned to its normal, at its place.
    const osg::Matrix m = second->getMatrix();
    EXPECT_NEAR((osg::Vec3d(0, 0, 1) * m - m.getTrans() - osg::Vec3d(1, 0, 0)).length(), 0.0, 1e-6);
    EXPECT_NEAR((m.getTrans() - osg::Vec3d(0, 2, 0)).length(), 0.0, 1e-6);
}

} // namespace
