#version 430

in vec2 texCoord;

layout(binding = 0) uniform sampler2D colorMap;
layout(binding = 1) uniform sampler2D pcssMap;
// A second, wider shadow image that fills in.
layout(binding = 2) uniform sampler2D pcssAuMap;
layout(binding = 3) uniform sampler2D faceMaskMap;
uniform bool enableMask = true;
uniform float shadowStrength = 0.0;

out vec4 fragColor;

void main()
{
    vec4 color = texture(colorMap, texCoord);
    vec4 mask = enableMask ? texture(faceMaskMap, texCoord) : vec4(0.0, 1.0, 0.0, 1.0);
    float visibility = min(texture(pcssAuMap, texCoord).r * 0.3 + texture(pcssMap, texCoord).r, 1.0);
    float strength = clamp(shadowStrength, 0.0, 1.0);
    visibility = (1.0 - strength) * visibility;
    fragColor = mask.g < 0.5 ? color : vec4(visibility * color.rgb, 1.0);
}
