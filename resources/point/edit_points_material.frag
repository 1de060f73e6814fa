#version 410 core
// The material model per fragment, for points whose state the vertex stage decided.
in vec3 normal;
flat in float state;
out vec4 fragColor;

uniform vec3 front = vec3(0.19, 0.53, 0.81);
uniform sampler1D colorIndex;
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

struct Material {
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
    return param.x * m.ambient.rgb + param.y * lifted * m.diffuse.rgb +
           param.z * pf * m.specular.rgb;
}

vec3 calcMaterial(Material m, vec3 N)
{
    return calcMaterialLight(lightDirection, lightParam, m, N) +
           calcMaterialLight(light1Direction, light1Param, m, N);
}

Material materialTrans(vec3 surface, float specular, float shininess)
{
    return Material(vec4(surface, 1.0), vec4(surface, 1.0), vec4(vec3(specular), 1.0), shininess);
}

Material backMaterial()
{
    return Material(uBackMaterial[0], uBackMaterial[1], uBackMaterial[2], uBackMaterial[3][0]);
}

// Keeps the specular and shininess of `m`, takes `c` as ambient and diffuse.
Material recolour(Material m, vec3 c)
{
    m.ambient = vec4(c, m.ambient.a);
    m.diffuse = vec4(c, m.diffuse.a);
    return m;
}

void main()
{
    Material frontM = materialTrans(front, objSpecular, objShininess);
    Material backM = backMaterial();
    if (state > 0.0) {
        vec3 row = texelFetch(colorIndex, int(state), 0).rgb;
        frontM = materialTrans(row, objSpecular, objShininess);
        backM = recolour(backM, row);
    }
    vec3 c = normal.z > 0.0 ? calcMaterial(frontM, normal) : calcMaterial(backM, -normal);
    fragColor = vec4(c, 1.0);
}
