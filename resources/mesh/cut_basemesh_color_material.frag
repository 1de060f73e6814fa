#version 410 core
#extension GL_ARB_shading_language_420pack : enable

in GeomOutData
{
    vec3 vertex;
    vec3 normal;
    vec3 color;
    flat float state;
    float dotVal;
} fs_in;

out vec4 fragColor;

uniform vec3 front = vec3(0.19, 0.53, 0.81);
// Read by the classic path of a texture bake; the material back is uBackMaterial.
uniform vec3 back = vec3(0.08, 0.20, 0.40);
// False gives the back the front's surface.
uniform bool useBackColor = true;
uniform bool exchangeColor = false;
uniform bool useSmooth = true;
uniform vec3 lightDirection = vec3(0.60, 0.60, 1.00);
uniform vec4 lightParam = vec4(0.08, 0.60, 0.95, 9.00);
uniform vec3 light1Direction = vec3(-0.60, 0.30, 1.00);
uniform vec4 light1Param = vec4(0.02, 0.20, 0.00, 9.00);
uniform float uDarkBrightenFactor = 0.2;
uniform float objSpecular = 0.325;
uniform float objShininess = 9.0;
// Columns: ambient, diffuse, specular, (shininess, -, -, -).
uniform mat4 uBackMaterial = mat4(vec4(0.02745, 0.08627, 0.13725, 1.0), vec4(0.2, 0.2, 0.2, 1.0),
                                  vec4(0.398, 0.398, 0.398, 1.0), vec4(5.0, 0.0, 0.0, 0.0));
uniform vec3 light2Direction = vec3(-0.045, -0.96593, 0.25489);
uniform vec4 light2Param = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec3 light3Direction = vec3(0.93969, 0.0, -0.34202);
uniform vec4 light3Param = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec3 light4Direction = vec3(-0.93969, 0.0, -0.34202);
uniform vec4 light4Param = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec3 lightBkDirection = vec3(0.0, 0.0, 1.0);
uniform vec4 lightBkParam = vec4(0.5, 0.5, 0.0, 1.0);
uniform bool specularSeparate = false;
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
uniform float brightness = 0.0;
uniform float contrast = 0.0;
uniform int enableGamma = 0;
uniform float gamma = 1.3;

struct Material
{
    vec4 ambient;
    vec4 diffuse;
    vec4 specular;
    float shininess;
};

// Blinn-Phong with grey light colours from param and the eye fixed at +z. NdotL is lifted on
// the dark side and must stay unclamped: a far side goes negative.
vec3 calcMaterialLight(vec3 direction, vec4 param, Material m, vec3 N)
{
    vec3 L = normalize(direction);
    float NdotL = dot(N, L);
    float lifted = uDarkBrightenFactor + NdotL * (1.0 - uDarkBrightenFactor);
    float pf = 0.0;
    if (NdotL != 0.0)
        pf = pow(max(0.0, dot(N, normalize(L + vec3(0.0, 0.0, 1.0)))), m.shininess);
    return param.x * m.ambient.rgb + param.y * lifted * m.diffuse.rgb + param.z * pf * m.specular.rgb;
}

vec4 calcMaterial(Material m, vec3 N)
{
    vec3 c = calcMaterialLight(lightDirection, lightParam, m, N) +
             calcMaterialLight(light1Direction, light1Param, m, N);
    return vec4(c, m.ambient.a);
}

Material frontMaterial(vec3 C)
{
    return Material(vec4(C, 1.0), vec4(C, 1.0), vec4(vec3(objSpecular), 1.0), objShininess);
}

// A selected back keeps its specular and shininess and takes the row as ambient and diffuse;
// without the back colour it takes the front's surface the same way.
Material backMaterial(bool selected, vec3 row, vec3 front)
{
    Material m = Material(uBackMaterial[0], uBackMaterial[1], uBackMaterial[2], uBackMaterial[3][0]);
    if (selected || !useBackColor) {
        vec3 c = selected ? row : front;
        m.ambient = vec4(c, m.ambient.a);
        m.diffuse = vec4(c, m.diffuse.a);
    }
    return m;
}

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
    vec4 color;
    if (ubTexture) {
        vec3 surface = contrastAndBrightness(original);
        if (selected)
            surface = mix(surface, row, mixedFactor);
        if (frontFacing)
            color = vec4(CalcMultiLightColor(surface, CalcMultiLight(N, P)), 1.0);
        else
            color = vec4(CalcBackLightColor(useBackColor ? (selected ? row : back) : surface, backN, P), 1.0);
    } else if (frontFacing) {
        color = calcMaterial(frontMaterial(original), N);
        if (selected)
            color = enableEditBlend ? mix(color, calcMaterial(frontMaterial(row), N), mixedFactor)
                                    : calcMaterial(frontMaterial(row), N);
    } else {
        color = calcMaterial(backMaterial(selected, row, original), backN);
    }
    if (enableGamma > 0)
        color.rgb = linearTosRGB(color.rgb);
    fragColor = color;
}
