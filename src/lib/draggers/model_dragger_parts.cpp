#include "model_dragger_parts.h"

#include <cmath>
#include <osg/AutoTransform>
#include <osg/CullStack>
#include <osg/Material>

namespace Vorna {
namespace Orvane {
namespace ModelDraggerParts {

namespace {

const char* const g_handleVert = R"(#version 410 compatibility
uniform mat4 osg_ModelViewProjectionMatrix;
uniform mat3 osg_NormalMatrix;
out vec3 normal;
void main()
{
    normal = normalize(osg_NormalMatrix * gl_Normal);
    gl_Position = osg_ModelViewProjectionMatrix * gl_Vertex;
}
)";

const char* const g_handleFrag = R"(#version 410 compatibility
uniform int lighting = 0;
in vec3 normal;
out vec4 fragColor;
void main()
{
    vec4 color = gl_FrontMaterial.diffuse;
    if (lighting == 0) {
        fragColor = color;
        return;
    }
    float facing = abs(normalize(normal).z);
    fragColor = vec4(color.rgb * (0.45 + 0.55 * facing) + vec3(pow(facing, 48.0) * 0.2), color.a);
}
)";

} // namespace

osg::Program* createHandleProgram()
{
    auto* program = new osg::Program;
    program->setName("model_dragger_handle");
    program->addShader(new osg::Shader(osg::Shader::VERTEX, g_handleVert));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, g_handleFrag));
    return program;
}

osg::Geometry* createTorus(float radius, float tube, int fromSection, int toSection, int sections,
                           int steps)
{
    auto* geometry = new osg::Geometry;
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    const double turn = 2.0 * osg::PI;
    for (int section = fromSection; section < toSection; ++section) {
        const GLint first = static_cast<GLint>(vertices->size());
        const double a0 = turn * section / sections;
        const double a1 = turn * (section + 1) / sections;
        for (int step = 0; step < steps; ++step) {
            const double phi = turn * step / (steps - 1);
            for (double a : {a0, a1}) {
                // The normal points from the tube's core on this rim.
                const osg::Vec3 out(std::cos(a), std::sin(a), 0.0);
                const osg::Vec3 n = out * std::cos(phi) + osg::Vec3(0, 0, 1) * std::sin(phi);
                vertices->push_back(out * radius + n * tube);
                normals->push_back(n);
            }
        }
        geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_STRIP, first, steps * 2));
    }
    geometry->setVertexArray(vertices.get());
    geometry->setNormalArray(normals.get(), osg::Array::BIND_PER_VERTEX);
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    return geometry;
}

osg::Geometry* createBand(float radius, float width, int segments)
{
    auto* geometry = new osg::Geometry;
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    const float inner = radius - width * 0.5f, outer = radius + width * 0.5f;
    for (int i = 0; i <= segments; ++i) {
        const double a = 2.0 * osg::PI * (i % segments) / segments;
        const osg::Vec3 out(std::cos(a), std::sin(a), 0.0);
        vertices->push_back(out * inner);
        vertices->push_back(out * outer);
        normals->push_back(osg::Vec3(0, 0, 1));
        normals->push_back(osg::Vec3(0, 0, 1));
    }
    geometry->setVertexArray(vertices.get());
    geometry->setNormalArray(normals.get(), osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_STRIP, 0, vertices->size()));
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseVertexArrayObject(true);
    return geometry;
}

void setMaterial(osg::Node* node, const osg::Vec4f& color)
{
    auto* material = new osg::Material;
    material->setDataVariance(osg::Object::DYNAMIC);
    material->setDiffuse(osg::Material::FRONT_AND_BACK, color);
    material->setAmbient(osg::Material::FRONT_AND_BACK, color);
    node->getOrCreateStateSet()->setAttributeAndModes(material);
}

osg::BoundingSphere computeNodesBound(const std::vector<osg::ref_ptr<osg::MatrixTransform>>& nodes)
{
    // Each bound is in the node's parent frame, where the dragger stands beside it.
    osg::BoundingSphere bound;
    for (const osg::ref_ptr<osg::MatrixTransform>& node : nodes)
        if (node)
            bound.expandBy(node->getBound());
    return bound;
}

void KeepScreenScale::operator()(osg::Node* node, osg::NodeVisitor* nv)
{
    // Asked from the parent's frame: inside the transform the scale is already applied.
    if (m_transform.valid() && nv && nv->asCullStack()) {
        osg::Matrix matrix;
        m_transform->computeLocalToWorldMatrix(matrix, nv);
        const osg::Vec3d scale = matrix.getScale();
        if (scale != m_transform->getScale())
            m_transform->setScale(scale);
    }
    traverse(node, nv);
}

} // namespace ModelDraggerParts
} // namespace Orvane
} // namespace Vorna
