#version 430 core

layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 4) in int vFlag;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;
uniform mat4 osg_ViewMatrixInverse;
// The cut plane, in world space.
uniform vec3 direction;
uniform vec3 center;
// Range and count of the distances on both sides, for the cut plane's client.
layout(std430, binding = 0) buffer cutInfo
{
    int info[];
};
uniform bool useCutInfo = false;

out VertexOutData
{
    vec3 vertex;
    vec3 normal;
    flat float state;
    float dotVal;
} vs_out;

void main()
{
    vec4 eye = osg_ModelViewMatrix * vec4(vPosition, 1.0);
    vs_out.vertex = eye.xyz;
    vs_out.normal = normalize(osg_NormalMatrix * vNormal);
    vs_out.state = float(vFlag);
    vs_out.dotVal = dot((osg_ViewMatrixInverse * eye).xyz - center, direction);
    if (useCutInfo) {
        // Distances as float bits: non-negative floats order as their bits do.
        int bits = floatBitsToInt(abs(vs_out.dotVal));
        if (vs_out.dotVal < 0.0) {
            atomicMax(info[0], bits);
            atomicMin(info[1], bits);
            atomicAdd(info[4], 1);
        } else {
            atomicMin(info[2], bits);
            atomicMax(info[3], bits);
        }
    }
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
