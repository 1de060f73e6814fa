// Masks from figures against a point-in-polygon and a distance test at every pixel centre of
// the viewport.
#include "drawselect.h"
#include "figure_mask.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

using namespace Vorna::Orvane;

namespace {

// Even-odd crossing test of one point.
bool insidePolygon(const std::vector<osg::Vec2d>& p, double x, double y)
{
    bool inside = false;
    const std::size_t n = p.size();
    for (std::size_t k = 0; k < n; ++k) {
        const osg::Vec2d& a = p[k];
        const osg::Vec2d& b = p[(k + 1) % n];
        if ((a.y() > y) != (b.y() > y) &&
            x < a.x() + (y - a.y()) * (b.x() - a.x()) / (b.y() - a.y()))
            inside = !inside;
    }
    return inside;
}

// Counts the pixels where the mask and the reference disagree.
int mismatches(const std::vector<unsigned char>& mask, const osg::Vec4i& vp,
               const std::function<bool(double, double)>& reference, int* painted = nullptr)
{
    int bad = 0;
    int count = 0;
    for (int j = 0; j < vp.w(); ++j)
        for (int i = 0; i < vp.z(); ++i) {
            const unsigned char v = mask[static_cast<std::size_t>(j) * vp.z() + i];
            EXPECT_TRUE(v == 0 || v == 255);
            const bool want = reference(vp.x() + i + 0.5, vp.y() + j + 0.5);
            bad += (v == 255) != want;
            count += v == 255;
        }
    if (painted)
        *painted = count;
    return bad;
}

// A star-shaped lasso with a random radius per vertex: concave, with edges of every slope.
std::vector<osg::Vec2d> randomLasso(int n, double cx, double cy, double rMin, double rMax,
                                    unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> r(rMin, rMax);
    std::vector<osg::Vec2d> p;
    for (int k = 0; k < n; ++k) {
        const double a = 2.0 * M_PI * k / n;
        const double rad = r(rng);
        p.emplace_back(cx + rad * std::cos(a), cy + rad * std::sin(a));
    }
    return p;
}

TEST(FigureMaskTest, LassoOfTwoThousandVerticesIsExactAtEveryPixelCentre)
{
    const osg::Vec4i vp(0, 0, 1280, 1024);
    std::vector<unsigned char> mask;
    FigureMask::reset(vp, mask);
    // Reaches past the viewport on every side.
    const auto lasso = randomLasso(2000, 640.0, 512.0, 100.0, 900.0, 7);
    FigureMask::addPolygon(lasso, vp, mask);
    // The crossing test of every centre, over only the edges that span its row (the others
    // never toggle it), to keep 1.3 million tests quick.
    double rowY = -1.0;
    std::vector<osg::Vec2d> spanning;
    auto insideLasso = [&](double x, double y) {
        if (y != rowY) {
            rowY = y;
            spanning.clear();
            for (std::size_t k = 0; k < lasso.size(); ++k) {
                const osg::Vec2d& a = lasso[k];
                const osg::Vec2d& b = lasso[(k + 1) % lasso.size()];
                if ((a.y() > y) != (b.y() > y)) {
                    spanning.push_back(a);
                    spanning.push_back(b);
                }
            }
        }
        bool inside = false;
        for (std::size_t k = 0; k < spanning.size(); k += 2) {
            const osg::Vec2d& a = spanning[k];
            const osg::Vec2d& b = spanning[k + 1];
            if (x < a.x() + (y - a.y()) * (b.x() - a.x()) / (b.y() - a.y()))
                inside = !inside;
        }
        return inside;
    };
    int painted = 0;
    EXPECT_EQ(mismatches(mask, vp, insideLasso, &painted), 0);
    EXPECT_GT(painted, 100000);
}

TEST(FigureMaskTest, VerticesOnPixelCentresAndSelfCrossings)
{
    const osg::Vec4i vp(0, 0, 64, 48);
    // A bow tie whose corners and crossing sit exactly on pixel centres and edges.
    const std::vector<osg::Vec2d> bowTie{{4.5, 4.5}, {40.5, 30.5}, {40.5, 4.5}, {4.5, 30.5}};
    // Integer corners: rectangle edges lie on pixel borders.
    const std::vector<osg::Vec2d> rect{{10, 10}, {10, 20}, {30, 20}, {30, 10}};
    // Horizontal edges on a row of centres.
    const std::vector<osg::Vec2d> flat{
        {0.5, 5.5}, {60.5, 5.5}, {60.5, 40.5}, {30.5, 5.5}, {0.5, 40.5}};
    for (const auto& polygon : {bowTie, rect, flat}) {
        std::vector<unsigned char> mask;
        FigureMask::reset(vp, mask);
        FigureMask::addPolygon(polygon, vp, mask);
        EXPECT_EQ(
            mismatches(mask, vp, [&](double x, double y) { return insidePolygon(polygon, x, y); }),
            0);
    }
    // The rectangle covers exactly 20 x 10 pixels.
    std::vector<unsigned char> mask;
    FigureMask::reset(vp, mask);
    FigureMask::addPolygon(rect, vp, mask);
    int painted = 0;
    mismatches(
        mask, vp, [&](double x, double y) { return insidePolygon(rect, x, y); }, &painted);
    EXPECT_EQ(painted, 200);
    EXPECT_EQ(mask[10 * 64 + 10], 255);
    EXPECT_EQ(mask[19 * 64 + 29], 255);
    EXPECT_EQ(mask[20 * 64 + 10], 0);
}

TEST(FigureMaskTest, ViewportOffsetAndDegenerateFigures)
{
    const osg::Vec4i vp(100, 50, 200, 100);
    const auto lasso = randomLasso(300, 200.0, 100.0, 10.0, 90.0, 3);
    std::vector<unsigned char> mask;
    FigureMask::reset(vp, mask);
    ASSERT_EQ(mask.size(), 20000u);
    FigureMask::addPolygon(lasso, vp, mask);
    EXPECT_EQ(mismatches(mask, vp, [&](double x, double y) { return insidePolygon(lasso, x, y); }),
              0);

    std::vector<unsigned char> empty;
    FigureMask::reset(vp, empty);
    FigureMask::addPolygon({{110, 60}, {200, 140}}, vp, empty);
    FigureMask::addPolygon({}, vp, empty);
    for (unsigned char v : empty)
        ASSERT_EQ(v, 0);
    // A mask of the wrong size is left alone rather than overrun.
    std::vector<unsigned char> small(10, 0);
    FigureMask::addPolygon(lasso, vp, small);
    FigureMask::addDiscs({osg::Matrixd::translate(150, 60, 0)}, vp, small);
    EXPECT_EQ(small, std::vector<unsigned char>(10, 0));
}

TEST(FigureMaskTest, DiscsAreExactAtEveryPixelCentre)
{
    const osg::Vec4i vp(0, 0, 320, 240);
    std::vector<osg::Matrixd> discs{
        osg::Matrixd::scale(10, 10, 1) * osg::Matrixd::translate(50.5, 60.5, 0),
        osg::Matrixd::scale(33.3, 33.3, 1) * osg::Matrixd::translate(300.2, 10.7, 0),
        osg::Matrixd::scale(4, 4, 1) * osg::Matrixd::translate(-2, 120, 0)};
    std::vector<unsigned char> mask;
    FigureMask::reset(vp, mask);
    FigureMask::addDiscs(discs, vp, mask);
    auto inside = [&](double x, double y) {
        for (const auto& m : discs) {
            const double r = m(0, 0);
            const double dx = x - m(3, 0);
            const double dy = y - m(3, 1);
            if (dx * dx + dy * dy <= r * r)
                return true;
        }
        return false;
    };
    EXPECT_EQ(mismatches(mask, vp, inside), 0);
    // Radius 10 about a pixel centre: the centre 10 pixels right is on the rim and counts.
    EXPECT_EQ(mask[60 * 320 + 60], 255);
    EXPECT_EQ(mask[60 * 320 + 61], 0);
}

TEST(FigureMaskTest, FromTheFiguresOfTheDrawTools)
{
    const osg::Vec4i vp(0, 0, 200, 100);
    osg::ref_ptr<osg::Group> overlay = new osg::Group;
    std::vector<unsigned char> mask;

    DrawRectangle rect(overlay.get());
    rect.startDraw(osg::Vec2f(20, 10));
    rect.updateDraw(osg::Vec2f(60, 50));
    FigureMask::fromDrawObject(&rect, vp, mask);
    int painted = 0;
    mismatches(
        mask, vp, [](double x, double y) { return x > 20 && x < 60 && y > 10 && y < 50; },
        &painted);
    EXPECT_EQ(painted, 40 * 40);

    DrawBrush brush(overlay.get());
    brush.enterDraw(osg::Vec2f(100, 50));
    ASSERT_TRUE(brush.setRadius(10.0f));
    FigureMask::fromDrawObject(&brush, vp, mask);
    EXPECT_EQ(mask[50 * 200 + 100], 255);
    EXPECT_EQ(mask[50 * 200 + 115], 0);

    DrawPoint point(overlay.get());
    FigureMask::fromDrawObject(&point, vp, mask);
    EXPECT_EQ(mask, std::vector<unsigned char>(200 * 100, 0));
    FigureMask::fromDrawObject(nullptr, vp, mask);
    EXPECT_EQ(mask.size(), 20000u);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
