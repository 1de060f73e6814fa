#pragma once

// A median-like screen pass against the speckle of point rendering, over the canvas's own colour
// texture. Build on any thread; the node draws on the render thread.
#include <GL/gl.h>
#include <osg/Drawable>
#include <osg/Geode>
#include <osg/Program>
#include <osg/Texture2D>

namespace Vorna {
namespace Orvane {

class DenoiseTool
{
public:
    // A geode named "denoise_rect": the quad with the denoise program, its draw callback, and
    // the uniforms `threshold` (0.25) and `diffCount` (18) on its state set.
    static osg::ref_ptr<osg::Geode> createScreenDenoiseNode();
    // The program the node uses; one per process, its sources embedded.
    static osg::Program* program();

    class DenoiseNodeDrawCallback : public osg::Drawable::DrawCallback
    {
    public:
        void drawImplementation(osg::RenderInfo& renderInfo,
                                const osg::Drawable* drawable) const override;
        GLuint getFboTexture(osg::RenderInfo& renderInfo) const;

    private:
        mutable osg::ref_ptr<osg::Texture2D> m_copy;
    };
};

} // namespace Orvane
} // namespace Vorna
