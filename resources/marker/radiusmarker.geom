#version 410 compatibility

layout(points) in;
layout(triangle_strip, max_vertices = 6) out;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ProjectionMatrix;
uniform vec4 viewport;

// Local normal of the target; shorter than 0.9 means "face the camera".
uniform vec3 normal = vec3(0.0, 0.0, 0.0);
// x: outer radius, y: inner radius.
uniform vec2 radius = vec2(1.0, 0.5);
uniform float depthOffset = 0.0;
// Below this inner diameter in pixels the two rings would flicker: one colour instead.
uniform float innerDiameterTheshold = 4.0;
uniform vec4 frontExternalColor = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec4 frontInnerColor = vec4(1.0, 1.0, 1.0, 1.0);
uniform vec4 backExternalColor = vec4(0.0, 0.0, 0.0, 1.0);
uniform vec4 backInnerColor = vec4(1.0, 1.0, 1.0, 1.0);

in vec3 centre[];

out vec2 ParamCoords;
flat out vec2 Radius;
flat out vec4 OuterColor;
flat out vec4 InnerColor;
flat out vec4 BackColor;

// The true position, with the depth of one moved towards the side the normal faces, so the
// target stays above the surface from either side.
vec4 getOffset(vec3 pos, vec3 nor)
{
    vec4 eye = osg_ModelViewMatrix * vec4(pos, 1.0);
    vec3 eyeNormal = mat3(osg_ModelViewMatrix) * nor;
    float dirSign = mix(-1.0, 1.0, step(0.0, dot(eyeNormal, -eye.xyz)));
    vec4 clip = osg_ProjectionMatrix * eye;
    vec4 moved = osg_ProjectionMatrix * vec4(eye.xy, eye.z + depthOffset * dirSign, eye.w);
    clip.z = moved.z / moved.w * clip.w;
    return clip;
}

void corner(vec3 pos, vec3 nor, vec2 coords)
{
    gl_Position = getOffset(pos, nor);
    ParamCoords = coords;
    EmitVertex();
}

void main()
{
    vec3 nor = normal;
    if (length(nor) < 0.9)
        nor = vec3(osg_ModelViewMatrix[0][2], osg_ModelViewMatrix[1][2], osg_ModelViewMatrix[2][2]);
    nor = normalize(nor);
    vec3 basisX = abs(dot(nor, vec3(1.0, 0.0, 0.0))) > 0.8
                      ? normalize(cross(vec3(0.0, 1.0, 0.0), nor))
                      : normalize(cross(nor, vec3(1.0, 0.0, 0.0)));
    vec3 basisY = normalize(cross(nor, basisX));

    vec3 c = centre[0];
    float w = 1.0;
    if (osg_ProjectionMatrix[3][3] == 0.0)
        w = -(osg_ModelViewMatrix * vec4(c, 1.0)).z;
    float screenSize = ceil(radius.y * 2.0 * osg_ProjectionMatrix[0][0] / w * (viewport.z / 2.0));

    Radius = radius;
    OuterColor = screenSize < innerDiameterTheshold ? frontInnerColor : frontExternalColor;
    InnerColor = frontInnerColor;
    BackColor = screenSize < innerDiameterTheshold ? backInnerColor : backExternalColor;

    vec3 x = basisX * radius.x;
    vec3 y = basisY * radius.x;
    corner(c - x - y, nor, vec2(-1.0, -1.0));
    corner(c + x - y, nor, vec2(1.0, -1.0));
    corner(c + x + y, nor, vec2(1.0, 1.0));
    EndPrimitive();
    corner(c - x - y, nor, vec2(-1.0, -1.0));
    corner(c + x + y, nor, vec2(1.0, 1.0));
    corner(c - x + y, nor, vec2(-1.0, 1.0));
    EndPrimitive();
}
