// See-through models: the rig's shape, its removal, and its pixels against the blend of the
// moments, on a live canvas under a fixed camera.
#include "canvas3d_item.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "image_baseline.h"
#include "orvane_singleton.h"
#include "orvane_transparent.h"
#include "render_info.h"

#include <QOpenGLFramebufferObject>
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/Geometry>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::describe;
using OrvaneTest::dirLight;
using OrvaneTest::LogCapture;
using OrvaneTest::Probe;
using OrvaneTest::probe;
using OrvaneTest::toColor;

namespace {

// 8-bit quantisation of the framebuffer, plus float rounding of exp and log in the shaders.
constexpr int kTolerance = 2;
// Near and far planes of the fixed camera, which depths in the layers follow.
constexpr double kNear = 1.0, kFar = 100.0;

const QColor kClear(51, 77, 102);
const osg::Vec3 kMeshFront(0.05f, 0.695f, 1.0f);
const osg::Vec4 kMainParam(0.5f, 0.5f, 0.15f, 128.0f);

osg::Vec3 clearColor()
{
    return osg::Vec3(kClear.redF(), kClear.greenF(), kClear.blueF());
}

// A square at height z facing the eye, with positions, normals and texture coordinates.
osg::ref_ptr<osg::Geode> square(float x0, float y0, float x1, float y1, float z)
{
    osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec2Array> texCoords = new osg::Vec2Array;
    const osg::Vec2 corners[6] = {{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}};
    for (const osg::Vec2& c : corners) {
        positions->push_back(osg::Vec3(x0 + c.x() * (x1 - x0), y0 + c.y() * (y1 - y0), z));
        normals->push_back(osg::Vec3(0.0f, 0.0f, 1.0f));
        texCoords->push_back(c);
    }
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    geometry->setVertexAttribArray(0, positions.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(1, normals.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setVertexAttribArray(3, texCoords.get(), osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLES, 0, 6));
    geometry->setInitialBound(osg::BoundingBox(x0, y0, z - 0.01f, x1, y1, z + 0.01f));
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry.get());
    return geode;
}

osg::ref_ptr<osg::Geode> opaque(float x0, float y0, float x1, float y1, float z)
{
    osg::ref_ptr<osg::Geode> geode = square(x0, y0, x1, y1, z);
    geode->getOrCreateStateSet()->setAttributeAndModes(
        ShaderManager::instance()->getShader(g_meshProgramStr), osg::StateAttribute::ON);
    return geode;
}

// A see-through square as a client makes one: the first-pass program, its colour and alpha.
osg::ref_ptr<osg::Geode> translucent(float x0, float y0, float x1, float y1, float z,
                                     const osg::Vec3& front, float alpha)
{
    osg::ref_ptr<osg::Geode> geode = square(x0, y0, x1, y1, z);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->setAttributeAndModes(ShaderManager::instance()->getShader(g_transMeshProgramStr),
                             osg::StateAttribute::ON);
    ss->addUniform(new osg::Uniform("front", front));
    ss->addUniform(new osg::Uniform("alpha", alpha));
    return geode;
}

// "mesh" at a pixel of a square facing the eye: the main light only, left unclamped as the
// float opaque layer keeps it.
osg::Vec3 meshColor(const Probe& at)
{
    const osg::Vec3 light =
        dirLight(osg::Vec3(0.0f, 0.0f, 1.0f), kMainParam, osg::Vec3(0.0f, 0.0f, 1.0f), at.P);
    return kMeshFront * (light.x() + light.y() + light.z());
}

// Window depth of a plane at height z under the fixed camera.
float windowDepth(float z)
{
    const double d = OrvaneTest::kEyeDistance - z;
    const double ndc = (kFar + kNear) / (kFar - kNear) - 2.0 * kFar * kNear / ((kFar - kNear) * d);
    return float(ndc * 0.5 + 0.5);
}

// The transmittance the second pass reconstructs from the moments, in the shader's float steps.
float transmittance(float b_0, osg::Vec2f b_even, osg::Vec2f b_odd, float depth)
{
    const float bias = 0.99f, overestimation = 0.25f;
    const osg::Vec4f biasVector(0.0f, 0.375f, 0.0f, 0.375f);
    osg::Vec4f b(b_odd.x(), b_even.x(), b_odd.y(), b_even.y());
    b = b + (biasVector - b) * bias;
    float z[3] = {depth, 0.0f, 0.0f};
    const float L21D11 = b[2];
    const float D11 = b[1] - b[0] * b[0];
    const float InvD11 = 1.0f / D11;
    const float L21 = L21D11 * InvD11;
    const float D22 = b[3] - b[1] * b[1] - L21D11 * L21;
    float c[3] = {1.0f, z[0], z[0] * z[0]};
    c[1] -= b[0];
    c[2] -= b[1] + L21 * c[1];
    c[1] *= InvD11;
    c[2] /= D22;
    c[1] -= L21 * c[2];
    c[0] -= c[1] * b[0] + c[2] * b[1];
    const float InvC2 = 1.0f / c[2];
    const float p = c[1] * InvC2, q = c[0] * InvC2;
    const float r = std::sqrt(p * p * 0.25f - q);
    z[1] = -p * 0.5f - r;
    z[2] = -p * 0.5f + r;
    float f[3] = {overestimation, z[1] < z[0] ? 1.0f : 0.0f, z[2] < z[0] ? 1.0f : 0.0f};
    if (std::abs(z[1] - z[0]) < 0.001f)
        f[1] = 1.0f;
    if (std::abs(z[2] - z[0]) < 0.001f)
        f[2] = 1.0f;
    const float f01 = (f[1] - f[0]) / (z[1] - z[0]);
    const float f12 = (f[2] - f[1]) / (z[2] - z[1]);
    const float f012 = (f12 - f01) / (z[2] - z[0]);
    float p0 = f012, p1 = p0;
    p0 = f01 - p0 * z[1];
    const float p2 = p1;
    p1 = p0 - p1 * z[0];
    p0 = f[0] - p0 * z[0];
    const float absorbance = p0 + b[0] * p1 + b[1] * p2;
    return std::clamp(std::exp(-b_0 * absorbance), 0.0f, 1.0f);
}

struct Layer {
    osg::Vec3 color;
    float alpha;
    float z;
};

// What the three steps make of `layers` at one pixel over `behind`, an opaque colour, or over
// the clear colour when there is none.
osg::Vec3 blendOfMoments(const std::vector<Layer>& layers, const osg::Vec3* behind)
{
    float b0 = 0.0f;
    osg::Vec4f b14;
    for (const Layer& l : layers) {
        const float a = -std::log(1.0f - l.alpha), z = windowDepth(l.z);
        b0 += a;
        b14 += osg::Vec4f(a * z, a * z * z, a * z * z * z, a * z * z * z * z);
    }
    osg::Vec3 sum;
    float weights = 0.0f;
    for (const Layer& l : layers) {
        const float z = windowDepth(l.z);
        const float t = transmittance(b0, osg::Vec2f(b14.y(), b14.w()) / b0,
                                      osg::Vec2f(b14.x(), b14.z()) / b0, z);
        const float w = l.alpha * std::max(0.01f, 3000.0f * std::pow(1.0f - z, 3.0f));
        const float a = l.alpha * t * w;
        sum += l.color * a;
        weights += a;
    }
    const float T = std::exp(-b0);
    const osg::Vec3 composite = sum * ((1.0f - T) / weights);
    return behind ? composite + *behind * T : composite + clearColor() * T;
}

class TransparentTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_canvas.show());
        m_canvas.window().item()->setClearColor(kClear);
    }

    CanvasWindow& window() { return m_canvas.window(); }

    bool onRenderThread(std::function<void(RenderInfo&)> body)
    {
        return m_canvas.onRenderThread(std::move(body));
    }

    // Opaque nodes go to the model group, see-through ones to the transparent model group.
    void setScene(const std::vector<osg::ref_ptr<osg::Node>>& opaqueNodes,
                  const std::vector<osg::ref_ptr<osg::Node>>& translucentNodes)
    {
        ASSERT_TRUE(onRenderThread([&](RenderInfo& info) {
            osg::Group* model = ViewMgr::getModel(info.mainView());
            osg::Group* trans = ViewMgr::getTransModel(info.mainView());
            model->removeChildren(0, model->getNumChildren());
            trans->removeChildren(0, trans->getNumChildren());
            for (const auto& node : opaqueNodes)
                model->addChild(node.get());
            for (const auto& node : translucentNodes)
                trans->addChild(node.get());
        }));
    }

    void enable(bool on)
    {
        ASSERT_TRUE(window().run(OrvaneSingleton::instance()->enableTransparent(nullptr, on)));
    }

    // The window once a few frames have drawn whatever changed last.
    QImage afterFrames()
    {
        const int start = window().sceneFrames();
        EXPECT_TRUE(OrvaneTest::waitUntil([&] {
            window().item()->frame();
            return window().sceneFrames() >= start + 3;
        }));
        return window().grab();
    }

    void expectPixel(const QImage& image, const QPoint& at, const osg::Vec3& expected,
                     int tolerance = kTolerance)
    {
        const QColor actual = image.pixelColor(at);
        const QColor wanted = toColor(expected);
        EXPECT_TRUE(OrvaneTest::near(actual, wanted, tolerance))
            << "at (" << at.x() << ", " << at.y() << "): " << describe(actual) << ", expected "
            << describe(wanted);
    }

    osg::Group* root()
    {
        osg::Group* group = nullptr;
        onRenderThread([&](RenderInfo& info) { group = ViewMgr::getRoot(info.mainView()); });
        return group;
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
};

