#version 410 core
#extension GL_ARB_shading_language_420pack : enable

in VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec3 color;
    flat float state;
    float dotVal;
} fs_in;

out vec4 fragColor;

uniform vec3 back = vec3(0.9, 0.85, 0.44);
// False gives the back the front's surface.
uniform bool useBackColor = true;
uniform bool exchangeColor = false;
uniform bool useSmooth = true;
#ifdef GL_ARB_shading_language_420pack
// Unit 1 unless the client says otherwise: unit 0 holds the main texture.
layout(binding = 1) uniform sampler1D colorIndex;
#else
uniform sampler1D colorIndex;
#endif
uniform bool selectUseMultiLight = false;
uniform float selectIndex = 1.0;
// Whether the kept side shows its state.
uniform bool upperUseState = true;
// Mixes the selection colour with the original.
uniform bool enableEditBlend = false;
uniform float mixedFactor = 0.5;
// The colour array holds a texture bake: a selection is mixed in, not put in its place.
uniform bool ubTexture = false;
uniform int enableGamma = 0;
uniform float gamma = 1.3;
uniform vec3 lightDirection = vec3(0.0, 0.0, 1.0);
uniform vec4 lightParam = vec4(0.5, 0.5, 0.15, 128.0);
uniform vec3 light1Direction = vec3(0.11162, 0.66604, 0.63302);
uniform vec4 light1Param = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec3 light2Direction = vec3(-0.045, -0.96593, 0.25489);
uniform vec4 light2Param = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec3 light3Direction = vec3(0.93969, 0.0, -0.34202);
uniform vec4 light3Param = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec3 light4Direction = vec3(-0.93969, 0.0, -0.34202);
uniform vec4 light4Param = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec3 lightBkDirection = vec3(0.0, 0.0, 1.0);
uniform vec4 lightBkParam = vec4(0.5, 0.5, 0.0, 1.0);
uniform bool specularSeparate = false;

// (ambient, diffuse, specular) of one light. Lights are in eye space and turn with the camera;
// the client keeps their directions unit length.
vec3 CalcDirLight(vec3 L, vec4 param, vec3 N, vec3 P)
{
    float diff = max(dot(L, N), 0.0) * param.y;
    vec3 R = reflect(-L, N);
    float highlight = pow(max(dot(-P, R), 0.0), max(1.0, param.w)) * param.z;
    return vec3(param.x, diff, highlight);
}

vec3 CalcMultiLight(vec3 N, vec3 P)
{
    return CalcDirLight(lightDirection, lightParam, N, P) +
           CalcDirLight(light1Direction, light1Param, N, P) +
           CalcDirLight(light2Direction, light2Param, N, P) +
           CalcDirLight(light3Direction, light3Param, N, P) +
           CalcDirLight(light4Direction, light4Param, N, P);
}

vec3 CalcMultiLightColor(vec3 C, vec3 light)
{
    return specularSeparate ? C * (light.x + light.y) + light.z : C * (light.x + light.y + light.z);
}

// Back faces: the back light alone, specular never separate. N is already turned to the back.
vec3 CalcBackLightColor(vec3 C, vec3 N, vec3 P)
{
    vec3 light = CalcDirLight(lightBkDirection, lightBkParam, N, P);
    return C * (light.x + light.y + light.z);
}

// A selected surface: the main direction with fixed constants, specular kept separate, unless
// the whole rig is asked for.
vec3 shadeSelected(vec3 C, vec3 N, vec3 P)
{
    if (selectUseMultiLight)
        return CalcMultiLightColor(C, CalcMultiLight(N, P));
    vec3 light = CalcDirLight(lightDirection, vec4(0.5, 0.5, 0.1, 128.0), N, P);
    return C * (0.5 + light.y) + light.z;
}

// The derivative normal always faces the eye.
vec3 faceNormal(vec3 eyePosition)
{
    return normalize(cross(dFdx(eyePosition), dFdy(eyePosition)));
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

void main()
{
    float state = fs_in.dotVal < 0.0 ? selectIndex : (upperUseState ? fs_in.state : 0.0);
    if (state < 0.0)
        discard;
    vec3 P = normalize(fs_in.vertex);
    vec3 N = normalize(fs_in.normal);
    if (!useSmooth)
        N = faceNormal(fs_in.vertex);
    bool frontFacing = gl_FrontFacing;
    if (exchangeColor) {
        frontFacing = !frontFacing;
        N = -N;
    }
    // The derivative normal already faces the eye: the back takes it as it stands.
    vec3 backN = useSmooth ? -N : N;
    bool selected = state > 0.0;
    vec3 row = texelFetch(colorIndex, int(state), 0).rgb;
    vec3 original = fs_in.color;
    vec3 color;
    if (frontFacing) {
        if (!selected)
            color = CalcMultiLightColor(original, CalcMultiLight(N, P));
        else if (ubTexture)
            color = CalcMultiLightColor(mix(original, row, mixedFactor), CalcMultiLight(N, P));
        else if (enableEditBlend)
            color = mix(CalcMultiLightColor(original, CalcMultiLight(N, P)), shadeSelected(row, N, P),
                        mixedFactor);
        else
            color = shadeSelected(row, N, P);
    } else {
        if (!selected)
            color = CalcBackLightColor(useBackColor ? back : original, backN, P);
        else if (!useBackColor && ubTexture)
            color = CalcBackLightColor(mix(original, row, mixedFactor), backN, P);
        else if (!useBackColor && enableEditBlend)
            // Unlike the front, the selection colour goes in unlit.
            color = mix(CalcBackLightColor(original, backN, P), row, mixedFactor);
        else
            color = CalcBackLightColor(row, backN, P);
    }
    if (enableGamma > 0)
        color = linearTosRGB(color);
    fragColor = vec4(color, 1.0);
}
