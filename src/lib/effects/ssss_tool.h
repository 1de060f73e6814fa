#pragma once

// Screen-space subsurface scattering for skin: the models are drawn once more by their own
// programs ("pbr_bsdf") into diffuse, specular and depth targets and once by "ssss_mask", the
// diffuse is blurred along x into an image of its own, and a last quad blurs that along y, adds
// the specular and lays the result over the finished frame where the mask is green.
// Build on any thread; the node culls and draws on the render thread.
#include <osg/Group>

namespace Vorna {
namespace Orvane {

class SSSSTool
{
public:
    // The rig over `models`, a group named "ssss" to put under the view's other-nodes group.
    // Every model scatters unless it carries `bEnableSSSS` false; one that "pbr_bsdf" doesn't
    // draw writes no depth target and must. Give the value to each model that differs from the
    // last drawn: a program keeps what it was last set to.
    // `worldUnitsPerMm` gives the models' scale: the blur kernel is measured in millimetres of
    // skin, and at the shader's default `sssWidth` one of them spans that many world units.
    static osg::ref_ptr<osg::Group> createSSSSNode(osg::Group* models,
                                                   float worldUnitsPerMm = 1.0f);
};

} // namespace Orvane
} // namespace Vorna
