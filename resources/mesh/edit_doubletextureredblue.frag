#version 410 core

in GeomOutData
{
    vec3 vertex;
    vec3 normal;
    vec2 texCoord;
    vec2 texCoord2nd;
    flat float state;
} fs_in;

out vec4 fragColor;


void main()
{
    // A negative second u: the second texture doesn't cover this point.
    fragColor = fs_in.texCoord2nd.x < 0.0 ? vec4(1.0, 0.0, 0.0, 1.0) : vec4(0.0, 0.0, 1.0, 1.0);
}
