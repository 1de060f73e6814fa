#pragma once

#include "canvas_base.h"

#include <osg/Group>
#include <osg/Referenced>
#include <osg/Uniform>
#include <osg/Vec2f>
#include <osg/Viewport>
#include <osgViewer/CompositeViewer>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

// What belongs to a view made by ViewMgr; the view's user data. Views without one are foreign
// and refused by the façade. The groups are held by the scene, not by this record.
class ViewInfo : public osg::Referenced
{
public:
    osg::ref_ptr<CanvasBase> canvas;
    osgViewer::CompositeViewer* compViewer = nullptr;
    osg::Group* root = nullptr;
    osg::Group* model = nullptr;
    osg::Group* transModel = nullptr;
    osg::Group* other = nullptr;
    // Fit operations centre on screenCoord when set.
    bool bFitByScreenCoord = false;
    osg::Vec2f screenCoord;

protected:
    ~ViewInfo() override = default;
};

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