std::vector<osg::Node*> childrenOf(osg::Group* group)
{
    std::vector<osg::Node*> children;
    for (unsigned int i = 0; group && i < group->getNumChildren(); ++i)
        children.push_back(group->getChild(i));
    return children;
}

int maxDifference(const QImage& a, const QImage& b, double* mean = nullptr)
{
    int worst = 0;
    double sum = 0.0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QColor p = a.pixelColor(x, y), q = b.pixelColor(x, y);
            const int d[3] = {std::abs(p.red() - q.red()), std::abs(p.green() - q.green()),
                              std::abs(p.blue() - q.blue())};
            worst = std::max({worst, d[0], d[1], d[2]});
            sum += d[0] + d[1] + d[2];
        }
    }
    if (mean)
        *mean = sum / (3.0 * a.width() * a.height());
    return worst;
}

TEST_F(TransparentTest, TheRigTakesTheViewsNodesUnderItsCameraWithFourFloatLayers)
{
    setScene({opaque(-1.0f, -1.0f, 1.0f, 1.0f, 0.0f)},
             {translucent(-0.5f, -0.5f, 0.5f, 0.5f, 0.5f, osg::Vec3(0.9f, 0.2f, 0.1f), 0.6f)});
    afterFrames();
    enable(true);
    afterFrames();
    ASSERT_TRUE(onRenderThread([&](RenderInfo& info) {
        ViewInfo* view = ViewMgr::getViewInfo(info.mainView());
        ASSERT_EQ(view->root->getNumChildren(), 1u);
        osg::Group* rig = view->root->getChild(0)->asGroup();
        ASSERT_NE(rig, nullptr);
        EXPECT_EQ(rig->getName(), "transGroup");
        ASSERT_EQ(rig->getNumChildren(), 2u);
        EXPECT_EQ(rig->getChild(1)->getName(), "transparent_quad");
        EXPECT_NE(rig->getChild(1)->asGeode(), nullptr);

        auto* camera = dynamic_cast<osg::Camera*>(TransparentMgr::getTransparentNodeGroup(rig));
        ASSERT_NE(camera, nullptr);
        EXPECT_EQ(camera->getName(), "mboit");
        EXPECT_EQ(camera->getRenderOrder(), osg::Camera::PRE_RENDER);
        EXPECT_EQ(camera->getRenderTargetImplementation(), osg::Camera::FRAME_BUFFER_OBJECT);
        // The pass group, then the view's other nodes in their order.
        ASSERT_EQ(camera->getNumChildren(), 3u);
        osg::Group* passGroup = camera->getChild(0)->asGroup();
        ASSERT_NE(passGroup, nullptr);
        ASSERT_EQ(passGroup->getNumChildren(), 2u);
        EXPECT_EQ(passGroup->getChild(0), view->transModel);
        ASSERT_NE(passGroup->getChild(1)->asGroup(), nullptr);
        EXPECT_EQ(passGroup->getChild(1)->asGroup()->getChild(0), view->transModel);
        EXPECT_EQ(camera->getChild(1), view->model);
        EXPECT_EQ(camera->getChild(2), view->other);

        const osg::Viewport* vp = info.mainView()->getCamera()->getViewport();
        const GLint formats[4] = {GL_RGBA32F_ARB, GL_RGBA32F_ARB, GL_R32F, GL_RGBA32F_ARB};
        const auto& attachments = camera->getBufferAttachmentMap();
        for (int i = 0; i < 4; ++i) {
            auto found =
                attachments.find(osg::Camera::BufferComponent(osg::Camera::COLOR_BUFFER0 + i));
            ASSERT_NE(found, attachments.end()) << "layer " << i;
            auto* texture = dynamic_cast<osg::Texture2D*>(found->second._texture.get());
            ASSERT_NE(texture, nullptr) << "layer " << i;
            EXPECT_EQ(texture->getInternalFormat(), formats[i]) << "layer " << i;
            EXPECT_EQ(texture->getSourceType(), GLenum(GL_FLOAT)) << "layer " << i;
            EXPECT_EQ(texture->getTextureWidth(), int(vp->width())) << "layer " << i;
            EXPECT_EQ(texture->getTextureHeight(), int(vp->height())) << "layer " << i;
        }
        osg::Vec2f size;
        ASSERT_NE(camera->getStateSet()->getUniform(TransparentMgr::s_viewportUniformStr), nullptr);
        camera->getStateSet()->getUniform(TransparentMgr::s_viewportUniformStr)->get(size);
        EXPECT_EQ(size, osg::Vec2f(float(vp->width()), float(vp->height())));
    }));
    EXPECT_EQ(TransparentMgr::createOITSSBO(16, 16), nullptr);
    enable(false);
}

