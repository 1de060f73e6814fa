#pragma once

#include <osg/Group>
#include <osgGA/GUIEventHandler>
#include <osgViewer/View>

// Image and material effects on the loaded models, on the render thread: H turns soft shadows
// on and off, P the physically based material with subsurface scattering, A antialiasing (FXAA), N
// the screen denoise.
class ViewerEffects : public osgGA::GUIEventHandler
{
public:
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;

    // Each toggle returns whether the effect is now on. Render thread.
    static bool toggleShadow(osgViewer::View* view);
    static bool togglePbr(osgViewer::View* view);
    static bool toggleScreenPass(osgViewer::View* view, const std::string& name);

    // The shadow rig for the models of `view`: light depth, soft visibility and face mask drawn
    // before the scene, and a composite over the finished frame; a group named "shadow".
    static osg::ref_ptr<osg::Group> createShadowRig(osgViewer::View* view,
                                                    const osg::Vec3& towardsLight);
};
