#version 410 core

in GeomOutData
{
    vec3 vertex;
    flat vec2 lightTerm;
} fs_in;

out vec4 fragColor;

uniform vec3 front = vec3(0.05, 0.695, 1.0);
uniform vec4 lightParam = vec4(0.5, 0.5, 0.15, 128.0);

void main()
{
    // Seen from behind, a face is lit as well.
    float diff = gl_FrontFacing ? fs_in.lightTerm.x : -fs_in.lightTerm.x;
    vec3 surface = front;
    fragColor = vec4(surface * (lightParam.x + diff) + fs_in.lightTerm.y, 1.0);
}
