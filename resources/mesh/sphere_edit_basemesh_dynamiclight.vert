#version 430 core

layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;

// One float a vertex, indexed by gl_VertexID: the starting states and the current ones.
layout(std430, binding = 0) buffer InitialStateBuffer
{
    float initialState[];
};
layout(std430, binding = 1) buffer SelectStateBuffer
{
    float selectState[];
};

uniform mat4 osg_ViewMatrix;
// The brush, in world space.
uniform vec3 sphereCenter;
uniform float sphereRadius;
uniform float selectColorIndex;
uniform float preViewColorIndex;
uniform int bSelecting;
uniform int bErase;
// No state is locked until the client names one.
uniform float lockColorIndex = -1.0;
uniform int bCoverOther;
uniform int bRecoverOther;

// Previews the brush while hovering and writes the store while selecting; gives the state to show.
float brushState(vec3 eyePosition)
{
    float select = selectState[gl_VertexID];
    if (select == lockColorIndex || select < 0.0)
        return select;
    vec3 centerEye = (osg_ViewMatrix * vec4(sphereCenter, 1.0)).xyz;
    if (distance(eyePosition, centerEye) >= sphereRadius)
        return select;

    bool bCan = bCoverOther > 0 || (bCoverOther == 0 && (select == 0.0 || select == selectColorIndex));
    float state = bCan ? preViewColorIndex : select;
    if (bSelecting > 0) {
        if (bErase > 0) {
            if (bCan && select == selectColorIndex)
                selectState[gl_VertexID] = bRecoverOther > 0 ? initialState[gl_VertexID] : 0.0;
        } else if (bCan && select != selectColorIndex) {
            selectState[gl_VertexID] = selectColorIndex;
        }
    }
    return state;
}

out VertexOutData
{
    vec3 vertex;
    vec3 normal;
    flat float state;
} vs_out;

void main()
{
    vec4 eye = osg_ModelViewMatrix * vec4(vPosition, 1.0);
    vs_out.vertex = eye.xyz;
    vs_out.normal = normalize(osg_NormalMatrix * vNormal);
    vs_out.state = brushState(eye.xyz);
    gl_Position = osg_ModelViewProjectionMatrix * vec4(vPosition, 1.0);
}
