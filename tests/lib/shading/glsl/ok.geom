#version 330 core
layout(triangles) in;
layout(triangle_strip, max_vertices = 3) out;
in vec3 v_pos[];
out vec3 g_pos;
void main()
{
    for (int i = 0; i < 3; ++i) {
        g_pos = v_pos[i];
        gl_Position = gl_in[i].gl_Position;
        EmitVertex();
    }
    EndPrimitive();
}
