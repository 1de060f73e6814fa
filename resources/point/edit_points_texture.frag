#version 410 core
// Textured points: the texel, or the selection row, times the light sums of the vertex stage.
in vec3 lightIntensity;
in vec2 texCoord;
flat in float state;
in vec3 normal;
out vec4 fragColor;

uniform sampler2D tex;
uniform vec3 back = vec3(0.03, 0.556, 0.8);
// False gives the back the texture's colour.
uniform bool useBackColor = true;
uniform bool specularSeparate = false;
uniform sampler1D colorIndex;
uniform bool enableEditBlend = false;
uniform float mixedFactor = 0.5;

void main()
{
    vec3 surface = texture(tex, texCoord).rgb;
    vec3 behind = back;
    if (state > 0.0) {
        vec3 row = texelFetch(colorIndex, int(state), 0).rgb;
        surface = enableEditBlend ? mix(surface, row, mixedFactor) : row;
        behind = surface;
    }
    vec3 s = lightIntensity;
    vec3 c;
    if (normal.z > 0.0)
        c = specularSeparate ? surface * (s.x + s.y) + vec3(s.z) : surface * (s.x + s.y + s.z);
    else
        c = (useBackColor ? behind : surface) * (s.x + s.y + s.z);
    fragColor = vec4(c, 1.0);
}
