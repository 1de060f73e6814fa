// Colours of the mesh programs at chosen pixels of a live canvas, against the shading formulas.
#include "canvas3d_drawable.h"
#include "canvas3d_item.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions_4_1_Core>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <osg/BufferIndexBinding>
#include <osg/BufferObject>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Texture1D>
#include <osg/Texture2D>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::describe;
using OrvaneTest::dirLight;
using OrvaneTest::Probe;
using OrvaneTest::probe;
using OrvaneTest::reflect;
using OrvaneTest::toColor;

namespace {

// 8-bit quantisation of the framebuffer plus float rounding in llvmpipe.
constexpr int kTolerance = 2;

const osg::Vec3 kFront(0.05f, 0.695f, 1.0f);
const osg::Vec3 kBack(0.9f, 0.85f, 0.44f);
const osg::Vec3 kEditFront(0.5f, 0.5f, 0.5f);
const osg::Vec4 kMainParam(0.5f, 0.5f, 0.15f, 128.0f);
const osg::Vec4 kSelectedParam(0.5f, 0.5f, 0.1f, 128.0f);
const osg::Vec3 kToEye(0.0f, 0.0f, 1.0f);
const std::vector<osg::Vec3> kRows = {{0.0f, 0.0f, 0.0f},
                                      {1.0f, 0.0f, 0.0f},
                                      {0.0f, 1.0f, 0.0f},
                                      {0.2f, 0.4f, 0.8f},
                                      {1.0f, 1.0f, 0.0f}};

float sum(const osg::Vec3& v)
{
    return v.x() + v.y() + v.z();
}

// Builds triangles at z = 0 with whatever per-vertex arrays the test fills.
class MeshBuilder
{
public:
    osg::Vec3 normal{0.0f, 0.0f, 1.0f};
    osg::Vec3 color;
    osg::Vec2 texCoord{0.5f, 0.5f};
    osg::Vec2 texCoord2nd{0.5f, 0.5f};
    signed char state = 0;
    float weight = 0.0f;

    void triangle(const osg::Vec2& a, const osg::Vec2& b, const osg::Vec2& c)
    {
        for (const osg::Vec2& p : {a, b, c}) {
            m_positions->push_back(osg::Vec3(p.x(), p.y(), 0.0f));
            m_normals->push_back(normal);
            m_colors->push_back(color);
            m_texCoords->push_back(texCoord);
            m_texCoords2nd->push_back(texCoord2nd);
            m_states->push_back(state);
            m_weights->push_back(weight);
        }
    }

    // Counter-clockwise seen from the eye: a front face. `away` winds it the other way and
    // turns its normal from the eye, as the far side of a closed surface would be.
    void square(float x0, float y0, float x1, float y1, bool away = false)
    {
        const osg::Vec3 keep = normal;
        if (away) {
            normal = -normal;
            triangle({x0, y0}, {x1, y1}, {x1, y0});
            triangle({x0, y0}, {x0, y1}, {x1, y1});
        } else {
            triangle({x0, y0}, {x1, y0}, {x1, y1});
            triangle({x0, y0}, {x1, y1}, {x0, y1});
        }
        normal = keep;
    }

    osg::ref_ptr<osg::Geometry> build() const
    {
        osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
        geometry->setUseDisplayList(false);
        geometry->setUseVertexBufferObjects(true);
        geometry->setUseVertexArrayObject(true);
        geometry->setVertexAttribArray(0, m_positions.get(), osg::Array::BIND_PER_VERTEX);
        geometry->setVertexAttribArray(1, m_normals.get(), osg::Array::BIND_PER_VERTEX);
        geometry->setVertexAttribArray(2, m_colors.get(), osg::Array::BIND_PER_VERTEX);
        geometry->setVertexAttribArray(3, m_texCoords.get(), osg::Array::BIND_PER_VERTEX);
        // Signed bytes arrive as `in int` only with their own type kept.
        m_states->setPreserveDataType(true);
        geometry->setVertexAttribArray(4, m_states.get(), osg::Array::BIND_PER_VERTEX);
        geometry->setVertexAttribArray(5, m_weights.get(), osg::Array::BIND_PER_VERTEX);
        geometry->setVertexAttribArray(6, m_texCoords2nd.get(), osg::Array::BIND_PER_VERTEX);
        geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, m_positions->size()));
        // No classic vertex array: give the bound ourselves.
        geometry->setInitialBound(osg::BoundingBox(-2, -2, -0.1f, 2, 2, 0.1f));
        return geometry;
    }

private:
    osg::ref_ptr<osg::Vec3Array> m_positions = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> m_normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> m_colors = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec2Array> m_texCoords = new osg::Vec2Array;
    osg::ref_ptr<osg::Vec2Array> m_texCoords2nd = new osg::Vec2Array;
    osg::ref_ptr<osg::ByteArray> m_states = new osg::ByteArray;
    osg::ref_ptr<osg::FloatArray> m_weights = new osg::FloatArray;
};

osg::Texture1D* rowTexture(const std::vector<osg::Vec3>& rows, int width)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(width, 1, 1, GL_RGB, GL_FLOAT);
    auto* data = reinterpret_cast<osg::Vec3*>(image->data());
    for (int i = 0; i < width; ++i)
        data[i] = i < int(rows.size()) ? rows[i] : osg::Vec3();
    image->setInternalTextureFormat(GL_RGB32F_ARB);
    auto* texture = new osg::Texture1D(image.get());
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    return texture;
}

