// Rasterising a sketched figure into a selection mask. Needs no GL.
// Run: build/bench/mask_bench
// Each figure is the median of 9 timed runs after one warm-up run; a run includes clearing the
// mask.
#include "figure_mask.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

using namespace Vorna::Orvane;

namespace {

double nowMs()
{
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

// A hand-drawn-like lasso: a wobbling loop over most of the viewport.
std::vector<osg::Vec2d> lasso(int n, int width, int height)
{
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> wobble(0.6, 1.0);
    std::vector<osg::Vec2d> p;
    for (int k = 0; k < n; ++k) {
        const double a = 2.0 * M_PI * k / n;
        const double r = wobble(rng);
        p.emplace_back(width / 2.0 + r * width / 2.0 * std::cos(a),
                       height / 2.0 + r * height / 2.0 * std::sin(a));
    }
    return p;
}

} // namespace

int main()
{
    const osg::Vec4i viewport(0, 0, 1280, 1024);
    const std::vector<osg::Vec2d> polygon = lasso(2000, viewport.z(), viewport.w());
    std::vector<unsigned char> mask;
    std::vector<double> times;
    for (int run = 0; run < 10; ++run) {
        const double t0 = nowMs();
        FigureMask::reset(viewport, mask);
        FigureMask::addPolygon(polygon, viewport, mask);
        const double t1 = nowMs();
        if (run > 0)
            times.push_back(t1 - t0);
    }
    std::sort(times.begin(), times.end());
    std::printf("mask_ms_lasso_2000 %.3f ms\n", times[times.size() / 2]);
    return 0;
}
