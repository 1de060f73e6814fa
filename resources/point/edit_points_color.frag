#version 410 core
// Lighting happened per vertex: points have no faces to shade.
in vec3 color;
out vec4 fragColor;

void main()
{
    fragColor = vec4(color, 1.0);
}
