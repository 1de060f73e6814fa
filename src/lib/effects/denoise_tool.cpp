#include "denoise_tool.h"

#include "screen_pass.h"

namespace {

const char* const g_denoiseFragment = R"(#version 410 core
in vec2 texCoord;
uniform sampler2D tex;
// Device pixels of the view; the scene keeps it current.
uniform vec4 viewport = vec4(0.0, 0.0, 1.0, 1.0);
uniform float threshold = 0.25;
uniform int diffCount = 18;
out vec4 fragColor;

void main()
{
    vec4 centre = texture(tex, texCoord);
    // Bright-but-not-white pixels and empty ones are never speckle.
    bool bright = any(greaterThan(centre.rgb, vec3(0.6))) || centre.a == 0.0;
    if (bright && all(lessThan(centre.rgb, vec3(0.8)))) {
        fragColor = centre;
        return;
    }
    vec2 stepSize = vec2(1.0 / viewport.z, 1.0 / viewport.w);
    vec4 sum = vec4(0.0);
    int count = 0;
    for (int y = -2; y <= 2; ++y) {
        for (int x = -2; x <= 2; ++x) {
            vec4 texel = texture(tex, texCoord + vec2(float(x), float(y)) * stepSize);
            if (texel.a < 0.5 || distance(texel.rgb, centre.rgb) < threshold)
                continue;
            sum += texel;
            ++count;
        }
    }
    // A pixel unlike most of its window is noise and takes the mean of those it differs from.
    fragColor = count < diffCount ? centre : sum / float(count);
}
)";

} // namespace

namespace Vorna {
namespace Orvane {

osg::Program* DenoiseTool::program()
{
    return ScreenPass::passProgram("denoise", g_denoiseFragment);
}

osg::ref_ptr<osg::Geode> DenoiseTool::createScreenDenoiseNode()
{
    osg::ref_ptr<osg::Geode> geode =
        ScreenPass::createPassNode("denoise_rect", program(), new DenoiseNodeDrawCallback);
    osg::StateSet* ss = geode->getOrCreateStateSet();
    ss->addUniform(new osg::Uniform("threshold", 0.25f));
    ss->addUniform(new osg::Uniform("diffCount", 18));
    return geode;
}

void DenoiseTool::DenoiseNodeDrawCallback::drawImplementation(osg::RenderInfo& renderInfo,
                                                              const osg::Drawable* drawable) const
{
    ScreenPass::drawOverFramebuffer(
        renderInfo, drawable, [&] { return getFboTexture(renderInfo); }, m_copy,
        "draw denoise node failed");
}

GLuint DenoiseTool::DenoiseNodeDrawCallback::getFboTexture(osg::RenderInfo& renderInfo) const
{
    return ScreenPass::fboTexture(renderInfo);
}

} // namespace Orvane
} // namespace Vorna