TEST_F(TransparentTest, SwitchingOffPutsEveryNodeBackAndTheImageWithIt)
{
    setScene({opaque(-1.0f, -1.0f, 1.0f, 1.0f, 0.0f)},
             {translucent(-0.5f, -0.5f, 0.5f, 0.5f, 0.5f, osg::Vec3(0.9f, 0.2f, 0.1f), 0.6f)});
    osg::ref_ptr<osg::Node> extra = opaque(1.2f, 0.2f, 1.6f, 0.6f, 0.0f);
    ASSERT_TRUE(onRenderThread(
        [&](RenderInfo& info) { ViewMgr::getOther(info.mainView())->addChild(extra.get()); }));
    const QImage before = afterFrames();
    osg::Group* viewRoot = root();
    const std::vector<osg::Node*> childrenBefore = childrenOf(viewRoot);
    std::vector<osg::Node*> transBefore, modelBefore;
    onRenderThread([&](RenderInfo& info) {
        transBefore = childrenOf(ViewMgr::getTransModel(info.mainView()));
        modelBefore = childrenOf(ViewMgr::getModel(info.mainView()));
    });

    enable(true);
    const QImage during = afterFrames();
    EXPECT_GT(maxDifference(before, during), 20) << "the rig changed nothing on screen";

    {
        // A second enable and, later, a second disable change nothing.
        LogCapture log;
        enable(true);
        EXPECT_TRUE(log.contains("transparency already enabled"));
        EXPECT_EQ(root()->getNumChildren(), 1u);
    }
    enable(false);
    {
        LogCapture log;
        enable(false);
        EXPECT_TRUE(log.contains("transparency isn't enabled"));
    }
    const QImage after = afterFrames();
    EXPECT_EQ(childrenOf(viewRoot), childrenBefore);
    EXPECT_EQ(childrenBefore.back()->getName(), "transparent model");
    onRenderThread([&](RenderInfo& info) {
        EXPECT_EQ(childrenOf(ViewMgr::getTransModel(info.mainView())), transBefore);
        EXPECT_EQ(childrenOf(ViewMgr::getModel(info.mainView())), modelBefore);
        EXPECT_EQ(ViewMgr::getTransModel(info.mainView())->getNumParents(), 1u);
        EXPECT_EQ(ViewMgr::getModel(info.mainView())->getNumParents(), 1u);
        EXPECT_EQ(extra->getNumParents(), 1u);
    });
    double mean = 0.0;
    // The same nodes in the same places with the same state draw the same pixels.
    EXPECT_EQ(maxDifference(before, after, &mean), 0);
    // Not one pixel may move, so not even a fraction of a step on average.
    EXPECT_EQ(mean, 0.0);
}

