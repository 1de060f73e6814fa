#version 410 core
// Passes each triangle on as it is.
layout(triangles) in;
layout(triangle_strip, max_vertices = 3) out;

in VertexOutData
{
    vec3 normal;
} gs_in[];

out GeomOutData
{
    vec3 normal;
} gs_out;

void main()
{
    for (int i = 0; i < 3; ++i) {
        gs_out.normal = gs_in[i].normal;
        gl_Position = gl_in[i].gl_Position;
        EmitVertex();
    }
    EndPrimitive();
}
