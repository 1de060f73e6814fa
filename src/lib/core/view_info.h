#pragma once

#include "canvas_base.h"

#include <osg/Group>
#include <osg/Referenced>
#include <osg/Vec2f>
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

    // The record of a view made by ViewMgr; nullptr for a foreign view.
    static ViewInfo* of(osgViewer::View* view)
    {
        return view ? dynamic_cast<ViewInfo*>(view->getUserData()) : nullptr;
    }

protected:
    ~ViewInfo() override = default;
};

} // namespace Orvane
} // namespace Vorna
