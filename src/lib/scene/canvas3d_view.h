#pragma once

#include "view_info.h"

#include <osg/Group>
#include <osg/Referenced>
#include <osg/Uniform>
#include <osg/Vec2f>
#include <osg/Viewport>
#include <osgViewer/CompositeViewer>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

// Makes every view of the system with the same skeleton: camera set-up, manipulator, post-draw
// callback, `viewport` uniform, and the groups "root" > "model", "other", "transparent model".
// Render thread.
class ViewMgr
{
public:
    static osgViewer::View* createView(osg::GraphicsContext* gc, osg::Viewport* viewport);
    static osg::Group* createSceneData(ViewInfo* info);
    // Follows the viewport of the nearest camera above whatever state set it is placed on.
    static osg::Uniform* createViewportUniform(const osg::Vec4f& viewport);

    static bool isCreateBy(osgViewer::View* view);
    static ViewInfo* getViewInfo(osgViewer::View* view);
    static osg::Group* getRoot(osgViewer::View* view);
    static osg::Group* getModel(osgViewer::View* view);
    static osg::Group* getTransModel(osgViewer::View* view);
    static osg::Group* getOther(osgViewer::View* view);
};

} // namespace Orvane
} // namespace Vorna
