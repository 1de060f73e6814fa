#version 410 core
// Points in one colour painted by the cut plane; the material model runs per fragment.
layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 4) in int vFlag;

uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ProjectionMatrix;
uniform mat3 osg_NormalMatrix;
uniform mat4 osg_ViewMatrixInverse;
// The cut plane in world space; points below it take selectIndex, 0 paints nothing.
uniform vec3 direction;
uniform vec3 center;
uniform float selectIndex = 1.0;

uniform float pointSize = 3.0;
uniform bool useFixedSize = false;
uniform float pointDis = 0.2;
uniform float ufPointSizeVariable = 0.2;
uniform float ufMaxPointSize = 100.0;
// x, y, width, height in pixels; published by the view.
uniform vec4 viewport;

out vec3 normal;
flat out float state;

// Outside the clip volume: a deleted point draws nothing.
const vec4 kOutOfView = vec4(2.0, 2.0, 0.0, 1.0);

// Grows as the camera nears, so that a surface of points stays closed. No lower bound: an
// orthographic view gets a negative size and is expected to use the fixed size.
float pointSizeAt(float eyeZ)
{
    if (useFixedSize)
        return pointSize;
    float denominator = osg_ProjectionMatrix[2][3] == -1.0 ? eyeZ : 1.0;
    float size = ceil(-(pointDis * osg_ProjectionMatrix[1][1] / denominator) * viewport.z *
                      ufPointSizeVariable);
    return min(size, ufMaxPointSize);
}

// The plane replaces any earlier selection: below it selectIndex, above it plain.
float cutState(vec4 eye)
{
    vec3 world = (osg_ViewMatrixInverse * eye).xyz;
    return dot(world - center, direction) < 0.0 ? selectIndex : 0.0;
}

void main()
{
    normal = vec3(0.0, 0.0, 1.0);
    state = -1.0;
    if (vFlag < 0) {
        gl_Position = kOutOfView;
        return;
    }
    vec4 eye = osg_ModelViewMatrix * vec4(vPosition, 1.0);
    gl_Position = osg_ProjectionMatrix * eye;
    gl_PointSize = pointSizeAt(eye.z);
    normal = osg_NormalMatrix * vNormal;
    state = cutState(eye);
}
