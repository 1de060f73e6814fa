#include "viewer_keys.h"

#include "undo_history.h"
#include <cctype>

#include "camera_operations.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "customize_manipulator.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"

using namespace Vorna::Orvane;

namespace {

// The built-in torus between the classic rig and the material model.
void toggleMaterialLighting(osg::Group* model)
{
    ShaderManager* shaders = OrvaneSingleton::instance()->getShaderMgr();
    osg::Program* classic = shaders->getShader("editmeshcolor");
    osg::Program* material = shaders->getShader("editmeshcolor_material");
    for (unsigned int i = 0; model && i < model->getNumChildren(); ++i) {
        osg::Node* node = model->getChild(i);
        if (node->getName() != "builtin torus")
            continue;
        osg::StateSet* ss = node->getOrCreateStateSet();
        const bool isClassic = ss->getAttribute(osg::StateAttribute::PROGRAM) == classic;
        ss->setAttributeAndModes(isClassic ? material : classic);
    }
}

} // namespace

bool isLetterPress(const osgGA::GUIEventAdapter& ea, char letter)
{
    const int key = ea.getKey();
    return ea.getEventType() == osgGA::GUIEventAdapter::KEYDOWN &&
           (key == std::tolower(letter) || key == std::toupper(letter)) &&
           !(ea.getModKeyMask() &
             (osgGA::GUIEventAdapter::MODKEY_CTRL | osgGA::GUIEventAdapter::MODKEY_ALT));
}

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
    if (m_history && (key == 'z' || key == 'Z') &&
        (ea.getModKeyMask() & osgGA::GUIEventAdapter::MODKEY_CTRL)) {
        if (ea.getModKeyMask() & osgGA::GUIEventAdapter::MODKEY_SHIFT)
            m_history->redo();
        else
            m_history->undo();
        return true;
    }
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
    if (key == 'm') {
        info->canvas->addOperation(new LambdaOperation(
            [view](RenderInfo&) { toggleMaterialLighting(ViewMgr::getModel(view)); }));
        return true;
    }
    return false;
}
