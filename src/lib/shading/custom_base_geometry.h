#pragma once

#include <QOpenGLFunctions_4_1_Core>
#include <osg/Geometry>

namespace Vorna {
namespace Orvane {

// A drawable that draws itself with raw GL calls inside the scene graph's draw. Render thread.
class CustomBaseGeometry : public osg::Geometry
{
public:
    CustomBaseGeometry();

    // The 4.1 core functions of the context current on this thread; null without one.
    static QOpenGLFunctions_4_1_Core* getGlFun();
    void drawImplementation(osg::RenderInfo& renderInfo) const override;

    virtual void initDrawCall() {}
    virtual void drawCall(osg::RenderInfo& renderInfo) = 0;

protected:
    bool m_initialized = false;
};

} // namespace Orvane
} // namespace Vorna