// The selection rows on unit 1, as the colour index of a group is set.
void setColorIndex(osg::StateSet* ss)
{
    osg::ref_ptr<osg::Vec3Array> rows = new osg::Vec3Array(kRows.begin(), kRows.end());
    ss->setTextureAttributeAndModes(1, Mesh::createColorIndex(rows.get()), osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("colorIndex", 1));
}

osg::Texture2D* flatTexture(const osg::Vec3& color)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(2, 2, 1, GL_RGB, GL_FLOAT);
    auto* data = reinterpret_cast<osg::Vec3*>(image->data());
    std::fill(data, data + 4, color);
    auto* texture = new osg::Texture2D(image.get());
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    return texture;
}

class MeshShadingTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_canvas.show()); }

    bool onRenderThread(std::function<void(RenderInfo&)> body)
    {
        return m_canvas.onRenderThread(std::move(body));
    }

    // The state set carries the program; the test adds its uniforms before drawing.
    osg::StateSet* use(osg::Geometry* geometry, const std::string& program)
    {
        osg::Program* linked = OrvaneSingleton::instance()->getShaderMgr()->getShader(program);
        EXPECT_NE(linked, nullptr) << program;
        osg::StateSet* ss = geometry->getOrCreateStateSet();
        ss->setAttributeAndModes(linked, osg::StateAttribute::ON);
        return ss;
    }

    // Shows the geometry alone in the model group and grabs the window after a few frames.
    QImage draw(osg::Geometry* geometry)
    {
        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        geode->addDrawable(geometry);
        return drawNode(geode.get());
    }

    QImage drawNode(osg::Node* node) { return m_canvas.draw(node); }

    void expectPixel(const QImage& image, const Probe& at, const osg::Vec3& expected,
                     int tolerance = kTolerance)
    {
        const QColor actual = image.pixelColor(at.pixel);
        const QColor wanted = toColor(expected);
        EXPECT_TRUE(OrvaneTest::near(actual, wanted, tolerance))
            << "at (" << at.pixel.x() << ", " << at.pixel.y() << "): " << describe(actual)
            << ", expected " << describe(wanted);
        if (HasFailure())
            image.save(QString("mesh_shading_%1.png")
                           .arg(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    }

    // The classic front with the default rig: only the main light is lit.
    static osg::Vec3 classicFront(const osg::Vec3& C, const osg::Vec3& P)
    {
        return C * sum(dirLight(kToEye, kMainParam, kToEye, P));
    }

    // What a selected front shows with the fixed constants.
    static osg::Vec3 selectedFront(const osg::Vec3& row, const osg::Vec3& P)
    {
        const osg::Vec3 light = dirLight(kToEye, kSelectedParam, kToEye, P);
        return row * (0.5f + light.y()) + osg::Vec3(light.z(), light.z(), light.z());
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
};

TEST_F(MeshShadingTest, ClassicFrontWithDefaults)
{
    MeshBuilder mesh;
    mesh.square(-1, -1, 1, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    use(geometry.get(), "mesh");
    const QImage image = draw(geometry.get());

    for (const Probe& at : {probe(0.0f, 0.0f), probe(0.5f, 0.3f)}) {
        // Front times ambient plus diffuse plus the highlight; the dark lights add nothing.
        const float highlight = std::pow(std::max(-at.P.z(), 0.0f), 128.0f);
        expectPixel(image, at, kFront * (0.5f + 0.5f + 0.15f * highlight));
        expectPixel(image, at, classicFront(kFront, at.P));
    }
}

TEST_F(MeshShadingTest, BackFaceTakesBackColourAndBackLight)
{
    MeshBuilder mesh;
    mesh.square(-1, -1, 1, 1, true);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    use(geometry.get(), "mesh");
    const QImage image = draw(geometry.get());

    const Probe at = probe(0.2f, -0.2f);
    // The normal turned back faces the eye: back times (0.5 + 0.5 + no specular).
    const osg::Vec3 back = kBack * sum(dirLight(kToEye, {0.5f, 0.5f, 0.0f, 1.0f}, kToEye, at.P));
    expectPixel(image, at, back);
    expectPixel(image, at, kBack);
}

TEST_F(MeshShadingTest, StateThreeShowsRowThreeOnBothFaces)
{
    MeshBuilder mesh;
    mesh.state = 3;
    mesh.square(-1.2f, -1, -0.1f, 1);
    mesh.square(0.1f, -1, 1.2f, 1, true);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    setColorIndex(use(geometry.get(), "editmesh"));
    const QImage image = draw(geometry.get());

    const Probe front = probe(-0.65f, 0.0f);
    expectPixel(image, front, selectedFront(kRows[3], front.P));
    // The back light on the turned normal: row times (0.5 + 0.5).
    const Probe back = probe(0.65f, 0.0f);
    expectPixel(image, back, kRows[3]);
}

TEST_F(MeshShadingTest, NegativeStateRemovesTheTriangle)
{
    for (const std::string program : {"editmesh", "editmesh_material"}) {
        MeshBuilder mesh;
        mesh.triangle({-1, -1}, {1, -1}, {1, 1});
        mesh.state = -1;
        mesh.triangle({-1, -1}, {1, 1}, {-1, 1});
        osg::ref_ptr<osg::Geometry> geometry = mesh.build();
        setColorIndex(use(geometry.get(), program));
        const QImage image = draw(geometry.get());

        const Probe kept = probe(0.5f, -0.5f);
        const Probe removed = probe(-0.5f, 0.5f);
        EXPECT_NE(image.pixelColor(kept.pixel), QColor(Qt::black)) << program;
        // Exact: nothing is drawn, so the window's black shows through.
        expectPixel(image, removed, osg::Vec3(), 0);
    }
}

TEST_F(MeshShadingTest, EditProgramsDrawBeforeAnyColourIndexIsGiven)
{
    // The colour index sits on unit 1 by itself: no clash with the texture on unit 0.
    for (const std::string program : {"editmesh", "edittexturemesh"}) {
        MeshBuilder mesh;
        mesh.square(-1, -1, 1, 1);
        osg::ref_ptr<osg::Geometry> geometry = mesh.build();
        osg::StateSet* ss = use(geometry.get(), program);
        ss->setTextureAttributeAndModes(0, flatTexture(kEditFront), osg::StateAttribute::ON);
        ss->addUniform(new osg::Uniform("tex", 0));
        const Probe at = probe(0.2f, 0.3f);
        expectPixel(draw(geometry.get()), at, classicFront(kEditFront, at.P));
    }
}

TEST_F(MeshShadingTest, CutPlanePaintsTheLowerSide)
{
    MeshBuilder mesh;
    mesh.square(-1, -1, 1, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "editmesh");
    setColorIndex(ss);
    ss->addUniform(new osg::Uniform("needCalcCutplane", true));
    ss->addUniform(new osg::Uniform("selectIndex", 2.0f));
    ss->addUniform(new osg::Uniform("direction", osg::Vec3f(0, 1, 0)));
    ss->addUniform(new osg::Uniform("center", osg::Vec3f(0, 0, 0)));
    const QImage image = draw(geometry.get());

    const Probe below = probe(0.3f, -0.5f);
    expectPixel(image, below, selectedFront(kRows[2], below.P));
    const Probe above = probe(0.3f, 0.5f);
    expectPixel(image, above, classicFront(kEditFront, above.P));
}

TEST_F(MeshShadingTest, ExchangedFaceNormalsDifferBetweenCutAndEditPrograms)
{
    // A front face shown as a back face, with derivative normals. "cut" programs hand the back
    // light the exchanged normal, turned from the eye: ambient alone. "edit" programs turn it
    // back first, so the back light is in full.
    const std::vector<std::pair<std::string, float>> programs = {{"cut_mesh", 0.5f},
                                                                 {"editmesh", 1.0f}};
    for (const auto& [program, lit] : programs) {
        MeshBuilder mesh;
        mesh.square(-1, -1, 1, 1);
        osg::ref_ptr<osg::Geometry> geometry = mesh.build();
        osg::StateSet* ss = use(geometry.get(), program);
        ss->addUniform(new osg::Uniform("useSmooth", false));
        ss->addUniform(new osg::Uniform("exchangeColor", true));
        SCOPED_TRACE(program);
        expectPixel(draw(geometry.get()), probe(0.2f, 0.3f), kBack * lit);
    }
}

TEST_F(MeshShadingTest, GammaCurve)
{
    MeshBuilder mesh;
    mesh.square(-1, -1, 1, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "editmesh");
    // Ambient alone at 1: the surface colour reaches the curve unchanged.
    ss->addUniform(new osg::Uniform("lightParam", osg::Vec4f(1, 0, 0, 1)));
    ss->addUniform(new osg::Uniform("front", osg::Vec3f(1.0f, 0.5f, 0.0f)));
    ss->addUniform(new osg::Uniform("enableGamma", 1));
    const QImage image = draw(geometry.get());

    const float half = 1.055f * std::pow(0.5f, 1.0f / 1.3f) - 0.055f;
    expectPixel(image, probe(0, 0), osg::Vec3(1.0f, half, 0.0f));
}

TEST_F(MeshShadingTest, ZeroBrightnessAndContrastKeepTheTexel)
{
    const osg::Vec3 texel(0.3f, 0.6f, 0.9f);
    for (bool explicitZero : {false, true}) {
        MeshBuilder mesh;
        mesh.square(-1, -1, 1, 1);
        osg::ref_ptr<osg::Geometry> geometry = mesh.build();
        osg::StateSet* ss = use(geometry.get(), "texturemesh");
        ss->setTextureAttributeAndModes(0, flatTexture(texel), osg::StateAttribute::ON);
        ss->addUniform(new osg::Uniform("tex", 0));
        ss->addUniform(new osg::Uniform("lightParam", osg::Vec4f(1, 0, 0, 1)));
        if (explicitZero) {
            ss->addUniform(new osg::Uniform("brightness", 0.0f));
            ss->addUniform(new osg::Uniform("contrast", 0.0f));
        }
        const QImage image = draw(geometry.get());
        expectPixel(image, probe(0, 0), texel);
    }
}

TEST_F(MeshShadingTest, MaterialLightingWithDefaults)
{
    MeshBuilder mesh;
    mesh.square(-1, -1, 1, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    setColorIndex(use(geometry.get(), "editmesh_material"));
    const QImage image = draw(geometry.get());

    const osg::Vec3 front(0.19f, 0.53f, 0.81f);
    const float objSpecular = 0.325f, objShininess = 9.0f, lift = 0.2f;
    osg::Vec3 expected;
    const std::vector<std::pair<osg::Vec3, osg::Vec4>> lights = {
        {{0.60f, 0.60f, 1.00f}, {0.08f, 0.60f, 0.95f, 9.00f}},
        {{-0.60f, 0.30f, 1.00f}, {0.02f, 0.20f, 0.00f, 9.00f}}};
    for (const auto& light : lights) {
        osg::Vec3 L = light.first;
        L.normalize();
        const osg::Vec4& p = light.second;
        const float NdotL = lift + (kToEye * L) * (1.0f - lift);
        osg::Vec3 H = L + kToEye;
        H.normalize();
        const float pf = std::pow(std::max(0.0f, kToEye * H), objShininess);
        expected += front * p.x() + front * (p.y() * NdotL) +
                    osg::Vec3(1, 1, 1) * (p.z() * pf * objSpecular);
    }
    expectPixel(image, probe(0, 0), expected);
    expectPixel(image, probe(-0.6f, 0.4f), expected);
}

TEST_F(MeshShadingTest, HeatMapColourAtKnownWeight)
{
    MeshBuilder mesh;
    mesh.weight = 10.0f;
    mesh.square(-1, -1, 1, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "mesh_heatmap");
    const std::vector<osg::Vec3> ramp = {
        {0.0f, 0.0f, 1.0f}, {0.0f, 0.8f, 0.2f}, {0.9f, 0.9f, 0.0f}, {1.0f, 0.0f, 0.0f}};
    ss->setTextureAttributeAndModes(2, rowTexture(ramp, 4), osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform(osg::Uniform::SAMPLER_1D, "heatmapIndex"));
    ss->getUniform("heatmapIndex")->set(2);
    const QImage image = draw(geometry.get());

    // Weight 10 of the default range 0 to 25 is 0.4 along the ramp: texel 1 of 4.
    const osg::Vec3 heat = ramp[1];
    const Probe at = probe(0.2f, 0.1f);
    expectPixel(image, at, classicFront(heat, at.P));
}

TEST_F(MeshShadingTest, DoubleTextureOverlayFollowsTheViewport)
{
    const osg::Vec3 second(0.2f, 0.4f, 0.6f);
    MeshBuilder mesh;
    mesh.square(-1.5f, -1.2f, 1.5f, 1.2f);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "editdoubletexturemesh");
    setColorIndex(ss);
    ss->setTextureAttributeAndModes(0, flatTexture(osg::Vec3(1, 1, 1)), osg::StateAttribute::ON);
    ss->setTextureAttributeAndModes(2, flatTexture(second), osg::StateAttribute::ON);
    // The overlay: black on the left half of the view, red on the right half.
    osg::ref_ptr<osg::Image> halves = new osg::Image;
    halves->allocateImage(2, 1, 1, GL_RGB, GL_FLOAT);
    reinterpret_cast<osg::Vec3*>(halves->data())[0] = osg::Vec3(0, 0, 0);
    reinterpret_cast<osg::Vec3*>(halves->data())[1] = osg::Vec3(1, 0, 0);
    auto* overlay = new osg::Texture2D(halves.get());
    overlay->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    overlay->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    ss->setTextureAttributeAndModes(3, overlay, osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("tex", 0));
    ss->addUniform(new osg::Uniform("tex2nd", 2));
    ss->addUniform(new osg::Uniform("tex3rd", 3));
    osg::ref_ptr<osg::Uniform> viewport = new osg::Uniform(
        "viewport", osg::Vec4f(0, 0, CanvasWindow::kCanvasWidth, CanvasWindow::kHeight));
    ss->addUniform(viewport.get());
    const Probe left = probe(-0.8f, 0.0f), right = probe(0.8f, 0.0f);
    const QImage whole = draw(geometry.get());
    expectPixel(whole, left, classicFront(second, left.P));
    expectPixel(whole, right, classicFront(osg::Vec3(1, 0, 0), right.P));

    // A view twice as wide puts the whole canvas in the overlay's left half.
    ASSERT_TRUE(onRenderThread([&](RenderInfo&) {
        viewport->set(osg::Vec4f(0, 0, 2 * CanvasWindow::kCanvasWidth, CanvasWindow::kHeight));
    }));
    expectPixel(draw(geometry.get()), right, classicFront(second, right.P));
}

TEST_F(MeshShadingTest, ThermodynamicRampClipsOutOfRangeValues)
{
    // Three strips: inside the range 0 to 2, above it, and above it with a clip colour shown.
    MeshBuilder mesh;
    mesh.weight = 1.25f;
    mesh.square(-1.5f, -1, -0.6f, 1);
    mesh.weight = 3.0f;
    mesh.square(-0.4f, -1, 0.4f, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "thermodynamic");
    const std::vector<osg::Vec3> ramp = {
        {0.0f, 0.0f, 1.0f}, {0.0f, 0.8f, 0.2f}, {0.6f, 0.5f, 0.0f}, {1.0f, 0.0f, 0.0f}};
    ss->setTextureAttributeAndModes(2, rowTexture(ramp, 4), osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("colorIndex", 2));
    const QImage clipped = draw(geometry.get());

    // Facing the fixed view: diffuse 0.7 and highlight 0.2; 1.25 of 2 is texel 2 of 4.
    const osg::Vec3 inRange = ramp[2] * (0.25f + 0.7f) + osg::Vec3(0.2f, 0.2f, 0.2f);
    expectPixel(clipped, probe(-1.0f, 0.0f), inRange);
    expectPixel(clipped, probe(0.0f, 0.0f), osg::Vec3(), 0);

    ss->addUniform(new osg::Uniform("useClipColor", 1));
    ss->addUniform(new osg::Uniform("clipTop", 0));
    ss->addUniform(new osg::Uniform("clipColor", osg::Vec3f(0.2f, 0.1f, 0.4f)));
    const QImage shown = draw(geometry.get());
    expectPixel(shown, probe(0.0f, 0.0f),
                osg::Vec3(0.2f, 0.1f, 0.4f) * 0.95f + osg::Vec3(0.2f, 0.2f, 0.2f));
}

TEST_F(MeshShadingTest, CalibrationShowsFacetsWithItsOwnConstants)
{
    MeshBuilder mesh;
    // Vertex normals tilted away: the facets come from derivatives, which face the view here.
    mesh.normal = osg::Vec3(0.6f, 0.0f, 0.8f);
    mesh.square(-1.2f, -1, -0.1f, 1);
    mesh.square(0.1f, -1, 1.2f, 1, true);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    use(geometry.get(), "mesh_calibrate");
    const QImage image = draw(geometry.get());

    // Front: 0.5 * (0.5 + 0.5) + 0.15; back: 0.5 * (0.5 + 0.5), no highlight.
    expectPixel(image, probe(-0.65f, 0.0f), osg::Vec3(0.65f, 0.65f, 0.65f));
    expectPixel(image, probe(0.65f, 0.0f), osg::Vec3(0.5f, 0.5f, 0.5f));
}

TEST_F(MeshShadingTest, CutTransparentRemovesWhatIsNearerThanItsPlane)
{
    // The square at z = 0 is 5 from the eye: inside 45, so cut away; pushing the plane 10
    // nearer (planeOffset -44) keeps it.
    MeshBuilder mesh;
    mesh.color = osg::Vec3(0.3f, 0.6f, 0.9f);
    mesh.square(-1, -1, 1, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "editmeshcolor_cuttrans");
    setColorIndex(ss);
    const Probe at = probe(0.2f, 0.2f);
    expectPixel(draw(geometry.get()), at, osg::Vec3(), 0);

    ss->addUniform(new osg::Uniform("planeOffset", -44.0f));
    expectPixel(draw(geometry.get()), at, classicFront(mesh.color, at.P));
}

TEST_F(MeshShadingTest, RedBlueShowsWhereTheSecondTextureCovers)
{
    MeshBuilder mesh;
    mesh.texCoord2nd = osg::Vec2(-1.0f, 0.5f);
    mesh.triangle({-1, -1}, {1, -1}, {1, 1});
    mesh.texCoord2nd = osg::Vec2(0.25f, 0.5f);
    mesh.triangle({-1, -1}, {1, 1}, {-1, 1});
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "editdoubletexturemesh");
    setColorIndex(ss);
    ss->addUniform(new osg::Uniform("bShowRedBlue", true));
    const QImage image = draw(geometry.get());

    // Pure colours, nothing lit: exact.
    expectPixel(image, probe(0.5f, -0.5f), osg::Vec3(1, 0, 0), 0);
    expectPixel(image, probe(-0.5f, 0.5f), osg::Vec3(0, 0, 1), 0);
}

TEST_F(MeshShadingTest, CutProgramShowsFrontAboveWithoutUpperState)
{
    MeshBuilder mesh;
    mesh.state = 3;
    mesh.square(-1, -1, 1, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "cut_mesh");
    setColorIndex(ss);
    ss->addUniform(new osg::Uniform("direction", osg::Vec3f(0, 1, 0)));
    ss->addUniform(new osg::Uniform("center", osg::Vec3f(0, 0, 0)));
    ss->addUniform(new osg::Uniform("upperUseState", false));
    const QImage image = draw(geometry.get());

    // Below: the default selectIndex 1 of "cut" programs; above: the plain front.
    const Probe below = probe(-0.3f, -0.5f);
    expectPixel(image, below, selectedFront(kRows[1], below.P));
    const Probe above = probe(-0.3f, 0.5f);
    expectPixel(image, above, classicFront(kEditFront, above.P));
}

// One live triangle: a voxel, three of its edges and where along each the corner lies.
struct LiveTriangle {
    int index[3];
    unsigned int edge[3];
    unsigned int rate[3]; // 14 bits: a fraction of 16384
    unsigned int weight;  // 0 to 1023
};

// Packs a triangle into the four words the live-mesh programs unpack.
osg::Vec4ui packLiveTriangle(const LiveTriangle& t)
{
    auto magnitude = [](int v) { return static_cast<unsigned int>(std::abs(v)) & 0xFFFFFu; };
    auto negative = [](int v) { return v < 0 ? 1u : 0u; };
    const unsigned int x = negative(t.index[0]) << 31 | magnitude(t.index[0]) << 11 |
                           negative(t.index[1]) << 10 | magnitude(t.index[1]) >> 10;
    const unsigned int y = (magnitude(t.index[1]) & 0x3FFu) << 22 | negative(t.index[2]) << 21 |
                           magnitude(t.index[2]) << 1;
    const unsigned int z = t.edge[0] << 28 | t.rate[0] << 14 | t.edge[1] << 10 | t.rate[1] >> 4;
    const unsigned int w = (t.rate[1] & 0xFu) << 28 | t.edge[2] << 24 | t.rate[2] << 10 | t.weight;
    return osg::Vec4ui(x, y, z, w);
}

osg::ref_ptr<osg::Geometry> liveMesh(const std::vector<LiveTriangle>& triangles)
{
    osg::ref_ptr<osg::Vec4uiArray> packed = new osg::Vec4uiArray;
    for (const LiveTriangle& t : triangles)
        packed->push_back(packLiveTriangle(t));
    // Integer words reach the shader only with their own type kept.
    packed->setPreserveDataType(true);
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setVertexAttribArray(0, packed.get(), osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, packed->size()));
    geometry->setInitialBound(osg::BoundingBox(-3, -3, -1, 3, 3, 1));
    return geometry;
}

TEST_F(MeshShadingTest, LiveTrianglesUnpackWhereTheyWerePacked)
{
    // With a step of 1, voxel (i, j, -1) has its corner at (i + 0.5, j + 0.5, -0.5); halfway up
    // the vertical edges 8 to 11 lies the plane z = 0.
    constexpr unsigned int kHalf = 8192;
    // The second rate straddles two words: its low four bits must come back too.
    constexpr unsigned int kSplitRate = kHalf + 15;
    const LiveTriangle lowerRight = {{-1, -1, -1}, {8, 9, 10}, {kHalf, kSplitRate, kHalf}, 10};
    // A negative and a positive index beyond ten bits, to exercise both halves of index y.
    const LiveTriangle farAway = {{-2, 1500, -1}, {8, 9, 11}, {kHalf, kHalf, kHalf}, 10};
    const LiveTriangle upperLeft = {{-2, 0, -1}, {8, 9, 11}, {kHalf, kSplitRate, kHalf}, 10};
    osg::ref_ptr<osg::Geometry> geometry = liveMesh({lowerRight, farAway, upperLeft});
    osg::StateSet* ss = use(geometry.get(), "increaseMesh");
    ss->addUniform(new osg::Uniform("radius", 1.0f));
    const QImage plain = draw(geometry.get());

    // (-0.5, -0.5), (0.5, -0.5), (0.5, 0.5): the lower right half of the middle square.
    const Probe inside = probe(0.3f, -0.3f);
    expectPixel(plain, inside, classicFront(kEditFront, inside.P));
    expectPixel(plain, probe(-0.3f, 0.3f), osg::Vec3(), 0);
    // (-1.5, 0.5), (-0.5, 0.5), (-1.5, 1.5).
    const Probe upper = probe(-1.2f, 0.8f);
    expectPixel(plain, upper, classicFront(kEditFront, upper.P));
    expectPixel(plain, probe(-0.7f, 1.2f), osg::Vec3(), 0);

    // Weight 10 of the range 0 to 25 picks texel 1 of a ramp of four.
    const std::vector<osg::Vec3> ramp = {
        {0.0f, 0.0f, 1.0f}, {0.0f, 0.8f, 0.2f}, {0.9f, 0.9f, 0.0f}, {1.0f, 0.0f, 0.0f}};
    ss->setTextureAttributeAndModes(2, rowTexture(ramp, 4), osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("heatmapIndex", 2));
    ss->addUniform(new osg::Uniform("isHeatMapEnable", true));
    const QImage heat = draw(geometry.get());
    expectPixel(heat, inside, classicFront(ramp[1], inside.P));
}

TEST_F(MeshShadingTest, BlendMixesTheLitOriginalWithTheSelection)
{
    const osg::Vec3 original(0.9f, 0.6f, 0.3f);
    MeshBuilder mesh;
    mesh.color = original;
    mesh.state = 2;
    mesh.square(-1, -1, 1, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "editmeshcolor");
    setColorIndex(ss);
    ss->addUniform(new osg::Uniform("enableEditBlend", true));
    ss->addUniform(new osg::Uniform("mixedFactor", 0.25f));
    const QImage image = draw(geometry.get());

    const Probe at = probe(0.3f, 0.2f);
    const osg::Vec3 lit = classicFront(original, at.P);
    const osg::Vec3 selected = selectedFront(kRows[2], at.P);
    expectPixel(image, at, lit * 0.75f + selected * 0.25f);
}

TEST_F(MeshShadingTest, NegativeTextureCoordinatesShowTheInvalidColour)
{
    MeshBuilder mesh;
    mesh.texCoord = osg::Vec2(-1.0f, -1.0f);
    mesh.square(-1.2f, -1, -0.1f, 1);
    mesh.square(0.1f, -1, 1.2f, 1, true);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "edittexturemesh");
    setColorIndex(ss);
    ss->setTextureAttributeAndModes(0, flatTexture(osg::Vec3(1, 1, 1)), osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("tex", 0));
    const QImage image = draw(geometry.get());

    // Blue on the front, lit by the rig; the back keeps `back` under the back light.
    const Probe front = probe(-0.65f, 0.0f);
    expectPixel(image, front, classicFront(osg::Vec3(0, 0, 1), front.P));
    expectPixel(image, probe(0.65f, 0.0f), kBack);
}

