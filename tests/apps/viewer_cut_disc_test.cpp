// The viewer's C key: a cut disc through the middle of the models, the side below it painted
// by the cut program, pushed live by a drag on its face, and taken away by C again.
#include "viewer_cut_disc.h"

#include "canvas3d_drawable.h"
#include "canvas3d_item.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "cut_plane_dragger.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "render_info.h"

#include <QTest>
#include <cmath>
#include <gtest/gtest.h>

using namespace Vorna::Orvane;
using OrvaneTest::describe;
using OrvaneTest::probe;
using OrvaneTest::waitUntil;

namespace {

// The disc faces (cos 30, 0, sin 30) and is 0.6 of the models' half diagonal across: rows at
// y = 0.93 lie above it, where the cut line on the square is seen bare.
constexpr float kRow = 0.93f;
const osg::Vec3d kNormal(std::cos(osg::PI / 6.0), 0.0, std::sin(osg::PI / 6.0));

class ViewerCutDiscTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_canvas.show());
        // A 2 x 2 square at z = 0 facing the eye, drawn by "mesh" as a file would be.
        osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
        for (const osg::Vec3& p : {osg::Vec3(-1, -1, 0), osg::Vec3(1, -1, 0), osg::Vec3(1, 1, 0),
                                   osg::Vec3(-1, -1, 0), osg::Vec3(1, 1, 0), osg::Vec3(-1, 1, 0)})
            v->push_back(p);
        osg::ref_ptr<osg::Vec3Array> n = new osg::Vec3Array;
        n->assign(6, osg::Vec3(0, 0, 1));
        osg::ref_ptr<osg::Vec3Array> c = new osg::Vec3Array;
        c->assign(6, osg::Vec3(0.5f, 0.5f, 0.5f));
        m_mesh = Mesh::create(v.get(), n.get(), c.get());
        m_mesh->getOrCreateStateSet()->setAttributeAndModes(
            ShaderManager::instance()->getShader("mesh"));
        m_handler = new ViewerCutDisc;
        osg::ref_ptr<osg::MatrixTransform> mesh = m_mesh;
        ASSERT_TRUE(
            m_canvas.window().run(new AddEventHandler(m_handler.get()), [mesh](RenderInfo& info) {
                ViewMgr::getModel(info.mainView())->addChild(mesh.get());
            }));
        m_canvas.window().item()->forceActiveFocus();
    }

    void TearDown() override
    {
        if (HasFailure() && !m_last.isNull())
            m_last.save(QString("viewer_cut_disc_%1.png")
                            .arg(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        m_canvas.close();
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

    void pressC()
    {
        QTest::keyClick(m_canvas.window().window(), Qt::Key_C);
        frames();
    }

    bool hasDisc()
    {
        bool found = false;
        m_canvas.onRenderThread([&](RenderInfo&) { found = m_handler->disc() != nullptr; });
        return found;
    }

    // Under the cut program the painted row is orange and the kept side grey.
    static bool painted(const QColor& c) { return c.red() > c.green() + 40; }
    static bool plain(const QColor& c)
    {
        return std::abs(c.red() - c.green()) <= 3 && std::abs(c.green() - c.blue()) <= 3 &&
               c.red() > 40;
    }

    void expectSide(const QImage& image, float x, bool paintedSide, const char* what)
    {
        const QPoint at = probe(x, kRow).pixel;
        const QColor c = image.pixelColor(at);
        EXPECT_TRUE(paintedSide ? painted(c) : plain(c))
            << what << " at x = " << x << ": " << describe(c) << ", expected "
            << (paintedSide ? "painted" : "plain");
    }

    OrvaneTest::FixedCameraCanvas m_canvas;
    osg::ref_ptr<osg::MatrixTransform> m_mesh;
    osg::ref_ptr<ViewerCutDisc> m_handler;
    QImage m_last;
};

TEST_F(ViewerCutDiscTest, CPlacesTheDiscPaintsTheLowerSideAndCTakesItAway)
{
    QImage image = frames();
    // The square's own shading, before and after the disc.
    const QColor own = image.pixelColor(probe(-0.5f, kRow).pixel);
    EXPECT_EQ(image.pixelColor(probe(0.5f, kRow).pixel), own);
    EXPECT_FALSE(painted(own)) << describe(own);

    pressC();
    ASSERT_TRUE(hasDisc());
    image = frames();
    // The plane runs through the middle, x = 0 on the square; x < 0 lies below it.
    expectSide(image, -0.5f, true, "cut");
    expectSide(image, 0.5f, false, "cut");

    pressC();
    EXPECT_FALSE(hasDisc());
    image = frames();
    for (float x : {-0.5f, 0.5f})
        EXPECT_EQ(image.pixelColor(probe(x, kRow).pixel), own)
            << x << ": " << describe(image.pixelColor(probe(x, kRow).pixel));
    const osg::StateAttribute* program = nullptr;
    m_canvas.onRenderThread([&](RenderInfo&) {
        program = m_mesh->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM);
        EXPECT_EQ(m_mesh->getStateSet()->getUniform("center"), nullptr);
        EXPECT_EQ(m_mesh->getStateSet()->getTextureAttribute(1, osg::StateAttribute::TEXTURE),
                  nullptr);
    });
    EXPECT_EQ(program, ShaderManager::instance()->getShader("mesh"));
}

TEST_F(ViewerCutDiscTest, DraggingTheFacePushesTheCutLive)
{
    pressC();
    ASSERT_TRUE(hasDisc());
    QImage image = frames();
    expectSide(image, 0.3f, false, "before the push");

    // A point of the disc's face in front of the square.
    const osg::Vec3d onFace(-0.5 * std::tan(osg::PI / 6.0) * 1.0, 0.3, 0.5);
    const QPoint from = probe(onFace.x(), onFace.y(), onFace.z()).pixel;
    QQuickWindow* window = m_canvas.window().window();
    QTest::mouseMove(window, from);
    frames(1);
    QTest::mousePress(window, Qt::LeftButton, Qt::NoModifier, from);
    frames(1);
    for (int i = 1; i <= 4; ++i) {
        QTest::mouseMove(window, from + QPoint(5 * i, 0));
        frames(1);
    }
    QTest::mouseRelease(window, Qt::LeftButton, Qt::NoModifier, from + QPoint(20, 0));
    image = frames();

    osg::Vec3f center, direction;
    m_canvas.onRenderThread([&](RenderInfo&) {
        m_mesh->getStateSet()->getUniform("center")->get(center);
        m_mesh->getStateSet()->getUniform("direction")->get(direction);
    });
    EXPECT_NEAR((osg::Vec3d(direction) - kNormal).length(), 0.0, 1e-5);
    // Where the moved plane meets the square.
    const float line = (center * direction) / direction.x();
    EXPECT_GT(line, 0.3f) << line;
    ASSERT_LT(line, 0.8f) << line;
    expectSide(image, line - 0.15f, true, "below the pushed line");
    expectSide(image, line + 0.15f, false, "above the pushed line");
}

} // namespace
