#version 410 core

in GeomOutData
{
    vec3 vertex;
    vec3 normal;
} fs_in;

out vec4 fragColor;

uniform vec3 surfaceColor = vec3(0.5, 0.5, 0.5);
// Facets show by default.
uniform bool useSmooth = false;
uniform float ambFactor = 0.5;
uniform float diffFactor = 0.5;
uniform float specFactor = 0.15;
uniform float shininess = 128.0;
uniform float alpha = 1.0;

// The derivative normal always faces the eye.
vec3 faceNormal(vec3 eyePosition)
{
    return normalize(cross(dFdx(eyePosition), dFdy(eyePosition)));
}

// Light and view both along +z; the sign of N.L doesn't matter.
vec3 calibrate(vec3 N, float ambient, float diffuse, float specular, float strength)
{
    float diff = abs(dot(N, vec3(0.0, 0.0, 1.0)));
    // pow(0, 0) is undefined: no specular term, no power.
    float highlight = specular > 0.0 ? pow(diff, strength) : 0.0;
    return surfaceColor * (ambient + diff * diffuse) + highlight * specular;
}

void main()
{
    vec3 N = useSmooth ? normalize(fs_in.normal) : faceNormal(fs_in.vertex);
    vec3 color = gl_FrontFacing ? calibrate(N, ambFactor, diffFactor, specFactor, shininess)
                                : calibrate(N, 0.5, 0.5, 0.0, 0.0);
    fragColor = vec4(color, alpha);
}
