#version 430 core

// Green marks the pixels that scatter, red the rest.
uniform bool bEnableSSSS = true;

out vec4 fragColor;

void main()
{
    fragColor = bEnableSSSS ? vec4(0.0, 1.0, 0.0, 1.0) : vec4(1.0, 0.0, 0.0, 1.0);
    gl_FragDepth = gl_FragCoord.z;
}