TEST_F(MeshShadingTest, DynamicLightComesFromTheEye)
{
    MeshBuilder mesh;
    mesh.square(-1, -1, 1, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    use(geometry.get(), "mesh_dynamiclight");
    const QImage image = draw(geometry.get());

    const osg::Vec3 front(0.91f, 0.87f, 0.58f);
    for (const Probe& at : {probe(0.0f, 0.0f), probe(0.9f, 0.9f)}) {
        // Towards the eye, whose direction is -P; the exponent grows towards facing surfaces.
        const osg::Vec3 L = -at.P;
        const float facing = std::clamp(L * kToEye, 0.0f, 1.0f);
        const float diffuse = 0.8f * std::pow(facing, 0.5f + 0.5f * facing);
        const float highlight = 0.1f * std::pow(std::max(reflect(-L, kToEye) * L, 0.0f), 16.0f);
        expectPixel(image, at, front * (0.2f + diffuse + highlight));
    }
}

TEST_F(MeshShadingTest, FlatLightingIsOneValueATriangleOnBothSides)
{
    MeshBuilder mesh;
    mesh.square(-1.2f, -1, -0.1f, 1);
    mesh.square(0.1f, -1, 1.2f, 1, true);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "mesh_flat");
    const osg::Vec3 front(0.4f, 0.3f, 0.2f);
    ss->addUniform(new osg::Uniform("front", front));
    const QImage image = draw(geometry.get());

    // The face turned to the light: diffuse 0.5, and the highlight pow(1, 128) at 0.15.
    const osg::Vec3 lit = front * (0.5f + 0.5f) + osg::Vec3(0.15f, 0.15f, 0.15f);
    expectPixel(image, probe(-0.65f, 0.5f), lit);
    expectPixel(image, probe(-0.3f, -0.8f), lit);
    // Seen from behind its normal points away: the negated diffuse brings the same value back.
    expectPixel(image, probe(0.65f, 0.0f), lit);
}

