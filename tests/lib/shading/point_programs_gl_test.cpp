// The point programs of the catalogue on a live canvas: sizes in pixels, and blue points that
// stand out.
#include "canvas3d_drawable.h"
#include "canvas3d_view.h"
#include "gl_test_support.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"

#include <cmath>
#include <gtest/gtest.h>
#include <osg/Program>

using namespace Vorna::Orvane;
using OrvaneTest::CanvasWindow;
using OrvaneTest::waitUntil;

namespace {

// Lit points are far brighter than the black clear colour; no multisampling blurs their edges.
constexpr int kLitGray = 40;
// A channel that leads by this much decides the hue of a lit pixel.
constexpr int kHueLead = 60;

const osg::Vec3 kTowardCamera(0.0f, -1.0f, 0.0f);
const osg::Vec3 kBlue(0.2f, 0.3f, 0.9f);
const osg::Vec3 kRed(0.9f, 0.3f, 0.2f);

int litPixels(const QImage& image)
{
    int lit = 0;
    for (int y = 0; y < CanvasWindow::kHeight; ++y)
        for (int x = 0; x < CanvasWindow::kCanvasWidth; ++x)
            lit += qGray(image.pixel(x, y)) > kLitGray ? 1 : 0;
    return lit;
}

// Pixels whose blue leads red (sign 1), or red leads blue (sign -1).
int huePixels(const QImage& image, int sign)
{
    int n = 0;
    for (int y = 0; y < CanvasWindow::kHeight; ++y)
        for (int x = 0; x < CanvasWindow::kCanvasWidth; ++x) {
            const QColor c = image.pixelColor(x, y);
            n += sign * (c.blue() - c.red()) > kHueLead ? 1 : 0;
        }
    return n;
}

class PointProgramTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        w.item()->setClearColor(Qt::black);
        ASSERT_TRUE(w.show());
        viewTerms(m_p11, m_width);
        ASSERT_GT(m_p11, 0.0);
        ASSERT_GT(m_width, 0.0);
    }

    // World units of one pixel on the plane y = 0 with the eye at `distance`.
    double pixelAt(double distance) const
    {
        return 2.0 * distance / (m_p11 * CanvasWindow::kHeight);
    }

    // Points facing the camera, drawn by the catalogue's `program`, coloured when `colours`
    // are given.
    osg::MatrixTransform* add(const std::string& program, const std::vector<osg::Vec3>& positions,
                              const std::vector<osg::Vec3>& colours = {})
    {
        osg::ref_ptr<osg::Vec3Array> v = new osg::Vec3Array(positions.begin(), positions.end());
        osg::ref_ptr<osg::Vec3Array> n = new osg::Vec3Array;
        n->resize(positions.size(), kTowardCamera);
        osg::ref_ptr<osg::Vec3Array> c =
            colours.empty() ? nullptr : new osg::Vec3Array(colours.begin(), colours.end());
        osg::ref_ptr<osg::MatrixTransform> points = Point::create(v.get(), n.get(), c.get());
        EXPECT_TRUE(points);
        osg::Program* shader = OrvaneSingleton::instance()->getShaderMgr()->getShader(program);
        EXPECT_TRUE(shader);
        points->getOrCreateStateSet()->setAttributeAndModes(shader);
        EXPECT_TRUE(w.run(nullptr, [points](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->addChild(points.get());
        }));
        m_points = points;
        return points.get();
    }

    // A uniform on the points' state set, replacing one of the same name.
    template <typename T> void set(const char* name, const T& value)
    {
        osg::ref_ptr<osg::MatrixTransform> points = m_points;
        osg::ref_ptr<osg::Uniform> uniform = new osg::Uniform(name, value);
        EXPECT_TRUE(w.run(nullptr, [points, uniform](RenderInfo&) {
            points->getOrCreateStateSet()->addUniform(uniform.get());
        }));
    }

    // The eye on -y at `distance`, looking along +y. The origin lands a quarter pixel off a pixel
    // corner, so that no square edge of a point runs through pixel centres.
    void look(double distance)
    {
        const double quarter = 0.25 * pixelAt(distance);
        const osg::Vec3d centre(-quarter, 0.0, quarter);
        ASSERT_TRUE(
            w.lookAt(centre + osg::Vec3d(0.0, -distance, 0.0), centre, osg::Vec3d(0, 0, 1)));
    }

    // A point `pixels` to the side of the origin at distance 10.
    osg::Vec3 aside(int pixels) const { return at(pixels, 0); }
    // A point `right` pixels to the right of the origin and `up` pixels above it at distance 10.
    osg::Vec3 at(int right, int up) const
    {
        return osg::Vec3(static_cast<float>(right * pixelAt(10.0)), 0.0f,
                         static_cast<float>(up * pixelAt(10.0)));
    }

    // Selection states of the last points added.
    void setStates(const std::vector<GLbyte>& values)
    {
        osg::ref_ptr<osg::MatrixTransform> points = m_points;
        ASSERT_TRUE(w.run(nullptr, [points, values](RenderInfo&) {
            auto* states = DrawableBase::getVertexArray<StateArray>(
                DrawableBase::asGeometry(points.get()), StateSlot);
            std::copy(values.begin(), values.end(), states->begin());
            states->dirty();
        }));
    }

    // A colour table whose row 3 is red and all other rows green, for the whole model.
    void redRowThree()
    {
        osg::ref_ptr<osg::Vec3Array> rows = new osg::Vec3Array;
        rows->resize(5, osg::Vec3(0.0f, 1.0f, 0.0f));
        (*rows)[3] = osg::Vec3(1.0f, 0.0f, 0.0f);
        ASSERT_TRUE(w.run(nullptr, [rows](RenderInfo& info) {
            Mesh::colorIndex(ViewMgr::getModel(info.mainView()), rows.get());
        }));
    }

    // What the size rule takes from the view: P[1][1] and the viewport's width.
    void viewTerms(double& p11, double& width)
    {
        ASSERT_TRUE(w.run(nullptr, [&](RenderInfo& info) {
            const osg::Camera* camera = info.mainView()->getCamera();
            p11 = camera->getProjectionMatrix()(1, 1);
            width = camera->getViewport()->width();
        }));
    }

    CanvasWindow w;
    osg::ref_ptr<osg::MatrixTransform> m_points;
    double m_p11 = 0.0;
    double m_width = 0.0;
};

} // namespace

