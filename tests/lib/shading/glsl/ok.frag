#version 330 core
uniform vec4 u_color;
uniform vec2 u_uv;
uniform mat2 u_m2;
uniform int u_mode;
uniform uint u_flags;
uniform bool u_enabled;
out vec4 fragColor;
void main()
{
    vec2 uv = u_m2 * u_uv;
    float on = u_enabled ? 1.0 : 0.0;
    fragColor = u_color * on + vec4(uv, float(u_mode), float(u_flags));
}