TEST_F(MeshShadingTest, SuperSamplingFillsPinholesFromTheirNeighbours)
{
    constexpr int kW = CanvasWindow::kCanvasWidth, kH = CanvasWindow::kHeight;
    // Texel rows run bottom up; window rows top down.
    auto texel = [&](osg::Image* image, int x, int yFromTop) {
        return reinterpret_cast<osg::Vec4f*>(image->data(x, kH - 1 - yFromTop));
    };
    osg::ref_ptr<osg::Image> color = new osg::Image;
    color->allocateImage(kW, kH, 1, GL_RGBA, GL_FLOAT);
    color->setInternalTextureFormat(GL_RGBA32F_ARB);
    std::memset(color->data(), 0, color->getTotalSizeInBytes());
    // A pinhole at (40, 60) with four different neighbours, and a lone point at (120, 60).
    *texel(color.get(), 39, 60) = osg::Vec4f(1, 0, 0, 1);
    *texel(color.get(), 41, 60) = osg::Vec4f(0, 0, 1, 1);
    *texel(color.get(), 40, 59) = osg::Vec4f(0, 1, 0, 1);
    *texel(color.get(), 40, 61) = osg::Vec4f(1, 1, 1, 1);
    *texel(color.get(), 120, 60) = osg::Vec4f(0.8f, 0.4f, 0.2f, 1);
    osg::ref_ptr<osg::Image> depth = new osg::Image;
    depth->allocateImage(kW, kH, 1, GL_RED, GL_FLOAT);
    depth->setInternalTextureFormat(GL_R32F);
    std::fill_n(reinterpret_cast<float*>(depth->data()), kW * kH, 0.5f);
    auto nearest = [](osg::Image* image) {
        auto* texture = new osg::Texture2D(image);
        texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
        texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
        texture->setResizeNonPowerOfTwoHint(false);
        return texture;
    };

    osg::ref_ptr<osg::Vec3Array> corners = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec2Array> uvs = new osg::Vec2Array;
    for (const osg::Vec2& c :
         {osg::Vec2(0, 0), osg::Vec2(1, 0), osg::Vec2(1, 1), osg::Vec2(0, 1)}) {
        corners->push_back(osg::Vec3(c.x() * 2 - 1, c.y() * 2 - 1, 0));
        uvs->push_back(c);
    }
    osg::ref_ptr<osg::Geometry> quad = new osg::Geometry;
    quad->setUseDisplayList(false);
    quad->setUseVertexBufferObjects(true);
    quad->setUseVertexArrayObject(true);
    quad->setVertexAttribArray(0, corners.get(), osg::Array::BIND_PER_VERTEX);
    quad->setVertexAttribArray(1, uvs.get(), osg::Array::BIND_PER_VERTEX);
    quad->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_FAN, 0, 4));
    quad->setInitialBound(osg::BoundingBox(-1, -1, -0.1f, 1, 1, 0.1f));
    osg::StateSet* ss = use(quad.get(), "super_sampling");
    ss->setTextureAttributeAndModes(0, nearest(color.get()), osg::StateAttribute::ON);
    ss->setTextureAttributeAndModes(1, nearest(depth.get()), osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("colorTex", 0));
    ss->addUniform(new osg::Uniform("depthTex", 1));
    const QImage image = draw(quad.get());

    // The four neighbours averaged; the lone point kept; nothing where no tap is set.
    expectPixel(image, {QPoint(40, 60), {}}, osg::Vec3(0.5f, 0.5f, 0.5f));
    expectPixel(image, {QPoint(120, 60), {}}, osg::Vec3(0.8f, 0.4f, 0.2f));
    expectPixel(image, {QPoint(100, 20), {}}, osg::Vec3(), 0);
    // A neighbour of the lone point sees it alone among its taps.
    expectPixel(image, {QPoint(121, 60), {}}, osg::Vec3(0.8f, 0.4f, 0.2f));
}

