#include "figure_mask.h"

#include "drawselect.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Vorna {
namespace Orvane {
namespace FigureMask {

namespace {

// First pixel index i >= 0 whose centre origin + i + 0.5 is at or beyond `edge`.
int firstCentreAtOrAfter(double edge, double origin)
{
    double f = std::ceil(edge - origin - 0.5);
    if (f < 0.0)
        return 0;
    if (f > 2.0e9)
        return 2000000000;
    int i = static_cast<int>(f);
    // The subtraction may round; settle on the exact comparison the fill rule uses.
    while (i > 0 && origin + (i - 1) + 0.5 >= edge)
        --i;
    while (origin + i + 0.5 < edge)
        ++i;
    return i;
}

} // namespace

void reset(const osg::Vec4i& viewport, std::vector<unsigned char>& mask)
{
    const std::size_t size =
        static_cast<std::size_t>(std::max(viewport.z(), 0)) * std::max(viewport.w(), 0);
    mask.assign(size, 0);
}

void addPolygon(const std::vector<osg::Vec2d>& polygon, const osg::Vec4i& viewport,
                std::vector<unsigned char>& mask)
{
    const int width = viewport.z();
    const int height = viewport.w();
    const std::size_t n = polygon.size();
    if (width <= 0 || height <= 0 || n < 3 ||
        mask.size() < static_cast<std::size_t>(width) * height)
        return;
    const double ox = viewport.x();
    const double oy = viewport.y();

    // Crossings bucketed by row: counted first, then written, so one pass costs no allocation
    // per row.
    std::vector<int> rowStart(static_cast<std::size_t>(height) + 1, 0);
    auto rowRange = [&](const osg::Vec2d& a, const osg::Vec2d& b, int& r0, int& r1) {
        const double lo = std::min(a.y(), b.y());
        const double hi = std::max(a.y(), b.y());
        // Rows whose centre yc has lo <= yc < hi.
        r0 = firstCentreAtOrAfter(lo, oy);
        r1 = std::min(firstCentreAtOrAfter(hi, oy), height);
    };
    for (std::size_t k = 0; k < n; ++k) {
        int r0 = 0;
        int r1 = 0;
        rowRange(polygon[k], polygon[(k + 1) % n], r0, r1);
        for (int r = r0; r < r1; ++r)
            ++rowStart[static_cast<std::size_t>(r) + 1];
    }
    for (int r = 0; r < height; ++r)
        rowStart[static_cast<std::size_t>(r) + 1] += rowStart[static_cast<std::size_t>(r)];
    std::vector<double> xs(static_cast<std::size_t>(rowStart.back()));
    std::vector<int> fill(rowStart.begin(), rowStart.end() - 1);
    for (std::size_t k = 0; k < n; ++k) {
        const osg::Vec2d& a = polygon[k];
        const osg::Vec2d& b = polygon[(k + 1) % n];
        int r0 = 0;
        int r1 = 0;
        rowRange(a, b, r0, r1);
        for (int r = r0; r < r1; ++r) {
            const double yc = oy + r + 0.5;
            xs[static_cast<std::size_t>(fill[static_cast<std::size_t>(r)]++)] =
                a.x() + (yc - a.y()) * (b.x() - a.x()) / (b.y() - a.y());
        }
    }
    for (int r = 0; r < height; ++r) {
        auto begin = xs.begin() + rowStart[static_cast<std::size_t>(r)];
        auto end = xs.begin() + rowStart[static_cast<std::size_t>(r) + 1];
        std::sort(begin, end);
        unsigned char* row = mask.data() + static_cast<std::size_t>(r) * width;
        // A centre is inside when it lies in [x0, x1), [x2, x3), ... of the sorted crossings.
        for (auto it = begin; it + 1 < end; it += 2) {
            const int i0 = std::min(firstCentreAtOrAfter(*it, ox), width);
            const int i1 = std::min(firstCentreAtOrAfter(*(it + 1), ox), width);
            if (i1 > i0)
                std::memset(row + i0, 255, static_cast<std::size_t>(i1 - i0));
        }
    }
}

void addDiscs(const std::vector<osg::Matrixd>& discs, const osg::Vec4i& viewport,
              std::vector<unsigned char>& mask)
{
    const int width = viewport.z();
    const int height = viewport.w();
    if (width <= 0 || height <= 0 || mask.size() < static_cast<std::size_t>(width) * height)
        return;
    for (const osg::Matrixd& m : discs) {
        const double cx = m(3, 0);
        const double cy = m(3, 1);
        const double r = osg::Vec3d(m(0, 0), m(0, 1), m(0, 2)).length();
        const double r2 = r * r;
        const int j0 = std::max(0, static_cast<int>(std::floor(cy - r - viewport.y())) - 1);
        const int j1 = std::min(height - 1, static_cast<int>(std::ceil(cy + r - viewport.y())) + 1);
        const int i0 = std::max(0, static_cast<int>(std::floor(cx - r - viewport.x())) - 1);
        const int i1 = std::min(width - 1, static_cast<int>(std::ceil(cx + r - viewport.x())) + 1);
        for (int j = j0; j <= j1; ++j) {
            const double dy = viewport.y() + j + 0.5 - cy;
            unsigned char* row = mask.data() + static_cast<std::size_t>(j) * width;
            for (int i = i0; i <= i1; ++i) {
                const double dx = viewport.x() + i + 0.5 - cx;
                if (dx * dx + dy * dy <= r2)
                    row[i] = 255;
            }
        }
    }
}

void fromDrawObject(DrawObject* object, const osg::Vec4i& viewport,
                    std::vector<unsigned char>& mask)
{
    reset(viewport, mask);
    if (!object)
        return;
    if (qobject_cast<DrawBrush*>(object) || qobject_cast<DrawCylinder*>(object)) {
        std::vector<osg::Matrixd> discs;
        object->getAllMatrix(discs);
        addDiscs(discs, viewport, mask);
        return;
    }
    osg::Vec3Array* vertices = object->getVertexArray();
    if (!vertices)
        return;
    // Line figures sit in identity transforms; the matrix is applied all the same.
    const osg::Matrixd m = object->getFirstMatrix();
    std::vector<osg::Vec2d> polygon;
    polygon.reserve(vertices->size());
    for (const osg::Vec3f& v : *vertices) {
        const osg::Vec3d p = osg::Vec3d(v) * m;
        polygon.emplace_back(p.x(), p.y());
    }
    addPolygon(polygon, viewport, mask);
}

} // namespace FigureMask
} // namespace Orvane
} // namespace Vorna
