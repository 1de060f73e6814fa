#include "fxaa_tool.h"

#include "screen_pass.h"

namespace {

const char* const g_fxaaFragment = R"(#version 410 core
in vec2 texCoord;
uniform sampler2D tex;
// Device pixels of the view; the scene keeps it current.
uniform vec4 viewport = vec4(0.0, 0.0, 1.0, 1.0);
out vec4 fragColor;

const float relativeContrastThreshold = 0.125;
const float hardContrastThreshold = 0.045;
const float subpixelBlendLimit = 0.75;
const float subpixelContrastThreshold = 0.25;
const int endpointSearchIterations = 12;
const vec3 lumWeights = vec3(0.299, 0.587, 0.114);
// The canvas's background: empty texels blend against it rather than against black.
const vec3 backColor = vec3(0.117647, 0.117647, 0.117647);

vec4 textureWithBackColor(vec2 uv)
{
    vec4 c = texture(tex, uv);
    if (c.a == 0.0)
        c.rgb = backColor;
    return c;
}

float lum(vec3 c)
{
    return dot(c, lumWeights);
}

float lumAt(vec2 uv)
{
    return lum(textureWithBackColor(uv).rgb);
}

void main()
{
    vec2 stepSize = vec2(1.0 / viewport.z, 1.0 / viewport.w);
    vec4 centre = textureWithBackColor(texCoord);
    vec3 rgbN = textureWithBackColor(texCoord + vec2(0.0, -stepSize.y)).rgb;
    vec3 rgbS = textureWithBackColor(texCoord + vec2(0.0, stepSize.y)).rgb;
    vec3 rgbW = textureWithBackColor(texCoord + vec2(-stepSize.x, 0.0)).rgb;
    vec3 rgbE = textureWithBackColor(texCoord + vec2(stepSize.x, 0.0)).rgb;
    float lumC = lum(centre.rgb);
    float lumN = lum(rgbN);
    float lumS = lum(rgbS);
    float lumW = lum(rgbW);
    float lumE = lum(rgbE);

    float lumMax = max(lumC, max(max(lumN, lumS), max(lumW, lumE)));
    float lumMin = min(lumC, min(min(lumN, lumS), min(lumW, lumE)));
    float lumRange = lumMax - lumMin;
    if (lumRange < max(hardContrastThreshold, relativeContrastThreshold * lumMax)) {
        fragColor = centre;
        return;
    }

    vec3 rgbNW = textureWithBackColor(texCoord + vec2(-stepSize.x, -stepSize.y)).rgb;
    vec3 rgbNE = textureWithBackColor(texCoord + vec2(stepSize.x, -stepSize.y)).rgb;
    vec3 rgbSW = textureWithBackColor(texCoord + vec2(-stepSize.x, stepSize.y)).rgb;
    vec3 rgbSE = textureWithBackColor(texCoord + vec2(stepSize.x, stepSize.y)).rgb;
    float lumNW = lum(rgbNW);
    float lumNE = lum(rgbNE);
    float lumSW = lum(rgbSW);
    float lumSE = lum(rgbSE);

    // Sub-pixel aliasing: a lone pixel against its neighbours blends towards the 3x3 mean.
    float lumSubRange = abs((lumN + lumS + lumW + lumE) * 0.25 - lumC);
    float blendSub = max(0.0, lumSubRange / lumRange - subpixelContrastThreshold);
    blendSub = min(subpixelBlendLimit, blendSub / subpixelBlendLimit);
    vec3 rgbSub = (centre.rgb + rgbN + rgbS + rgbW + rgbE + rgbNW + rgbNE + rgbSW + rgbSE) / 9.0;

    float edgeVert = (2.0 * abs(-2.0 * lumC + lumW + lumE) + abs(-2.0 * lumN + lumNW + lumNE) +
                      abs(-2.0 * lumS + lumSW + lumSE)) / 12.0;
    float edgeHorz = (2.0 * abs(-2.0 * lumC + lumN + lumS) + abs(-2.0 * lumW + lumNW + lumSW) +
                      abs(-2.0 * lumE + lumNE + lumSE)) / 12.0;
    bool horzSpan = edgeHorz >= edgeVert;

    float lum1 = horzSpan ? lumN : lumW;
    float lum2 = horzSpan ? lumS : lumE;
    vec2 lengthSign = horzSpan ? vec2(0.0, -stepSize.y) : vec2(-stepSize.x, 0.0);
    float lumHC = lum1;
    if (abs(lum2 - lumC) > abs(lum1 - lumC)) {
        lumHC = lum2;
        lengthSign = -lengthSign;
    }

    // Walk along the edge both ways until either row stops looking like its side of the edge.
    vec2 along = horzSpan ? vec2(stepSize.x, 0.0) : vec2(0.0, stepSize.y);
    float dstN = float(endpointSearchIterations);
    float dstP = float(endpointSearchIterations);
    float lumCN = lumC;
    float lumCP = lumC;
    bool doneN = false;
    bool doneP = false;
    for (int i = 1; i <= endpointSearchIterations; ++i) {
        if (!doneN) {
            vec2 uv = texCoord - along * float(i);
            float lumHCN = lumAt(uv + lengthSign);
            lumCN = lumAt(uv);
            if (abs(lumHCN - lumHC) > abs(lumHCN - lumC) || abs(lumCN - lumC) > abs(lumCN - lumHC)) {
                doneN = true;
                dstN = float(i);
            }
        }
        if (!doneP) {
            vec2 uv = texCoord + along * float(i);
            float lumHCP = lumAt(uv + lengthSign);
            lumCP = lumAt(uv);
            if (abs(lumHCP - lumHC) > abs(lumHCP - lumC) || abs(lumCP - lumC) > abs(lumCP - lumHC)) {
                doneP = true;
                dstP = float(i);
            }
        }
        if (doneN && doneP)
            break;
    }

    float lumCNear = dstN < dstP ? lumCN : lumCP;
    bool needEdgeAA = abs(lumCNear - lumHC) < abs(lumCNear - lumC);
    float pixelOffset = -min(dstN, dstP) / (dstN + dstP) + 0.5;
    vec3 rgbEdgeAA = needEdgeAA ? textureWithBackColor(texCoord + pixelOffset * lengthSign).rgb
                                : centre.rgb;
    fragColor = vec4(mix(rgbEdgeAA, rgbSub, blendSub), centre.a);
}
)";

} // namespace

namespace Vorna {
namespace Orvane {

osg::Program* FXAATool::program()
{
    return ScreenPass::passProgram("fxaa", g_fxaaFragment);
}

osg::ref_ptr<osg::Geode> FXAATool::createFXAANode()
{
    return ScreenPass::createPassNode("fxaa_rect", program(), new FxAANodeDrawCallback);
}

} // namespace Orvane
} // namespace Vorna

void FxAANodeDrawCallback::drawImplementation(osg::RenderInfo& renderInfo,
                                              const osg::Drawable* drawable) const
{
    Vorna::Orvane::ScreenPass::drawOverFramebuffer(
        renderInfo, drawable, [&] { return getFboTexture(renderInfo); }, m_copy,
        "draw fxaa node failed");
}

GLuint FxAANodeDrawCallback::getFboTexture(osg::RenderInfo& renderInfo) const
{
    return Vorna::Orvane::ScreenPass::fboTexture(renderInfo);
}
