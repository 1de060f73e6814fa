#version 410 compatibility

// The quad's corners in the target's plane; the fragment stage cuts the disc out of it.
uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ProjectionMatrix;
uniform vec3 normal = vec3(0.0, 0.0, 1.0);
uniform float depthOffset = 0.0;

out vec3 vertex;

void main()
{
    vertex = gl_Vertex.xyz;
    vec4 eye = osg_ModelViewMatrix * gl_Vertex;
    vec3 nor = length(normal) < 0.9 ? vec3(0.0, 0.0, 1.0) : normalize(normal);
    vec3 eyeNormal = mat3(osg_ModelViewMatrix) * nor;
    float dirSign = mix(-1.0, 1.0, step(0.0, dot(eyeNormal, -eye.xyz)));
    vec4 clip = osg_ProjectionMatrix * eye;
    vec4 moved = osg_ProjectionMatrix * vec4(eye.xy, eye.z + depthOffset * dirSign, eye.w);
    clip.z = moved.z / moved.w * clip.w;
    gl_Position = clip;
}
