// The live cloud's debug dump, asked for through the camera, and the bound query.
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "incre_point_geomtry_apple.h"
#include "live_cloud_start.h"
#include "orvane_operations.h"
#include "rect_cut_plane.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>
#include <cmath>
#include <gtest/gtest.h>
#include <iostream>
#include <limits>
#include <osg/Geode>
#include <sstream>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

// Dumps below a folder of the test's choosing.
class DumpingCloud : public IncrePointGeometryApple
{
public:
    DumpingCloud(bool hasColor, QString baseDir)
        : IncrePointGeometryApple(hasColor, false, true), m_baseDir(std::move(baseDir))
    {
    }
    QString defaultDumpDir() const { return IncrePointGeometryApple::debugDumpBaseDir(); }

protected:
    QString debugDumpBaseDir() const override { return m_baseDir; }

private:
    QString m_baseDir;
};

// Sends what a stream prints into a string while alive.
class StreamCapture
{
public:
    explicit StreamCapture(std::ostream& stream) : m_stream(stream)
    {
        m_previous = stream.rdbuf(m_text.rdbuf());
    }
    ~StreamCapture() { m_stream.rdbuf(m_previous); }
    std::string text() const { return m_text.str(); }

private:
    std::ostream& m_stream;
    std::streambuf* m_previous;
    std::ostringstream m_text;
};

std::array<float, 16> asArray(const osg::Matrixf& m)
{
    std::array<float, 16> a;
    std::copy(m.ptr(), m.ptr() + 16, a.begin());
    return a;
}

QString readText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

class DebugDumpTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_base.isValid());
        ASSERT_TRUE(w.show());
        // The cloud is only drawn, and the request only served, where the camera sees it.
        ASSERT_TRUE(w.lookAt(osg::Vec3d(0.0, -10.0, 0.0), osg::Vec3d(), osg::Vec3d(0, 0, 1)));
    }

    void start(bool rigid, bool hasColor, const QString& baseDir)
    {
        cloud = new DumpingCloud(hasColor, baseDir);
        cloud->setBoxValue(osg::Vec3f(-2, -1, -2), osg::Vec3f(2, 1, 2));
        OrvaneTest::startLiveCloud(w, cloud.get(), rigid);
    }

    // Three points; the second carries state 2, the third belongs to frame 2.
    void send(bool hasColor)
    {
        auto patch = std::make_shared<IncrePatchData>();
        patch->vertArr = new osg::Vec3Array;
        patch->normArr = new osg::Vec3Array;
        patch->stateArr = new osg::ByteArray;
        if (hasColor)
            patch->clrArr = new osg::Vec3Array;
        for (int i = 0; i < 3; ++i) {
            patch->vertArr->push_back(osg::Vec3(1.0f + i, 0.5f, -1.0f));
            patch->normArr->push_back(osg::Vec3(0.0f, -1.0f, 0.0f));
            patch->stateArr->push_back(static_cast<GLbyte>(i == 1 ? 2 : 0));
            if (hasColor)
                patch->clrArr->push_back(osg::Vec3(0.25f, 0.5f, 0.75f));
            patch->patchIdData.push_back(i);
            patch->patchFrameIdData.push_back(i);
        }
        cloud->setWholeSize(3);
        cloud->setPatchVertexSize(3);
        cloud->addIncreasePatchData(patch);
        w.item()->frame();
        ASSERT_TRUE(waitUntil([&] { return cloud->queuedPatchCount() == 0; }));
    }

    // Raises "saveIncreData" on the camera and waits until a draw has taken it.
    void requestDump()
    {
        osg::ref_ptr<osg::Uniform> request = new osg::Uniform("saveIncreData", true);
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
            info.mainView()->getCamera()->getOrCreateStateSet()->addUniform(request.get());
        }));
        w.item()->frame();
        ASSERT_TRUE(waitUntil([&] {
            bool pending = true;
            request->get(pending);
            return !pending;
        })) << "the request is reset once served";
        // The dump is written in the draw that reset the request; the next frame follows it.
        ASSERT_TRUE(w.run(nullptr));
    }

    // The time-stamped folder of the only dump.
    QString dumpDir()
    {
        const QStringList entries =
            QDir(m_base.path()).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        EXPECT_EQ(entries.size(), 1) << qPrintable(entries.join(", "));
        if (entries.isEmpty())
            return QString();
        EXPECT_TRUE(QDateTime::fromString(entries.front(), "yyyy-MM-dd_hhmmss").isValid())
            << qPrintable(entries.front());
        return m_base.path() + "/" + entries.front();
    }

    QTemporaryDir m_base;
    CanvasWindow w;
    osg::ref_ptr<DumpingCloud> cloud;
};

} // namespace