TEST_F(PointProgramTest, FixedSizeIsThePointSizeInPixels)
{
    add("point", {osg::Vec3()});
    set("useFixedSize", true);
    set("pointSize", 7.0f);
    look(10.0);
    EXPECT_EQ(w.settle(litPixels, 49), 49);
    look(40.0);
    EXPECT_EQ(w.settle(litPixels, 49), 49) << "the distance plays no part";
}

TEST_F(PointProgramTest, SizeGrowsAsTheCameraNears)
{
    add("point", {osg::Vec3()});
    // Distances at which the rule, 0.2 x P[1][1] / distance x width x 0.2, gives 6.5 and 3.25:
    // half-way values, so that rounding up is beyond doubt.
    const double at6p5 = 0.2 * m_p11 * m_width * 0.2 / 6.5;
    look(at6p5);
    EXPECT_EQ(w.settle(litPixels, 49), 49) << "6.5 rounds up to 7";
    look(2.0 * at6p5);
    EXPECT_EQ(w.settle(litPixels, 16), 16) << "3.25 rounds up to 4";
}

TEST_F(PointProgramTest, SizeIsCappedAtTheMaximum)
{
    add("point", {osg::Vec3()});
    // Spacing this wide would ask for hundreds of pixels.
    set("pointDis", 50.0f);
    look(10.0);
    EXPECT_EQ(w.settle(litPixels, 100 * 100), 100 * 100) << "the default cap is 100";
    set("ufMaxPointSize", 9.0f);
    EXPECT_EQ(w.settle(litPixels, 81), 81);
}

