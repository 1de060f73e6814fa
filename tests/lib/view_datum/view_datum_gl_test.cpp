// The orientation gizmo on a live canvas: where it stands, what it shows under the pointer, and
// where a click on it turns the camera.
#include "animation_mgr.h"
#include "camera_operations.h"
#include "canvas3d_view.h"
#include "customize_manipulator.h"
#include "fixed_camera_canvas.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "scene_flags.h"
#include "view_datum.h"
#include "view_datum_event_handler.h"
#include "view_datum_operation.h"

#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>
#include <map>
#include <osg/AutoTransform>
#include <osg/ComputeBoundsVisitor>
#include <osgText/Text>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;
using CM = CustomizeManipulator;

namespace {

// Big enough to click a twentieth of it on the small test canvas: 100 pixels at 160 x 120.
constexpr float kSize = 6.0f;

// Eight points around `centre`: a valid bound for the fit the gizmo does.
osg::Geode* pointBox(const osg::Vec3& centre, float half)
{
    osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array;
    for (int i = 0; i < 8; ++i)
        v->push_back(centre + osg::Vec3((i & 1) ? half : -half, (i & 2) ? half : -half,
                                        (i & 4) ? half : -half));
    auto* geometry = new osg::Geometry;
    geometry->setUseVertexArrayObject(true);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseDisplayList(false);
    geometry->setVertexArray(v.get());
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, 8));
    auto* geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

ViewDatum* findDatum(RenderInfo& info)
{
    osgViewer::CompositeViewer* viewer = info.compViewer();
    for (unsigned int i = 0; i < viewer->getNumViews(); ++i) {
        osgViewer::View* view = viewer->getView(i);
        if (view->getName() == "datum" && view->getUserData() == info.mainView())
            return dynamic_cast<ViewDatum*>(view->getSceneData()->asGroup()->getChild(0));
    }
    return nullptr;
}

// Direction of the camera's view and its up vector in the world.
void lookAndUp(const CM* m, osg::Vec3d& look, osg::Vec3d& up)
{
    const osg::Matrixd r = osg::Matrixd::rotate(m->getRotation());
    look = osg::Vec3d(0, 0, -1) * r;
    up = osg::Vec3d(0, 1, 0) * r;
}

class ViewDatumTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(w.show());
        model = pointBox(osg::Vec3(10, 3, 5), 1.0f);
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->addChild(model.get());
            manipulator = dynamic_cast<CM*>(info.mainView()->getCameraManipulator());
        }));
        ASSERT_TRUE(manipulator);
        ASSERT_TRUE(w.run(
            new ViewDatumOperation(nullptr, true, true, false, true, 2.0f, 2.0f, true, kSize)));
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) { datum = findDatum(info); }));
        ASSERT_TRUE(datum);
    }

    // Runs two frames, so that the gizmo has been culled with the present camera.
    void settle()
    {
        w.item()->frame();
        ASSERT_TRUE(w.run(nullptr));
        ASSERT_TRUE(w.run(nullptr));
    }

    // Window pixel (rows from the bottom) where a point in the gizmo's own frame lands.
    osg::Vec2d toWindow(const osg::Vec3d& local)
    {
        osg::Vec3d out;
        w.run(nullptr, [&](RenderInfo&) {
            osg::MatrixTransform* root = datum->getRoot();
            const auto* axis = static_cast<osg::MatrixTransform*>(root->getChild(0));
            out = local * axis->getMatrix() * root->getMatrix() * datum->getViewMatrix() *
                  datum->getProjectionMatrix() * datum->getViewport()->computeWindowMatrix();
        });
        return osg::Vec2d(out.x(), out.y());
    }

    // The middle of a piece's first quad, in the gizmo's own frame: a point on the surface, off
    // the cube's corners where rays slip between triangles.
    osg::Vec3d pieceCentre(const std::string& name)
    {
        osg::Vec3d sum;
        w.run(nullptr, [&](RenderInfo&) {
            osg::Geode* geode = datum->getPlanes().at(name);
            const auto* v = static_cast<const osg::Vec3Array*>(
                geode->getDrawable(0)->asGeometry()->getVertexArray());
            for (size_t i = 0; i < 6 && i < v->size(); ++i)
                sum += osg::Vec3d((*v)[i]) / 6.0;
        });
        return sum;
    }

    // Event coordinates of the canvas count rows from the top.
    osg::Vec2d toEvent(const osg::Vec2d& window) const
    {
        return osg::Vec2d(window.x(), w.item()->height() - window.y());
    }

    void hover(const osg::Vec2d& window)
    {
        const osg::Vec2d e = toEvent(window);
        w.item()->eventQueue()->mouseMotion(e.x(), e.y());
        settle();
    }

    void click(const osg::Vec2d& window)
    {
        const osg::Vec2d e = toEvent(window);
        osgGA::EventQueue* queue = w.item()->eventQueue();
        queue->mouseMotion(e.x(), e.y());
        queue->mouseButtonPress(e.x(), e.y(), 1);
        // A drag after the press would turn the camera if the press had reached it.
        queue->mouseMotion(e.x() + 3, e.y() + 2);
        queue->mouseButtonRelease(e.x() + 3, e.y() + 2, 1);
        settle();
    }

    // The highlighted piece, or "" when none is.
    std::string highlighted()
    {
        std::string name;
        w.run(nullptr, [&](RenderInfo&) {
            for (const auto& entry : datum->getPlanes()) {
                auto* info = dynamic_cast<ViewDatum::PlaneInfo*>(entry.second->getUserData());
                if (info && info->highlighted && entry.second->getName() != "Text")
                    name = entry.first;
            }
        });
        return name;
    }

    // Grabbed colour at a window pixel given with rows from the bottom.
    QColor pixel(const osg::Vec2d& window)
    {
        const QImage image = w.grab();
        return image.pixelColor(int(window.x()), int(w.item()->height()) - 1 - int(window.y()));
    }

    CanvasWindow w;
    osg::ref_ptr<osg::Geode> model;
    CM* manipulator = nullptr;
    osg::ref_ptr<ViewDatum> datum;
};

// Sees each press after the gizmo's handler has, as the camera manipulator does.
class PressRecorder : public osgGA::GUIEventHandler
{
public:
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter&) override
    {
        if (ea.getEventType() == osgGA::GUIEventAdapter::PUSH)
            handled.push_back(ea.getHandled());
        return false;
    }
    std::vector<bool> handled;
};

QColor toQColor(const osg::Vec3f& c)
{
    return QColor::fromRgbF(c.x(), c.y(), c.z());
}

} // namespace

TEST_F(ViewDatumTest, StandsSquareInTheBottomRightCornerAndFollowsAResize)
{
    struct Size {
        int width, height;
    };
    for (const Size s : {Size{160, 120}, Size{120, 100}, Size{150, 60}}) {
        w.item()->setSize(QSizeF(s.width, s.height));
        settle();
        settle();
        osg::Vec4d vp;
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
            const osg::Viewport* v = datum->getViewport();
            vp.set(v->x(), v->y(), v->width(), v->height());
        }));
        const double k = std::min(s.width / 1920.0, s.height / 1080.0);
        const double side = kSize * 200.0 * k;
        // Float layout against double arithmetic.
        EXPECT_NEAR(vp[2], side, 1e-3) << s.width << "x" << s.height;
        EXPECT_NEAR(vp[3], side, 1e-3);
        // Two plain pixels from the right edge; a bottom margin that scales with the gizmo.
        EXPECT_NEAR(vp[0], s.width - side - 2.0, 1e-3);
        EXPECT_NEAR(vp[1], kSize * k * 2.0, 1e-3);
    }
    // Seen from the front the front face fills the gizmo's middle: its colour shows there.
    ASSERT_TRUE(w.run(manipulator->setCameraDirectionTypeOperation(CM::Front, false)));
    settle();
    const osg::Vec2d p = toWindow(osg::Vec3d(0.0, 2.2, 4.376));
    // Flat colour with lighting off; two steps for rounding and the canvas's blit.
    EXPECT_TRUE(OrvaneTest::near(pixel(p), toQColor(ViewDatum::getDefaultPlaneColor()), 3))
        << OrvaneTest::describe(pixel(p));
}

