#version 410 core

// Hands each triangle on unchanged: a stage for effects that need the whole primitive.
layout(triangles) in;
layout(triangle_strip, max_vertices = 3) out;

in VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec3 color;
    flat float state;
    float dotVal;
} gs_in[];

out VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec3 color;
    flat float state;
    float dotVal;
} gs_out;

void main()
{
    for (int i = 0; i < 3; ++i) {
        gs_out.vertex = gs_in[i].vertex;
        gs_out.normal = gs_in[i].normal;
        gs_out.color = gs_in[i].color;
        gs_out.state = gs_in[i].state;
        gs_out.dotVal = gs_in[i].dotVal;
        gl_Position = gl_in[i].gl_Position;
        EmitVertex();
    }
    EndPrimitive();
}
