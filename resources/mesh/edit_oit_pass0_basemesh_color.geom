#version 410 core

layout(triangles) in;
layout(triangle_strip, max_vertices = 3) out;

in VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec3 color;
    flat float state;
} gs_in[];

out VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec3 color;
    flat float state;
} gs_out;

void main()
{
    // A triangle with a deleted vertex is never emitted.
    if (gs_in[0].state < 0.0 || gs_in[1].state < 0.0 || gs_in[2].state < 0.0)
        return;
    for (int i = 0; i < 3; ++i) {
        gs_out.vertex = gs_in[i].vertex;
        gs_out.normal = gs_in[i].normal;
        gs_out.color = gs_in[i].color;
        gs_out.state = gs_in[i].state;
        gl_Position = gl_in[i].gl_Position;
        EmitVertex();
    }
    EndPrimitive();
}