TEST_F(ViewDatumTest, TurnsWithTheMainCameraAndNeverMovesWithIt)
{
    struct Case {
        CM::DirectionType direction;
        const char* face;
    };
    osg::Vec4d first;
    for (const Case c :
         {Case{CM::Front, "viewDatumCubeFront"}, Case{CM::Right, "viewDatumCubeRight"},
          Case{CM::Top, "viewDatumCubeTop"}, Case{CM::Back, "viewDatumCubeBack"}}) {
        ASSERT_TRUE(w.run(manipulator->setCameraDirectionTypeOperation(c.direction, false)));
        settle();
        osg::Vec4d vp;
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
            const osg::Viewport* v = datum->getViewport();
            vp.set(v->x(), v->y(), v->width(), v->height());
        }));
        // The middle of the gizmo shows the face the camera looks at.
        hover(osg::Vec2d(vp[0] + vp[2] * 0.5, vp[1] + vp[3] * 0.55));
        EXPECT_EQ(highlighted(), c.face);
        if (c.direction == CM::Front)
            first = vp;

        // Moving and zooming the main camera changes neither the layout nor the face.
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
            manipulator->setCenter(manipulator->getCenter() + osg::Vec3d(3, -2, 7));
            manipulator->setDistance(manipulator->getDistance() * 4.0);
        }));
        settle();
        hover(osg::Vec2d(vp[0] + vp[2] * 0.5 + 1, vp[1] + vp[3] * 0.55));
        EXPECT_EQ(highlighted(), c.face) << "after a pan and a zoom";
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
            const osg::Viewport* v = datum->getViewport();
            EXPECT_EQ(osg::Vec4d(v->x(), v->y(), v->width(), v->height()), first);
        }));
    }
}

TEST_F(ViewDatumTest, HoverHighlightsThePieceAndLeavingRestoresIt)
{
    ASSERT_TRUE(w.run(manipulator->setCameraDirectionTypeOperation(CM::Front, false)));
    settle();
    const double h = 8.75 * 0.5001;
    // Off the label, inside the face.
    const osg::Vec2d onFace = toWindow(osg::Vec3d(0.0, 2.2, h));
    const osg::Vec2d onOtherFace = toWindow(osg::Vec3d(0.0, -2.2, h));
    const QColor plain = toQColor(ViewDatum::getDefaultPlaneColor());
    const QColor lit = toQColor(ViewDatum::getHightLightPlaneColor());
    // Flat colours; two steps for rounding and the canvas's blit.
    const int tolerance = 3;
    ASSERT_TRUE(OrvaneTest::near(pixel(onFace), plain, tolerance))
        << OrvaneTest::describe(pixel(onFace));

    QSignalSpy region(manipulator, &CM::isMouseInGizemoFitRegion);
    hover(onFace);
    EXPECT_EQ(highlighted(), "viewDatumCubeFront");
    EXPECT_TRUE(OrvaneTest::near(pixel(onFace), lit, tolerance))
        << OrvaneTest::describe(pixel(onFace));
    EXPECT_TRUE(OrvaneTest::near(pixel(onOtherFace), lit, tolerance)) << "the whole face is lit";

    // Over an edge piece only that piece lights; the face goes back.
    const osg::Vec2d onEdge = toWindow(osg::Vec3d(0.0, 0.85 * h, h));
    hover(onEdge);
    EXPECT_EQ(highlighted(), "viewDatumCubeFrontTop");
    EXPECT_TRUE(OrvaneTest::near(pixel(onEdge), lit, tolerance));
    EXPECT_TRUE(OrvaneTest::near(pixel(onFace), plain, tolerance))
        << OrvaneTest::describe(pixel(onFace));

    // Leaving the gizmo restores every colour.
    hover(osg::Vec2d(20, 60));
    EXPECT_EQ(highlighted(), "");
    EXPECT_TRUE(OrvaneTest::near(pixel(onEdge), plain, tolerance))
        << OrvaneTest::describe(pixel(onEdge));
    EXPECT_TRUE(OrvaneTest::near(pixel(onFace), plain, tolerance));
    EXPECT_EQ(region.count(), 0) << "no piece of the cube is the fit region";
}

