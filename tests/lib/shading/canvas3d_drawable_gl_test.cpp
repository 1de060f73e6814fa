// Factory output drawn on a live canvas: slots and states reach the shaders, points thin out.
#include "canvas3d_drawable.h"
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "point_draw_callback.h"

#include <QTest>
#include <gtest/gtest.h>
#include <osg/Program>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

// Positions are taken as clip coordinates, so pixels do not depend on the camera. A state
// above 0 shows its colour-index row; a negative state discards.
const char* const kVertex = R"(#version 410 core
layout(location = 0) in vec3 vPosition;
layout(location = 4) in int vFlag;
flat out int flag;
void main() { flag = vFlag; gl_Position = vec4(vPosition, 1.0); gl_PointSize = 1.0; }
)";
const char* const kFragment = R"(#version 410 core
flat in int flag;
uniform sampler1D colorIndex;
out vec4 color;
void main() {
    if (flag < 0) discard;
    color = flag == 0 ? vec4(1.0, 1.0, 1.0, 1.0) : vec4(texelFetch(colorIndex, flag, 0).rgb, 1.0);
}
)";

// Registered in the catalogue, as an application adds its own programs.
osg::Program* testProgram()
{
    ShaderManager* catalogue = OrvaneSingleton::instance()->getShaderMgr();
    if (!catalogue->hasShader("drawable_test_states"))
        catalogue->registShader("drawable_test_states", {{osg::Shader::VERTEX, kVertex},
                                                         {osg::Shader::FRAGMENT, kFragment}});
    return catalogue->getShader("drawable_test_states");
}

// Adds `node` to the model group of the canvas with the test program, and waits for a frame.
void show(CanvasWindow& w, osg::Node* node)
{
    node->getOrCreateStateSet()->setAttributeAndModes(testProgram());
    osg::ref_ptr<osg::Node> held = node;
    w.item()->addOperation(new LambdaOperation(
        [held](RenderInfo& info) { ViewMgr::getModel(info.mainView())->addChild(held.get()); }));
}

// A quad over the middle of the clip square, as two triangles of six vertices.
osg::ref_ptr<osg::Vec3Array> centreQuad()
{
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    for (const osg::Vec3& p :
         {osg::Vec3(-0.5f, -0.5f, 0), osg::Vec3(0.5f, -0.5f, 0), osg::Vec3(0.5f, 0.5f, 0),
          osg::Vec3(-0.5f, -0.5f, 0), osg::Vec3(0.5f, 0.5f, 0), osg::Vec3(-0.5f, 0.5f, 0)})
        v->push_back(p);
    return v;
}

// One point at the centre of each 4x4 pixel cell of the canvas.
osg::ref_ptr<osg::Vec3Array> pointGrid(int columns, int rows)
{
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < columns; ++x)
            v->push_back(osg::Vec3((x * 4 + 2.5f) / CanvasWindow::kCanvasWidth * 2 - 1,
                                   (y * 4 + 2.5f) / CanvasWindow::kHeight * 2 - 1, 0));
    return v;
}

int litPixels(const QImage& image)
{
    int lit = 0;
    for (int y = 0; y < CanvasWindow::kHeight; ++y)
        for (int x = 0; x < CanvasWindow::kCanvasWidth; ++x)
            lit += qGray(image.pixel(x, y)) > 128 ? 1 : 0;
    return lit;
}

QColor centre(const QImage& image)
{
    return image.pixelColor(CanvasWindow::kCanvasWidth / 2, CanvasWindow::kHeight / 2);
}

constexpr int kColorTolerance = 2; // 8-bit round trip of float colours

} // namespace

TEST(DrawableGLTest, MeshStatesPickColourIndexRowsAndNegativeStatesVanish)
{
    CanvasWindow w;
    w.item()->setClearColor(Qt::black);
    ASSERT_TRUE(w.show());
    osg::ref_ptr<osg::MatrixTransform> mesh =
        Mesh::create(centreQuad().get(), nullptr, static_cast<osg::Array*>(nullptr));
    ASSERT_TRUE(mesh);
    show(w, mesh.get());
    EXPECT_TRUE(waitUntil([&] { return centre(w.grab()) == QColor(Qt::white); }));
    EXPECT_EQ(w.grab().pixelColor(3, 3), QColor(Qt::black));

    osg::ref_ptr<osg::Vec3Array> rows = new osg::Vec3Array;
    for (int i = 0; i < 5; ++i)
        rows->push_back(osg::Vec3(0.1f * i, 0.8f, 0.2f + 0.1f * i));
    w.item()->addOperation(new LambdaOperation([&](RenderInfo& info) {
        EXPECT_TRUE(Mesh::colorIndex(ViewMgr::getModel(info.mainView()), rows.get()));
        auto* states = DrawableBase::getVertexArray<StateArray>(
            DrawableBase::asGeometry(mesh.get()), StateSlot);
        std::fill(states->begin(), states->end(), 3);
        states->dirty();
    }));
    const QColor row3 = QColor::fromRgbF(0.3, 0.8, 0.5);
    EXPECT_TRUE(waitUntil([&] {
        return OrvaneTest::near(centre(w.grab()), row3, kColorTolerance);
    })) << qPrintable(centre(w.grab()).name());

    w.item()->addOperation(new LambdaOperation([&](RenderInfo&) {
        auto* states = DrawableBase::getVertexArray<StateArray>(
            DrawableBase::asGeometry(mesh.get()), StateSlot);
        std::fill(states->begin(), states->end(), -1);
        states->dirty();
    }));
    EXPECT_TRUE(waitUntil([&] { return centre(w.grab()) == QColor(Qt::black); }));
}