TEST_F(DebugDumpTest, TheDefaultFolderIsTheSharedModelsFolder)
{
    osg::ref_ptr<DumpingCloud> idle = new DumpingCloud(false, QString());
    EXPECT_EQ(idle->defaultDumpDir(), QString("/Users/Data/asc_models"));
}

TEST_F(DebugDumpTest, RigidScanDumpsItsPointsAndTheCutPlaneUniforms)
{
    start(true, true, m_base.path());
    send(true);
    OrvaneTest::LogCapture log;
    StreamCapture out(std::cout);
    requestDump();

    EXPECT_NE(
        out.text().find("Directory created or already exists: " + m_base.path().toStdString()),
        std::string::npos)
        << out.text();
    for (const char* line :
         {"=== CutPlane Uniform Values (from GPU Shader) ===", "isCutPlaneExist: false",
          "direction: (", "center: (", "selectIndex: 1"})
        EXPECT_TRUE(log.contains(line)) << line << "\n" << qPrintable(log.lines().join("\n"));

    const QString dir = dumpDir();
    EXPECT_EQ(readText(dir + "/rigid.asc"), QString("1 0.5 -1 0 -1 0 0.25 0.5 0.75\n"
                                                    "2 0.5 -1 0 -1 0 0.25 0.5 0.75\n"
                                                    "3 0.5 -1 0 -1 0 0.25 0.5 0.75\n"));
    EXPECT_EQ(QDir(dir).entryList(QDir::Files), QStringList({"rigid.asc"}));
    EXPECT_TRUE(cloud->isRunning()) << "the dump takes a copy and leaves the scan alone";
}

TEST_F(DebugDumpTest, OnceThePlaneIsGoneTheDumpSaysThereIsNone)
{
    start(true, true, m_base.path());
    send(true);
    {
        osg::ref_ptr<RectCutPlane> plane =
            new RectCutPlane(osg::BoundingBox(-2.0f, -2.0f, -0.5f, 2.0f, 2.0f, 0.5f), 3.0f);
        ASSERT_TRUE(w.run(nullptr));
        OrvaneTest::LogCapture log;
        requestDump();
        EXPECT_TRUE(log.contains("isCutPlaneExist: true")) << qPrintable(log.lines().join("\n"));
    }
    ASSERT_FALSE(RectCutPlane::hasRectCutPlane());
    ASSERT_TRUE(w.run(nullptr));
    OrvaneTest::LogCapture log;
    requestDump();
    EXPECT_TRUE(log.contains("isCutPlaneExist: false")) << qPrintable(log.lines().join("\n"));
}