TEST_F(TransparentTest, OneLayerBlendsOverTheClearColourAndOverAnOpaqueModel)
{
    const osg::Vec3 red(0.9f, 0.2f, 0.1f);
    const float alpha = 0.6f;
    // The translucent square spans both the opaque square and the bare background.
    setScene({opaque(-1.5f, -1.0f, 0.0f, 1.0f, 0.0f)},
             {translucent(-1.0f, -0.5f, 1.0f, 0.5f, 0.5f, red, alpha)});
    enable(true);
    const QImage image = afterFrames();

    const Probe overOpaque = probe(-0.5f, 0.2f, 0.0f);
    const Probe overClear = probe(0.6f, -0.2f, 0.5f);
    const Probe opaqueAlone = probe(-1.2f, 0.8f, 0.0f);
    const Probe nothing = probe(1.5f, 0.9f, 0.0f);
    // With one layer T = exp(a) = 1 - alpha, and the weighted average is the layer's colour.
    const osg::Vec3 behind = meshColor(overOpaque);
    expectPixel(image, overOpaque.pixel, red * alpha + behind * (1.0f - alpha));
    expectPixel(image, overOpaque.pixel, blendOfMoments({{red, alpha, 0.5f}}, &behind));
    expectPixel(image, overClear.pixel, red * alpha + clearColor() * (1.0f - alpha));
    expectPixel(image, opaqueAlone.pixel, meshColor(opaqueAlone));
    expectPixel(image, nothing.pixel, clearColor());
    if (HasFailure())
        image.save("transparent_one_layer.png");
    enable(false);
}

