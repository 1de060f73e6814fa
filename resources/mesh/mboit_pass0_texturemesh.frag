#version 410 core
// First transparent pass of textured meshes: the optical depth of the layer and its four power
// moments of depth, summed over all layers of the pixel by additive blending.
in GeomOutData
{
    vec3 normal;
    vec2 texCoord;
} fs_in;

// Zeros to the layers this pass doesn't feed: their blending leaves them as they are.
layout(location = 0) out vec4 outOpaque;
layout(location = 1) out vec4 outB14;
layout(location = 2) out float outB0;
layout(location = 3) out vec4 outColor;

// Below 1.0: a fully opaque layer has infinite optical depth.
uniform float alpha = 0.7;
uniform vec2 viewport = vec2(1.0, 1.0);

void main()
{
    float a = -log(1.0 - alpha);
    float z = gl_FragCoord.z;
    float z2 = z * z;
    outOpaque = vec4(0.0);
    outColor = vec4(0.0);
    outB0 = a;
    outB14 = vec4(a * z, a * z2, a * z2 * z, a * z2 * z2);
}
