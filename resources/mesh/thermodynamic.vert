#version 410 core

layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 5) in float vOffset;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;

out VertexOutData
{
    float offset;
    vec2 lightTerm;
} vs_out;

// Lit here, with a fixed view along +z.
void main()
{
    vec3 N = normalize(osg_NormalMatrix * vNormal);
    float diff = dot(N, vec3(0.0, 0.0, 1.0));
    float highlight = pow(diff * diff, 10.0);
    vs_out.lightTerm = vec2(diff * 0.7, highlight * 0.2);
    vs_out.offset = vOffset;
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
