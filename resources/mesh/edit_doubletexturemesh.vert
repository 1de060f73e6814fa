#version 410 core

layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 3) in vec2 vTexCoord;
layout(location = 4) in int vFlag;
layout(location = 6) in vec2 vTexCoord2nd;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;

out VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec2 texCoord;
    vec2 texCoord2nd;
    flat float state;
} vs_out;

void main()
{
    vec4 eye = osg_ModelViewMatrix * vec4(vPosition, 1.0);
    vs_out.vertex = eye.xyz;
    vs_out.normal = normalize(osg_NormalMatrix * vNormal);
    vs_out.texCoord = vTexCoord;
    vs_out.texCoord2nd = vTexCoord2nd;
    vs_out.state = float(vFlag);
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
