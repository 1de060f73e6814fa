#pragma once

#include <osg/Drawable>
#include <osg/RenderInfo>

namespace Vorna {
namespace Orvane {

// A GL program keeps the last value given to a uniform, so a uniform that one node sets would
// stay for every later node drawn with the same program, and removing it would not bring the
// GLSL initialiser back. Before a draw, this gives the current program its initialiser for every
// uniform that no state set on the stack provides.
class UniformDefaults
{
public:
    static void restore(osg::RenderInfo& renderInfo, const osg::Drawable* drawable);
};

// Draws the drawable after restoring the defaults; the factories' geometries carry it.
class UniformDefaultsDrawCallback : public osg::Drawable::DrawCallback
{
public:
    void drawImplementation(osg::RenderInfo& renderInfo,
                            const osg::Drawable* drawable) const override;
};

} // namespace Orvane
} // namespace Vorna
