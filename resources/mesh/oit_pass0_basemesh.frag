#version 410 core
// First pass of the older weighted blended transparency: accumulates the premultiplied
// colour and the revealage of each transparent fragment.
in VertexOutData
{
    vec3 vertex;
    vec3 normal;
} fs_in;

layout(location = 0) out vec4 accum;
layout(location = 1) out float revealage;

uniform vec3 front = vec3(0.5, 0.5, 0.5);
uniform vec3 back = vec3(0.9, 0.85, 0.44);
uniform float alpha = 0.5;

float oitWeight(float z, float a)
{
    return a * clamp(0.03 / (1e-5 + pow(z / 200.0, 4.0)), 1e-2, 3e3);
}

void main()
{
    vec3 n = normalize(gl_FrontFacing ? fs_in.normal : -fs_in.normal);
    float diffuse = max(dot(n, vec3(0.0, 0.0, 1.0)), 0.0);
    vec3 surface = gl_FrontFacing ? front : back;
    vec3 color = surface * (0.3 + 0.7 * diffuse);
    float w = oitWeight(-fs_in.vertex.z, alpha);
    accum = vec4(color * alpha, alpha) * w;
    revealage = alpha;
}
