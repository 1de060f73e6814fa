#version 430

in vec2 depth;

// The light's depth, stored as colour so that the PCSS pass can sample it as a plain texture.
layout(location = 0) out float fragDepth;

void main()
{
    fragDepth = depth.x / depth.y;
}