// The brush's two stores, one float a vertex, as shader storage buffers 0 and 1.
struct BrushStores {
    osg::ref_ptr<osg::FloatArray> initial;
    osg::ref_ptr<osg::FloatArray> select;

    explicit BrushStores(unsigned int count)
        : initial(new osg::FloatArray(count)), select(new osg::FloatArray(count))
    {
        initial->setBufferObject(new osg::ShaderStorageBufferObject);
        select->setBufferObject(new osg::ShaderStorageBufferObject);
    }

    void bind(osg::StateSet* ss) const
    {
        const GLsizeiptr bytes = initial->getTotalDataSize();
        ss->setAttributeAndModes(new osg::ShaderStorageBufferBinding(0, initial.get(), 0, bytes));
        ss->setAttributeAndModes(new osg::ShaderStorageBufferBinding(1, select.get(), 0, bytes));
    }

    // What the GPU holds in the select store now; render thread only.
    std::vector<float> readSelect(osg::State& state) const
    {
        std::vector<float> values(select->size());
        osg::GLBufferObject* buffer =
            select->getBufferObject()->getOrCreateGLBufferObject(state.getContextID());
        auto* gl = QOpenGLContext::currentContext()->versionFunctions<QOpenGLFunctions_4_1_Core>();
        gl->glBindBuffer(GL_COPY_READ_BUFFER, buffer->getGLObjectID());
        gl->glGetBufferSubData(
            GL_COPY_READ_BUFFER, static_cast<GLintptr>(buffer->getOffset(select->getBufferIndex())),
            static_cast<GLsizeiptr>(values.size() * sizeof(float)), values.data());
        gl->glBindBuffer(GL_COPY_READ_BUFFER, 0);
        return values;
    }
};

