// What the running live cloud puts on the screen: which points are drawn, where, and in which
// colour under a cut plane.
#include "canvas3d_drawable.h"
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "incre_point_geomtry_apple.h"
#include "live_cloud_start.h"
#include "orvane_operations.h"
#include "rect_cut_plane.h"

#include <gtest/gtest.h>
#include <osg/Geode>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

// The whole-cloud program draws 3 x 3 pixel points by default.
constexpr int kPointPixels = 9;
// Lit points are far brighter than the black clear colour.
constexpr int kLitGray = 40;
// A channel that leads the others by this much decides the hue of a lit pixel.
constexpr int kHueLead = 100;

struct CloudPoint {
    osg::Vec3 position;
    GLbyte state = 0;
    int frame = -1;
    osg::Vec3 colour = osg::Vec3(1.0f, 0.0f, 0.0f);
};

std::shared_ptr<IncrePatchData> patchOf(const std::vector<CloudPoint>& points, bool withColour)
{
    auto patch = std::make_shared<IncrePatchData>();
    patch->vertArr = new osg::Vec3Array;
    patch->normArr = new osg::Vec3Array;
    patch->stateArr = new osg::ByteArray;
    if (withColour)
        patch->clrArr = new osg::Vec3Array;
    for (size_t i = 0; i < points.size(); ++i) {
        patch->vertArr->push_back(points[i].position);
        if (withColour)
            patch->clrArr->push_back(points[i].colour);
        // Towards the camera, which looks along +y.
        patch->normArr->push_back(osg::Vec3(0.0f, -1.0f, 0.0f));
        patch->stateArr->push_back(points[i].state);
        patch->patchIdData.push_back(static_cast<int>(i));
        if (points[i].frame >= 0)
            patch->patchFrameIdData.push_back(points[i].frame);
    }
    return patch;
}

int litPixels(const QImage& image)
{
    int lit = 0;
    for (int y = 0; y < CanvasWindow::kHeight; ++y)
        for (int x = 0; x < CanvasWindow::kCanvasWidth; ++x)
            lit += qGray(image.pixel(x, y)) > kLitGray ? 1 : 0;
    return lit;
}

// Lit pixels whose red leads green and blue.
int redPixels(const QImage& image)
{
    int n = 0;
    for (int y = 0; y < CanvasWindow::kHeight; ++y)
        for (int x = 0; x < CanvasWindow::kCanvasWidth; ++x) {
            const QColor c = image.pixelColor(x, y);
            n += c.red() - std::max(c.green(), c.blue()) > kHueLead ? 1 : 0;
        }
    return n;
}

bool isLit(const QImage& image, const QPoint& pixel)
{
    return image.rect().contains(pixel) && qGray(image.pixel(pixel)) > kLitGray;
}

class WholeCloudDrawTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        w.item()->setClearColor(Qt::black);
        ASSERT_TRUE(w.show());
        ASSERT_TRUE(w.lookAt(osg::Vec3d(0.0, -10.0, 0.0), osg::Vec3d(), osg::Vec3d(0, 0, 1)));
    }

    // `paused` binds the program that draws the cloud while the scan is paused.
    void start(bool rigid, bool withColour = false, bool paused = false)
    {
        cloud = new IncrePointGeometryApple(withColour, paused, true);
        // A fixed bound keeps the cloud from being culled before it has arrays.
        cloud->setBoxValue(osg::Vec3f(-2, -1, -2), osg::Vec3f(2, 1, 2));
        OrvaneTest::startLiveCloud(w, cloud.get(), rigid);
        ASSERT_TRUE(cloud->isInited());
    }

    void send(const std::vector<CloudPoint>& points)
    {
        cloud->setWholeSize(static_cast<uint32_t>(points.size()));
        cloud->setPatchVertexSize(static_cast<int>(points.size()));
        cloud->addIncreasePatchData(patchOf(points, cloud->getNumVertexAttribArrays() > 2 &&
                                                        cloud->getVertexAttribArray(2)));
        w.item()->frame();
        ASSERT_TRUE(waitUntil([&] { return cloud->queuedPatchCount() == 0; }));
    }

    CanvasWindow w;
    osg::ref_ptr<IncrePointGeometryApple> cloud;
};

} // namespace

