#pragma once

// Fast approximate antialiasing as a full-screen pass over the canvas's own colour texture.
// Build on any thread; the node draws on the render thread.
#include <GL/gl.h>
#include <osg/Drawable>
#include <osg/Geode>
#include <osg/Program>
#include <osg/Texture2D>

namespace Vorna {
namespace Orvane {

class FXAATool
{
public:
    // A geode named "fxaa_rect" holding the quad with the FXAA program and its draw callback.
    static osg::ref_ptr<osg::Geode> createFXAANode();
    // The program the node uses; one per process, its sources embedded.
    static osg::Program* program();
};

} // namespace Orvane
} // namespace Vorna

// Draws the quad over the framebuffer's colour texture; steps aside, with a log line, when the
// framebuffer is multisampled or can't be found.
class FxAANodeDrawCallback : public osg::Drawable::DrawCallback
{
public:
    void drawImplementation(osg::RenderInfo& renderInfo,
                            const osg::Drawable* drawable) const override;
    GLuint getFboTexture(osg::RenderInfo& renderInfo) const;

private:
    mutable osg::ref_ptr<osg::Texture2D> m_copy;
};
