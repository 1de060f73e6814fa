#include "cut_plane_programs.h"

#include <cmath>
#include <string>

namespace Vorna {
namespace Orvane {

namespace {

const char* const g_geometryVert = R"(#version 410 compatibility
layout(location = 2) in vec3 osg_Normal;
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;
out vec3 normal;
void main()
{
    normal = normalize(osg_NormalMatrix * osg_Normal);
    gl_Position = osg_ModelViewProjectionMatrix * gl_Vertex;
}
)";

const char* const g_geometryFrag = R"(#version 410 compatibility
uniform vec4 baseColor = vec4(1.0, 0.0, 0.0, 1.0);
uniform int enableLight = 1;
in vec3 normal;
out vec4 fragColor;
void main()
{
    if (enableLight == 0) {
        fragColor = baseColor;
        return;
    }
    float diff = abs(dot(normalize(normal), vec3(0.0, 0.0, 1.0)));
    float highlight = pow(diff, 64.0);
    fragColor = vec4(baseColor.rgb * (0.5 + diff * 0.5) + vec3(highlight * 0.2), baseColor.a);
}
)";

const char* const g_lineVert = R"(#version 410 compatibility
layout(location = 3) in vec4 osg_Color;
uniform mat4 osg_ModelViewProjectionMatrix;
out vec4 color;
void main()
{
    color = osg_Color;
    gl_Position = osg_ModelViewProjectionMatrix * gl_Vertex;
}
)";

const char* const g_lineFrag = R"(#version 410 compatibility
uniform float depthBias = 0.001;
in vec4 color;
out vec4 fragColor;
void main()
{
    fragColor = color;
    gl_FragDepth = gl_FragCoord.z * 1.001 - depthBias;
}
)";

} // namespace

osg::Program* CutPlanePrograms::createGeometryProgram()
{
    auto* program = new osg::Program;
    program->setName("cut_plane_geometry");
    program->addShader(new osg::Shader(osg::Shader::VERTEX, g_geometryVert));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, g_geometryFrag));
    return program;
}

osg::Program* CutPlanePrograms::createLineDepthOffsetProgram(float depthBias)
{
    // The bias is a constant of each plane kind: baked into the source, not a uniform that a
    // state set above could change.
    std::string fragment(g_lineFrag);
    const std::string from = "uniform float depthBias = 0.001;";
    fragment.replace(fragment.find(from), from.size(),
                     "const float depthBias = " + std::to_string(depthBias) + ";");
    auto* program = new osg::Program;
    program->setName("cut_plane_line");
    program->addShader(new osg::Shader(osg::Shader::VERTEX, g_lineVert));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, fragment));
    return program;
}

osg::Quat CutPlanePrograms::turnAxisToZ(int axis)
{
    // About y, z goes to x; about x by minus a quarter, z goes to y.
    if (axis == 0)
        return osg::Quat(osg::PI_2, osg::Vec3d(0, 1, 0));
    if (axis == 1)
        return osg::Quat(-osg::PI_2, osg::Vec3d(1, 0, 0));
    return osg::Quat();
}

osg::Vec3f CutPlanePrograms::localHalfExtents(const osg::Quat& turn, const osg::Vec3f& halfExtents)
{
    osg::Vec3f local;
    for (int i = 0; i < 3; ++i) {
        osg::Vec3d axis;
        axis[i] = 1.0;
        const osg::Vec3d world = turn * axis;
        local[i] = static_cast<float>(std::fabs(world.x()) * halfExtents.x() +
                                      std::fabs(world.y()) * halfExtents.y() +
                                      std::fabs(world.z()) * halfExtents.z());
    }
    return local;
}

} // namespace Orvane
} // namespace Vorna
