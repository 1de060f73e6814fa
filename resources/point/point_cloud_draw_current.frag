#version 410 core
// The program of platforms without Metal: the same stages as the Apple one, kept in step.
in vec4 vertexColor;
uniform bool isShowFront = false;
out vec4 fragColor;

void main()
{
    fragColor = vertexColor;
    // Always in front of the cloud when asked.
    gl_FragDepth = isShowFront ? 0.0 : gl_FragCoord.z;
}
