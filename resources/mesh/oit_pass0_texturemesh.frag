#version 410 core
// First pass of the older weighted blended transparency for textured meshes.
in VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec2 texCoord;
} fs_in;

layout(location = 0) out vec4 accum;
layout(location = 1) out float revealage;

uniform sampler2D tex;
uniform float alpha = 0.5;

float oitWeight(float z, float a)
{
    return a * clamp(0.03 / (1e-5 + pow(z / 200.0, 4.0)), 1e-2, 3e3);
}

void main()
{
    vec3 n = normalize(gl_FrontFacing ? fs_in.normal : -fs_in.normal);
    float diffuse = max(dot(n, vec3(0.0, 0.0, 1.0)), 0.0);
    vec3 color = texture(tex, fs_in.texCoord).rgb * (0.3 + 0.7 * diffuse);
    float w = oitWeight(-fs_in.vertex.z, alpha);
    accum = vec4(color * alpha, alpha) * w;
    revealage = alpha;
}
