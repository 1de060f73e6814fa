#version 430 core

#define SSSS_N_SAMPLES 41

in vec2 texCoord;

layout(binding = 0) uniform sampler2D colorTex;
layout(binding = 1) uniform sampler2D specularTex;
layout(binding = 2) uniform sampler2D depthTex;
layout(binding = 3) uniform sampler2D screenColorTex;
layout(binding = 4) uniform sampler2D ssssMask;
uniform float sssWidth = 0.0125;
uniform float distanceToProjectionWindow = 1.0;
uniform vec2 dir = vec2(1.0, 0.0);
uniform bool second_pass = false;
uniform bool gammaEnable = false;
uniform float gamma = 1.2;
uniform bool initStencil = false;
// Rows of (r, g, b weight, offset in mm), the centre first: a skin profile as a sum of
// Gaussians, wider in red since red light travels furthest under the skin.
uniform vec4 kernel[SSSS_N_SAMPLES] = vec4[](
    vec4(0.0080050527, 0.0118673266, 0.0133710636, 0),
    vec4(0.0012598695, 6.28916619e-06, 1.71762951e-07, -10.352335),
    vec4(0.00351745662, 1.93201858e-05, 1.44253488e-06, -9.34298234),
    vec4(0.00462077347, 2.83383062e-05, 4.7582272e-06, -8.38539135),
    vec4(0.00588220875, 4.17536126e-05, 1.29200747e-05, -7.47956204),
    vec4(0.00729705969, 6.40552722e-05, 2.94714395e-05, -6.6254944),
    vec4(0.00886652436, 0.000113878811, 5.7560559e-05, -5.82318844),
    vec4(0.0106154737, 0.000267906537, 9.79837174e-05, -5.07264415),
    vec4(0.0126572548, 0.00074247752, 0.000147812411, -4.37386154),
    vec4(0.0152262403, 0.00191688562, 0.000202571988, -3.7268406),
    vec4(0.0185317538, 0.00417643009, 0.00031140261, -3.13158134),
    vec4(0.0226471084, 0.0079676906, 0.00111934736, -2.58808375),
    vec4(0.0281315427, 0.0150946215, 0.00576754536, -2.09634784),
    vec4(0.0365238525, 0.0293933408, 0.0204300738, -1.6563736),
    vec4(0.0479196322, 0.051644375, 0.0470900032, -1.26816104),
    vec4(0.0582783064, 0.0741630775, 0.0761253718, -0.93171015),
    vec4(0.0621818918, 0.0861688558, 0.093312938, -0.647020938),
    vec4(0.0576016799, 0.0831817396, 0.092311329, -0.4140934),
    vec4(0.0464297484, 0.0682762528, 0.0765711793, -0.232927538),
    vec4(0.0318057208, 0.0470767148, 0.0529938493, -0.10352335),
    vec4(0.0160033754, 0.0237223331, 0.0267267357, -0.0258808375),
    vec4(0.0160033754, 0.0237223331, 0.0267267357, 0.0258808375),
    vec4(0.0318057208, 0.0470767148, 0.0529938493, 0.10352335),
    vec4(0.0464297484, 0.0682762528, 0.0765711793, 0.232927537),
    vec4(0.0576016799, 0.0831817396, 0.092311329, 0.4140934),
    vec4(0.0621818918, 0.0861688558, 0.093312938, 0.647020937),
    vec4(0.0582783064, 0.0741630775, 0.0761253718, 0.93171015),
    vec4(0.0479196322, 0.051644375, 0.0470900032, 1.26816104),
    vec4(0.0365238525, 0.0293933408, 0.0204300738, 1.6563736),
    vec4(0.0281315427, 0.0150946215, 0.00576754536, 2.09634784),
    vec4(0.0226471084, 0.0079676906, 0.00111934736, 2.58808375),
    vec4(0.0185317538, 0.00417643009, 0.00031140261, 3.13158134),
    vec4(0.0152262403, 0.00191688562, 0.000202571988, 3.7268406),
    vec4(0.0126572548, 0.00074247752, 0.000147812411, 4.37386154),
    vec4(0.0106154737, 0.000267906537, 9.79837174e-05, 5.07264415),
    vec4(0.00886652436, 0.000113878811, 5.7560559e-05, 5.82318844),
    vec4(0.00729705969, 6.40552722e-05, 2.94714395e-05, 6.6254944),
    vec4(0.00588220875, 4.17536126e-05, 1.29200747e-05, 7.47956204),
    vec4(0.00462077347, 2.83383062e-05, 4.7582272e-06, 8.38539135),
    vec4(0.00351745662, 1.93201858e-05, 1.44253488e-06, 9.34298234),
    vec4(0.0012598695, 6.28916619e-06, 1.71762951e-07, 10.352335));

out vec4 fragColor;

float random(vec2 st)
{
    return fract(sin(dot(st, vec2(12.9898, 78.233))) * 43758.5453123);
}

void main()
{
    vec4 colorM = texture(colorTex, texCoord);
    // Empty: not skin, keep what is there.
    if (colorM.a < 0.0001)
        discard;

    float depthM = texture(depthTex, texCoord).r;

    // Nearer surfaces blur wider on screen; alpha carries how much a pixel scatters.
    float scale = distanceToProjectionWindow / depthM;
    vec2 finalStep = scale * dir;
    finalStep *= colorM.a;
    finalStep *= 1.0 / (2.0 * sssWidth);

    vec3 colorBlurred = colorM.rgb * kernel[0].rgb;
    for (int i = 1; i < SSSS_N_SAMPLES; i++) {
        vec2 offset = texCoord + kernel[i].a * finalStep;
        // Jitter within the gap to the nearer neighbouring row, so that rows don't band.
        float gap = i + 1 < SSSS_N_SAMPLES ? min(abs(kernel[i + 1].a - kernel[i].a),
                                                 abs(kernel[i].a - kernel[i - 1].a))
                                           : abs(kernel[i].a - kernel[i - 1].a);
        vec2 jitterScale = 0.35 * finalStep * gap;
        vec2 jitter = dir * random(offset);
        offset += jitter * 2.0 * jitterScale - jitterScale;

        vec3 color = texture(colorTex, offset).rgb;
        float depth = texture(depthTex, offset).r;
        // Follow the surface: a depth step stops the blur.
        float s = min(1.0, 4.0 * clamp(0.01 * abs(depthM - depth) * distanceToProjectionWindow, 0.0, 1.0));
        color = mix(color, colorM.rgb, s);
        // Samples of another model blur in all the same: the id is carried, not used.
        colorBlurred += kernel[i].rgb * color;
    }

    if (!second_pass) {
        fragColor = vec4(colorBlurred, colorM.a);
        return;
    }
    vec3 result = colorBlurred + texture(specularTex, texCoord).rgb;
    if (gammaEnable) {
        fragColor = vec4(pow(result, vec3(1.0 / gamma)), 1.0);
        return;
    }
    fragColor = mix(texture(screenColorTex, texCoord), vec4(result, 1.0), step(0.5, texture(ssssMask, texCoord).g));
}
