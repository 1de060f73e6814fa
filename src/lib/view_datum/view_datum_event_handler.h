#pragma once

#include "view_datum.h"

#include <map>
#include <osgGA/GUIEventHandler>
#include <osgViewer/View>
#include <string>

namespace Vorna {
namespace Orvane {

// Pointer events over the gizmo of the view it is added to: hovering a piece colours it, a
// left click turns the camera to that piece's direction (animated; a jump during a scan), the
// home button fits. A click taken by the gizmo is marked on the composite viewer with the user
// value "intersect_view_datum". Render thread, in the event traversal.
class ViewDatumEventHandler : public osgGA::GUIEventHandler
{
public:
    ViewDatumEventHandler();

    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;
    using osgGA::GUIEventHandler::handle;

    void setCubePlane(const std::map<std::string, osg::Geode*>& planes) { m_cubePlanes = planes; }
    void setViewDatum(ViewDatum* viewDatum) { m_viewDatum = viewDatum; }
    void setIfResetRotateCenter(bool reset) { m_ifResetRotateCenter = reset; }

    bool MouseMove(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa);
    bool LBPress(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa);
    bool resetCubeDefaultColor(osgViewer::View* view);
    // The first piece under the pointer: the cube first, then the home button.
    bool computeIntersect(osgGA::GUIActionAdapter& aa, const osgGA::GUIEventAdapter& ea,
                          std::string& name, osg::Node*& node);
    void hightLightPlaneAndText(const std::string& name, osgViewer::View* view);
    void setViewDirection(osgGA::GUIActionAdapter& aa, osg::Node* node) const;
    void setViewDirection_scan(osgGA::GUIActionAdapter& aa, osg::Node* node) const;
    void setViewDirection_normal(osgGA::GUIActionAdapter& aa, osg::Node* node) const;
    void Fit(osgGA::GUIActionAdapter& aa, bool fitToNode);

protected:
    ~ViewDatumEventHandler() override;

private:
    void turnTo(osgGA::GUIActionAdapter& aa, osg::Node* node, bool scanning) const;

    std::map<std::string, osg::Geode*> m_cubePlanes;
    osg::observer_ptr<ViewDatum> m_viewDatum;
    bool m_ifResetRotateCenter = true;
    std::string m_homeName = "viewDatumCubeHome";
};

} // namespace Orvane
} // namespace Vorna
