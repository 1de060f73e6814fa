#version 410 core
// Composite: the averaged transparent colour over the opaque layer, by the total transmittance
// that the zeroth moment gives. The result is premultiplied.
in vec2 texCoord;

out vec4 fragColor;

uniform sampler2D texB0;
uniform sampler2D texTransColor;
uniform sampler2D texOpaColor;

void main()
{
    float b0 = texture(texB0, texCoord).r;
    vec4 opaque = texture(texOpaColor, texCoord);
    if (b0 < 0.00001) {
        fragColor = vec4(opaque.a * opaque.rgb, opaque.a);
        return;
    }
    float T = exp(-b0);
    vec4 trans = texture(texTransColor, texCoord);
    // Dividing by the summed weights turns the weighted sum into an average.
    fragColor = vec4((1.0 - T) / trans.a * trans.rgb + T * opaque.a * opaque.rgb,
                     1.0 - T + T * opaque.a);
}
