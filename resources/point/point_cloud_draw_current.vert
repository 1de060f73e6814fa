#version 410 core
// The program of platforms without Metal: the same stages as the Apple one, kept in step.
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 2) in float vFrameIdx;

uniform mat4 modelMatrix;
uniform mat4 modelViewMatrix;
uniform mat3 normalMatrix;
uniform mat4 projectionMatrix;
uniform mat4 modelViewProjectionMatrix;

uniform bool isCutPlaneExist = false;
uniform vec3 direction;
uniform vec3 center;
uniform float selectIndex = 0.0;

uniform vec3 baseColor = vec3(1.0, 0.0, 0.0);
uniform float pointSize = 5.0;
uniform float zOffset = 0.001;
uniform float alphaVal = 0.5;
uniform uint lightMode = 0u;
uniform vec3 lightPos = vec3(0.0, 0.0, 60.0);
uniform bool scanDistanceMapToLaserColor = false;
uniform int segmentSize = 0;
// Row 0: the band limits in pairs; row 1: three floats of colour a band.
uniform sampler2D distanceTex;

out vec4 vertexColor;

void discardVertex()
{
    gl_Position = vec4(-2.0, -2.0, -2.0, 1.0);
    vertexColor = vec4(0.0);
}

float limit(int i) { return texelFetch(distanceTex, ivec2(i, 0), 0).r; }

vec3 bandColor(int band)
{
    return vec3(texelFetch(distanceTex, ivec2(band * 3, 1), 0).r,
                texelFetch(distanceTex, ivec2(band * 3 + 1, 1), 0).r,
                texelFetch(distanceTex, ivec2(band * 3 + 2, 1), 0).r);
}

void main()
{
    vec3 norm = vNormal;
    if (isnan(norm.x) || isnan(norm.y) || isnan(norm.y) || abs(norm.x) > 10.0 ||
        abs(norm.y) > 10.0 || abs(norm.z) > 10.0 ||
        abs(norm.x) + abs(norm.y) + abs(norm.z) < 1E-6 ||
        abs(vPosition.x) + abs(vPosition.y) + abs(vPosition.z) < 1E-6) {
        discardVertex();
        return;
    }
    vec4 position = vec4(vPosition, 1.0);
    if (isCutPlaneExist && selectIndex < 0.0) {
        vec4 worldPos = modelMatrix * position;
        if (dot(worldPos.xyz - center, direction) < 0.0) {
            discardVertex();
            return;
        }
    }
    vec3 rgb = baseColor;
    if (scanDistanceMapToLaserColor && segmentSize > 0) {
        float z = vPosition.z;
        float minDis = limit(1);
        float maxDis = limit((segmentSize - 1) * 2);
        rgb = vec3(1.0);
        if (z < minDis) {
            rgb = bandColor(0);
        } else if (z >= maxDis) {
            rgb = bandColor(segmentSize - 1);
        } else {
            for (int i = 1; i < segmentSize - 1; ++i) {
                if (limit(2 * i) <= z && z < limit(2 * i + 1)) {
                    rgb = bandColor(i);
                    break;
                }
            }
        }
    }
    vec4 posEye = modelViewMatrix * position;
    if (lightMode != 0u) {
        vec3 surfaceNormal = normalize(normalMatrix * norm);
        vec3 lightNormal = lightMode == 1u ? normalize(lightPos - posEye.xyz) : vec3(0.0, 0.0, 1.0);
        float d = dot(surfaceNormal, lightNormal);
        rgb *= max(0.45, abs(d));
    }
    vertexColor = vec4(rgb, alphaVal);
    posEye.z += zOffset;
    gl_Position = projectionMatrix * posEye;
    gl_PointSize = pointSize;
}
