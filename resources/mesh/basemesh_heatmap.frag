#version 410 core

in VertexOutData
{
    vec3 vertex;
    flat float weight;
} fs_in;

out vec4 fragColor;

// Weights are mapped from online.x to online.y onto the colour ramp.
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

// The derivative normal always faces the eye.
vec3 faceNormal(vec3 eyePosition)
{
    return normalize(cross(dFdx(eyePosition), dFdy(eyePosition)));
}

vec3 heatColor(float weight)
{
    float uv = clamp((weight - online.x) / (online.y - online.x), 0.0, 1.0);
    return texture(heatmapIndex, uv).rgb;
}

void main()
{
    // No normals come in: face normals always, and they already face the eye.
    vec3 P = normalize(fs_in.vertex);
    vec3 N = faceNormal(fs_in.vertex);
    vec3 heat = heatColor(fs_in.weight);
    vec3 color = gl_FrontFacing ? CalcMultiLightColor(heat, CalcMultiLight(N, P))
                                : CalcBackLightColor(heat, N, P);
    fragColor = vec4(color, 1.0);
}
