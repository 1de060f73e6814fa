#version 410 core
// First pass of the older weighted blended transparency for editable meshes.
in VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec3 color;
    flat float state;
} fs_in;

layout(location = 0) out vec4 accum;
layout(location = 1) out float revealage;

uniform float alpha = 0.5;

float oitWeight(float z, float a)
{
    return a * clamp(0.03 / (1e-5 + pow(z / 200.0, 4.0)), 1e-2, 3e3);
}

// State colours by row; row 0 is unused.
uniform sampler1D colorIndex;

void main()
{
    vec3 surface = fs_in.state > 0.0 ? texelFetch(colorIndex, int(fs_in.state), 0).rgb
                                     : fs_in.color;
    vec3 n = normalize(gl_FrontFacing ? fs_in.normal : -fs_in.normal);
    vec3 color = surface * (0.3 + 0.7 * max(dot(n, vec3(0.0, 0.0, 1.0)), 0.0));
    accum = vec4(color * alpha, alpha) * oitWeight(-fs_in.vertex.z, alpha);
    revealage = alpha;
}
