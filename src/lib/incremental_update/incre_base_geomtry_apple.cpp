#include "incre_base_geomtry_apple.h"

#include <osgViewer/View>

#include "orvane_log.h"

#include <QFile>

namespace Vorna {
namespace Orvane {

BaseGeometryApple::BaseGeometryApple(bool hasColor) : m_hasColor(hasColor) {}

void BaseGeometryApple::setHasColor(bool hasColor)
{
    qCInfo(orvane) << "bHasColor: " << hasColor;
    m_hasColor = hasColor;
}

QByteArray BaseGeometryApple::readShaderFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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

BaseGeometryApple::DrawMatrices BaseGeometryApple::drawMatrices(osg::RenderInfo& renderInfo) const
{
    DrawMatrices m;
    const osg::MatrixList worlds = getWorldMatrices();
    if (!worlds.empty())
        m.model = osg::Matrixf(worlds.front());
    if (auto* v = dynamic_cast<osgViewer::View*>(renderInfo.getView())) {
        m.view = v->getCamera()->getViewMatrix();
        m.projection = v->getCamera()->getProjectionMatrix();
    } else if (renderInfo.getCurrentCamera()) {
        m.view = renderInfo.getCurrentCamera()->getViewMatrix();
        m.projection = renderInfo.getCurrentCamera()->getProjectionMatrix();
    }
    m.modelView = m.model * m.view;
    // Rotation only: the transpose of its inverse, as GL wants it.
    const osg::Matrixf inverseRotation =
        osg::Matrixf::inverse(osg::Matrixf::rotate(m.modelView.getRotate()));
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            m.normal(r, c) = inverseRotation(c, r);
    return m;
}

} // namespace Orvane
} // namespace Vorna
