#version 430

// Green marks a surface that takes shadow, red one that doesn't. Everything takes shadow until
// a state set says otherwise.
uniform bool bEnableShadow = true;

out vec4 fragColor;

void main()
{
    fragColor = bEnableShadow ? vec4(0.0, 1.0, 0.0, 1.0) : vec4(1.0, 0.0, 0.0, 1.0);
    gl_FragDepth = gl_FragCoord.z;
}
