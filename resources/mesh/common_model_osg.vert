#version 410 compatibility

// Helper models keep the classic inputs that the scene graph's aliasing feeds.
uniform mat4 osg_ModelViewMatrix;
uniform mat4 osg_ProjectionMatrix;
uniform mat3 osg_NormalMatrix;

uniform int enableDepthOffest = 0;
uniform float depthOffset = 0.0;

out VertexOutData
{
    vec3 vertex;
    vec3 normal;
} vs_out;

void main()
{
    vec4 eye = osg_ModelViewMatrix * gl_Vertex;
    vs_out.vertex = eye.xyz;
    vs_out.normal = normalize(osg_NormalMatrix * gl_Normal);
    gl_Position = osg_ProjectionMatrix * eye;
    if (enableDepthOffest != 0) {
        // Only the depth moves, so the aid draws over or under its surroundings and keeps its
        // silhouette.
        vec4 moved = osg_ProjectionMatrix * vec4(eye.xy, eye.z + depthOffset, eye.w);
        gl_Position.z = moved.z / moved.w * gl_Position.w;
    }
}
