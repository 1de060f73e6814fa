#version 410 core
// Second pass of the older weighted blended transparency: resolves the accumulated colour
// over what the opaque pass left.
in vec2 texCoord;
out vec4 fragColor;

uniform sampler2D accumTexture;
uniform sampler2D revealageTexture;

void main()
{
    float revealage = texture(revealageTexture, texCoord).r;
    // Nothing transparent here: leave the opaque image as it is.
    if (revealage >= 1.0)
        discard;
    vec4 accum = texture(accumTexture, texCoord);
    vec3 average = accum.rgb / max(accum.a, 1e-5);
    fragColor = vec4(average, 1.0 - revealage);
}
