#version 410 compatibility

// One point at the target's centre; the geometry stage spans the disc around it.
out vec3 centre;

void main()
{
    centre = gl_Vertex.xyz;
    gl_Position = gl_Vertex;
}