TEST_F(MeshShadingTest, SphereBrushPreviewsWhileHoveringAndWritesWhileSelecting)
{
    // Vertices 0 to 5 stay outside the brush, 6 to 11 inside it.
    MeshBuilder mesh;
    mesh.square(-1.2f, -1, -0.1f, 1);
    mesh.square(0.1f, -1, 1.2f, 1);
    osg::ref_ptr<osg::Geometry> geometry = mesh.build();
    osg::StateSet* ss = use(geometry.get(), "sphere_editmesh");
    setColorIndex(ss);
    BrushStores stores(12);
    stores.bind(ss);
    ss->addUniform(new osg::Uniform("sphereCenter", osg::Vec3f(0.65f, 0, 0)));
    ss->addUniform(new osg::Uniform("sphereRadius", 1.2f));
    ss->addUniform(new osg::Uniform("selectColorIndex", 3.0f));
    ss->addUniform(new osg::Uniform("preViewColorIndex", 2.0f));
    ss->addUniform(new osg::Uniform("bCoverOther", 0));
    ss->addUniform(new osg::Uniform("bRecoverOther", 0));
    ss->addUniform(new osg::Uniform("bErase", 0));
    osg::ref_ptr<osg::Uniform> selecting = new osg::Uniform("bSelecting", 0);
    ss->addUniform(selecting.get());

    const Probe outside = probe(-0.65f, 0.0f), inside = probe(0.65f, 0.0f);
    const QImage hover = draw(geometry.get());
    expectPixel(hover, outside, classicFront(kEditFront, outside.P));
    expectPixel(hover, inside, selectedFront(kRows[2], inside.P));
    std::vector<float> stored;
    ASSERT_TRUE(onRenderThread([&](RenderInfo& info) {
        stored = stores.readSelect(*info.masterCamera()->getGraphicsContext()->getState());
    }));
    EXPECT_EQ(stored, std::vector<float>(12, 0.0f)) << "hovering wrote the store";

    ASSERT_TRUE(onRenderThread([&](RenderInfo&) { selecting->set(1); }));
    draw(geometry.get());
    ASSERT_TRUE(onRenderThread([&](RenderInfo& info) {
        stored = stores.readSelect(*info.masterCamera()->getGraphicsContext()->getState());
    }));
    std::vector<float> expected(12, 0.0f);
    std::fill(expected.begin() + 6, expected.end(), 3.0f);
    EXPECT_EQ(stored, expected);
}

