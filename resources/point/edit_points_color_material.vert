#version 410 core
// Points in their own colours with the material model and a selection state. Blue marks a
// region of interest in a scan's own colours and is drawn larger and nearer, to stand out at
// any distance. Texture bakes are lit by the classic rig in linear space.
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 2) in vec3 vColor;
layout(location = 4) in int vFlag;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ProjectionMatrix;
uniform mat3 osg_NormalMatrix;

// False gives the back the vertex colour.
uniform bool useBackColor = true;
uniform sampler1D colorIndex;
uniform bool enableEditBlend = false;
uniform float mixedFactor = 0.5;
uniform bool ubTexture = false;
uniform bool ubBlueBigger = true;
uniform bool ubBlueCloser = true;
// Pixels added to a blue point.
uniform float ufBlueBigger = 1.0;
// Eye-space units a blue point moves towards the viewer.
uniform float ufBlueCloser = 0.1;
uniform vec3 lightDirection = vec3(0.60, 0.60, 1.00);
uniform vec4 lightParam = vec4(0.08, 0.60, 0.95, 9.00);
uniform vec3 light1Direction = vec3(-0.60, 0.30, 1.00);
uniform vec4 light1Param = vec4(0.02, 0.20, 0.00, 9.00);
uniform vec3 light2Direction = vec3(-0.045, -0.96593, 0.25489);
uniform vec4 light2Param = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec3 light3Direction = vec3(0.93969, 0.0, -0.34202);
uniform vec4 light3Param = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec3 light4Direction = vec3(-0.93969, 0.0, -0.34202);
uniform vec4 light4Param = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec3 lightBkDirection = vec3(0.0, 0.0, 1.0);
uniform vec4 lightBkParam = vec4(0.5, 0.5, 0.0, 1.0);
uniform float uDarkBrightenFactor = 0.2;
uniform float objSpecular = 0.325;
uniform float objShininess = 9.0;
// Columns: ambient, diffuse, specular, (shininess, -, -, -).
uniform mat4 uBackMaterial = mat4(vec4(0.02745, 0.08627, 0.13725, 1.0), vec4(0.2, 0.2, 0.2, 1.0),
                                  vec4(0.398, 0.398, 0.398, 1.0), vec4(5.0, 0.0, 0.0, 0.0));
uniform float pointSize = 3.0;
uniform bool useFixedSize = false;
uniform float pointDis = 0.2;
uniform float ufPointSizeVariable = 0.2;
uniform float ufMaxPointSize = 100.0;
// x, y, width, height in pixels; published by the view.
uniform vec4 viewport;

out vec3 color;

// Outside the clip volume: a deleted point draws nothing.
const vec4 kOutOfView = vec4(2.0, 2.0, 0.0, 1.0);
// Texture bakes are stored in gamma space.
const bool enableGamma = true;

// Grows as the camera nears, so that a surface of points stays closed. No lower bound: an
// orthographic view gets a negative size and is expected to use the fixed size.
float pointSizeAt(float eyeZ)
{
    if (useFixedSize)
        return pointSize;
    float denominator = osg_ProjectionMatrix[2][3] == -1.0 ? eyeZ : 1.0;
    float size = ceil(-(pointDis * osg_ProjectionMatrix[1][1] / denominator) * viewport.z *
                      ufPointSizeVariable);
    return min(size, ufMaxPointSize);
}

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

Material materialMix(Material a, Material b, float f)
{
    return Material(mix(a.ambient, b.ambient, f), mix(a.diffuse, b.diffuse, f),
                    mix(a.specular, b.specular, f), mix(a.shininess, b.shininess, f));
}

// Returns (ambient, diffuse, specular) for one light; P is the unit eye-space position.
vec3 calcDirLight(vec3 L, vec4 param, vec3 N, vec3 P)
{
    float diff = max(0.0, dot(L, N)) * param.y;
    vec3 R = reflect(-L, N);
    float specular = pow(max(dot(-P, R), 0.0), max(1.0, param.w)) * param.z;
    return vec3(param.x, diff, specular);
}

vec3 calcMultiLight(vec3 N, vec3 P)
{
    return calcDirLight(lightDirection, lightParam, N, P) +
           calcDirLight(light1Direction, light1Param, N, P) +
           calcDirLight(light2Direction, light2Param, N, P) +
           calcDirLight(light3Direction, light3Param, N, P) +
           calcDirLight(light4Direction, light4Param, N, P);
}

vec3 texturedColor(vec3 N, vec3 P, bool frontFacing)
{
    vec3 surface = enableGamma ? pow(vColor, vec3(2.2)) : vColor;
    if (vFlag > 0) {
        vec3 row = texelFetch(colorIndex, vFlag, 0).rgb;
        surface = enableEditBlend ? mix(surface, row, mixedFactor) : row;
    }
    vec3 s =
        frontFacing ? calcMultiLight(N, P) : calcDirLight(lightBkDirection, lightBkParam, -N, P);
    vec3 lit = surface * (s.x + s.y + s.z);
    return enableGamma ? pow(lit, vec3(1.0 / 2.2)) : lit;
}

vec3 materialColor(vec3 N, bool frontFacing)
{
    Material frontM = materialTrans(vColor, objSpecular, objShininess);
    Material backM = useBackColor ? backMaterial() : recolour(backMaterial(), vColor);
    if (vFlag > 0) {
        vec3 row = texelFetch(colorIndex, vFlag, 0).rgb;
        Material selected = materialTrans(row, objSpecular, objShininess);
        if (enableEditBlend) {
            frontM = materialTrans(mix(vColor, row, mixedFactor), objSpecular, objShininess);
            backM = materialMix(backM, selected, mixedFactor);
        } else {
            frontM = selected;
            backM = recolour(backM, row);
        }
    }
    return frontFacing ? calcMaterial(frontM, N) : calcMaterial(backM, -N);
}

void main()
{
    color = vec3(0.0);
    if (vFlag < 0) {
        gl_Position = kOutOfView;
        return;
    }
    bool blueBigger = ubBlueBigger && !ubTexture && vColor.r < vColor.b;
    vec4 eye = osg_ModelViewMatrix * vec4(vPosition, 1.0);
    if (ubBlueCloser && blueBigger)
        eye.z += ufBlueCloser;
    gl_Position = osg_ProjectionMatrix * eye;
    gl_PointSize = pointSizeAt(eye.z) + (blueBigger ? ufBlueBigger : 0.0);

    vec3 N = osg_NormalMatrix * vNormal;
    // Facing by the direction to the eye holds up away from the view's centre.
    bool frontFacing = dot(N, -eye.xyz) > 0.0;
    color = ubTexture ? texturedColor(N, normalize(eye.xyz), frontFacing)
                      : materialColor(N, frontFacing);
}
