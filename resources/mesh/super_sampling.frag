#version 410 core

in VertexOutData
{
    vec2 texCoord;
} fs_in;

out vec4 fragColor;

uniform sampler2D colorTex;
uniform sampler2D depthTex;

// Fills pinholes of a point-drawn image: the centre and its four neighbours, empty taps left out.
void main()
{
    const ivec2 taps[5] = ivec2[](ivec2(0, 0), ivec2(-1, 0), ivec2(1, 0), ivec2(0, 1), ivec2(0, -1));
    vec2 texel = 1.0 / vec2(textureSize(colorTex, 0));
    vec3 color = vec3(0.0);
    float depth = 0.0;
    int count = 0;
    for (int i = 0; i < 5; ++i) {
        vec2 uv = fs_in.texCoord + vec2(taps[i]) * texel;
        vec4 c = texture(colorTex, uv);
        if (c.a == 0.0)
            continue;
        color += c.rgb;
        depth += texture(depthTex, uv).r;
        ++count;
    }
    if (count == 0)
        discard;
    fragColor = vec4(color / float(count), 1.0);
    gl_FragDepth = depth / float(count);
}
