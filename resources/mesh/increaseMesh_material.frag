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

uniform vec3 front = vec3(0.19, 0.53, 0.81);
// Not read: the back's material is uBackMaterial.
uniform vec3 back = vec3(0.08, 0.20, 0.40);
// Low weights start from this colour and ramp to the front's.
uniform vec3 lowDensityColor = vec3(1.0, 1.0, 0.0);
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

// A selected back keeps its specular and shininess and takes the row as ambient and diffuse.
Material backMaterial(bool selected, vec3 row)
{
    Material m = Material(uBackMaterial[0], uBackMaterial[1], uBackMaterial[2], uBackMaterial[3][0]);
    if (selected) {
        m.ambient = vec4(row, m.ambient.a);
        m.diffuse = vec4(row, m.diffuse.a);
    }
    return m;
}

void main()
{
    vec3 N = normalize(fs_in.normal);
    bool cut = isCutPlaneEnable && fs_in.dotVal < 0.0;
    vec3 row = texelFetch(colorIndex, int(selectIndex), 0).rgb;
    vec3 surface = front;
    if (isHeatMapEnable)
        surface = lowDensityColor +
                  clamp((fs_in.weight - online.x) / (online.y - online.x), 0.0, 1.0) * (front - lowDensityColor);
    if (cut)
        surface = row;
    fragColor = gl_FrontFacing ? calcMaterial(frontMaterial(surface), N)
                               : calcMaterial(backMaterial(cut, row), -N);
}