TEST_F(ViewDatumTest, HomeButtonLightsUpReportsTheFitRegionAndFits)
{
    osg::Vec2d home;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
        const osg::Viewport* v = datum->getViewport();
        float x = 0, y = 0;
        datum->getHomeButtonPos(x, y);
        const double s = datum->getWidth() / datum->getWidthConst();
        // The middle of the 24-pixel quad at the reference width.
        home.set(v->x() + x + 12.0 * kSize * s, v->y() + y + 12.0 * kSize * s);
    }));
    // Seen from the left, with the model off centre.
    ASSERT_TRUE(w.run(manipulator->setCameraDirectionTypeOperation(CM::Left, false)));
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
        manipulator->setCenter(osg::Vec3d(-20, 4, 1));
        manipulator->setDistance(200.0);
    }));
    settle();
    QSignalSpy region(manipulator, &CM::isMouseInGizemoFitRegion);
    hover(home);
    EXPECT_EQ(highlighted(), "viewDatumCubeHome");
    ASSERT_EQ(region.count(), 1);
    EXPECT_TRUE(region.at(0).at(0).toBool());

    const osg::Quat before = manipulator->getRotation();
    click(home);
    ASSERT_TRUE(waitUntil([&] { return !AnimationMgr::instance()->isAnimating(manipulator); }));
    settle();
    // The rotation stays; the centre comes to the model.
    const osg::Vec4d r = (manipulator->getRotation() - before).asVec4();
    EXPECT_NEAR(r.length(), 0.0, 1e-5);
    EXPECT_NEAR((manipulator->getCenter() - model->getBound().center()).length(), 0.0, 1e-4);

    hover(osg::Vec2d(20, 60));
    EXPECT_EQ(region.count(), 2);
    EXPECT_FALSE(region.at(1).at(0).toBool());
}

