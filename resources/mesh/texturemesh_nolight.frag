#version 410 core

in VertexOutData
{
    vec2 texCoord;
} fs_in;

out vec4 fragColor;

uniform sampler2D tex;

void main()
{
    fragColor = vec4(texture(tex, fs_in.texCoord).rgb, 1.0);
}
