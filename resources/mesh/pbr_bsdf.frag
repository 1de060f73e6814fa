#version 430 core

const float PI = 3.14159265358979323846;

in vec2 texCoord;
in vec3 posView;
in vec3 normalView;
in vec3 tangentView;
in float zDepth;

layout(location = 0) out vec4 glDiffuse;
layout(location = 1) out vec4 glSpecular;
layout(location = 2) out vec4 realDepth;

uniform vec3 front = vec3(0.05, 0.695, 1.0);
uniform float subsurface = 0.2;
uniform float anisotropic = 0.0;
uniform float specular = 0.5;
uniform float spcularTint = 0.0;
uniform float metallic = 0.0;
uniform float roughnessUniform = 0.0;
uniform float clearcoat = 0.0;
uniform float clearcoatGloss = 0.0;
uniform float specularTransmission = 0.0;
uniform float brightnessUniform = 3.0;
uniform float model_id = 0.0;
// w 0: a direction the light travels along; otherwise a position. Eye space.
uniform vec4 vLightPosInEye[1] = vec4[1](vec4(0.0, 0.0, -1.0, 0.0));

layout(binding = 0) uniform sampler2D colorMap;
layout(binding = 1) uniform sampler2D normalMap;
layout(binding = 2) uniform sampler2D roughnessMap;
layout(binding = 3) uniform sampler2D AOMap;
uniform bool colorMapExist = false;
uniform bool normalMapExist = false;
uniform bool roughnessMapExist = false;
uniform bool AOExist = false;

float pow2(float x)
{
    return x * x;
}

float pow5(float x)
{
    float x2 = x * x;
    return x2 * x2 * x;
}

float R0(float eta)
{
    return pow2(eta - 1.0) / pow2(eta + 1.0);
}

float luminance(vec3 c)
{
    return dot(c, vec3(0.2126, 0.7152, 0.0722));
}

// Smith masking of an anisotropic GGX lobe, one direction.
float Gw(float wX, float wY, float wN, float ax, float ay)
{
    return 1.0 / (1.0 + 0.5 * (sqrt(1.0 + (pow2(wX * ax) + pow2(wY * ay)) / pow2(wN)) - 1.0));
}

float lambdaCoat(float wX, float wY, float wN)
{
    return 0.5 * (sqrt(1.0 + (pow2(wX * 0.25) + pow2(wY * 0.25)) / pow2(wN)) - 1.0);
}

void main()
{
    vec3 N = normalize(normalView);
    vec3 T = tangentView;
    // A mesh without tangents still needs a frame; any one works for an isotropic lobe.
    if (dot(T, T) < 1e-12)
        T = cross(N, abs(N.x) > 0.9 ? vec3(0.0, 1.0, 0.0) : vec3(1.0, 0.0, 0.0));
    T = normalize(T);
    vec3 B = normalize(cross(N, T));
    mat3 TBN = mat3(T, B, N);

    vec3 n = vec3(0.0, 0.0, 1.0);
    if (normalMapExist) {
        n = normalize(texture(normalMap, texCoord).rgb * 2.0 - 1.0);
        // Less than half the map's strength: the scans' normal maps are noisy.
        n = normalize(0.4 * n + 0.6 * vec3(0.0, 0.0, 1.0));
    }
    N = normalize(n * TBN);

    vec3 V = normalize(-posView);
    float roughness = roughnessMapExist ? 1.0 - texture(roughnessMap, texCoord).r : roughnessUniform;
    vec3 L = vLightPosInEye[0].a == 0.0 ? normalize(-vLightPosInEye[0].xyz)
                                        : normalize(vLightPosInEye[0].xyz - posView);
    vec3 H = normalize(V + L);

    vec3 baseColor = colorMapExist ? texture(colorMap, texCoord).rgb : front;
    // Occlusion is read but reaches neither output.
    float ao = AOExist ? texture(AOMap, texCoord).r : 1.0;

    float NdotL = abs(dot(N, L));
    float NdotV = abs(dot(N, V));
    float HdotL = abs(dot(H, L));
    float NdotH = abs(dot(N, H));
    float HdotT = abs(dot(H, T));
    float HdotB = abs(dot(H, B));

    // Diffuse with retro-reflection at grazing angles.
    float p5nv = pow5(1.0 - NdotV);
    float p5nl = pow5(1.0 - NdotL);
    float FD90 = 0.5 + 2.0 * roughness * pow2(HdotL);
    vec3 baseDiffuse = baseColor / PI * (1.0 + (FD90 - 1.0) * p5nv) * (1.0 + (FD90 - 1.0) * p5nl) * NdotL;

    // Subsurface lobe: flattens the falloff as light travels under the skin.
    float FSS90 = roughness * pow2(HdotL);
    float FSS = (1.0 + (FSS90 - 1.0) * p5nv) * (1.0 + (FSS90 - 1.0) * p5nl);
    vec3 lobe = 1.25 * baseColor / PI * (FSS * (1.0 / (NdotV + NdotL) - 0.5) + 0.5) * NdotL;
    vec3 diffuse = (1.0 - subsurface) * baseDiffuse + subsurface * lobe;

    // Specular reflectance, dielectric to metal.
    float eta = 1.5;
    vec3 Ctint = baseColor / luminance(baseColor);
    vec3 Ks = (1.0 - spcularTint) + spcularTint * Ctint;
    vec3 C0 = specular * R0(eta) * (1.0 - metallic) * Ks + metallic * baseColor;
    vec3 Fm = C0 + (1.0 - C0) * pow5(1.0 - HdotL);

    float aspect = sqrt(1.0 - 0.9 * anisotropic);
    float ax = max(0.0001, pow2(roughness) / aspect);
    float ay = max(0.0001, pow2(roughness) * aspect);
    float Dm = 1.0 / (PI * ax * ay * pow2(pow2(HdotT) / pow2(ax) + pow2(HdotB) / pow2(ay) + pow2(NdotH)));
    float Gm = Gw(dot(V, T), dot(V, B), NdotV, ax, ay) * Gw(dot(L, T), dot(L, B), NdotL, ax, ay);
    vec3 metal = Fm * Dm * Gm / (4.0 * NdotV);

    // Clear coat: a fixed-index layer over everything.
    float Fc = R0(eta) + (1.0 - R0(eta)) * pow5(1.0 - HdotL);
    float ag2 = pow2((1.0 - clearcoatGloss) * 0.1 + clearcoatGloss * 0.001);
    float Dc = (ag2 - 1.0) / (PI * log(ag2) * (1.0 + (ag2 - 1.0) * pow2(NdotH)));
    float Gc = 1.0 / (1.0 + lambdaCoat(dot(V, T), dot(V, B), dot(V, N))) *
               (1.0 / (1.0 + lambdaCoat(dot(L, T), dot(L, B), dot(L, N))));
    float coat = Fc * Dc * Gc / (4.0 * NdotV);

    diffuse = (1.0 - metallic) * diffuse;
    vec3 reflected = metal + 0.25 * clearcoat * coat;

    glDiffuse = vec4(diffuse * (brightnessUniform + 0.2), 1.0);
    glSpecular = vec4(reflected * brightnessUniform, 1.0);
    realDepth = vec4(zDepth, model_id, 0.0, 1.0);
}
