#version 410 core
// The program of platforms without Metal: the same stages as the Apple one, kept in step.
in vec4 vertexColor;
out vec4 fragColor;

void main() { fragColor = vertexColor; }
