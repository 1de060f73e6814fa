#version 410 core
// The stylised look: fixed front and back tints, a sharp highlight, tone curve and gamma.
in vec3 viewDir;
in vec3 viewNormal;
out vec4 fragColor;

const vec3 kAmbient = vec3(0.01848, 0.02107, 0.02728);
const float kShininess = 18.0;

vec3 toneMap(vec3 x)
{
    return x * (x * (x * 0.305306017 + 0.682171106) + 0.0125228781);
}

vec3 toGamma(vec3 x)
{
    vec3 c = exp2(log2(max(x, vec3(0.0))) * 0.416666657);
    return max(c * 1.05499995 - 0.0549999997, vec3(0.0));
}

void main()
{
    vec3 reflected = normalize(viewDir + viewDir);
    float NdotL = dot(viewNormal, reflected);
    float specular = exp2(kShininess * log2(abs(NdotL)));
    vec3 c;
    if (dot(viewDir, viewNormal) > 0.0)
        c = clamp(NdotL, 0.0, 1.0) * vec3(0.0, 0.4995, 0.7197) + kAmbient * 1.2 +
            specular * vec3(0.0, 0.5, 0.72) * 0.8;
    else
        c = vec3(0.32324, 0.07829, 0.0) + kAmbient * 1.2 + specular * vec3(1.0, 0.67, 0.0) * 0.8;
    fragColor = vec4(toGamma(toneMap(c)), 1.0);
}
