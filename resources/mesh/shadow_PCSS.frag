#version 430

#define NUM_SAMPLES 60
#define BLOCKER_SEARCH_NUM_SAMPLES NUM_SAMPLES
#define PCF_NUM_SAMPLES NUM_SAMPLES
#define NUM_RINGS 8
#define EPS 1e-4
#define PI 3.141592653589793
#define PI2 6.283185307179586
#define LIGHT_WIDTH 50.0
#define FILTER_STRIDE 10.0

in vec2 texCoord;
in vec4 vPositionFromLight;

// The light's depth as drawn by the shadow-map pass.
layout(binding = 0) uniform sampler2D uShadowMap;
uniform float uShadowmapSize = 2048.0;

out vec4 fragColor;

vec2 poissonDisk[NUM_SAMPLES];

float rand_2to1(vec2 uv)
{
    const float a = 12.9898, b = 78.233, c = 43758.5453;
    float dt = dot(uv.xy, vec2(a, b));
    float sn = mod(dt, PI);
    return fract(sin(sn) * c);
}

float unpack(vec4 rgbaDepth)
{
    const vec4 bitShift = vec4(1.0, 1.0 / 256.0, 1.0 / (256.0 * 256.0), 1.0 / (256.0 * 256.0 * 256.0));
    return dot(rgbaDepth, bitShift);
}

// A spiral of samples whose radius grows slower than linearly, turned by a per-pixel angle so
// that the banding of a fixed pattern turns into noise.
void poissonDiskSamples(const in vec2 randomSeed)
{
    float angleStep = PI2 * float(NUM_RINGS) / float(NUM_SAMPLES);
    float invNumSamples = 1.0 / float(NUM_SAMPLES);
    float angle = rand_2to1(randomSeed) * PI2;
    float radius = invNumSamples;
    float radiusStep = radius;
    for (int i = 0; i < NUM_SAMPLES; i++) {
        poissonDisk[i] = vec2(cos(angle), sin(angle)) * pow(radius, 0.75);
        radius += radiusStep;
        angle += angleStep;
    }
}

void uniformDiskSamples(const in vec2 randomSeed)
{
    float randNum = rand_2to1(randomSeed);
    float sampleX = rand_2to1(vec2(randNum));
    float sampleY = rand_2to1(vec2(sampleX));
    float angle = sampleX * PI2;
    float radius = sqrt(sampleY);
    for (int i = 0; i < NUM_SAMPLES; i++) {
        poissonDisk[i] = vec2(radius * cos(angle), radius * sin(angle));
        sampleX = rand_2to1(vec2(sampleY));
        sampleY = rand_2to1(vec2(sampleX));
        angle = sampleX * PI2;
        radius = sqrt(sampleY);
    }
}

float findBlocker(sampler2D shadowMap, vec2 uv, float zReceiver)
{
    float filterRange = 50.0 / uShadowmapSize;
    float blockerSum = 0.0;
    int blockers = 0;
    for (int i = 0; i < BLOCKER_SEARCH_NUM_SAMPLES; i++) {
        float depth = texture(shadowMap, uv + poissonDisk[i] * filterRange).r;
        if (zReceiver > depth + EPS) {
            blockerSum += depth;
            blockers++;
        }
    }
    if (blockers == 0)
        return 1.0;
    return blockerSum / float(blockers);
}

float PCF(sampler2D shadowMap, vec4 coords, float penumbra)
{
    float visible = 0.0;
    for (int i = 0; i < PCF_NUM_SAMPLES; i++) {
        vec2 offset = poissonDisk[i] * FILTER_STRIDE * penumbra / uShadowmapSize;
        float depth = unpack(texture(shadowMap, coords.xy + offset));
        if (coords.z <= depth + 0.01)
            visible += 1.0;
    }
    return visible / float(PCF_NUM_SAMPLES);
}

float PCSS(sampler2D shadowMap, vec4 coords)
{
    poissonDiskSamples(coords.xy);
    float zBlocker = findBlocker(shadowMap, coords.xy, coords.z);
    float penumbra = LIGHT_WIDTH * (coords.z - zBlocker) / zBlocker;
    return PCF(shadowMap, coords, penumbra);
}

float useShadowMap(sampler2D shadowMap, vec4 shadowCoord)
{
    float depth = unpack(texture(shadowMap, shadowCoord.xy));
    return shadowCoord.z > depth + EPS ? 0.0 : 1.0;
}

void main()
{
    vec3 shadowCoord = vPositionFromLight.xyz / vPositionFromLight.w;
    shadowCoord.xy = shadowCoord.xy * 0.5 + 0.5;
    float visibility = PCSS(uShadowMap, vec4(shadowCoord, 1.0));
    fragColor = vec4(visibility, visibility, visibility, 1.0);
}
