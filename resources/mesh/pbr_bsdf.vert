#version 430 core

layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 3) in vec2 vTexCoord;
// Not the selection state of the other meshes: a tangent, w for handedness.
layout(location = 4) in vec4 vTangent;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ProjectionMatrix;
uniform mat3 osg_NormalMatrix;

out vec2 texCoord;
out vec3 posView;
out vec3 normalView;
out vec3 tangentView;
out float zDepth;

void main()
{
    vec4 pos = osg_ModelViewMatrix * vec4(vPosition, 1.0);
    texCoord = vTexCoord;
    posView = pos.xyz;
    normalView = osg_NormalMatrix * vNormal;
    tangentView = mat3(osg_ModelViewMatrix) * vTangent.xyz;
    gl_Position = osg_ProjectionMatrix * pos;
    zDepth = gl_Position.w;
}