TEST_F(ViewDatumTest, ClickTurnsTheCameraToThePieceAndTheMainViewDoesNotRotate)
{
    // From front-right-top, the gizmo shows its front, right and top and what lies between.
    ASSERT_TRUE(
        w.run(new LookAtOperation(osg::Vec3f(40, -40, 40), osg::Vec3f(), osg::Vec3f(0, 0, 1))));
    settle();
    struct Case {
        const char* piece;
        osg::Vec3d look, up;
    };
    const double s2 = std::sqrt(0.5), s3 = std::sqrt(1.0 / 3.0);
    // The scene has z up and its front towards -y.
    const osg::Vec3d cornerLook(-s3, s3, -s3);
    const osg::Vec3d cornerUp =
        (osg::Vec3d(0, 0, 1) - cornerLook * (osg::Vec3d(0, 0, 1) * cornerLook)) /
        (osg::Vec3d(0, 0, 1) - cornerLook * (osg::Vec3d(0, 0, 1) * cornerLook)).length();
    const Case cases[] = {
        {"viewDatumCubeFront", {0, 1, 0}, {0, 0, 1}},
        {"viewDatumCubeFrontTop", {0, s2, -s2}, {0, s2, s2}},
        {"viewDatumCubeCorner2", cornerLook, cornerUp},
    };
    osg::ref_ptr<PressRecorder> presses = new PressRecorder;
    ASSERT_TRUE(w.run(new AddEventHandler(presses.get())));
    QSignalSpy rotated(manipulator, &CM::rotated);
    for (const Case& c : cases) {
        ASSERT_TRUE(
            w.run(new LookAtOperation(osg::Vec3f(40, -40, 40), osg::Vec3f(), osg::Vec3f(0, 0, 1))));
        settle();
        const osg::Vec2d at = toWindow(pieceCentre(c.piece));
        hover(at);
        ASSERT_EQ(highlighted(), c.piece) << "the pointer is over the piece";
        click(at);
        bool taken = false;
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
            info.compViewer()->getUserValue("intersect_view_datum", taken);
        }));
        EXPECT_TRUE(taken) << c.piece;
        // Stepped by frames: a quarter second is more frames than the two just drawn.
        EXPECT_TRUE(AnimationMgr::instance()->isAnimating(manipulator)) << "the turn is animated";
        ASSERT_TRUE(waitUntil([&] { return !AnimationMgr::instance()->isAnimating(manipulator); }));
        settle();
        osg::Vec3d look, up;
        lookAndUp(manipulator, look, up);
        // The end of the animation is the target rotation itself.
        EXPECT_NEAR((look - c.look).length(), 0.0, 1e-4) << c.piece;
        EXPECT_NEAR((up - c.up).length(), 0.0, 1e-4) << c.piece;
        EXPECT_NEAR((manipulator->getCenter() - model->getBound().center()).length(), 0.0, 1e-4);
    }
    EXPECT_EQ(rotated.count(), 0) << "the main view must not rotate from a gizmo click";
    ASSERT_EQ(presses->handled.size(), 3u);
    for (bool handled : presses->handled)
        EXPECT_TRUE(handled) << "a press on the gizmo is taken before the camera sees it";

    // The same press and drag elsewhere does rotate, and is not the gizmo's.
    click(osg::Vec2d(30, 60));
    bool taken = true;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
        info.compViewer()->getUserValue("intersect_view_datum", taken);
    }));
    EXPECT_FALSE(taken);
    EXPECT_GT(rotated.count(), 0);
    ASSERT_EQ(presses->handled.size(), 4u);
    EXPECT_FALSE(presses->handled.back());
}

TEST_F(ViewDatumTest, DuringAScanAClickJumpsWithoutAnimation)
{
    ASSERT_TRUE(w.run(manipulator->setCameraDirectionTypeOperation(CM::Front, false)));
    settle();
    const osg::Vec2d onTop = toWindow(pieceCentre("viewDatumCubeFrontTop"));
    OrvaneTest::LogCapture log;
    SceneFlags::setScanState(true);
    click(onTop);
    const bool animating = AnimationMgr::instance()->isAnimating(manipulator);
    osg::Vec3d look, up;
    lookAndUp(manipulator, look, up);
    SceneFlags::setScanState(false);
    SceneFlags::takeScanStateChanged();
    EXPECT_FALSE(animating);
    EXPECT_TRUE(log.contains("animation time is less than 0, no animation"));
    const double s2 = std::sqrt(0.5);
    EXPECT_NEAR((look - osg::Vec3d(0, s2, -s2)).length(), 0.0, 1e-4);
    EXPECT_NEAR((up - osg::Vec3d(0, s2, s2)).length(), 0.0, 1e-4);
}

