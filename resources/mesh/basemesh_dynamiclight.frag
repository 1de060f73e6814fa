#version 410 core

in GeomOutData
{
    vec3 vertex;
    vec3 normal;
} fs_in;

out vec4 fragColor;

uniform vec3 front = vec3(0.91, 0.87, 0.58);
uniform vec3 back = vec3(0.05, 0.695, 1.0);
uniform bool exchangeColor = false;
uniform bool useSmooth = true;
uniform vec4 lightParam = vec4(0.2, 0.8, 0.1, 16.0);
uniform float diffBase = 0.5;
uniform bool specularSeparate = false;
uniform vec4 lightBkParam = vec4(0.5, 0.5, 0.0, 1.0);
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
    vec3 P = normalize(fs_in.vertex);
    vec3 N = useSmooth ? normalize(fs_in.normal) : faceNormal(fs_in.vertex);
    bool frontFacing = gl_FrontFacing;
    if (exchangeColor) {
        frontFacing = !frontFacing;
        N = -N;
    }
    // The derivative normal already faces the eye: the back keeps it as it is.
    vec3 backN = useSmooth ? -N : N;
    vec3 eyeDirCameraSpace = -P;
    vec3 color;
    if (frontFacing) {
        vec3 light = calculateDirLight(N, eyeDirCameraSpace, lightParam);
        color = specularSeparate ? front * (light.x + light.y) + light.z
                                 : front * (light.x + light.y + light.z);
    } else {
        vec3 light = calculateDirLight(backN, eyeDirCameraSpace, lightBkParam);
        color = back * (light.x + light.y + light.z);
    }
    if (enableGamma > 0)
        color = linearTosRGB(color);
    fragColor = vec4(color, 1.0);
}
