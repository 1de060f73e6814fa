// The raw-GL mesh against the factory mesh: the same arrays and program give the same pixels.
#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "custom_mesh_geometry.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"

#include <gtest/gtest.h>
#include <osg/Camera>
#include <osg/Geode>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::LogCapture;
using OrvaneTest::waitUntil;

namespace {

// Four squares side by side, each in its own colour and state; indexed or as plain triangles.
struct Arrays {
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> colors = new osg::Vec3Array;
    osg::ref_ptr<osg::ByteArray> states = new osg::ByteArray;
    osg::ref_ptr<osg::DrawElementsUInt> indices = new osg::DrawElementsUInt(GL_TRIANGLES);

    explicit Arrays(bool indexed)
    {
        const osg::Vec3 tints[4] = {
            {0.9f, 0.2f, 0.1f}, {0.1f, 0.8f, 0.3f}, {0.2f, 0.3f, 0.9f}, {0.7f, 0.7f, 0.2f}};
        const signed char rows[4] = {0, 2, 3, -1};
        for (int q = 0; q < 4; ++q) {
            const float x0 = -1.6f + q * 0.8f, x1 = x0 + 0.7f;
            const osg::Vec3 corners[4] = {
                {x0, -0.8f, 0}, {x1, -0.8f, 0}, {x1, 0.8f, 0}, {x0, 0.8f, 0}};
            // A slight tilt per corner so the lighting varies across each square.
            auto add = [&](int c) {
                vertices->push_back(corners[c]);
                osg::Vec3 n(0.1f * (c - 1.5f), 0.05f * c, 1.0f);
                n.normalize();
                normals->push_back(n);
                colors->push_back(tints[q]);
                states->push_back(rows[q]);
            };
            if (indexed) {
                const unsigned base = vertices->size();
                for (int c = 0; c < 4; ++c)
                    add(c);
                for (unsigned i : {0u, 1u, 2u, 0u, 2u, 3u})
                    indices->push_back(base + i);
            } else {
                for (int c : {0, 1, 2, 0, 2, 3})
                    add(c);
            }
        }
    }
};

void setColorIndex(osg::StateSet* ss)
{
    osg::ref_ptr<osg::Vec3Array> rows = new osg::Vec3Array;
    for (const osg::Vec3& row :
         {osg::Vec3(0, 0, 0), osg::Vec3(1, 0, 0), osg::Vec3(0, 1, 0), osg::Vec3(0.2f, 0.4f, 0.8f)})
        rows->push_back(row);
    ss->setTextureAttributeAndModes(1, Mesh::createColorIndex(rows.get()), osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("colorIndex", 1));
}

class CustomMeshTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_canvas.show()); }

    QImage draw(osg::Node* node)
    {
        return m_canvas.draw(node).copy(0, 0, CanvasWindow::kCanvasWidth, CanvasWindow::kHeight);
    }

    // The same program and uniforms on the group above either mesh.
    osg::Group* withProgram(osg::Node* mesh, const std::string& program)
    {
        auto* group = new osg::Group;
        osg::StateSet* ss = group->getOrCreateStateSet();
        ss->setAttributeAndModes(OrvaneSingleton::instance()->getShaderMgr()->getShader(program),
                                 osg::StateAttribute::ON);
        setColorIndex(ss);
        group->addChild(mesh);
        return group;
    }

    static osg::MatrixTransform* factoryMesh(const Arrays& a, bool indexed)
    {
        osg::MatrixTransform* mesh = Mesh::create(a.vertices.get(), a.normals.get(), a.colors.get(),
                                                  indexed ? a.indices.get() : nullptr);
        auto* states =
            DrawableBase::getVertexArray<osg::ByteArray>(DrawableBase::asGeometry(mesh), StateSlot);
        std::copy(a.states->begin(), a.states->end(), states->begin());
        states->dirty();
        return mesh;
    }

    static osg::Geode* customMesh(const Arrays& a, bool indexed)
    {
        auto* geode = new osg::Geode;
        geode->addDrawable(new CustomMeshGeometry(a.vertices.get(), a.normals.get(), a.colors.get(),
                                                  a.states.get(),
                                                  indexed ? a.indices.get() : nullptr));
        return geode;
    }

    // Largest channel difference, and how many pixels are not black in `a`.
    static std::pair<int, int> compare(const QImage& a, const QImage& b)
    {
        int worst = 0, lit = 0;
        for (int y = 0; y < a.height(); ++y)
            for (int x = 0; x < a.width(); ++x) {
                const QColor p = a.pixelColor(x, y), q = b.pixelColor(x, y);
                worst = std::max({worst, std::abs(p.red() - q.red()),
                                  std::abs(p.green() - q.green()), std::abs(p.blue() - q.blue())});
                lit += p != QColor(Qt::black) ? 1 : 0;
            }
        return {worst, lit};
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
};

// Same program, same inputs, same rasteriser: only rounding may differ.
constexpr int kTolerance = 1;

