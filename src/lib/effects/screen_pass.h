#pragma once

// What the FXAA and denoise rectangles share: the quad, and drawing it over a copy of the
// canvas's colour texture. Render thread.
#include <GL/gl.h>
#include <functional>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Program>
#include <osg/RenderInfo>
#include <osg/Texture2D>
#include <string>

namespace Vorna {
namespace Orvane {
namespace ScreenPass {

// The program of a pass, built on first use from the shared quad vertex stage and `fragment`;
// one per name, shared by every node of that pass.
osg::Program* passProgram(const std::string& name, const char* fragment);

// The pass's quad with `program`, drawn by `callback`, alone in a geode named `name`.
osg::ref_ptr<osg::Geode> createPassNode(const std::string& name, osg::Program* program,
                                        osg::Drawable::DrawCallback* callback);

// A clip-space quad with `program`, sampler "tex" on unit 0, always passing depth without
// writing it, blending on, no bounds and no culling.
osg::ref_ptr<osg::Geometry> createRect(osg::Program* program);

// The colour texture of the canvas that drew `renderInfo`, or 0 with a log line: a missing view,
// viewer or RenderInfo, or a multisampled framebuffer, whose texture can't be sampled.
GLuint fboTexture(osg::RenderInfo& renderInfo);

// Steps of a draw callback: takes the function table, then the framebuffer's colour from
// `texture`, binds it (copied first, so that the pass never samples what it draws into), draws,
// and puts the old binding back.
void drawOverFramebuffer(osg::RenderInfo& renderInfo, const osg::Drawable* drawable,
                         const std::function<GLuint()>& texture, osg::ref_ptr<osg::Texture2D>& copy,
                         const char* failedLine);

} // namespace ScreenPass
} // namespace Orvane
} // namespace Vorna
