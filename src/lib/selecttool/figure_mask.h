#pragma once

#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec4i>

#include <vector>

namespace Vorna {
namespace Orvane {

class DrawObject;

// Masks for MetalSelect from sketched figures: width x height bytes of the viewport, rows from
// its lower left, 255 where the pixel's centre lies inside the figure and 0 elsewhere. Figure
// coordinates are window pixels with rows from the bottom, as the draw tools give them; pixel
// (i, j) of the mask has its centre at (viewport.x + i + 0.5, viewport.y + j + 0.5). Any thread.
namespace FigureMask {

// Even-odd fill of a closed polygon (rectangle, lasso, polygon of clicks); a centre counts as
// inside when an odd number of edge crossings lie strictly to its right, the crossings being
// taken on edges whose end points straddle the centre's row (one end at or below, one above).
// Fewer than 3 points paint nothing.
void addPolygon(const std::vector<osg::Vec2d>& polygon, const osg::Vec4i& viewport,
                std::vector<unsigned char>& mask);

// Unit discs placed by each matrix (brush stamps, the cylinder's disc): centre = translation,
// radius = the length of the matrix's first row; a centre at distance <= radius is inside.
void addDiscs(const std::vector<osg::Matrixd>& discs, const osg::Vec4i& viewport,
              std::vector<unsigned char>& mask);

// Clears `mask` to the viewport's size and paints the figure of `object`: the discs of a
// brush or cylinder, else the polygon of its vertex array. A figure of no area paints nothing.
void fromDrawObject(DrawObject* object, const osg::Vec4i& viewport,
                    std::vector<unsigned char>& mask);

// A mask of the viewport's size with nothing painted.
void reset(const osg::Vec4i& viewport, std::vector<unsigned char>& mask);

} // namespace FigureMask
} // namespace Orvane
} // namespace Vorna