TEST_F(CustomMeshTest, DrawsTheFactoryMeshPixelsWithStatesAndColours)
{
    for (bool indexed : {false, true}) {
        for (const std::string program : {"editmeshcolor", "editmesh"}) {
            const Arrays arrays(indexed);
            const QImage factory = draw(withProgram(factoryMesh(arrays, indexed), program));
            const QImage custom = draw(withProgram(customMesh(arrays, indexed), program));
            const auto result = compare(factory, custom);
            EXPECT_LE(result.first, kTolerance) << program << (indexed ? " indexed" : "");
            // Three squares of four show; the deleted one is gone in both.
            EXPECT_GT(result.second, 3000) << program;
            if (HasFailure()) {
                factory.save(QString("custom_mesh_factory_%1.png").arg(program.c_str()));
                custom.save(QString("custom_mesh_custom_%1.png").arg(program.c_str()));
            }
        }
    }
}

TEST_F(CustomMeshTest, LeavesTheNextDrawableItsState)
{
    // A factory mesh drawn after the raw one must still find its own arrays bound.
    const Arrays left(false), right(false);
    osg::ref_ptr<osg::Group> both = new osg::Group;
    osg::ref_ptr<osg::MatrixTransform> shifted =
        new osg::MatrixTransform(osg::Matrix::translate(0, 1.0, 0));
    shifted->addChild(factoryMesh(right, false));
    both->addChild(customMesh(left, false));
    both->addChild(shifted.get());
    const QImage together = draw(withProgram(both.get(), "editmeshcolor"));

    osg::ref_ptr<osg::Group> factoryOnly = new osg::Group;
    osg::ref_ptr<osg::MatrixTransform> shiftedAgain =
        new osg::MatrixTransform(osg::Matrix::translate(0, 1.0, 0));
    shiftedAgain->addChild(factoryMesh(right, false));
    factoryOnly->addChild(factoryMesh(left, false));
    factoryOnly->addChild(shiftedAgain.get());
    const QImage reference = draw(withProgram(factoryOnly.get(), "editmeshcolor"));
    EXPECT_LE(compare(together, reference).first, kTolerance);
}

TEST_F(CustomMeshTest, TheCustomFactoryDrawsWhatTheFirstFactoryDraws)
{
    for (bool indexed : {false, true}) {
        // No states given to either: both draw every vertex as plain.
        const Arrays arrays(indexed);
        osg::DrawElementsUInt* primitive = indexed ? arrays.indices.get() : nullptr;
        osg::ref_ptr<osg::MatrixTransform> custom = Mesh::createCustom(
            arrays.vertices.get(), arrays.normals.get(), arrays.colors.get(), primitive);
        ASSERT_TRUE(custom.valid());
        EXPECT_TRUE(dynamic_cast<CustomMeshGeometry*>(DrawableBase::asGeometry(custom.get())));
        const QImage reference =
            draw(withProgram(Mesh::create(arrays.vertices.get(), arrays.normals.get(),
                                          arrays.colors.get(), primitive),
                             "editmeshcolor"));
        const QImage image = draw(withProgram(custom.get(), "editmeshcolor"));
        const auto result = compare(reference, image);
        EXPECT_LE(result.first, kTolerance) << (indexed ? "indexed" : "triangles");
        EXPECT_GT(result.second, 3000);
    }
}

TEST(CustomMeshFactoryTest, RefusedArraysGiveNoMeshAndSayWhy)
{
    const Arrays arrays(false);
    LogCapture log;
    EXPECT_EQ(Mesh::createCustom(nullptr, arrays.normals.get(), nullptr), nullptr);
    EXPECT_EQ(log.count("Invalid argument!"), 1);
    osg::ref_ptr<osg::Vec3Array> fewer = new osg::Vec3Array(3);
    EXPECT_EQ(Mesh::createCustom(arrays.vertices.get(), fewer.get(), nullptr), nullptr);
    EXPECT_TRUE(log.contains("Inconsistent quantity!"));
    // The raw draw reads three floats a vertex: other array types are refused.
    osg::ref_ptr<osg::Vec4Array> wide = new osg::Vec4Array(arrays.vertices->size());
    EXPECT_EQ(Mesh::createCustom(wide.get(), nullptr, nullptr), nullptr);
    EXPECT_EQ(Mesh::createCustom(arrays.vertices.get(), nullptr, wide.get()), nullptr);
    EXPECT_EQ(log.count("Invalid argument!"), 3);
    // Normals and colours are optional.
    osg::ref_ptr<osg::MatrixTransform> bare =
        Mesh::createCustom(arrays.vertices.get(), nullptr, nullptr);
    EXPECT_TRUE(bare.valid());
}

TEST(CustomMeshNoContextTest, DrawWithoutContextLogsAndDrawsNothing)
{
    LogCapture log;
    const Arrays arrays(false);
    osg::ref_ptr<CustomMeshGeometry> mesh =
        new CustomMeshGeometry(arrays.vertices.get(), arrays.normals.get(), arrays.colors.get());
    osg::RenderInfo renderInfo;
    mesh->drawCall(renderInfo);
    mesh->drawCall(renderInfo);
    // Each try starts anew, and says so.
    EXPECT_EQ(log.count("QOpenGLContext is invalid!"), 2);
    // The bound comes from the arrays, though the scene graph holds none of them.
    EXPECT_FLOAT_EQ(mesh->getBoundingBox().xMin(), -1.6f);
}

} // namespace
