#version 430

layout(location = 0) in vec3 vertex;
layout(location = 1) in vec2 vTexCoord;

uniform mat4 osg_ModelViewProjectionMatrix;
// Model space to the light's clip space.
uniform mat4 uLightMVP = mat4(1.0);

out vec2 texCoord;
out vec4 vPositionFromLight;

void main()
{
    texCoord = vTexCoord;
    vPositionFromLight = uLightMVP * vec4(vertex, 1.0);
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vertex, 1.0);
}
