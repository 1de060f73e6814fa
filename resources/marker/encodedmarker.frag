#version 410 core

struct Fragment {
    float start;
    float end;
    float padding0;
    float padding1;
};

// Filled by the host as 272 bytes on binding point 0 (the default of every block).
layout(std140) uniform EcodedFragments
{
    float radius;
    float innerRadiusRatio;
    float medialRadiusRatio;
    float externalRadiusRatio;
    float outermostRadiusRatio;
    int numFragment;
    int padding0;
    int padding1;
    Fragment f[15];
};

uniform vec4 backColor = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec4 frontColor = vec4(1.0, 1.0, 1.0, 1.0);

in vec3 vertex;
out vec4 fragColor;

// Whether the direction of q falls in one of the pattern's arcs, ends included.
bool isFragment(vec2 q)
{
    float angle = degrees(atan(q.y, q.x));
    if (angle < 0.0)
        angle += 360.0;
    for (int i = 0; i < numFragment; ++i) {
        if (angle >= f[i].start && angle <= f[i].end)
            return true;
    }
    return false;
}

void main()
{
    fragColor = backColor;
    float d = length(vertex) / radius;
    if (d > outermostRadiusRatio)
        discard;
    if (d < innerRadiusRatio)
        fragColor = frontColor;
    else if (d >= medialRadiusRatio && d <= externalRadiusRatio && isFragment(vertex.xy))
        fragColor = frontColor;
    else
        discard;
    if (!gl_FrontFacing)
        fragColor.a *= 0.3;
}
