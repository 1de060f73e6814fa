#version 430

// Drawn by the light's camera: the depth travels as (z, w) so that the division happens per
// fragment, after interpolation.
layout(location = 0) in vec3 vertex;

uniform mat4 osg_ModelViewProjectionMatrix;

out vec2 depth;

void main()
{
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vertex, 1.0);
    depth = gl_Position.zw;
}
