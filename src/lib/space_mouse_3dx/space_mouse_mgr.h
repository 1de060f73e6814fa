#pragma once

#include <QObject>
#include <vector>

class CustomizeManipulator;
namespace osg {
class Switch;
}

namespace Vorna {
namespace Orvane {

class CanvasBase;
class WatchActiveEH;

// One entry of a device's command table; the fields belong to a real device binding.
struct SpaceMouseCommandStruct {
};

// Where a 3DConnexion device joins the canvas. This platform has no device binding, so the
// manager reports that it did not initialise and everything that wires it stays idle.
// GUI thread; shared by all canvas items.
class SpaceMouseMgr : public QObject
{
    Q_OBJECT
public:
    explicit SpaceMouseMgr(CanvasBase* canvas);
    ~SpaceMouseMgr() override;

    void init(CanvasBase*) {}
    void setWatchEh(WatchActiveEH*) {}
    void setManipulatorProjHandle(CustomizeManipulator*) {}
    void setPivot(osg::Switch*) {}
    void setCustomizeCommand(const std::vector<SpaceMouseCommandStruct>&) {}
    bool getIsInitSpaceMouseSuccess() const { return m_isInitSpaceMouseSuccess; }
    bool enable3DSpaceMouse(bool) { return false; }

private:
    CanvasBase* m_canvas;
    bool m_isInitSpaceMouseSuccess = false;
};

} // namespace Orvane
} // namespace Vorna
