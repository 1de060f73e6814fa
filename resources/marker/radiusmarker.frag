#version 410 compatibility

in vec2 ParamCoords;
flat in vec2 Radius;
flat in vec4 OuterColor;
flat in vec4 InnerColor;
flat in vec4 BackColor;

out vec4 fragColor;

void main()
{
    float d = Radius.x * length(ParamCoords);
    if (d > Radius.x)
        discard;
    vec4 color = d <= Radius.y ? InnerColor : OuterColor;
    // Seen from behind: the same rings, faint.
    if (!gl_FrontFacing)
        color.a *= 0.4;
    fragColor = color;
}
