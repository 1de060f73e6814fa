#version 410 compatibility

in vec4 gColor;
out vec4 fragColor;

void main()
{
    fragColor = gColor;
}