TEST_F(ViewDatumTest, FacesShowTheirWordsAndAxesTheirLetters)
{
    // A word on every face in the text colour, a letter at the end of every axis in its colour.
    const std::pair<const char*, const char*> words[] = {
        {"viewDatumCubeFront", "Front"}, {"viewDatumCubeBack", "Back"},
        {"viewDatumCubeLeft", "Left"},   {"viewDatumCubeRight", "Right"},
        {"viewDatumCubeTop", "Top"},     {"viewDatumCubeBottom", "Bottom"}};
    std::map<std::string, osg::Vec4> letterColor;
    std::map<std::string, osg::Vec3d> letterAt;
    ASSERT_TRUE(w.run(nullptr, [&](RenderInfo&) {
        for (const auto& word : words) {
            const auto it = datum->getPlanes().find(std::string(word.first) + "Text");
            if (it == datum->getPlanes().end()) {
                ADD_FAILURE() << "no word on " << word.first;
                continue;
            }
            EXPECT_EQ(it->second->getName(), "Text");
            const auto* text = dynamic_cast<const osgText::Text*>(it->second->getDrawable(0));
            if (!text) {
                ADD_FAILURE() << "no text drawable on " << word.first;
                continue;
            }
            EXPECT_EQ(text->getText().createUTF8EncodedString(), word.second);
            EXPECT_EQ(text->getColor(), ViewDatum::getDefaultTextColor());
        }
        osg::Group* axes = datum->getRoot()->getChild(0)->asGroup();
        for (unsigned int i = 0; i < axes->getNumChildren(); ++i) {
            const auto* at = dynamic_cast<const osg::AutoTransform*>(axes->getChild(i));
            const osg::Geode* geode = at ? at->getChild(0)->asGeode() : nullptr;
            const auto* text =
                geode ? dynamic_cast<const osgText::Text*>(geode->getDrawable(0)) : nullptr;
            if (!text || geode->getName() != "Text")
                continue;
            letterColor[text->getText().createUTF8EncodedString()] = text->getColor();
            letterAt[text->getText().createUTF8EncodedString()] = at->getPosition();
        }
    }));
    ASSERT_EQ(letterColor.size(), 3u);
    EXPECT_EQ(letterColor["X"], osg::Vec4(0.9f, 0.2f, 0.2f, 1.0f));
    EXPECT_EQ(letterColor["Y"], osg::Vec4(0.2f, 0.9f, 0.2f, 1.0f));
    EXPECT_EQ(letterColor["Z"], osg::Vec4(0.2f, 0.2f, 0.9f, 1.0f));

    // Seen head on, the front face shows its word: pixels far darker than the plain face.
    ASSERT_TRUE(w.run(manipulator->setCameraDirectionTypeOperation(CM::Front, false)));
    settle();
    const osg::Vec2d face = toWindow(pieceCentre("viewDatumCubeFront"));
    std::map<std::string, osg::Vec2d> letterWindow;
    for (const auto& letter : letterAt)
        letterWindow[letter.first] = toWindow(letter.second);
    const QImage image = w.grab();
    const auto at = [&](int x, int y) {
        return image.pixelColor(x, int(w.item()->height()) - 1 - y);
    };
    int plain = 0, word = 0;
    for (int dy = -6; dy <= 6; ++dy)
        for (int dx = -6; dx <= 6; ++dx) {
            const QColor c = at(int(face.x()) + dx, int(face.y()) + dy);
            // The face is 0.7 grey (179) and the word 0.3 (77); glyph edges blend the two, so
            // 140 tells a stroke from the face and 20 allows for that blending on the face.
            plain += OrvaneTest::near(c, QColor(179, 179, 179), 20) ? 1 : 0;
            word += std::max({c.red(), c.green(), c.blue()}) < 140 ? 1 : 0;
        }
    EXPECT_GT(plain, 0) << "the front face is not where expected";
    EXPECT_GT(word, 0) << "no word on the front face";

    // The letters of the two axes across the view stand beside the cube in their colours.
    int checked = 0;
    for (const auto& letter : letterWindow) {
        if ((letter.second - face).length() < 15.0)
            continue; // the axis towards or away from the eye, in front of or behind the cube
        ++checked;
        const osg::Vec4 want = letterColor[letter.first];
        const int channel = want.r() > 0.5f ? 0 : (want.g() > 0.5f ? 1 : 2);
        int hits = 0;
        for (int dy = -4; dy <= 4; ++dy)
            for (int dx = -4; dx <= 4; ++dx) {
                const QColor c = at(int(letter.second.x()) + dx, int(letter.second.y()) + dy);
                const int v[3] = {c.red(), c.green(), c.blue()};
                // Strokes blend into the background at their edges: the letter's own channel
                // standing 60 above the other two marks its colour.
                hits +=
                    v[channel] > v[(channel + 1) % 3] + 60 && v[channel] > v[(channel + 2) % 3] + 60
                        ? 1
                        : 0;
            }
        EXPECT_GT(hits, 0) << "no " << letter.first << " beside the cube";
    }
    EXPECT_EQ(checked, 2);
}