// Two factory meshes side by side with one program; `front` set on the left one only.
class UniformDefaultsTest : public MeshShadingTest
{
protected:
    osg::ref_ptr<osg::MatrixTransform> square(float x0, float x1)
    {
        osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
        for (const osg::Vec3& v : {osg::Vec3(x0, -1, 0), osg::Vec3(x1, -1, 0), osg::Vec3(x1, 1, 0),
                                   osg::Vec3(x0, -1, 0), osg::Vec3(x1, 1, 0), osg::Vec3(x0, 1, 0)})
            vertices->push_back(v);
        osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array(6);
        std::fill(normals->begin(), normals->end(), osg::Vec3(0, 0, 1));
        osg::ref_ptr<osg::Vec3Array> colors = new osg::Vec3Array(6);
        osg::ref_ptr<osg::MatrixTransform> mesh =
            Mesh::create(vertices.get(), normals.get(), colors.get());
        mesh->getOrCreateStateSet()->setAttributeAndModes(
            OrvaneSingleton::instance()->getShaderMgr()->getShader("mesh"));
        return mesh;
    }

    QImage drawBoth()
    {
        osg::ref_ptr<osg::Group> group = new osg::Group;
        group->addChild(m_left.get());
        group->addChild(m_right.get());
        return drawNode(group.get());
    }