TEST_F(TransparentTest, TwoLayersGiveTheSameImageInEitherOrder)
{
    const Layer near{osg::Vec3(0.9f, 0.2f, 0.1f), 0.5f, 0.5f};
    const Layer far{osg::Vec3(0.1f, 0.3f, 0.9f), 0.7f, 0.0f};
    osg::ref_ptr<osg::Node> a =
        translucent(-1.0f, -0.6f, 0.4f, 0.6f, near.z, near.color, near.alpha);
    osg::ref_ptr<osg::Node> b = translucent(-0.4f, -0.8f, 1.0f, 0.4f, far.z, far.color, far.alpha);
    setScene({}, {a, b});
    enable(true);
    const QImage nearFirst = afterFrames();
    setScene({}, {b, a});
    const QImage farFirst = afterFrames();

    double mean = 0.0;
    // Blending adds two terms per layer texel, and a sum of two floats doesn't depend on order.
    EXPECT_EQ(maxDifference(nearFirst, farFirst, &mean), 0);
    EXPECT_EQ(mean, 0.0);

    const Probe both = probe(0.0f, 0.0f, 0.0f);
    expectPixel(nearFirst, both.pixel, blendOfMoments({near, far}, nullptr));
    expectPixel(nearFirst, probe(-0.8f, 0.5f, near.z).pixel, blendOfMoments({near}, nullptr));
    expectPixel(nearFirst, probe(0.8f, -0.7f, far.z).pixel, blendOfMoments({far}, nullptr));
    if (HasFailure()) {
        nearFirst.save("transparent_near_first.png");
        farFirst.save("transparent_far_first.png");
    }
    enable(false);
}

TEST_F(TransparentTest, AnOpaqueModelInFrontHidesATranslucentOne)
{
    setScene({opaque(-0.5f, -0.5f, 0.5f, 0.5f, 0.5f)},
             {translucent(-1.0f, -1.0f, 1.0f, 1.0f, 0.0f, osg::Vec3(0.9f, 0.2f, 0.1f), 0.6f)});
    enable(true);
    const QImage image = afterFrames();
    const Probe front = probe(0.1f, -0.2f, 0.5f);
    expectPixel(image, front.pixel, meshColor(front));
    // Beside it the translucent square still shows over the background.
    expectPixel(image, probe(0.8f, 0.8f, 0.0f).pixel,
                osg::Vec3(0.9f, 0.2f, 0.1f) * 0.6f + clearColor() * 0.4f);
    enable(false);
}

TEST_F(TransparentTest, AnEmptyTransparentGroupLeavesTheOpaqueImage)
{
    setScene({opaque(-1.0f, -1.0f, 1.0f, 1.0f, 0.0f)}, {});
    const QImage before = afterFrames();
    enable(true);
    const QImage during = afterFrames();
    double mean = 0.0;
    // Through the float layer and the composite: at most one step of 8-bit rounding.
    EXPECT_LE(maxDifference(before, during, &mean), 1);
    // Rounding may differ on edge values only, a small share of the pixels.
    EXPECT_LE(mean, 0.05);
    enable(false);
}

