#version 410 core

layout(triangles) in;
layout(triangle_strip, max_vertices = 3) out;

in VertexOutData
{
    vec3 vertex;
    vec2 texCoord;
} gs_in[];

out GeomOutData
{
    vec3 vertex;
    vec2 texCoord;
    flat vec2 lightTerm;
} gs_out;

uniform vec3 lightDirection = vec3(0.0, 0.0, 1.0);
uniform vec4 lightParam = vec4(0.5, 0.5, 0.15, 128.0);

// One light value a triangle, from its true face normal; the fragment stage turns it for the back.
void main()
{
    vec3 n = normalize(cross(gs_in[1].vertex - gs_in[0].vertex, gs_in[2].vertex - gs_in[0].vertex));
    float diff = dot(n, lightDirection);
    float highlight = pow(diff * diff, lightParam.w);
    for (int i = 0; i < 3; ++i) {
        gs_out.vertex = gs_in[i].vertex;
        gs_out.texCoord = gs_in[i].texCoord;
        gs_out.lightTerm = vec2(diff * lightParam.y, highlight * lightParam.z);
        gl_Position = gl_in[i].gl_Position;
        EmitVertex();
    }
    EndPrimitive();
}
