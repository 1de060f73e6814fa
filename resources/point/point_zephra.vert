#version 410 core
// A stylised point look for one customer family; its constants come from a shader capture and
// it has no colour uniforms.
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 2) in vec3 vColor;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ProjectionMatrix;
uniform mat3 osg_NormalMatrix;
uniform float pointDis = 0.5;
// x, y, width, height in pixels; published by the view.
uniform vec4 viewport;

out vec3 viewDir;
out vec3 viewNormal;
// Not read by the fragment stage.
out vec3 color;

const vec3 camPos = vec3(1.65473, 33.09452, 66.18903);

vec3 toGamma(vec3 x)
{
    vec3 c = exp2(log2(max(x, vec3(0.0))) * 0.416666657);
    return max(c * 1.05499995 - 0.0549999997, vec3(0.0));
}

void main()
{
    vec4 eye = osg_ModelViewMatrix * vec4(vPosition, 1.0);
    gl_Position = osg_ProjectionMatrix * eye;
    viewDir = camPos - eye.xyz;
    viewNormal = normalize(osg_NormalMatrix * vNormal);
    float w = osg_ProjectionMatrix[2][3] == -1.0 ? -eye.z : 1.0;
    gl_PointSize =
        max(min(ceil(pointDis * osg_ProjectionMatrix[0][0] / w * viewport.z * 0.5), 260.0), 3.0);
    color = toGamma(vec3(0.0, 0.4995, 0.7197));
}
