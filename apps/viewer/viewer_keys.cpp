#include "viewer_keys.h"

#include "camera_ctrl/customize_manipulator.h"
#include "camera_operations.h"
#include "canvas3d_view.h"

using namespace Vorna::Orvane;

bool ViewerKeys::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    if (ea.getEventType() != osgGA::GUIEventAdapter::KEYDOWN)
        return false;
    auto* view = dynamic_cast<osgViewer::View*>(aa.asView());
    ViewInfo* info = ViewMgr::getViewInfo(view);
    auto* manipulator =
        view ? dynamic_cast<CustomizeManipulator*>(view->getCameraManipulator()) : nullptr;
    if (!info || !info->canvas || !manipulator)
        return false;
    const int key = ea.getKey();
    // Letters outside the item's lower-case set arrive as upper-case Qt codes.
    if (key == 'F') {
        info->canvas->addOperation(new FitOperationAuto(view));
        return true;
    }
    if (key >= '2' && key <= '7') {
        manipulator->setCameraDirectionType(
            static_cast<CustomizeManipulator::DirectionType>(key - '2'), true);
        return true;
    }
    if (key == 'o') {
        const bool perspective =
            manipulator->getManipulatorType() == CustomizeManipulator::Perspective;
        info->canvas->addOperation(new SetViewProjectionType(perspective ? 1 : 0, view));
        return true;
    }
    return false;
}
