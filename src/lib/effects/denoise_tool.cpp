#include "denoise_tool.h"

#include "screen_pass.h"

#include <OpenThreads/Mutex>
#include <OpenThreads/ScopedLock>

namespace {

const char* const g_rectVertex = R"(#version 410 core
layout(location = 0) in vec3 vertex;
layout(location = 1) in vec2 vTexCoord;
out vec2 texCoord;
void main()
{
    texCoord = vTexCoord;
    gl_Position = vec4(vertex, 1.0);
}
)";

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
    static OpenThreads::Mutex mutex;
    static osg::ref_ptr<osg::Program> program;
    OpenThreads::ScopedLock<OpenThreads::Mutex> lock(mutex);
    if (!program) {
        program = new osg::Program;
        program->setName("denoise");
        program->addShader(new osg::Shader(osg::Shader::VERTEX, g_rectVertex));
        program->addShader(new osg::Shader(osg::Shader::FRAGMENT, g_denoiseFragment));
    }
    return program.get();
}

osg::ref_ptr<osg::Geode> DenoiseTool::createScreenDenoiseNode()
{
    osg::ref_ptr<osg::Geometry> rect = ScreenPass::createRect(program());
    rect->setDrawCallback(new DenoiseNodeDrawCallback);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setName("denoise_rect");
    geode->addDrawable(rect.get());
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
