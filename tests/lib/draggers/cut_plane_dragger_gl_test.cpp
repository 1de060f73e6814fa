// The cut disc on a live canvas: mouse drags through the view push and turn it as its
// constraints allow, and its parts show their colours at rest and under the pointer.
#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "cut_plane_dragger.h"
#include "fixed_camera_canvas.h"
#include "gl_functions.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "render_info.h"

#include <QOpenGLFunctions_4_1_Core>
#include <QTest>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using OrvaneTest::describe;
using OrvaneTest::Probe;
using OrvaneTest::probe;
using OrvaneTest::waitUntil;

namespace {

const double kTilt = osg::DegreesToRadians(30.0);
// The model's points lie this far to both sides of the disc's centre.
const double kSide = 0.7;
const double kExit = std::atan(kSide);
// The disc close to the eye, tilted by 30 degrees about x, so that the top of its rim crosses
// the middle of the canvas large enough to be pressed.
const osg::Vec3d kNearCentre(0.0, -std::cos(kTilt), 3.0);

osg::Matrixd tilted(double angle, const osg::Vec3d& centre)
{
    return osg::Matrixd::rotate(angle, osg::Vec3d(1, 0, 0)) * osg::Matrixd::translate(centre);
}

// The angle about x that turns +z onto the disc's normal.
double tiltOf(const osg::Matrixd& m)
{
    const osg::Vec3d n = osg::Matrixd::transform3x3(osg::Vec3d(0, 0, 1), m);
    return std::atan2(-n.y(), n.z());
}

// A model that is only data for the constraints: four points around the near disc's centre,
// all below its plane once it is tilted past atan(0.7) about x.
osg::ref_ptr<osg::MatrixTransform> nearModel(bool bothSides = true)
{
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    for (double z : bothSides ? std::vector<double>{kSide, -kSide} : std::vector<double>{kSide})
        for (double x : {-0.3, 0.3})
            v->push_back(osg::Vec3(x, 1.0, z));
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(v.get());
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry.get());
    osg::ref_ptr<osg::MatrixTransform> model =
        new osg::MatrixTransform(osg::Matrixd::translate(kNearCentre));
    model->addChild(geode.get());
    return model;
}

// Where the top of the near disc's rim lands, just outside the disc so the rim is hit first.
QPoint rimTop(double angle = kTilt)
{
    const osg::Vec3d top = osg::Vec3d(0, 1.012, 0) * tilted(angle, kNearCentre);
    return probe(top.x(), top.y(), top.z()).pixel;
}

class CutPlaneDraggerTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_canvas.show()); }

    void TearDown() override
    {
        if (HasFailure() && !m_last.isNull())
            m_last.save(QString("cut_plane_dragger_%1.png")
                            .arg(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        m_canvas.close();
    }

    void place(const osg::Matrixd& matrix)
    {
        m_disc = new CutPlaneDragger;
        m_disc->setupDefaultGeometry();
        m_disc->setHandleEvents(true);
        m_disc->setMatrix(matrix);
        QObject::connect(m_disc.get(), &CutPlaneDragger::rotateChanged, [this] { ++m_rotations; });
        QObject::connect(m_disc.get(), &CutPlaneDragger::translateChanged,
                         [this] { ++m_translations; });
        osg::ref_ptr<CutPlaneDragger> disc = m_disc;
        ASSERT_TRUE(m_canvas.onRenderThread([disc](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->addChild(disc.get());
        }));
    }

    QImage frames(int count = 3)
    {
        const int start = m_canvas.window().sceneFrames();
        EXPECT_TRUE(waitUntil([&] {
            m_canvas.window().item()->frame();
            return m_canvas.window().sceneFrames() >= start + count;
        }));
        m_last = m_canvas.window().grab();
        return m_last;
    }

    void hover(QPoint at)
    {
        QTest::mouseMove(m_canvas.window().window(), at);
        frames(2);
    }

    void drag(QPoint from, QPoint to, int steps = 6)
    {
        QQuickWindow* window = m_canvas.window().window();
        hover(from);
        QTest::mousePress(window, Qt::LeftButton, Qt::NoModifier, from);
        frames(1);
        for (int i = 1; i <= steps; ++i) {
            QTest::mouseMove(window, from + (to - from) * i / steps);
            frames(1);
        }
        QTest::mouseRelease(window, Qt::LeftButton, Qt::NoModifier, to);
        frames(2);
    }

    osg::Matrixd discMatrix()
    {
        osg::Matrixd m;
        osg::ref_ptr<CutPlaneDragger> disc = m_disc;
        m_canvas.onRenderThread([&](RenderInfo&) { m = disc->getMatrix(); });
        return m;
    }

    template <class T> T onRender(std::function<T()> read)
    {
        T value{};
        m_canvas.onRenderThread([&](RenderInfo&) { value = read(); });
        return value;
    }

    void addToRims(osgManipulator::Constraint* constraint)
    {
        osg::ref_ptr<osgManipulator::Constraint> held = constraint;
        osg::ref_ptr<CutPlaneDragger> disc = m_disc;
        m_canvas.onRenderThread([disc, held](RenderInfo&) {
            for (int i = 0; i < CutPlaneDragger::kRimDraggers; ++i)
                disc->getDragger(i)->addConstraint(held.get());
        });
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
    osg::ref_ptr<CutPlaneDragger> m_disc;
    std::atomic<int> m_rotations{0};
    std::atomic<int> m_translations{0};
    QImage m_last;
};

TEST_F(CutPlaneDraggerTest, PushAlongTheNormalStopsAtTheMaximumDistance)
{
    // Tilted by 45 degrees: far from face-on, so the push is taken.
    place(tilted(osg::PI_4, osg::Vec3d()));
    osg::ref_ptr<RangeConstraint> range = new RangeConstraint(*m_disc, osg::Vec3d(), 0.5);
    m_canvas.onRenderThread(
        [&](RenderInfo&) { m_disc->getTranslateDragger()->addConstraint(range.get()); });
    frames();

    const QPoint onDisc = probe(0.3f, 0.0f).pixel;
    drag(onDisc, onDisc + QPoint(0, -40));
    EXPECT_GT(m_translations.load(), 0);
    EXPECT_EQ(m_rotations.load(), 0);
    const osg::Matrixd m = discMatrix();
    // Clipped onto the sphere of the maximum distance, along the normal; the turn is kept.
    EXPECT_NEAR(m.getTrans().length(), 0.5, 1e-6);
    const osg::Vec3d n = osg::Matrixd::transform3x3(osg::Vec3d(0, 0, 1), m);
    EXPECT_NEAR(std::fabs(m.getTrans() * n), 0.5, 1e-6);
    EXPECT_NEAR(tiltOf(m), osg::PI_4, 1e-9);

    // A short push back is not clipped: the disc comes back inside the range.
    drag(onDisc, onDisc + QPoint(0, 6));
    EXPECT_LT(discMatrix().getTrans().length(), 0.5 - 1e-3);
}

TEST_F(CutPlaneDraggerTest, APressOnAFaceOnDiscIsSwallowedAndNothingMoves)
{
    for (double degrees : {0.0, 8.0}) {
        SCOPED_TRACE(degrees);
        place(tilted(osg::DegreesToRadians(degrees), osg::Vec3d()));
        frames();
        const osg::Matrixd before = discMatrix();
        const QPoint onDisc = probe(0.3f, 0.1f).pixel;
        drag(onDisc, onDisc + QPoint(0, -30));
        EXPECT_EQ(discMatrix(), before);
        EXPECT_EQ(m_translations.load(), 0);
        EXPECT_EQ(m_rotations.load(), 0);
        // The press was taken: the disc is the dragger that was asked last.
        EXPECT_EQ(onRender<int>([&] { return m_disc->getCurrentHandleDragger(); }),
                  CutPlaneDragger::kRimDraggers);
        osg::ref_ptr<CutPlaneDragger> disc = m_disc;
        m_canvas.onRenderThread([disc](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->removeChild(disc.get());
        });
    }
    // Past the limit the same press pushes.
    place(tilted(osg::DegreesToRadians(20.0), osg::Vec3d()));
    frames();
    const QPoint onDisc = probe(0.3f, 0.1f).pixel;
    drag(onDisc, onDisc + QPoint(0, -30));
    EXPECT_GT(m_translations.load(), 0);
    EXPECT_GT(discMatrix().getTrans().length(), 0.05);
}

TEST_F(CutPlaneDraggerTest, ATurnOutOfTheModelIsAnsweredWithTheLastGoodRotation)
{
    // Without the constraint the same drag turns the disc well past the model.
    place(tilted(kTilt, kNearCentre));
    frames();
    const QPoint top = rimTop();
    drag(top, top + QPoint(0, 60));
    EXPECT_GT(m_rotations.load(), 0);
    const double free = tiltOf(discMatrix());
    EXPECT_GT(free, kExit + 0.1) << free;

    m_canvas.onRenderThread(
        [&](RenderInfo& info) { ViewMgr::getModel(info.mainView())->removeChild(m_disc.get()); });
    place(tilted(kTilt, kNearCentre));
    osg::ref_ptr<osg::MatrixTransform> model = nearModel();
    addToRims(new CutConstraint(*m_disc, model.get(), true));
    frames();
    drag(top, top + QPoint(0, 60));
    EXPECT_GT(m_rotations.load(), 0);
    const double held = tiltOf(discMatrix());
    // The plane leaves the model at atan(0.7); the last good rotation lies before it.
    EXPECT_LE(held, kExit) << held;
    EXPECT_GT(held, kTilt + 0.02) << held;
}

TEST_F(CutPlaneDraggerTest, AngleRangeOfAPressedRimFromTheModel)
{
    place(tilted(kTilt, kNearCentre));
    osg::ref_ptr<osg::MatrixTransform> model = nearModel();
    osg::ref_ptr<AngleRangeConstraint> both = new AngleRangeConstraint(*m_disc, model.get());
    osg::ref_ptr<osg::MatrixTransform> frontOnly = nearModel(false);
    osg::ref_ptr<AngleRangeConstraint> oneSide =
        new AngleRangeConstraint(*m_disc->getDragger(0), frontOnly.get());
    addToRims(both.get());
    addToRims(oneSide.get());
    frames();
    const QPoint top = rimTop();
    QQuickWindow* window = m_canvas.window().window();
    hover(top);
    QTest::mousePress(window, Qt::LeftButton, Qt::NoModifier, top);
    frames(1);
    // The top of the rim is rim dragger 0, turning about -x through the centre.
    EXPECT_EQ(onRender<int>([&] { return m_disc->getCurrentHandleDragger(); }), 0);

    // From the centre the points lie at (+-0.3, 1, +-0.7): off the axis (1, +-0.7), against
    // the in-plane direction n x a = (0, -cos 30, -sin 30).
    const double off = std::sqrt(1.0 + kSide * kSide);
    const double front = (-std::cos(kTilt) - std::sin(kTilt) * kSide) / off;
    const double back = (-std::cos(kTilt) + std::sin(kTilt) * kSide) / off;
    EXPECT_NEAR(both->minAngle(), -std::acos(front), 1e-6);
    EXPECT_NEAR(both->maxAngle(), std::acos(back), 1e-6);
    // No point behind the plane: that side's bound is 0.
    EXPECT_NEAR(oneSide->minAngle(), -std::acos(front), 1e-6);
    EXPECT_EQ(oneSide->maxAngle(), 0.0);

    for (int i = 1; i <= 4; ++i) {
        QTest::mouseMove(window, top + QPoint(0, 5 * i));
        frames(1);
    }
    QTest::mouseRelease(window, Qt::LeftButton, Qt::NoModifier, top + QPoint(0, 20));
    frames(2);
    // It measures and leaves the turn alone: the angle is the disc's own turn.
    const double turned = tiltOf(discMatrix()) - kTilt;
    EXPECT_GT(turned, 0.0);
    EXPECT_NEAR(std::fabs(both->angle()), turned, 1e-6);
}

TEST_F(CutPlaneDraggerTest, WithRotationDisabledTheRimNeitherHighlightsNorTurns)
{
    place(tilted(kTilt, kNearCentre));
    m_disc->setRotateEnable(false);
    frames();
    const QPoint top = rimTop();
    const osg::Matrixd before = discMatrix();
    hover(top);
    osg::Vec4f ring;
    unsigned int arrowsMask = 1;
    m_canvas.onRenderThread([&](RenderInfo&) {
        m_disc->ring()->getStateSet()->getUniform("uniformColor")->get(ring);
        arrowsMask = m_disc->arrows()->getNodeMask();
    });
    EXPECT_EQ(ring, m_disc->normalColor());
    EXPECT_EQ(arrowsMask, 0u);
    drag(top, top + QPoint(0, 50));
    EXPECT_EQ(discMatrix(), before);
    EXPECT_EQ(m_rotations.load(), 0);

    // Enabled again, the same hover lights the ring and shows the arrows.
    m_disc->setRotateEnable(true);
    hover(top + QPoint(1, 0));
    hover(top);
    m_canvas.onRenderThread([&](RenderInfo&) {
        m_disc->ring()->getStateSet()->getUniform("uniformColor")->get(ring);
        arrowsMask = m_disc->arrows()->getNodeMask();
    });
    EXPECT_EQ(ring, m_disc->pickColor());
    EXPECT_EQ(arrowsMask, ~0u);
}

// Pixels of the parts. The disc is scaled 20 times and put so that the top of its ring runs
// across the canvas at y = 0.5: the thin ring is then a band a few pixels high.
class CutPlaneDraggerPixelTest : public CutPlaneDraggerTest
{
protected:
    static constexpr float kScale = 20.0f;
    static constexpr float kRingY = 0.5f;

    void placeLarge()
    {
        place(osg::Matrixd::scale(kScale, kScale, kScale) *
              osg::Matrixd::translate(0, kRingY - kScale, 0));
    }

    // Blending rounds once more than a plain colour: 8-bit quantisation twice.
    static constexpr int kBlendTolerance = 3;
    // An unlit colour lands exactly, but for the framebuffer's 8-bit rounding.
    static constexpr int kTolerance = 1;

    static QColor over(const osg::Vec4f& c, const QColor& under)
    {
        auto mix = [&](float top, int below) {
            return int(std::lround((top * c.a() + below / 255.0f * (1.0f - c.a())) * 255.0f));
        };
        return QColor(mix(c.r(), under.red()), mix(c.g(), under.green()), mix(c.b(), under.blue()));
    }

    static QColor solid(const osg::Vec4f& c)
    {
        return OrvaneTest::toColor(osg::Vec3(c.r(), c.g(), c.b()));
    }

    // Pixels of the arrows' hue, lit or not, below the ring (which has the same colour).
    int arrowPixels(const QImage& image, const osg::Vec4f& c)
    {
        int count = 0;
        for (int y = probe(0.0f, kRingY).pixel.y() + 8; y < OrvaneTest::CanvasWindow::kHeight; ++y)
            for (int x = 0; x < OrvaneTest::CanvasWindow::kCanvasWidth; ++x) {
                const QColor p = image.pixelColor(x, y);
                if (p.blue() < 60 || p.blue() > 250)
                    continue;
                // Ratios within what 8-bit rounding of a dark channel allows.
                const double b = p.blue();
                if (std::fabs(p.red() / b - c.r() / c.b()) < 0.03 &&
                    std::fabs(p.green() / b - c.g() / c.b()) < 0.03)
                    ++count;
            }
        return count;
    }
};

TEST_F(CutPlaneDraggerPixelTest, DiscAndRingAtRestAndUnderThePointer)
{
    placeLarge();
    const QPoint onDisc = probe(0.6f, -0.6f).pixel;
    // Rim dragger 0 spans x in +-0.63 at the top; the arrows it shows stand about x = 0.
    const QPoint onRim = probe(0.4f, kRingY).pixel;
    // The ring sags by 20 - sqrt(20^2 - x^2) away from the middle.
    const QPoint onRing = probe(1.2f, kRingY - 0.036f).pixel;
    const QPoint outside = probe(0.6f, 1.0f).pixel;
    hover(outside);
    QImage image = frames();
    const QColor background = image.pixelColor(2, 2);

    auto expect = [&](QPoint at, const QColor& wanted, int tolerance, const char* what) {
        const QColor actual = image.pixelColor(at);
        EXPECT_TRUE(OrvaneTest::near(actual, wanted, tolerance))
            << what << " at (" << at.x() << ", " << at.y() << "): " << describe(actual)
            << ", expected " << describe(wanted);
    };
    expect(onDisc, over(m_disc->planeColor(), background), kBlendTolerance, "disc at rest");
    expect(onRing, solid(m_disc->normalColor()), kTolerance, "ring at rest");
    expect(outside, background, 0, "outside");
    EXPECT_EQ(arrowPixels(image, m_disc->normalColor()), 0);

    // Over the disc: a lighter disc, the ring unchanged.
    hover(onDisc);
    image = frames();
    osg::Vec4f lighter = m_disc->planeColor();
    lighter.a() *= 0.8f;
    expect(onDisc, over(lighter, background), kBlendTolerance, "disc hovered");
    expect(onRing, solid(m_disc->normalColor()), kTolerance, "ring, disc hovered");

    // Over the rim: the ring in the pick colour, the arrows shown, the disc as at rest.
    hover(onRim);
    image = frames();
    expect(onRing, solid(m_disc->pickColor()), kTolerance, "ring hovered");
    expect(onDisc, over(m_disc->planeColor(), background), kBlendTolerance, "disc, rim hovered");
    EXPECT_GT(arrowPixels(image, m_disc->normalColor()), 20);

    // Away again: back to rest.
    hover(outside);
    image = frames();
    expect(onRing, solid(m_disc->normalColor()), kTolerance, "ring after");
    EXPECT_EQ(arrowPixels(image, m_disc->normalColor()), 0);
}

} // namespace

namespace {

float asFloat(int bits)
{
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

// The cut program writes the distances and the count into the bound buffer as it draws.
TEST_F(CutPlaneDraggerTest, TheCutProgramFillsTheStorageBuffer)
{
    // Two triangles facing the eye across the plane x = 0: behind it at distances 1, 0.5, 0.5,
    // in front at 0.25, 0.75, 0.75.
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    for (const osg::Vec3& p :
         {osg::Vec3(-1, 0, 0), osg::Vec3(-0.5f, -1, 0), osg::Vec3(-0.5f, 1, 0),
          osg::Vec3(0.25f, 0, 0), osg::Vec3(0.75f, -1, 0), osg::Vec3(0.75f, 1, 0)})
        v->push_back(p);
    osg::ref_ptr<osg::Vec3Array> n = new osg::Vec3Array;
    n->assign(6, osg::Vec3(0, 0, 1));
    osg::ref_ptr<osg::Vec3Array> c = new osg::Vec3Array;
    c->assign(6, osg::Vec3(0.5f, 0.5f, 0.5f));
    osg::ref_ptr<osg::MatrixTransform> mesh = Mesh::create(v.get(), n.get(), c.get());
    osg::StateSet* ss = mesh->getOrCreateStateSet();
    ss->setAttributeAndModes(ShaderManager::instance()->getShader(g_cutMeshDynamicLightProgramStr));
    ss->addUniform(new osg::Uniform("direction", osg::Vec3f(1, 0, 0)));
    ss->addUniform(new osg::Uniform("center", osg::Vec3f(0, 0, 0)));
    ss->addUniform(new osg::Uniform("useCutInfo", true));
    class FindGeometry : public osg::NodeVisitor
    {
    public:
        FindGeometry() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
        void apply(osg::Geometry& g) override { found = &g; }
        osg::ref_ptr<osg::Geometry> found;
    } find;
    mesh->accept(find);
    ASSERT_TRUE(find.found.valid());
    osg::ref_ptr<EnableCutSSBOOperation> enable = new EnableCutSSBOOperation(find.found, true);
    ASSERT_TRUE(m_canvas.window().run(enable.get(), [mesh](RenderInfo& info) {
        ViewMgr::getModel(info.mainView())->addChild(mesh.get());
    }));
    frames();

    std::vector<int> info(EnableCutSSBOOperation::m_numSSBO, -7);
    m_canvas.onRenderThread([&](RenderInfo& render) {
        const unsigned int context =
            render.masterCamera()->getGraphicsContext()->getState()->getContextID();
        osg::GLBufferObject* gl = enable->buffer()->getOrCreateGLBufferObject(context);
        QOpenGLFunctions_4_1_Core* f = currentGlFunctions();
        if (!gl || !f)
            return;
        f->glBindBuffer(GL_COPY_READ_BUFFER, gl->getGLObjectID());
        f->glGetBufferSubData(GL_COPY_READ_BUFFER, 0, GLsizeiptr(info.size() * sizeof(int)),
                              info.data());
        f->glBindBuffer(GL_COPY_READ_BUFFER, 0);
    });
    // Behind: the largest and smallest distance; in front: the smallest and largest.
    EXPECT_EQ(asFloat(info[0]), 1.0f);
    EXPECT_EQ(asFloat(info[1]), 0.5f);
    EXPECT_EQ(asFloat(info[2]), 0.25f);
    EXPECT_EQ(asFloat(info[3]), 0.75f);
    // Three vertices behind in every frame drawn so far.
    EXPECT_GE(info[4], 3);
    EXPECT_EQ(info[4] % 3, 0);
    EXPECT_EQ(info[5], 0);
}

} // namespace
