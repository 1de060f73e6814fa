#version 410 core
#extension GL_ARB_shading_language_420pack : enable

in GeomOutData
{
    vec3 vertex;
    vec3 normal;
    flat float state;
} fs_in;

out vec4 fragColor;

uniform vec3 front = vec3(0.5, 0.5, 0.5);
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
uniform vec4 lightParam = vec4(0.2, 0.8, 0.1, 16.0);
uniform float diffBase = 0.5;
uniform bool specularSeparate = false;
uniform int enableGamma = 0;
uniform float gamma = 1.3;

// The light is the eye itself. The diffuse exponent varies with the angle and lifts grazing faces.
vec3 calculateDirLight(vec3 N, vec3 L, vec4 param)
{
    float diffFactor = clamp(dot(N, L), 0.0, 1.0);
    float p = diffBase + diffFactor * 0.5;
    float diffuse = param.y * pow(diffFactor, p);
    float highlight = param.z * pow(max(dot(reflect(-L, N), L), 0.0), param.w);
    return vec3(param.x, diffuse, highlight);
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
    float state = fs_in.state;
    if (state < 0.0)
        discard;
    vec3 P = normalize(fs_in.vertex);
    vec3 N = normalize(fs_in.normal);
    if (!useSmooth) {
        N = faceNormal(fs_in.vertex);
        // Turned to the back first, so that the back branch negates it as usual.
        if (!gl_FrontFacing)
            N = -N;
    }
    bool frontFacing = gl_FrontFacing;
    if (exchangeColor) {
        frontFacing = !frontFacing;
        N = -N;
    }
    bool selected = state > 0.0;
    vec3 row = texelFetch(colorIndex, int(state), 0).rgb;
    vec3 L = -P;
    vec3 color;
    if (frontFacing) {
        vec3 light = calculateDirLight(N, L, lightParam);
        // A selected face keeps its specular separate.
        vec3 surface = selected ? row : front;
        color = (selected || specularSeparate) ? surface * (light.x + light.y) + light.z
                                               : surface * (light.x + light.y + light.z);
    } else {
        // The back is lit by the main param here, not by a back light.
        vec3 light = calculateDirLight(-N, L, lightParam);
        color = (selected ? row : (useBackColor ? back : front)) * (light.x + light.y + light.z);
    }
    if (enableGamma > 0)
        color = linearTosRGB(color);
    fragColor = vec4(color, 1.0);
}
