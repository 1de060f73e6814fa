#pragma once

#include "render_info.h"

#include <osg/OperationThread>
#include <osg/ref_ptr>
#include <osgGA/EventQueue>
#include <osgViewer/CompositeViewer>
#include <osgViewer/GraphicsWindow>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

class CanvasBase;

// The viewer of one canvas as the on-screen and the offscreen renderer both build it.
struct CanvasViewer {
    osg::ref_ptr<osgViewer::GraphicsWindowEmbedded> graphicsWindow;
    osg::ref_ptr<osgViewer::CompositeViewer> viewer;
    osg::ref_ptr<osgViewer::View> mainView;
    osg::ref_ptr<RenderInfo> renderInfo;
};

// An embedded window of the given size on the context that is current, a single-threaded
// composite viewer with one view from ViewMgr::createView, its RenderInfo as the viewer's user
// data, `events` as the window's input and `operations` drained in each update traversal.
// Render thread, with the canvas's context current.
CanvasViewer createCanvasViewer(CanvasBase* canvas, int width, int height,
                                osgGA::EventQueue* events, osg::OperationQueue* operations);

} // namespace Orvane
} // namespace Vorna
