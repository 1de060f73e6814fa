#pragma once

#include <QByteArray>
#include <QOpenGLFunctions_4_1_Core>
#include <osg/Geometry>
#include <osg/Uniform>
#include <osg/Matrixf>

namespace Vorna {
namespace Orvane {

// A drawable that issues raw GL from inside the scene graph's draw. Render thread.
class BaseGeometryApple : public osg::Geometry
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

    virtual void initDrawCall() {}
    virtual void setHasColor(bool hasColor);
    virtual void drawCall(osg::RenderInfo& renderInfo) = 0;
    void drawImplementation(osg::RenderInfo& renderInfo) const override;

    static QByteArray readShaderFile(const QString& path);
    static QOpenGLFunctions_4_1_Core* getGlFun();
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
