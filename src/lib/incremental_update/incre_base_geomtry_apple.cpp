#include "incre_base_geomtry_apple.h"

#include "orvane_log.h"

#include <QFile>
#include <QOpenGLContext>

namespace Vorna {
namespace Orvane {

BaseGeometryApple::BaseGeometryApple(bool hasColor) : m_hasColor(hasColor)
{
    setUseVertexBufferObjects(true);
}

void BaseGeometryApple::setHasColor(bool hasColor)
{
    qCInfo(orvane) << "bHasColor: " << hasColor;
    m_hasColor = hasColor;
}

void BaseGeometryApple::drawImplementation(osg::RenderInfo& renderInfo) const
{
    // Drawing changes the drawable's own GL objects, never its scene-graph state.
    const_cast<BaseGeometryApple*>(this)->drawCall(renderInfo);
}

QByteArray BaseGeometryApple::readShaderFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QOpenGLFunctions_4_1_Core* BaseGeometryApple::getGlFun()
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    auto* functions = context ? context->versionFunctions<QOpenGLFunctions_4_1_Core>() : nullptr;
    if (functions)
        functions->initializeOpenGLFunctions();
    return functions;
}

void BaseGeometryApple::deleteVertexArray(unsigned int& id)
{
    if (!id)
        return;
    if (auto* gl = getGlFun())
        gl->glDeleteVertexArrays(1, &id);
    id = 0;
}

void BaseGeometryApple::deleteGLBuffer(unsigned int& id)
{
    if (!id)
        return;
    if (auto* gl = getGlFun())
        gl->glDeleteBuffers(1, &id);
    id = 0;
}

} // namespace Orvane
} // namespace Vorna
