#version 410 core
// The whole live cloud with the split Phong material model.
// A variant may leave out what its cloud never uses: a software rasteriser pays for both
// sides of a branch, taken or not.
#ifndef WITH_FRAME_MATRICES
#define WITH_FRAME_MATRICES 1
#endif
#ifndef WITH_CUT_PLANE
#define WITH_CUT_PLANE 1
#endif
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 2) in vec3 vColor;
layout(location = 3) in float vState;
layout(location = 4) in int inFrameId;

uniform mat4 modelViewProjectMatrix;
uniform mat4 modelViewMatrix;
uniform mat4 projectMatrix;
uniform mat4 modelMatrix;
uniform mat3 normalMatrix;

uniform bool isCutPlaneExist = false;
uniform vec3 direction;
uniform vec3 center;
uniform float selectIndex = 1.0;
uniform sampler1D colorIndex;

uniform vec3 front = vec3(0.19, 0.53, 0.81);
// Columns: ambient, diffuse, specular, (shininess, 0, 0, 0).
uniform mat4 uBackMaterial = mat4(vec4(0.02745, 0.08627, 0.13725, 1.0), vec4(0.2, 0.2, 0.2, 1.0),
                                  vec4(0.398, 0.398, 0.398, 1.0), vec4(5.0, 0.0, 0.0, 0.0));
uniform float objSpecular = 0.325;
uniform float objShininess = 9.0;
uniform bool ubTexture = false;
uniform float uDarkBrightenFactor = 0.2;
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
uniform bool specularSeparate = false;

uniform vec4 viewport;
uniform bool showColorSpectrum = true;
uniform bool hasColor = false;
uniform bool bRigidScan = true;
uniform float pointSize = 3.0;
uniform float pointDis = 0.2;
uniform bool useFixedSize = true;
uniform sampler2D texFrameMatrix;
uniform vec2 texFrameMatrixPicSize;

out vec4 vertexColor;

// Outside the clip volume: the vertex draws nothing.
void discardVertex()
{
    gl_Position = vec4(-2.0, -2.0, -2.0, 1.0);
    gl_PointSize = 3.0;
    vertexColor = vec4(0.0);
}

vec3 calcDirLight(vec3 n, vec3 ecpos, vec3 l, float a, float d, float s, float shin)
{
    float diff = max(0.0, dot(l, n)) * d;
    vec3 reflectDir = reflect(-l, n);
    float specular = pow(max(dot(-ecpos, reflectDir), 0.0), max(1.0, shin)) * s;
    return vec3(a, diff, specular);
}

vec4 frameColumn(int frameId, int i)
{
    float current = float(4 * frameId + i);
    float w = texFrameMatrixPicSize.x;
    float h = texFrameMatrixPicSize.y;
    return textureLod(texFrameMatrix, vec2(mod(current, w) / w, floor(current / w) / h), 0.0);
}

void main()
{
    vertexColor = vec4(0.0);
    if (vState < 0.0) {
        discardVertex();
        return;
    }
    float posAdded = abs(vPosition.x) + abs(vPosition.y) + abs(vPosition.z);
    float fAdded = posAdded + abs(vNormal.x) + abs(vNormal.y) + abs(vNormal.z);
    // Never written, or at the origin, which means invalid.
    if (fAdded < 1E-6 || posAdded < 1E-6) {
        discardVertex();
        return;
    }
    vec4 position = vec4(vPosition, 1.0);
    vec3 normal = vNormal;
#if WITH_FRAME_MATRICES
    if (bRigidScan) {
        gl_Position = modelViewProjectMatrix * position;
    } else {
        if (inFrameId < 0)
            return;
        mat4 frameMatrix = mat4(frameColumn(inFrameId, 0), frameColumn(inFrameId, 1),
                                frameColumn(inFrameId, 2), frameColumn(inFrameId, 3));
        gl_Position = modelViewProjectMatrix * frameMatrix * position;
        position = frameMatrix * position;
        normal = mat3(frameMatrix) * normal;
    }
#else
    gl_Position = modelViewProjectMatrix * position;
#endif
    vec4 camerapos = modelViewMatrix * position;

    vec3 color = front;
    if (showColorSpectrum && hasColor)
        color = vColor;

    float state = vState;
    bool isUnderPlane = false;
#if WITH_CUT_PLANE
    if (isCutPlaneExist) {
        vec4 worldPos = modelMatrix * position;
        float dotValue = dot(worldPos.xyz - center, direction);
        isUnderPlane = dotValue < 0.0;
        state = isUnderPlane ? selectIndex : vState;
        if (state < 0.0) {
            discardVertex();
            return;
        }
    }
#endif
    // Most points have no state: fetch the table only for those that do.
    if (state > 0.0)
        color = texelFetch(colorIndex, int(state), 0).rgb;

    if (useFixedSize) {
        gl_PointSize = pointSize;
    } else {
        float d = projectMatrix[2][3] == -1.0 ? camerapos.z : 1.0;
        gl_PointSize = min(ceil(-(pointDis * projectMatrix[1][1] / d) * viewport.z * 0.6), 100.0);
    }

    vec3 n = normalize(normalMatrix * normal);
    vec3 ecpos = normalize(camerapos.xyz);
    if (ubTexture)
        color = vColor;
    vec3 result;
    if (ubTexture) {
        // The classic five-light sum, in linear space.
        vec3 surface = pow(color, vec3(2.2));
        vec3 side = dot(n, -ecpos) > 0.0 ? n : -n;
        vec3 sum = calcDirLight(side, ecpos, normalize(lightDirection), lightParam.x, lightParam.y,
                                lightParam.z, lightParam.w);
        sum += calcDirLight(side, ecpos, normalize(light1Direction), light1Param.x,
                            light1Param.y, light1Param.z, light1Param.w);
        sum += calcDirLight(side, ecpos, normalize(light2Direction), light2Param.x,
                            light2Param.y, light2Param.z, light2Param.w);
        sum += calcDirLight(side, ecpos, normalize(light3Direction), light3Param.x,
                            light3Param.y, light3Param.z, light3Param.w);
        sum += calcDirLight(side, ecpos, normalize(light4Direction), light4Param.x,
                            light4Param.y, light4Param.z, light4Param.w);
        result = pow(surface * (sum.x + sum.y + sum.z), vec3(1.0 / 2.2));
    } else {
        bool frontSide = dot(n, -ecpos) > 0.0;
        vec3 N = frontSide ? n : -n;
        vec3 ambientM = frontSide ? color : uBackMaterial[0].rgb;
        vec3 diffuseM = frontSide ? color : uBackMaterial[1].rgb;
        vec3 specularM = frontSide ? vec3(objSpecular) : uBackMaterial[2].rgb;
        float shininess = frontSide ? objShininess : uBackMaterial[3].x;
        if (isUnderPlane && selectIndex > 0.0 && !frontSide) {
            ambientM = color;
            diffuseM = color;
        }
        vec3 V = vec3(0.0, 0.0, 1.0);
        result = vec3(0.0);
        for (int i = 0; i < 2; ++i) {
            vec3 L = normalize(i == 0 ? lightDirection : light1Direction);
            vec4 param = i == 0 ? lightParam : light1Param;
            float nl = dot(N, L);
            float NdotL = uDarkBrightenFactor + nl * (1.0 - uDarkBrightenFactor);
            vec3 H = normalize(L + V);
            float pf = nl == 0.0 ? 0.0 : pow(max(0.0, dot(N, H)), shininess);
            result += param.x * ambientM + param.y * diffuseM * NdotL + param.z * specularM * pf;
        }
    }
    vertexColor = vec4(result, 1.0);
}
