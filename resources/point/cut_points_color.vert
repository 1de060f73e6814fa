#version 410 core
// Points in their own colours, painted by the cut plane, optionally blended with the row.
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

uniform vec3 back = vec3(0.03, 0.556, 0.8);
// False gives the back the vertex colour.
uniform bool useBackColor = true;
uniform sampler1D colorIndex;
uniform bool enableEditBlend = false;
uniform float mixedFactor = 0.5;
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

// Points have no faces: the eye-space normal's z tells the side.
vec3 shade(vec3 surface, vec3 behind, vec3 N, vec3 P)
{
    if (N.z > 0.0) {
        vec3 s = calcMultiLight(N, P);
        return specularSeparate ? surface * (s.x + s.y) + vec3(s.z) : surface * (s.x + s.y + s.z);
    }
    vec3 s = calcDirLight(lightBkDirection, lightBkParam, -N, P);
    return behind * (s.x + s.y + s.z);
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
    vec3 surface = vColor;
    vec3 behind = useBackColor ? back : vColor;
    if (state > 0.0) {
        vec3 row = texelFetch(colorIndex, int(state), 0).rgb;
        surface = enableEditBlend ? mix(vColor, row, mixedFactor) : row;
        behind = surface;
    }
    color = shade(surface, behind, osg_NormalMatrix * vNormal, normalize(eye.xyz));
}
