#pragma once

#include "custom_base_geometry.h"

#include <QPointer>
#include <osg/Array>
#include <osg/PrimitiveSet>

class QOpenGLContext;

namespace Vorna {
namespace Orvane {

// A triangle mesh drawn from buffers of its own on slots 0 (position), 1 (normal), 2 (colour)
// and 4 (state), with whatever program the scene graph has applied. Render thread.
class CustomMeshGeometry : public CustomBaseGeometry
{
public:
    // Missing states become zeros; without a primitive the vertices are drawn as triangles.
    CustomMeshGeometry(osg::Vec3Array* vertices, osg::Vec3Array* normals, osg::Vec3Array* colors,
                       osg::ByteArray* states = nullptr,
                       osg::DrawElementsUInt* primitive = nullptr);

    void initDrawCall() override;
    void drawCall(osg::RenderInfo& renderInfo) override;
    void releaseGLObjects(osg::State* state = nullptr) const override;
    osg::BoundingBox computeBoundingBox() const override;

protected:
    ~CustomMeshGeometry() override;

private:
    void deleteBuffers();

    osg::ref_ptr<osg::Vec3Array> m_vertices;
    osg::ref_ptr<osg::Vec3Array> m_normals;
    osg::ref_ptr<osg::Vec3Array> m_colors;
    osg::ref_ptr<osg::ByteArray> m_states;
    osg::ref_ptr<osg::DrawElementsUInt> m_primitive;
    // The context whose objects these ids name.
    QPointer<QOpenGLContext> m_context;
    GLuint m_vao = 0;
    GLuint m_positionBuffer = 0;
    GLuint m_normalBuffer = 0;
    GLuint m_colorBuffer = 0;
    GLuint m_stateBuffer = 0;
    GLuint m_indexBuffer = 0;
};

} // namespace Orvane
} // namespace Vorna
