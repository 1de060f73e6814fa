#version 410 compatibility

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ProjectionMatrix;
uniform vec4 viewport;
uniform vec3 centerPos = vec3(0.0, 0.0, 0.0);
uniform vec2 radius = vec2(1.0, 0.5);
uniform float innerDiameterTheshold = 4.0;
uniform vec4 frontExternalColor = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec4 frontInnerColor = vec4(1.0, 1.0, 1.0, 1.0);

in vec3 vertex;
out vec4 fragColor;

void main()
{
    float d = length(vertex - centerPos);
    if (d > radius.x)
        discard;
    float w = 1.0;
    if (osg_ProjectionMatrix[3][3] == 0.0)
        w = -(osg_ModelViewMatrix * vec4(centerPos, 1.0)).z;
    float screenSize = ceil(radius.y * 2.0 * osg_ProjectionMatrix[0][0] / w * (viewport.z / 2.0));
    // Too small for two rings: one colour, no flicker.
    vec4 outer = screenSize < innerDiameterTheshold ? frontInnerColor : frontExternalColor;
    vec4 color = d <= radius.y ? frontInnerColor : outer;
    if (!gl_FrontFacing)
        color.a *= 0.4;
    fragColor = color;
}
