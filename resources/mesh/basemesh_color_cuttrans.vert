#version 410 core

layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 2) in vec3 vColor;
layout(location = 4) in int vFlag;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;
uniform bool enableTransparent = true;
uniform bool enableCutplane = true;
uniform float planeOffset = 0.0;

out VertexOutData
{
    vec3 vertex;
    vec3 normal;
    vec3 color;
    flat float state;
    float discardState;
} vs_out;

void main()
{
    vec4 eye = osg_ModelViewMatrix * vec4(vPosition, 1.0);
    vs_out.vertex = eye.xyz;
    vs_out.normal = normalize(osg_NormalMatrix * vNormal);
    vs_out.color = vColor;
    vs_out.state = float(vFlag);
    // Cuts away everything in front of a plane 45 units from the eye.
    if (!enableTransparent)
        vs_out.discardState = 1.0;
    else if (enableCutplane)
        vs_out.discardState = eye.z < -45.0 - planeOffset ? 0.0 : 1.0;
    else
        vs_out.discardState = 0.0;
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
