#version 410 core
// Second transparent pass: each layer's lit colour, weighted by the transmittance in front of it
// that the moments of the first pass give, summed over all layers of the pixel.
in GeomOutData
{
    vec3 normal;
    vec2 texCoord;
} fs_in;

// Zeros to the layers this pass doesn't feed: their blending leaves them as they are.
layout(location = 0) out vec4 outOpaque;
layout(location = 1) out vec4 outB14;
layout(location = 2) out float outB0;
layout(location = 3) out vec4 outColor;

uniform sampler2D tex;
uniform sampler2D texB14;
uniform sampler2D texB0;
uniform vec2 viewport = vec2(1.0, 1.0);
// Below 1.0, as in the first pass.
uniform float alpha = 0.7;
// 2 takes the surface from the texture.
uniform int colorMode = 0;
uniform vec3 front = vec3(0.5, 0.5, 0.5);
uniform vec3 back = vec3(0.9, 0.85, 0.44);
uniform vec3 lightDirection = vec3(0.0, 0.0, 1.0);
uniform vec4 lightParam = vec4(0.5, 0.5, 0.15, 128.0);
uniform float brightness = 0.0;
uniform float contrast = 0.0;
uniform int enableGamma = 0;
uniform float gamma = 1.3;

// Texture colours only. Brightness must stay below 1.0.
vec3 contrastAndBrightness(vec3 c)
{
    c = brightness >= 0.0 ? c * (1.0 / (1.0 - brightness)) : c * (1.0 + brightness);
    c = clamp(c, 0.0, 1.0);
    // 0.489 is the chosen grey, not 0.5.
    c = contrast >= 0.0 ? 0.489 + (c - 0.489) / (1.0 - contrast) : 0.489 + (c - 0.489) * (1.0 + contrast);
    return clamp(c, 0.0, 1.0);
}

// The sRGB curve with an adjustable exponent.
float linearTosRGB(float c)
{
    if (c < 0.0031308)
        return c > 0.0 ? 12.92 * c : 0.0;
    return 1.055 * pow(c, 1.0 / gamma) - 0.055;
}

vec3 linearTosRGB(vec3 c)
{
    return vec3(linearTosRGB(c.r), linearTosRGB(c.g), linearTosRGB(c.b));
}

// Transmittance at `depth` reconstructed from the zeroth and four power moments of the
// layers' optical depth, biased towards a fixed vector for stability.
float computeTransmittanceAtDepthFrom4PowerMoments(float b_0, vec2 b_even, vec2 b_odd, float depth,
                                                   float bias, float overestimation,
                                                   vec4 bias_vector)
{
    vec4 b = vec4(b_odd.x, b_even.x, b_odd.y, b_even.y);
    b = b + (bias_vector - b) * bias;
    vec3 z;
    z[0] = depth;

    // The plain third moment, not b[2] - b[0] * b[1]: the look of the result was tuned with it.
    float L21D11 = b[2];
    float D11 = b[1] - b[0] * b[0];
    float InvD11 = 1.0 / D11;
    float L21 = L21D11 * InvD11;
    float SquaredDepthVariance = b[3] - b[1] * b[1];
    float D22 = SquaredDepthVariance - L21D11 * L21;

    // Solve the Hankel system for the polynomial whose roots are the other support points.
    vec3 c = vec3(1.0, z[0], z[0] * z[0]);
    c[1] -= b[0];
    c[2] -= b[1] + L21 * c[1];
    c[1] *= InvD11;
    c[2] /= D22;
    c[1] -= L21 * c[2];
    c[0] -= dot(vec2(c[1], c[2]), vec2(b[0], b[1]));

    float InvC2 = 1.0 / c[2];
    float p = c[1] * InvC2;
    float q = c[0] * InvC2;
    float D = p * p * 0.25 - q;
    float r = sqrt(D);
    z[1] = -p * 0.5 - r;
    z[2] = -p * 0.5 + r;

    // Support points in front of this fragment absorb; one at the fragment itself counts fully.
    vec3 f = vec3(overestimation, (z[1] < z[0]) ? 1.0 : 0.0, (z[2] < z[0]) ? 1.0 : 0.0);
    if (abs(z[1] - z[0]) < 0.001)
        f[1] = 1.0;
    if (abs(z[2] - z[0]) < 0.001)
        f[2] = 1.0;

    // Interpolating polynomial through the three points, by divided differences.
    float f01 = (f[1] - f[0]) / (z[1] - z[0]);
    float f12 = (f[2] - f[1]) / (z[2] - z[1]);
    float f012 = (f12 - f01) / (z[2] - z[0]);
    float p0 = f012;
    float p1 = p0;
    p0 = f01 - p0 * z[1];
    float p2 = p1;
    p1 = p0 - p1 * z[0];
    p0 = f[0] - p0 * z[0];

    float absorbance = p0 + dot(vec2(b[0], b[1]), vec2(p1, p2));
    return clamp(exp(-b_0 * absorbance), 0.0, 1.0);
}

void main()
{
    vec3 N = normalize(fs_in.normal);
    vec3 surface = colorMode == 2 ? contrastAndBrightness(texture(tex, fs_in.texCoord).rgb) : front;
    vec3 color = gl_FrontFacing
                     ? surface * (lightParam.x + lightParam.y * abs(dot(N, lightDirection)))
                     : back * (lightParam.x + lightParam.y * abs(dot(-N, lightDirection)));
    if (enableGamma > 0)
        color = linearTosRGB(color);

    vec2 uv = gl_FragCoord.xy / viewport;
    float b0 = texture(texB0, uv).r;
    vec4 b14 = texture(texB14, uv);
    vec2 b_odd = vec2(b14.x, b14.z) / b0;
    vec2 b_even = vec2(b14.y, b14.w) / b0;
    float transmittance = computeTransmittanceAtDepthFrom4PowerMoments(
        b0, b_even, b_odd, gl_FragCoord.z, 0.99, 0.25, vec4(0.0, 0.375, 0.0, 0.375));

    // Near layers weigh more; the moments alone would blur front and back.
    float w = alpha * max(0.01, 3000.0 * pow(1.0 - gl_FragCoord.z, 3.0));
    float outAlpha = alpha * transmittance * w;
    outOpaque = vec4(0.0);
    outB14 = vec4(0.0);
    outB0 = 0.0;
    outColor = vec4(color * outAlpha, outAlpha);
}
