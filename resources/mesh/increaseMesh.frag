#version 410 core
#extension GL_ARB_shading_language_420pack : enable

in GeomOutData
{
    vec3 vertex;
    vec3 normal;
    float dotVal;
    flat float weight;
} fs_in;

out vec4 fragColor;

uniform vec3 front = vec3(0.5, 0.5, 0.5);
uniform vec3 back = vec3(0.9, 0.85, 0.44);
uniform bool isHeatMapEnable = false;
uniform bool isCutPlaneEnable = false;
#ifdef GL_ARB_shading_language_420pack
// Unit 1 unless the client says otherwise: unit 0 holds the main texture.
layout(binding = 1) uniform sampler1D colorIndex;
#else
uniform sampler1D colorIndex;
#endif
// The state that the cut plane paints.
uniform float selectIndex = 1.0;
uniform vec2 online = vec2(0.0, 25.0);
uniform sampler1D heatmapIndex;
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

void main()
{
    vec3 P = normalize(fs_in.vertex);
    vec3 N = normalize(fs_in.normal);
    vec3 surface = gl_FrontFacing ? front : back;
    if (isHeatMapEnable)
        surface = texture(heatmapIndex, clamp((fs_in.weight - online.x) / (online.y - online.x), 0.0, 1.0)).rgb;
    if (isCutPlaneEnable && fs_in.dotVal < 0.0)
        surface = texelFetch(colorIndex, int(selectIndex), 0).rgb;
    vec3 color = gl_FrontFacing ? CalcMultiLightColor(surface, CalcMultiLight(N, P))
                                : CalcBackLightColor(surface, -N, P);
    fragColor = vec4(color, 1.0);
}
