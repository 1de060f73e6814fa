#version 410 compatibility

// Classic inputs: the line's vertices and its one overall colour come through the scene graph's
// fixed arrays.
uniform mat4 osg_ModelViewProjectionMatrix;

out vec4 vColor;

void main()
{
    vColor = gl_Color;
    gl_Position = osg_ModelViewProjectionMatrix * gl_Vertex;
}