    osg::ref_ptr<osg::MatrixTransform> m_left = square(-1.5f, -0.1f);
    osg::ref_ptr<osg::MatrixTransform> m_right = square(0.1f, 1.5f);
    osg::ref_ptr<osg::Uniform> m_red = new osg::Uniform("front", osg::Vec3f(1, 0, 0));
    const Probe m_atLeft = probe(-0.8f, 0.0f);
    const Probe m_atRight = probe(0.8f, 0.0f);
};

TEST_F(UniformDefaultsTest, AUniformOfOneNodeStaysOffItsNeighbour)
{
    m_left->getOrCreateStateSet()->addUniform(m_red.get());
    const QImage image = drawBoth();
    expectPixel(image, m_atLeft, classicFront(osg::Vec3(1, 0, 0), m_atLeft.P));
    expectPixel(image, m_atRight, classicFront(kFront, m_atRight.P));
}

TEST_F(UniformDefaultsTest, RemovingAUniformBringsTheInitialiserBack)
{
    m_left->getOrCreateStateSet()->addUniform(m_red.get());
    drawBoth();
    osg::StateSet* ss = m_left->getStateSet();
    ASSERT_TRUE(onRenderThread([&](RenderInfo&) { ss->removeUniform(m_red.get()); }));
    const QImage image = drawBoth();
    expectPixel(image, m_atLeft, classicFront(kFront, m_atLeft.P));
    expectPixel(image, m_atRight, classicFront(kFront, m_atRight.P));
}

} // namespace
