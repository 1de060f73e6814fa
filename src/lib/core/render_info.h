#pragma once

#include "canvas_base.h"

#include <QObject>
#include <QSharedPointer>
#include <osg/Camera>
#include <osg/Referenced>
#include <osg/observer_ptr>
#include <osgViewer/CompositeViewer>
#include <osgViewer/View>

class QOpenGLFramebufferObject;

namespace Vorna {
namespace Orvane {

class ReadMultiSampleFBO;

// The render context of one canvas, kept as the viewer's user data so that every operation
// finds it. Lives on the render thread of its canvas.
class RenderInfo : public QObject, public osg::Referenced
{
    Q_OBJECT
public:
    RenderInfo();

    osgViewer::CompositeViewer* compViewer() const { return m_compViewer.get(); }
    osgViewer::CompositeViewer* compViewer(osgViewer::CompositeViewer* viewer);
    osgViewer::View* mainView() const { return m_mainView.get(); }
    osgViewer::View* mainView(osgViewer::View* view);
    osg::Camera* masterCamera() const { return m_masterCamera.get(); }
    osg::Camera* masterCamera(osg::Camera* camera);
    osg::Referenced* viewInfo() const { return m_viewInfo.get(); }
    osg::Referenced* viewInfo(osg::Referenced* info);

    // Sets the colour target and emits fboChanged.
    void setFBO(QOpenGLFramebufferObject* fbo);

    osg::ref_ptr<CanvasBase> canvas;
    // Owned by the QtQuick scene graph; null until the first createFramebufferObject.
    QOpenGLFramebufferObject* FBO = nullptr;
    QSharedPointer<ReadMultiSampleFBO> readMultiSampleFBO;

signals:
    void fboChanged(QOpenGLFramebufferObject* fbo);

protected:
    ~RenderInfo() override;

private:
    osg::observer_ptr<osgViewer::CompositeViewer> m_compViewer;
    osg::observer_ptr<osgViewer::View> m_mainView;
    osg::observer_ptr<osg::Camera> m_masterCamera;
    osg::observer_ptr<osg::Referenced> m_viewInfo;
};

// The RenderInfo of the viewer that drew `renderInfo`, or null. With `logMissing`, a missing
// view, viewer or RenderInfo is logged as a warning, as draw callbacks report them.
RenderInfo* renderInfoOf(osg::RenderInfo& renderInfo, bool logMissing = false);

} // namespace Orvane
} // namespace Vorna
