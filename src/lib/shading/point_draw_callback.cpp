#include "point_draw_callback.h"
#include "uniform_defaults.h"

#include <cstdlib>
#include <ctime>
#include <osg/GLExtensions>
#include <osg/Geometry>
#include <osg/State>

namespace Vorna {
namespace Orvane {

void PointDrawCallback::setDownSamples(unsigned int factor)
{
    if (factor == m_downSamples)
        return;
    m_downSamples = factor;
}

void PointDrawCallback::setDownSampleType(DownSampleType type)
{
    if (type == m_downSampleType)
        return;
    m_downSampleType = type;
}

void PointDrawCallback::drawImplementation(osg::RenderInfo& renderInfo,
                                           const osg::Drawable* drawable) const
{
    const osg::Geometry* geometry = drawable ? drawable->asGeometry() : nullptr;
    if (!geometry) {
        if (drawable)
            drawable->drawImplementation(renderInfo);
        return;
    }
    UniformDefaults::restore(renderInfo, drawable);
    osg::State& state = *renderInfo.getState();
    const bool checkErrors = state.getCheckForGLErrors() == osg::State::ONCE_PER_ATTRIBUTE;
    if (checkErrors)
        state.checkGLErrors("start of Geometry::drawImplementation()");

    const unsigned int factor = std::max(1u, m_downSamples);
    if (m_downSampleType != StrideSample) {
        geometry->drawVertexArraysImplementation(renderInfo);
        if (checkErrors)
            state.checkGLErrors("Geometry::drawImplementation() after vertex arrays setup.");
        if (factor == 1)
            geometry->drawPrimitivesImplementation(renderInfo);
        else
            drawPrimitivesImplementation(renderInfo, *geometry);
    } else {
        drawVertexArraysImplementation(renderInfo, *geometry);
        if (checkErrors)
            state.checkGLErrors("Geometry::drawImplementation() after vertex arrays setup.");
        if (factor == 1)
            geometry->drawPrimitivesImplementation(renderInfo);
        else
            drawStridedPrimitives(renderInfo, *geometry);
    }

    const bool usesVao = state.useVertexArrayObject(geometry->getUseVertexArrayObject());
    if (!usesVao || state.getCurrentVertexArrayState()->getRequiresSetArrays()) {
        state.unbindVertexBufferObject();
        state.unbindElementBufferObject();
    }
    if (checkErrors)
        state.checkGLErrors("end of Geometry::drawImplementation().");
}

void PointDrawCallback::drawPrimitivesImplementation(osg::RenderInfo& renderInfo,
                                                     const osg::Geometry& geometry) const
{
    const osg::Array* vertices = geometry.getNumVertexAttribArrays() > 0
                                     ? geometry.getVertexAttribArray(0)
                                     : geometry.getVertexArray();
    const unsigned int count = vertices ? vertices->getNumElements() : 0;
    if (!m_indices || count != m_indexedCount) {
        m_indices = new osg::DrawElementsUInt(GL_POINTS);
        m_indexedCount = count;
        m_indices->reserve(count);
        const double keep = 1.0 / m_downSamples;
        std::srand(static_cast<unsigned int>(std::time(nullptr)));
        for (unsigned int i = 0; i < count; ++i)
            if (std::rand() / 2147483647.0 < keep)
                m_indices->push_back(i);
        m_indices->asVector().shrink_to_fit();
    }
    if (m_indices->empty())
        return;
    osg::State& state = *renderInfo.getState();
    if (!m_indices->getElementBufferObject())
        m_indices->setElementBufferObject(new osg::ElementBufferObject);
    osg::GLBufferObject* ebo = m_indices->getOrCreateGLBufferObject(state.getContextID());
    if (ebo && ebo->isDirty())
        ebo->compileBuffer();
    m_indices->draw(state, true);
}

void PointDrawCallback::drawVertexArraysImplementation(osg::RenderInfo& renderInfo,
                                                       const osg::Geometry& geometry) const
{
    osg::State& state = *renderInfo.getState();
    osg::AttributeDispatchers& dispatchers = state.getAttributeDispatchers();
    dispatchers.reset();
    dispatchers.setUseVertexAttribAlias(state.getUseVertexAttributeAliasing());
    const osg::Geometry::ArrayList& attribs = geometry.getVertexAttribArrayList();
    for (unsigned int slot = 0; slot < attribs.size(); ++slot)
        dispatchers.activateVertexAttribArray(slot, attribs[slot].get());

    osg::VertexArrayState* vas = state.getCurrentVertexArrayState();
    if (state.useVertexArrayObject(geometry.getUseVertexArrayObject()) &&
        !vas->getRequiresSetArrays())
        return;
    vas->lazyDisablingOfVertexAttributes();

    const unsigned int factor = std::max(1u, m_downSamples);
    osg::GLExtensions* gl = state.get<osg::GLExtensions>();
    for (unsigned int slot = 0; slot < attribs.size(); ++slot) {
        const osg::Array* array = attribs[slot].get();
        if (!array || array->getBinding() != osg::Array::BIND_PER_VERTEX)
            continue;
        // The ordinary set-up enables the slot and binds its buffer; then widen the stride.
        vas->setVertexAttribArray(state, slot, array);
        osg::GLBufferObject* vbo = array->getOrCreateGLBufferObject(state.getContextID());
        if (factor == 1 || !vbo)
            continue;
        m_lastBound = array->getBufferObject();
        const GLsizei stride = static_cast<GLsizei>(factor * array->getElementSize());
        const auto* offset =
            reinterpret_cast<const GLvoid*>(vbo->getOffset(array->getBufferIndex()));
        if (array->getPreserveDataType() && array->getDataType() == GL_DOUBLE)
            gl->glVertexAttribLPointer(slot, array->getDataSize(), GL_DOUBLE, stride, offset);
        else if (array->getPreserveDataType() && array->getDataType() != GL_FLOAT)
            gl->glVertexAttribIPointer(slot, array->getDataSize(), array->getDataType(), stride,
                                       offset);
        else
            gl->glVertexAttribPointer(slot, array->getDataSize(), array->getDataType(),
                                      array->getNormalize(), stride, offset);
    }
    m_lastBound = nullptr;
    vas->applyDisablingOfVertexAttributes(state);
}

void PointDrawCallback::drawStridedPrimitives(osg::RenderInfo& renderInfo,
                                              const osg::Geometry& geometry) const
{
    // With a widened stride only count / factor vertices exist: scale the arrays drawn so that
    // no read runs past the end of a buffer.
    const unsigned int factor = std::max(1u, m_downSamples);
    for (unsigned int i = 0; i < geometry.getNumPrimitiveSets(); ++i) {
        const auto* arrays = dynamic_cast<const osg::DrawArrays*>(geometry.getPrimitiveSet(i));
        if (!arrays)
            continue;
        const GLint first = arrays->getFirst() / static_cast<GLint>(factor);
        const GLsizei count = arrays->getCount() / static_cast<GLsizei>(factor);
        if (count > 0)
            glDrawArrays(arrays->getMode(), first, count);
    }
}

} // namespace Orvane
} // namespace Vorna
