#include "canvas_viewer.h"

#include "canvas3d_view.h"
#include "read_multisample_fbo.h"
#include "software_rasterizer.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <osg/DisplaySettings>

namespace Vorna {
namespace Orvane {

CanvasViewer createCanvasViewer(CanvasBase* canvas, int width, int height,
                                osgGA::EventQueue* events, osg::OperationQueue* operations)
{
    if (QOpenGLContext* context = QOpenGLContext::currentContext())
        if (isSoftwareRasterizer(
                reinterpret_cast<const char*>(context->functions()->glGetString(GL_RENDERER))))
            keepFreedMemoryForSoftwareRasterizer();
    // QtQuick changes the default vertex array state between our frames: geometry made from
    // here on must carry vertex array objects of its own.
    osg::DisplaySettings::instance()->setVertexBufferHint(
        osg::DisplaySettings::VERTEX_ARRAY_OBJECT);

    CanvasViewer out;
    const int x = 0, y = 0;
    out.graphicsWindow = new osgViewer::GraphicsWindowEmbedded(x, y, width, height);
    out.graphicsWindow->setEventQueue(events);
    out.viewer = new osgViewer::CompositeViewer;
    osg::ref_ptr<osg::Viewport> viewport = new osg::Viewport(x, y, width, height);
    out.mainView = ViewMgr::createView(out.graphicsWindow.get(), viewport.get());

    ViewInfo* viewInfo = ViewMgr::getViewInfo(out.mainView.get());
    viewInfo->canvas = canvas;
    viewInfo->compViewer = out.viewer.get();

    out.renderInfo = new RenderInfo;
    out.renderInfo->compViewer(out.viewer.get());
    out.renderInfo->mainView(out.mainView.get());
    out.renderInfo->canvas = canvas;
    out.renderInfo->masterCamera(out.mainView->getCamera());
    out.renderInfo->viewInfo(viewInfo);
    out.renderInfo->readMultiSampleFBO.reset(new ReadMultiSampleFBO(width, height));

    out.viewer->setUserData(out.renderInfo.get());
    out.viewer->addView(out.mainView.get());

    osg::State* state = out.graphicsWindow->getState();
    state->setUseModelViewAndProjectionUniforms(true);
    state->setGlobalDefaultModeValue(GL_BLEND, true);

    out.viewer->setUpdateOperations(operations);
    out.viewer->setThreadingModel(osgViewer::ViewerBase::SingleThreaded);
    return out;
}

} // namespace Orvane
} // namespace Vorna