TEST_F(WholeCloudDrawTest, PointsAtTheOriginOrWithANegativeStateAreNeverDrawn)
{
    start(true);
    send({{osg::Vec3(1.0f, 0.0f, 1.0f)},
          {osg::Vec3(0.0f, 0.0f, 0.0f)},
          {osg::Vec3(-1.0f, 0.0f, -1.0f), -1},
          {osg::Vec3(-1.0f, 0.0f, 1.0f), -3}});
    EXPECT_EQ(w.settle(litPixels, kPointPixels), kPointPixels) << "only the first point";
    EXPECT_TRUE(isLit(w.grab(), w.pixelOf(osg::Vec3d(1.0, 0.0, 1.0))));
    EXPECT_FALSE(isLit(w.grab(), w.pixelOf(osg::Vec3d())));
}

TEST_F(WholeCloudDrawTest, UnderACutPlanePointsTakeTheRowOfSelectIndex)
{
    start(true);
    // Rows 1, 2 and 4 green, row 3 red.
    osg::ref_ptr<osg::Vec3Array> rows = new osg::Vec3Array;
    rows->resize(5, osg::Vec3(0.0f, 1.0f, 0.0f));
    (*rows)[3] = osg::Vec3(1.0f, 0.0f, 0.0f);
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        osg::Group* model = ViewMgr::getModel(info.mainView());
        EXPECT_TRUE(Mesh::colorIndex(model, rows.get()));
        osg::StateSet* ss = model->getOrCreateStateSet();
        ss->addUniform(new osg::Uniform("direction", osg::Vec3f(0.0f, 0.0f, 1.0f)));
        ss->addUniform(new osg::Uniform("center", osg::Vec3f(0.0f, 0.0f, 0.0f)));
        ss->addUniform(new osg::Uniform("selectIndex", 3.0f));
    }));
    // Two points above the plane z = 0 and two below; one above carries state 0, one state 1.
    send({{osg::Vec3(-1.0f, 0.0f, 1.0f)},
          {osg::Vec3(1.0f, 0.0f, 1.0f), 1},
          {osg::Vec3(-1.0f, 0.0f, -1.0f)},
          {osg::Vec3(1.0f, 0.0f, -1.0f), 2}});
    EXPECT_EQ(w.settle(litPixels, 4 * kPointPixels), 4 * kPointPixels);
    EXPECT_EQ(redPixels(w.grab()), 0) << "no plane yet: no point shows row 3";

    // The cloud asks only whether a plane exists; the uniforms above say where it cuts.
    osg::ref_ptr<RectCutPlane> plane =
        new RectCutPlane(osg::BoundingBox(-2.0f, -2.0f, -0.5f, 2.0f, 2.0f, 0.5f), 3.0f);
    ASSERT_TRUE(RectCutPlane::hasRectCutPlane());
    // Nothing in the scene changed: ask for a frame that sees the plane.
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_EQ(w.settle(redPixels, 2 * kPointPixels), 2 * kPointPixels) << "the two points below";
    const QImage image = w.grab();
    const QColor below = image.pixelColor(w.pixelOf(osg::Vec3d(-1.0, 0.0, -1.0)));
    EXPECT_GT(below.red(), 200) << qPrintable(below.name());
    const QColor above = image.pixelColor(w.pixelOf(osg::Vec3d(-1.0, 0.0, 1.0)));
    EXPECT_LT(above.red(), 100) << "above the plane a point keeps its colour";
    // The render thread rewrites it every frame: read it there.
    bool enabled = false;
    float selectIndex = 0.0f;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
        enabled = cloud->cutPlaneInfo().enabled;
        selectIndex = cloud->cutPlaneInfo().selectIndex;
    }));
    EXPECT_TRUE(enabled);
    EXPECT_FLOAT_EQ(selectIndex, 3.0f);

    // Gone again: the cloud stops testing and every point shows its own colour.
    plane = nullptr;
    ASSERT_FALSE(RectCutPlane::hasRectCutPlane());
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_EQ(w.settle(redPixels, 0), 0);
    EXPECT_EQ(litPixels(w.grab()), 4 * kPointPixels);
}

