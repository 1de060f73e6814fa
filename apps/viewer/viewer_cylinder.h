#pragma once

#include <memory>
#include <osgGA/GUIEventHandler>

namespace Vorna {
namespace Orvane {
class CylinderManipulator;
}
} // namespace Vorna

// Y places an adjustable cylinder around the models, standing along +y on their lowest point,
// or takes it away again: the side arrow sets the radius, the top arrow the height, the ring
// turns it and a press on the body moves it.
class ViewerCylinder : public osgGA::GUIEventHandler
{
public:
    ViewerCylinder();
    ~ViewerCylinder() override;
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;

    // Render thread, as the handler itself.
    Vorna::Orvane::CylinderManipulator* cylinder() const { return m_cylinder.get(); }
    int changes() const { return m_changes; }

private:
    std::unique_ptr<Vorna::Orvane::CylinderManipulator> m_cylinder;
    int m_changes = 0;
};
