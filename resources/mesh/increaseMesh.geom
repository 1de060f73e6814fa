#version 410 core

layout(points) in;
layout(triangle_strip, max_vertices = 3) out;

in VertexOutData
{
    flat uvec4 compressedData;
} gs_in[];

out GeomOutData
{
    vec3 vertex;
    vec3 normal;
    float dotVal;
    flat float weight;
} gs_out;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat4 osg_ViewMatrixInverse;

// Voxel step.
uniform float radius = 0.5;
uniform bool isCutPlaneEnable = false;
// The cut plane, in world space.
uniform vec3 direction;
uniform vec3 center;

const vec3 edgeStart[12] = vec3[](vec3(0, 0, 0), vec3(1, 0, 0), vec3(1, 1, 0), vec3(0, 1, 0),
                                  vec3(0, 0, 1), vec3(1, 0, 1), vec3(1, 1, 1), vec3(0, 1, 1),
                                  vec3(0, 0, 0), vec3(1, 0, 0), vec3(1, 1, 0), vec3(0, 1, 0));
const vec3 edgeDirection[12] = vec3[](vec3(1, 0, 0), vec3(0, 1, 0), vec3(-1, 0, 0), vec3(0, -1, 0),
                                      vec3(1, 0, 0), vec3(0, 1, 0), vec3(-1, 0, 0), vec3(0, -1, 0),
                                      vec3(0, 0, 1), vec3(0, 0, 1), vec3(0, 0, 1), vec3(0, 0, 1));

float signedIndex(uint magnitude, uint negative)
{
    return negative != 0u ? -float(magnitude) : float(magnitude);
}

// A rate is a 14-bit fraction of one step along the edge.
vec3 edgePoint(vec3 corner, uint edge, uint rate)
{
    vec3 start = corner + edgeStart[edge] * radius;
    vec3 end = corner + (edgeStart[edge] + edgeDirection[edge]) * radius;
    return mix(start, end, float(rate) * 0.00006103515625);
}

void main()
{
    uvec4 d = gs_in[0].compressedData;
    vec3 index = vec3(signedIndex((d.x >> 11) & 0xFFFFFu, d.x >> 31),
                      signedIndex(((d.x & 0x3FFu) << 10) | (d.y >> 22), (d.x >> 10) & 1u),
                      signedIndex((d.y >> 1) & 0xFFFFFu, (d.y >> 21) & 1u));
    // Voxel numbers name the lower corner; the half step moves them to the grid's centre.
    vec3 corner = (index + 0.5) * radius;

    vec3 p[3];
    p[0] = edgePoint(corner, d.z >> 28, (d.z >> 14) & 0x3FFFu);
    p[1] = edgePoint(corner, (d.z >> 10) & 0xFu, ((d.z & 0x3FFu) << 4) | (d.w >> 28));
    p[2] = edgePoint(corner, (d.w >> 24) & 0xFu, (d.w >> 10) & 0x3FFFu);

    vec3 eye[3];
    for (int i = 0; i < 3; ++i)
        eye[i] = (osg_ModelViewMatrix * vec4(p[i], 1.0)).xyz;
    vec3 normal = normalize(cross(eye[1] - eye[0], eye[2] - eye[0]));

    for (int i = 0; i < 3; ++i) {
        gs_out.vertex = eye[i];
        gs_out.normal = normal;
        gs_out.dotVal = 1.0;
        if (isCutPlaneEnable)
            gs_out.dotVal = dot((osg_ViewMatrixInverse * vec4(eye[i], 1.0)).xyz - center, direction);
        gs_out.weight = float(d.w & 0x3FFu);
        gl_Position = osg_ModelViewProjectionMatrix * vec4(p[i], 1.0);
        EmitVertex();
    }
    EndPrimitive();
}
