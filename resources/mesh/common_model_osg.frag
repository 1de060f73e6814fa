#version 410 compatibility

in VertexOutData
{
    vec3 vertex;
    vec3 normal;
} fs_in;

out vec4 fragColor;

uniform int enableLight = 1;
uniform vec4 uniformColor = vec4(1.0, 1.0, 1.0, 1.0);

void main()
{
    if (enableLight == 0) {
        fragColor = uniformColor;
        return;
    }
    // White light from the eye, with the view along +z.
    vec3 L = vec3(0.0, 0.0, 1.0);
    vec3 N = normalize(fs_in.normal);
    float diffuse = max(dot(N, L), 0.0);
    float specular = 0.5 * pow(max(dot(L, reflect(-L, N)), 0.0), 32.0);
    vec3 color = min((0.1 + diffuse + specular) * uniformColor.rgb, vec3(1.0));
    fragColor = vec4(color, uniformColor.a);
}
