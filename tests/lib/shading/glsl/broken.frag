#version 330 core
out vec4 fragColor;
void main()
{
    fragColor = vec4(undeclared_value, 1.0) // missing semicolon and an unknown name
}
