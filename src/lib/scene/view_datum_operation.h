#pragma once

#include "orvane_operations.h"

#include <osg/Camera>
#include <osg/Vec4i>
#include <osgViewer/View>
#include <string>

namespace Vorna {
namespace Orvane {

class ViewDatumEventHandler;

// Puts a camera for head-up content into the "other" group of a view (the canvas's main view
// without one). With FollowWindow its viewport and projection follow the window's size.
// Render thread.
class CreateHudCameraOperation : public OperationBase
{
public:
    enum AdapterMode : int { FollowWindow = 0, KeepViewport = 1 };

    CreateHudCameraOperation(const osg::Vec4i& viewport, AdapterMode mode,
                             osgViewer::View* view = nullptr);
    // What the application draws goes under this camera.
    osg::Camera* getHudCamera() const { return m_camera.get(); }

    // (0, 0, width, height) of `viewport` in FollowWindow mode, nothing in any other.
    static void updateCameraViewport(osg::Camera* camera, const osg::Vec4i& viewport, int mode);
    static void updateHudCameraProjectionMatrix(osg::Camera* camera, const osg::Vec4i& viewport);

protected:
    void doOperation() override;

private:
    osg::ref_ptr<osg::Camera> m_camera;
    osg::Vec4i m_viewport;
    int m_mode;
    osg::ref_ptr<osgViewer::View> m_view;
};

// Adds the orientation gizmo to a view as a view of its own, named "datum", in the composite
// viewer, with its event handler on the view; or removes both. Enabling twice or disabling
// without a gizmo changes nothing. Render thread.
class ViewDatumOperation : public OperationBase
{
public:
    ViewDatumOperation(osgViewer::View* view, bool enable, bool showCube = true,
                       bool alignLeft = false, bool ifResetRotateCenter = true,
                       float marginX = 2.0f, float marginY = 2.0f, bool withHome = true,
                       float size = 1.0f, const std::string& name = "view datum");

    static ViewDatumEventHandler* getHandler(const osgViewer::View* view);
    // A spare view, unused by the library, that clears to grey and draws two lines.
    static osgViewer::View* createMacOSTempView(osg::Camera* camera);

protected:
    void doOperation() override;

private:
    osg::ref_ptr<osgViewer::View> m_view;
    bool m_enable;
    bool m_showCube;
    bool m_alignLeft;
    bool m_ifResetRotateCenter;
    float m_marginX;
    float m_marginY;
    bool m_withHome;
    float m_size;
    std::string m_name;
};

} // namespace Orvane
} // namespace Vorna
