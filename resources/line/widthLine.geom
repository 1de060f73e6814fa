#version 410 compatibility

// Each segment becomes two triangles, widened across the screen.
layout(lines) in;
layout(triangle_strip, max_vertices = 6) out;

// In units of `resolution`, not of the canvas's pixels.
uniform float lineWidth = 10.0;
uniform vec2 resolution = vec2(2400.0, 1800.0);

in vec4 vColor[];
out vec4 gColor;

void emit(vec4 position, vec4 color)
{
    gl_Position = position;
    gColor = color;
    EmitVertex();
}

void main()
{
    vec4 pt0 = gl_in[0].gl_Position / abs(gl_in[0].gl_Position.w);
    vec4 pt1 = gl_in[1].gl_Position / abs(gl_in[1].gl_Position.w);
    float slope = abs((pt1.y - pt0.y) / (pt1.x - pt0.x));
    vec4 offset;
    // Integer division: the threshold is 1, so a 45 degree segment is widened vertically.
    if (slope > 4 / 3)
        offset = vec4(lineWidth / resolution.x, 0.0, 0.0, 0.0);
    else
        offset = vec4(0.0, lineWidth / resolution.y, 0.0, 0.0);

    emit(pt0 + offset, vColor[0]);
    emit(pt1 - offset, vColor[1]);
    emit(pt0 - offset, vColor[0]);
    EndPrimitive();
    emit(pt0 + offset, vColor[0]);
    emit(pt1 + offset, vColor[1]);
    emit(pt1 - offset, vColor[1]);
    EndPrimitive();
}
