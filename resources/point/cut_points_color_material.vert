#version 410 core
// Points in their own colours with the material model, painted by the cut plane.
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 2) in vec3 vColor;
layout(location = 4) in int vFlag;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ProjectionMatrix;
uniform mat3 osg_NormalMatrix;
uniform mat4 osg_ViewMatrixInverse;
// The cut plane in world space; points below it take selectIndex, 0 paints nothing.
uniform vec3 direction;
uniform vec3 center;
uniform float selectIndex = 1.0;

// False gives the back the vertex colour.
uniform bool useBackColor = true;
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
uniform float pointSize = 3.0;
uniform bool useFixedSize = false;
uniform float pointDis = 0.2;
uniform float ufPointSizeVariable = 0.2;
uniform float ufMaxPointSize = 100.0;
// x, y, width, height in pixels; published by the view.
uniform vec4 viewport;

out vec3 color;
flat out float state;

// Outside the clip volume: a deleted point draws nothing.
const vec4 kOutOfView = vec4(2.0, 2.0, 0.0, 1.0);

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

// The plane replaces any earlier selection: below it selectIndex, above it plain.
float cutState(vec4 eye)
{
    vec3 world = (osg_ViewMatrixInverse * eye).xyz;
    return dot(world - center, direction) < 0.0 ? selectIndex : 0.0;
}

void main()
{
    color = vec3(0.0);
    state = -1.0;
    if (vFlag < 0) {
        gl_Position = kOutOfView;
        return;
    }
    vec4 eye = osg_ModelViewMatrix * vec4(vPosition, 1.0);
    gl_Position = osg_ProjectionMatrix * eye;
    gl_PointSize = pointSizeAt(eye.z);
    state = cutState(eye);
    vec3 N = osg_NormalMatrix * vNormal;
    Material frontM = materialTrans(vColor, objSpecular, objShininess);
    Material backM = useBackColor ? backMaterial() : recolour(backMaterial(), vColor);
    if (state > 0.0) {
        vec3 row = texelFetch(colorIndex, int(state), 0).rgb;
        frontM = materialTrans(row, objSpecular, objShininess);
        backM = recolour(backM, row);
    }
    // Facing by the direction to the eye holds up away from the view's centre.
    bool frontFacing = dot(N, -eye.xyz) > 0.0;
    color = frontFacing ? calcMaterial(frontM, N) : calcMaterial(backM, -N);
}