TEST_F(WholeCloudDrawTest, ANonRigidPointIsMovedByTheMatrixOfItsFrame)
{
    start(false);
    osg::Matrixf moved = osg::Matrixf::translate(-2.0f, 0.0f, 1.0f);
    const osg::Matrixf unit;
    std::array<float, 16> identity, translation;
    std::copy(unit.ptr(), unit.ptr() + 16, identity.begin());
    std::copy(moved.ptr(), moved.ptr() + 16, translation.begin());
    cloud->setFrameMatrix({identity, translation});
    // Both stored at the same frame-local place; the second belongs to frame 1.
    send({{osg::Vec3(1.0f, 0.0f, -1.0f), 0, 0}, {osg::Vec3(1.0f, 0.0f, -1.0f), 0, 1}});
    EXPECT_EQ(w.settle(litPixels, 2 * kPointPixels), 2 * kPointPixels);
    const QImage image = w.grab();
    EXPECT_TRUE(isLit(image, w.pixelOf(osg::Vec3d(1.0, 0.0, -1.0))));
    EXPECT_TRUE(isLit(image, w.pixelOf(osg::Vec3d(-1.0, 0.0, 0.0))));
}

TEST_F(WholeCloudDrawTest, APausedCloudDrawsItsColoursAndStatesThroughTheSceneGraph)
{
    start(true, true, true);
    osg::ref_ptr<osg::Vec3Array> rows = new osg::Vec3Array;
    rows->resize(5, osg::Vec3(0.0f, 0.0f, 1.0f));
    (*rows)[3] = osg::Vec3(0.0f, 1.0f, 0.0f);
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        EXPECT_TRUE(Mesh::colorIndex(ViewMgr::getModel(info.mainView()), rows.get()));
    }));
    // A red point, a point selected as row 3 (green) and a deleted one.
    send({{osg::Vec3(-1.0f, 0.0f, 1.0f)},
          {osg::Vec3(1.0f, 0.0f, 1.0f), 3},
          {osg::Vec3(0.0f, 0.0f, -1.0f), -1}});
    bool ended = false;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) { ended = cloud->endOfIncreUpdate(); }));
    ASSERT_TRUE(ended);
    ASSERT_FALSE(cloud->isRunning());
    ASSERT_TRUE(w.run(nullptr));

    ASSERT_TRUE(waitUntil([&] { return redPixels(w.grab()) > 0; })) << "the vertex colour";
    const QImage image = w.grab();
    const QColor selected = image.pixelColor(w.pixelOf(osg::Vec3d(1.0, 0.0, 1.0)));
    EXPECT_GT(selected.green() - std::max(selected.red(), selected.blue()), kHueLead)
        << qPrintable(selected.name());
    EXPECT_FALSE(isLit(image, w.pixelOf(osg::Vec3d(0.0, 0.0, -1.0)))) << "deleted";
}

// Lit pixels whose blue leads red: the program's default front colour.
int bluePixels(const QImage& image)
{
    int n = 0;
    for (int y = 0; y < CanvasWindow::kHeight; ++y)
        for (int x = 0; x < CanvasWindow::kCanvasWidth; ++x) {
            const QColor c = image.pixelColor(x, y);
            n += c.blue() - c.red() > kHueLead ? 1 : 0;
        }
    return n;
}

