#version 410 core
// Composite of the transparent layers: the screen quad, in front of everything.
layout(location = 0) in vec2 vPosition;
layout(location = 3) in vec2 vTexCoord;

out vec2 texCoord;

void main()
{
    texCoord = vTexCoord;
    gl_Position = vec4(vPosition, 0.00001, 1.0);
}