TEST(DrawableGLTest, UpdatedPositionsMoveThePoints)
{
    CanvasWindow w;
    w.item()->setClearColor(Qt::black);
    ASSERT_TRUE(w.show());
    osg::ref_ptr<osg::MatrixTransform> points =
        Point::create(pointGrid(40, 30).get(), nullptr, nullptr);
    show(w, points.get());
    ASSERT_TRUE(waitUntil([&] { return litPixels(w.grab()) == 1200; }));

    // Same count, moved out of the clip square but for the first column.
    osg::ref_ptr<osg::Vec3Array> moved = pointGrid(40, 30);
    for (unsigned int i = 0; i < moved->size(); ++i)
        if (i % 40 != 0)
            (*moved)[i].x() += 4.0f;
    unsigned int updated = 0;
    w.item()->addOperation(new LambdaOperation([&](RenderInfo&) {
        updated = Point::update(points.get(), moved.get(), nullptr, nullptr);
    }));
    EXPECT_TRUE(waitUntil([&] { return litPixels(w.grab()) == 30; }));
    EXPECT_EQ(updated, 1u);
}

TEST(PointDownSampleTest, IndexSamplingKeepsAStableQuarter)
{
    CanvasWindow w;
    w.item()->setClearColor(Qt::black);
    ASSERT_TRUE(w.show());
    osg::ref_ptr<osg::MatrixTransform> points =
        Point::create(pointGrid(40, 30).get(), nullptr, nullptr);
    osg::ref_ptr<PointDrawCallback> sampler = new PointDrawCallback;
    sampler->setDownSamples(4);
    DrawableBase::asGeometry(points.get())->setDrawCallback(sampler.get());
    show(w, points.get());
    // The render thread builds and replaces the list: read it there.
    const auto indicesNow = [&] {
        osg::ref_ptr<const osg::DrawElementsUInt> seen;
        EXPECT_TRUE(w.run(nullptr, [&](RenderInfo&) { seen = sampler->sampledIndices(); }));
        return seen;
    };
    ASSERT_TRUE(waitUntil([&] { return indicesNow() != nullptr; }));

    QImage first;
    ASSERT_TRUE(waitUntil([&] {
        first = w.grab();
        return litPixels(first) > 0;
    }));
    // 1200 points kept with p = 1/4: mean 300, standard deviation 15; six of them either side.
    EXPECT_NEAR(litPixels(first), 300, 90);
    const osg::ref_ptr<const osg::DrawElementsUInt> indices = indicesNow();
    EXPECT_EQ(static_cast<int>(indices->size()), litPixels(first));

    w.item()->frame();
    QTest::qWait(100);
    EXPECT_EQ(w.grab(), first) << "same count, different points";
    EXPECT_EQ(indicesNow().get(), indices.get());

    // A new vertex count rebuilds the list.
    osg::ref_ptr<osg::Vec3Array> fewer = pointGrid(40, 10);
    w.item()->addOperation(new LambdaOperation([&](RenderInfo&) {
        osg::Geometry* geometry = DrawableBase::asGeometry(points.get());
        Point::update(points.get(), fewer.get(), nullptr, nullptr);
        geometry->setVertexAttribArray(StateSlot, new StateArray(fewer->size()),
                                       osg::Array::BIND_PER_VERTEX);
        geometry->getVertexAttribArray(StateSlot)->setPreserveDataType(true);
    }));
    EXPECT_TRUE(waitUntil([&] { return indicesNow() != indices; }));
    EXPECT_LE(indicesNow()->size(), 400u);
}

TEST(PointDownSampleTest, FactorOneDrawsEverythingWithoutAnIndexList)
{
    CanvasWindow w;
    w.item()->setClearColor(Qt::black);
    ASSERT_TRUE(w.show());
    osg::ref_ptr<osg::MatrixTransform> points =
        Point::create(pointGrid(40, 30).get(), nullptr, nullptr);
    osg::ref_ptr<PointDrawCallback> sampler = new PointDrawCallback;
    sampler->setDownSamples(1);
    DrawableBase::asGeometry(points.get())->setDrawCallback(sampler.get());
    show(w, points.get());
    EXPECT_TRUE(waitUntil([&] { return litPixels(w.grab()) == 1200; }));
    EXPECT_EQ(sampler->sampledIndices(), nullptr);
}

TEST(PointDownSampleTest, StrideSamplingDrawsEveryFourthPoint)
{
    CanvasWindow w;
    w.item()->setClearColor(Qt::black);
    ASSERT_TRUE(w.show());
    osg::ref_ptr<osg::MatrixTransform> points =
        Point::create(pointGrid(40, 30).get(), nullptr, nullptr);
    osg::Geometry* geometry = DrawableBase::asGeometry(points.get());
    // Stride sampling sets the arrays every frame.
    geometry->setDataVariance(osg::Object::DYNAMIC);
    osg::ref_ptr<PointDrawCallback> sampler = new PointDrawCallback;
    sampler->setDownSampleType(PointDrawCallback::StrideSample);
    sampler->setDownSamples(4);
    geometry->setDrawCallback(sampler.get());
    show(w, points.get());
    QImage image;
    EXPECT_TRUE(waitUntil([&] {
        image = w.grab();
        return litPixels(image) == 300;
    })) << litPixels(image);
    // Every fourth point of the first row: columns 0, 4, 8...
    EXPECT_GT(qGray(image.pixel(2, CanvasWindow::kHeight - 3)), 128);
    EXPECT_LT(qGray(image.pixel(6, CanvasWindow::kHeight - 3)), 128);
}
