#version 330 core
// Uses every uniform it declares so that none is optimised away.
layout(location = 0) in vec3 position;
uniform mat4 u_mvp;
uniform mat3 u_m3;
uniform vec3 u_offset;
uniform float u_scale;
out vec3 v_pos;
void main()
{
    v_pos = u_m3 * position + u_offset;
    gl_Position = u_mvp * vec4(v_pos * u_scale, 1.0);
}
