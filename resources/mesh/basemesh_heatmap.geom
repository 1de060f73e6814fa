#version 410 core

// Hands each triangle on unchanged: a stage for effects that need the whole primitive.
layout(triangles) in;
layout(triangle_strip, max_vertices = 3) out;

in VertexOutData
{
    vec3 vertex;
    flat float weight;
} gs_in[];

out VertexOutData
{
    vec3 vertex;
    flat float weight;
} gs_out;

void main()
{
    for (int i = 0; i < 3; ++i) {
        gs_out.vertex = gs_in[i].vertex;
        gs_out.weight = gs_in[i].weight;
        gl_Position = gl_in[i].gl_Position;
        EmitVertex();
    }
    EndPrimitive();
}
