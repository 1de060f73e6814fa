#include "custom_mesh_geometry.h"

#include "orvane_log.h"
#include "uniform_defaults.h"

#include <QOpenGLContext>

namespace Vorna {
namespace Orvane {

namespace {

// Puts back the vertex array object and array buffer that the scene graph believes bound.
class ScopedVertexBindings
{
public:
    explicit ScopedVertexBindings(QOpenGLFunctions_4_1_Core* gl) : m_gl(gl)
    {
        m_gl->glGetIntegerv(GL_VERTEX_ARRAY_BINDING, &m_vao);
        m_gl->glGetIntegerv(GL_ARRAY_BUFFER_BINDING, &m_arrayBuffer);
    }
    ~ScopedVertexBindings()
    {
        m_gl->glBindVertexArray(static_cast<GLuint>(m_vao));
        m_gl->glBindBuffer(GL_ARRAY_BUFFER, static_cast<GLuint>(m_arrayBuffer));
    }

private:
    QOpenGLFunctions_4_1_Core* m_gl;
    GLint m_vao = 0;
    GLint m_arrayBuffer = 0;
};

GLuint makeBuffer(QOpenGLFunctions_4_1_Core* gl, GLenum target, GLsizeiptr size, const GLvoid* data)
{
    GLuint id = 0;
    gl->glGenBuffers(1, &id);
    gl->glBindBuffer(target, id);
    gl->glBufferData(target, size, data, GL_STATIC_DRAW);
    return id;
}

GLuint makeBuffer(QOpenGLFunctions_4_1_Core* gl, const osg::Array* array)
{
    return makeBuffer(gl, GL_ARRAY_BUFFER, array->getTotalDataSize(), array->getDataPointer());
}

void floatSlot(QOpenGLFunctions_4_1_Core* gl, GLuint slot, GLuint buffer)
{
    gl->glBindBuffer(GL_ARRAY_BUFFER, buffer);
    gl->glVertexAttribPointer(slot, 3, GL_FLOAT, GL_FALSE, 12, nullptr);
    gl->glEnableVertexAttribArray(slot);
}

} // namespace

CustomMeshGeometry::CustomMeshGeometry(osg::Vec3Array* vertices, osg::Vec3Array* normals,
                                       osg::Vec3Array* colors, osg::ByteArray* states,
                                       osg::DrawElementsUInt* primitive)
    : m_vertices(vertices ? vertices : new osg::Vec3Array), m_normals(normals), m_colors(colors),
      m_states(states), m_primitive(primitive)
{
    if (!m_states)
        m_states = new osg::ByteArray(m_vertices->size());
    // Like the factory meshes: uniforms no state set gives fall back to their initialisers.
    setDrawCallback(new UniformDefaultsDrawCallback);
}

CustomMeshGeometry::~CustomMeshGeometry()
{
    deleteBuffers();
}

void CustomMeshGeometry::deleteBuffers()
{
    if (!m_vao)
        return;
    // Names belong to their context: with another one current they are left to it.
    if (!m_context || QOpenGLContext::currentContext() != m_context)
        return;
    QOpenGLFunctions_4_1_Core* gl = getGlFun();
    if (!gl)
        return;
    GLuint buffers[] = {m_positionBuffer, m_normalBuffer, m_colorBuffer, m_stateBuffer,
                        m_indexBuffer};
    gl->glDeleteBuffers(5, buffers);
    gl->glDeleteVertexArrays(1, &m_vao);
    m_vao = m_positionBuffer = m_normalBuffer = m_colorBuffer = m_stateBuffer = m_indexBuffer = 0;
    m_initialized = false;
}

void CustomMeshGeometry::releaseGLObjects(osg::State* state) const
{
    const_cast<CustomMeshGeometry*>(this)->deleteBuffers();
    CustomBaseGeometry::releaseGLObjects(state);
}

osg::BoundingBox CustomMeshGeometry::computeBoundingBox() const
{
    osg::BoundingBox box;
    for (const osg::Vec3f& v : *m_vertices)
        box.expandBy(v);
    return box;
}

void CustomMeshGeometry::initDrawCall()
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    QOpenGLFunctions_4_1_Core* gl = getGlFun();
    if (!context || !gl) {
        qCCritical(orvane) << "QOpenGLContext is invalid!";
        return;
    }
    ScopedVertexBindings keep(gl);
    m_context = context;
    gl->glGenVertexArrays(1, &m_vao);
    gl->glBindVertexArray(m_vao);
    m_positionBuffer = makeBuffer(gl, m_vertices.get());
    floatSlot(gl, 0, m_positionBuffer);
    if (m_normals && m_normals->size() == m_vertices->size()) {
        m_normalBuffer = makeBuffer(gl, m_normals.get());
        floatSlot(gl, 1, m_normalBuffer);
    }
    if (m_colors && m_colors->size() == m_vertices->size()) {
        m_colorBuffer = makeBuffer(gl, m_colors.get());
        floatSlot(gl, 2, m_colorBuffer);
    }
    m_stateBuffer = makeBuffer(gl, m_states.get());
    // The programs read the state as `in int`: integer pointer, no normalisation.
    gl->glVertexAttribIPointer(4, 1, GL_BYTE, 1, nullptr);
    gl->glEnableVertexAttribArray(4);
    if (m_primitive && !m_primitive->empty())
        m_indexBuffer = makeBuffer(gl, GL_ELEMENT_ARRAY_BUFFER, m_primitive->getTotalDataSize(),
                                   m_primitive->getDataPointer());
    m_initialized = true;
}

void CustomMeshGeometry::drawCall(osg::RenderInfo&)
{
    if (!m_initialized) {
        initDrawCall();
        if (!m_initialized)
            return;
    }
    if (QOpenGLContext::currentContext() != m_context)
        return;
    QOpenGLFunctions_4_1_Core* gl = getGlFun();
    if (!gl)
        return;
    ScopedVertexBindings keep(gl);
    gl->glBindVertexArray(m_vao);
    if (m_indexBuffer) {
        gl->glDrawElements(m_primitive->getMode(), static_cast<GLsizei>(m_primitive->size()),
                           GL_UNSIGNED_INT, nullptr);
    } else {
        gl->glDrawArrays(m_primitive ? m_primitive->getMode() : GLenum(GL_TRIANGLES), 0,
                         static_cast<GLsizei>(m_vertices->size()));
    }
}

} // namespace Orvane
} // namespace Vorna