TEST_F(PointProgramTest, BluePointsAreDrawnLarger)
{
    add("edit_pointcolor_material", {aside(-20), aside(20)}, {kRed, kBlue});
    set("useFixedSize", true);
    set("pointSize", 5.0f);
    look(10.0);
    EXPECT_EQ(w.settle([](const QImage& i) { return huePixels(i, 1); }, 36), 36)
        << "one pixel larger, in the fixed size too";
    EXPECT_EQ(huePixels(w.grab(), -1), 25);

    set("ufBlueBigger", 3.0f);
    EXPECT_EQ(w.settle([](const QImage& i) { return huePixels(i, 1); }, 64), 64);
    set("ubBlueBigger", false);
    EXPECT_EQ(w.settle([](const QImage& i) { return huePixels(i, 1); }, 25), 25);
}

TEST_F(PointProgramTest, BluePointsComeNearerThanWhatIsJustInFront)
{
    // On one line of sight: the blue point 0.05 behind the red one, less than its 0.1 shift.
    add("edit_pointcolor_material", {osg::Vec3(0, 0, 0), osg::Vec3(0, 0.05f, 0)}, {kRed, kBlue});
    set("useFixedSize", true);
    set("pointSize", 5.0f);
    // Same size, so that only depth decides; switching ubBlueBigger off would stop the move too.
    set("ufBlueBigger", 0.0f);
    look(10.0);
    EXPECT_EQ(w.settle([](const QImage& i) { return huePixels(i, 1); }, 25), 25);
    EXPECT_EQ(huePixels(w.grab(), -1), 0);

    set("ubBlueCloser", false);
    EXPECT_EQ(w.settle([](const QImage& i) { return huePixels(i, -1); }, 25), 25);
    EXPECT_EQ(huePixels(w.grab(), 1), 0);
}

TEST_F(PointProgramTest, ReddishPointsKeepTheirSizeAndPlace)
{
    add("edit_pointcolor_material", {osg::Vec3(0, 0, 0), osg::Vec3(0, 0.05f, 0)},
        {osg::Vec3(0.9f, 0.3f, 0.2f), osg::Vec3(0.5f, 0.9f, 0.4f)});
    set("useFixedSize", true);
    set("pointSize", 5.0f);
    look(10.0);
    // Red leads blue for the front point; the green one behind stays hidden at the same size.
    EXPECT_EQ(w.settle([](const QImage& i) { return huePixels(i, -1); }, 25), 25);
    EXPECT_EQ(w.settle(litPixels, 25), 25);
}

TEST_F(PointProgramTest, EditProgramsHideDeletedPointsAndShowSelectionRows)
{
    redRowThree();
    add("edit_point", {aside(-20), aside(0), aside(20)});
    set("useFixedSize", true);
    set("pointSize", 5.0f);
    setStates({-1, 3, 0});
    look(10.0);
    const auto reddish = [](const QImage& i) { return huePixels(i, -1); };
    EXPECT_EQ(w.settle(reddish, 25), 25) << "state 3 shows row 3";
    EXPECT_EQ(huePixels(w.grab(), 1), 25) << "state 0 keeps the front colour";
    EXPECT_EQ(litPixels(w.grab()), 50) << "state -1 is not drawn";
}

TEST_F(PointProgramTest, CutProgramsPaintBelowThePlaneOnly)
{
    redRowThree();
    // Two points above the plane z = 0, two below; earlier selections play no part.
    add("cut_point", {at(-20, 20), at(20, 20), at(-20, -20), at(20, -20)});
    set("useFixedSize", true);
    set("pointSize", 5.0f);
    set("direction", osg::Vec3f(0.0f, 0.0f, 1.0f));
    set("center", osg::Vec3f());
    set("selectIndex", 3.0f);
    setStates({0, 2, 0, 2});
    look(10.0);
    const auto reddish = [](const QImage& i) { return huePixels(i, -1); };
    EXPECT_EQ(w.settle(reddish, 50), 50) << "both points below take row 3";
    EXPECT_EQ(huePixels(w.grab(), 1), 50) << "both above show the front colour";

    set("selectIndex", 0.0f);
    EXPECT_EQ(w.settle(reddish, 0), 0) << "selectIndex 0 paints nothing";
    EXPECT_EQ(huePixels(w.grab(), 1), 100);
}
