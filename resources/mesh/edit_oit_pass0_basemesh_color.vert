#version 410 core
// First pass of the older weighted blended transparency for editable meshes: colours and
// per-vertex selection states.
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 2) in vec3 vColor;
layout(location = 4) in int vFlag;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;

out VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec3 color;
    flat float state;
} vs_out;

void main()
{
    vs_out.vertex = (osg_ModelViewMatrix * vec4(vPosition, 1.0)).xyz;
    vs_out.normal = normalize(osg_NormalMatrix * vNormal);
    vs_out.color = vColor;
    vs_out.state = float(vFlag);
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
