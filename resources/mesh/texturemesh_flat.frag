#version 410 core

in GeomOutData
{
    vec3 vertex;
    vec2 texCoord;
    flat vec2 lightTerm;
} fs_in;

out vec4 fragColor;

uniform sampler2D tex;
// Declared for clients that set it; the back shows the front's colour.
uniform vec3 back = vec3(0.9, 0.85, 0.44);
uniform vec4 lightParam = vec4(0.5, 0.5, 0.15, 128.0);

void main()
{
    // Seen from behind, a face is lit as well.
    float diff = gl_FrontFacing ? fs_in.lightTerm.x : -fs_in.lightTerm.x;
    vec3 surface = texture(tex, fs_in.texCoord).rgb;
    fragColor = vec4(surface * (lightParam.x + diff) + fs_in.lightTerm.y, 1.0);
}
