#pragma once

#include "custom_base_geometry.h"

#include <QByteArray>
#include <osg/Matrixf>
#include <osg/Uniform>

namespace Vorna {
namespace Orvane {

// The live cloud's raw-GL drawables: a fixed bound, the colour switch and the matrices their
// programs take. Render thread.
class BaseGeometryApple : public CustomBaseGeometry
{
public:
    // A fixed bound, so that the scene graph never measures arrays it doesn't hold.
    class BBoxCallback : public osg::Drawable::ComputeBoundingBoxCallback
    {
    public:
        void setValue(const osg::Vec3f& min, const osg::Vec3f& max) { m_box.set(min, max); }
        osg::BoundingBox computeBound(const osg::Drawable&) const override { return m_box; }

    private:
        osg::BoundingBox m_box;
    };

    explicit BaseGeometryApple(bool hasColor);

    virtual void setHasColor(bool hasColor);

    static QByteArray readShaderFile(const QString& path);
    void deleteVertexArray(unsigned int& id);
    void deleteGLBuffer(unsigned int& id);

protected:
    // The transforms the raw programs take, for the view being drawn.
    struct DrawMatrices {
        osg::Matrixf model, view, projection, modelView;
        osg::Matrix3Template<float> normal;
    };
    DrawMatrices drawMatrices(osg::RenderInfo& renderInfo) const;

    bool m_isFirstDraw = true;
    bool m_hasColor;
};

} // namespace Orvane
} // namespace Vorna