TEST_F(TransparentTest, TheLayersFollowTheCanvasSize)
{
    setScene({opaque(-1.0f, -1.0f, 1.0f, 1.0f, 0.0f)},
             {translucent(-0.5f, -0.5f, 0.5f, 0.5f, 0.5f, osg::Vec3(0.9f, 0.2f, 0.1f), 0.6f)});
    enable(true);
    afterFrames();
    // The variant callback follows the canvas's framebuffer by signal.
    osg::ref_ptr<OITPostDrawCallback> follower = new OITPostDrawCallback;
    ASSERT_TRUE(onRenderThread([&](RenderInfo& info) {
        QObject::connect(&info, &RenderInfo::fboChanged, follower.get(),
                         &OITPostDrawCallback::onFBOChanged, Qt::DirectConnection);
    }));

    window().item()->setSize(QSizeF(100, 80));
    afterFrames();
    const QImage image = afterFrames();
    ASSERT_TRUE(onRenderThread([&](RenderInfo& info) {
        const osg::Viewport* vp = info.mainView()->getCamera()->getViewport();
        ASSERT_EQ(int(vp->width()), 100);
        ASSERT_EQ(int(vp->height()), 80);
        osg::Group* rig = ViewMgr::getRoot(info.mainView())->getChild(0)->asGroup();
        auto* camera = dynamic_cast<osg::Camera*>(TransparentMgr::getTransparentNodeGroup(rig));
        ASSERT_NE(camera, nullptr);
        EXPECT_EQ(int(camera->getViewport()->width()), 100);
        EXPECT_EQ(int(camera->getViewport()->height()), 80);
        for (const auto& attachment : camera->getBufferAttachmentMap()) {
            EXPECT_EQ(attachment.second._texture->getTextureWidth(), 100);
            EXPECT_EQ(attachment.second._texture->getTextureHeight(), 80);
        }
        osg::Vec2f size;
        camera->getStateSet()->getUniform(TransparentMgr::s_viewportUniformStr)->get(size);
        EXPECT_EQ(size, osg::Vec2f(100.0f, 80.0f));
        EXPECT_EQ(follower->fbo(), info.FBO);
        EXPECT_NE(follower->fbo(), nullptr);
    }));
    // The centre of the smaller canvas still shows the layer over the opaque square.
    const QColor centre = image.pixelColor(50, 40);
    EXPECT_GT(centre.red(), centre.blue()) << describe(centre);
    enable(false);
}

TEST_F(TransparentTest, ASmallTranslucentSceneMatchesItsBaseline)
{
    setScene({opaque(-1.6f, -0.9f, -0.2f, 0.9f, -0.5f)},
             {translucent(-1.2f, -0.7f, 0.4f, 0.5f, 0.5f, osg::Vec3(0.9f, 0.2f, 0.1f), 0.5f),
              translucent(-0.5f, -0.4f, 1.3f, 0.8f, 0.0f, osg::Vec3(0.1f, 0.8f, 0.3f), 0.7f),
              translucent(0.2f, -1.0f, 1.6f, 0.1f, 0.2f, osg::Vec3(0.2f, 0.3f, 0.9f), 0.4f)});
    enable(true);
    const QImage image =
        afterFrames().copy(0, 0, CanvasWindow::kCanvasWidth, CanvasWindow::kHeight);
    // exp, log and pow round differently from one GL driver to the next: one 8-bit step,
    // two where three layers overlap.
    EXPECT_TRUE(OrvaneTest::matchesBaseline(image, "transparent_three_layers", {2, 0.1}));
    enable(false);
}

TEST(TransparentMgrTest, BadInputIsLoggedAndBuildsNothing)
{
    LogCapture log;
    osg::ref_ptr<RenderInfo> info = new RenderInfo;
    EXPECT_FALSE(TransparentMgr::createTransparentGroup(*info, 64, 64));
    EXPECT_TRUE(log.contains("RenderInfo's canvas is nullptr"));
    EXPECT_EQ(TransparentMgr::getTransparentNodeGroup(nullptr), nullptr);
    osg::ref_ptr<osg::Group> empty = new osg::Group;
    EXPECT_EQ(TransparentMgr::getTransparentNodeGroup(empty.get()), nullptr);
    osg::ref_ptr<osgViewer::View> foreign = new osgViewer::View;
    EXPECT_FALSE(TransparentMgr::uninstall(foreign.get()));
    EXPECT_EQ(TransparentMgr::installedRig(foreign.get()), nullptr);
}

TEST(TransparentFacadeTest, AForeignViewIsRefused)
{
    CanvasWindow w;
    ASSERT_TRUE(w.show());
    osg::ref_ptr<osgViewer::View> foreign = new osgViewer::View;
    foreign->setSceneData(new osg::Group);
    LogCapture log;
    ASSERT_TRUE(w.run(OrvaneSingleton::instance()->enableTransparent(foreign, true)));
    EXPECT_TRUE(log.contains("view isn't create by ViewMgr"));
    EXPECT_EQ(foreign->getSceneData()->asGroup()->getNumChildren(), 0u);
}

} // namespace
