#version 410 core

in VertexOutData
{
    float offset;
    vec2 lightTerm;
} fs_in;

out vec4 fragColor;

// A colour ramp here, not a selection table.
uniform sampler1D colorIndex;
uniform vec2 online = vec2(0.0, 2.0);
uniform int clipBottom = 1;
uniform int clipTop = 1;
uniform int useClipColor = -1;
uniform vec3 clipColor;
uniform float ambient = 0.25;

void main()
{
    float uv = (fs_in.offset - online.x) / (online.y - online.x);
    if ((uv < 0.0 && clipBottom > 0) || (uv > 1.0 && clipTop > 0))
        discard;
    bool outside = uv < 0.0 || uv > 1.0;
    vec3 color = outside && useClipColor > 0 ? clipColor : texture(colorIndex, clamp(uv, 0.0, 1.0)).rgb;
    fragColor = vec4(color * (ambient + abs(fs_in.lightTerm.x)) + fs_in.lightTerm.y, 1.0);
}