TEST_F(WholeCloudDrawTest, DefaultUniformsUndoWhatARemovedSceneUniformLeftInTheProgram)
{
    start(true);
    send({{osg::Vec3(-1.0f, 0.0f, 1.0f)}, {osg::Vec3(1.0f, 0.0f, -1.0f)}});
    EXPECT_EQ(w.settle(bluePixels, 2 * kPointPixels), 2 * kPointPixels) << "default front";

    // Published above the cloud, where the scene-graph state carries it to the raw draw.
    osg::ref_ptr<osg::Uniform> red = new osg::Uniform("front", osg::Vec3f(1.0f, 0.0f, 0.0f));
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        ViewMgr::getModel(info.mainView())->getOrCreateStateSet()->addUniform(red);
    }));
    EXPECT_EQ(w.settle(redPixels, 2 * kPointPixels), 2 * kPointPixels);
    // The program keeps the last value it was given once the scene stops giving one.
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        ViewMgr::getModel(info.mainView())->getStateSet()->removeUniform(red);
    }));
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_EQ(w.settle(redPixels, 2 * kPointPixels), 2 * kPointPixels);

    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        osg::RenderInfo renderInfo(info.mainView()->getCamera()->getGraphicsContext()->getState(),
                                   info.mainView());
        cloud->setWholePCDefaultUniform(renderInfo);
    }));
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_EQ(w.settle(bluePixels, 2 * kPointPixels), 2 * kPointPixels);
    EXPECT_EQ(redPixels(w.grab()), 0);
}

TEST_F(WholeCloudDrawTest, PrintLogSwitchNamesEachFetchedUniformAndItsLocation)
{
    start(true);
    OrvaneTest::LogCapture log;
    IncrePointGeometryApple::isPrintLog = true;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        osg::StateSet* ss = ViewMgr::getModel(info.mainView())->getOrCreateStateSet();
        ss->addUniform(new osg::Uniform("front", osg::Vec3f(1, 0, 0)));
        ss->addUniform(new osg::Uniform("noSuchName", 1.0f));
    }));
    send({{osg::Vec3(-1.0f, 0.0f, 1.0f)}});
    ASSERT_TRUE(w.run(nullptr));
    IncrePointGeometryApple::isPrintLog = false;
    EXPECT_TRUE(log.contains("fetchOsgUniform Begin"));
    EXPECT_TRUE(log.contains("fetchOsgUniform End"));
    EXPECT_TRUE(log.contains("fetchUniform name: front, loc: "));
    EXPECT_FALSE(log.contains("fetchUniform name: front, loc: -1"));
    EXPECT_TRUE(log.contains("fetchUniform name: noSuchName, loc: -1"));

    // Off again: no more lines.
    const int lines = log.count("fetchUniform name: ");
    ASSERT_TRUE(w.run(nullptr));
    ASSERT_TRUE(w.run(nullptr));
    EXPECT_EQ(log.count("fetchUniform name: "), lines);
}

TEST_F(WholeCloudDrawTest, UnmapBufferReleasesAMappedArrayBuffer)
{
    start(true);
    GLint mapped = -1, bound = -1;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
        QOpenGLFunctions_4_1_Core* gl = BaseGeometryApple::getGlFun();
        GLuint buffer = 0;
        gl->glGenBuffers(1, &buffer);
        gl->glBindBuffer(GL_ARRAY_BUFFER, buffer);
        gl->glBufferData(GL_ARRAY_BUFFER, 64, nullptr, GL_DYNAMIC_DRAW);
        ASSERT_NE(gl->glMapBufferRange(GL_ARRAY_BUFFER, 0, 64, GL_MAP_WRITE_BIT), nullptr);
        cloud->unmapBuffer();
        gl->glGetIntegerv(GL_ARRAY_BUFFER_BINDING, &bound);
        gl->glBindBuffer(GL_ARRAY_BUFFER, buffer);
        gl->glGetBufferParameteriv(GL_ARRAY_BUFFER, GL_BUFFER_MAPPED, &mapped);
        gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
        gl->glDeleteBuffers(1, &buffer);
    }));
    EXPECT_EQ(bound, 0);
    EXPECT_EQ(mapped, GL_FALSE);
}