TEST_F(DebugDumpTest, NonRigidScanDumpsFramesIdsAndStates)
{
    start(false, false, m_base.path());
    const float nan = std::numeric_limits<float>::quiet_NaN();
    osg::Matrixf broken;
    broken(3, 0) = nan;
    cloud->setFrameMatrix({asArray(osg::Matrixf()),
                           asArray(osg::Matrixf::translate(10.0f, 0.0f, 0.0f)), asArray(broken)});
    send(false);
    StreamCapture out(std::cout);
    requestDump();

    const QString dir = dumpDir();
    EXPECT_EQ(readText(dir + "/rigid.asc"), QString("1 0.5 -1 0 -1 0\n"
                                                    "2 0.5 -1 0 -1 0\n"
                                                    "3 0.5 -1 0 -1 0\n"));
    EXPECT_EQ(readText(dir + "/non_rigid.asc"), QString("1 0.5 -1 0 -1 0\n"
                                                        "12 0.5 -1 0 -1 0\n"))
        << "the third point's matrix gives NaN";
    const std::string printed = out.text();
    EXPECT_NE(printed.find("Vertex 2 FrameId 2:\n"), std::string::npos) << printed;
    EXPECT_NE(printed.find("Original: (3, 0.5, -1)"), std::string::npos) << printed;
    EXPECT_NE(printed.find("Transformed: ("), std::string::npos) << printed;
    EXPECT_NE(printed.find("Contains NaN: Yes"), std::string::npos) << printed;

    EXPECT_EQ(readText(dir + "/frame_id.txt"), QString("Index, Frame ID\n0, 0\n1, 1\n2, 2\n"));
    EXPECT_EQ(readText(dir + "/state_value.txt"),
              QString("Index, State Value\n0, 0\n1, 2\n2, 0\n"));
    const QString matrices = readText(dir + "/frame_matrix.txt");
    EXPECT_TRUE(matrices.startsWith("Matrix Data Check\n"
                                    "Matrix 1:\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\nValid: Yes\n\n"
                                    "Matrix 2:\n1 0 0 0\n0 1 0 0\n0 0 1 0\n10 0 0 1\nValid: Yes\n\n"
                                    "Matrix 3:\n1 0 0 0\n0 1 0 0\n0 0 1 0\nnan 0 0 1\nValid: No\n\n"
                                    "Matrix 4:\n0 0 0 0\n0 0 0 0\n0 0 0 0\n0 0 0 0\nValid: No\n\n"))
        << qPrintable(matrices.left(400));
    EXPECT_TRUE(matrices.endsWith("Matrix 262144:\n0 0 0 0\n0 0 0 0\n0 0 0 0\n0 0 0 0\n"
                                  "Valid: No\n\n"))
        << "the whole table";
}

TEST_F(DebugDumpTest, AFolderThatCannotBeMadeIsReportedAndNothingBreaks)
{
    // A plain file where the folder should be.
    const QString blocker = m_base.path() + "/blocker";
    QFile file(blocker);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    start(true, false, blocker + "/asc_models");
    send(false);
    StreamCapture err(std::cerr);
    requestDump();
    EXPECT_NE(err.text().find("Failed to create directory: " + blocker.toStdString()),
              std::string::npos)
        << err.text();
    EXPECT_TRUE(cloud->isRunning());
    bool ended = false;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { ended = cloud->endOfIncreUpdate(); }));
    EXPECT_TRUE(ended) << "the cloud is whole";
    EXPECT_EQ(cloud->getVertexAttribArray(0)->getNumElements(), 3u);
}

TEST_F(DebugDumpTest, BoundQueryRefusesUntilTheScanRunsWithPoints)
{
    osg::ref_ptr<DumpingCloud> idle = new DumpingCloud(false, m_base.path());
    OrvaneTest::LogCapture log;
    osg::Vec3f min(1, 2, 3), max(4, 5, 6);
    EXPECT_FALSE(idle->calcMatBBox(osg::Matrixf(), min, max));
    EXPECT_TRUE(log.contains("Cannot calculate, haven't started"));

    start(true, false, m_base.path());
    bool result = true;
    ASSERT_TRUE(w.run(nullptr,
                      [&](RenderInfo&) { result = cloud->calcMatBBox(osg::Matrixf(), min, max); }));
    EXPECT_FALSE(result);
    EXPECT_TRUE(log.contains("Cannot calculate, m_wholeSize is 0"));

    send(false);
    ASSERT_TRUE(w.run(nullptr,
                      [&](RenderInfo&) { result = cloud->calcMatBBox(osg::Matrixf(), min, max); }));
    EXPECT_FALSE(result) << "nothing measures the cloud yet";
    EXPECT_EQ(min, osg::Vec3f(1, 2, 3));
    EXPECT_EQ(max, osg::Vec3f(4, 5, 6));
}
