#pragma once

#include <QObject>
#include <array>
#include <osg/BoundingSphere>
#include <osg/MatrixTransform>
#include <osg/Vec4f>
#include <osgGA/GUIActionAdapter>
#include <osgGA/GUIEventAdapter>
#include <osgManipulator/Dragger>

namespace Vorna {
namespace Orvane {

// Three rings that turn and three bars that slide the connected models, centred on their bound
// and sized by it. It reports nothing: what it changes are the connected transforms.
// Render thread only; call enable and connectMt from an operation.
class ModelAdjustDragger : public QObject, public osgManipulator::CompositeDragger
{
    Q_OBJECT
public:
    // Three normal colours, then three pick colours.
    struct AxisPlaneColors {
        osg::Vec4f colors[6];
        const osg::Vec4f& rest(int axis) const { return colors[axis]; }
        const osg::Vec4f& picked(int axis) const { return colors[axis + 3]; }
    };

    // `ringStyle` rounds the rings into tubes, else they are flat bands of `ringWidth`;
    // `barRadius` is half the width of the bars.
    ModelAdjustDragger(bool ringStyle, float ringWidth, float barRadius);

    bool connectMt(osg::ref_ptr<osg::MatrixTransform> mt);
    bool enable(bool on);
    bool isEnabled() const { return m_enabled; }
    void disconnect();

    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;

    void createRotDraggers();
    void createTransDraggers();
    osg::Node* createRing(float radius, float width, const osg::Vec4f& color);
    osg::Node* createLine(float length, float width, const osg::Vec4f& color);

    const osg::BoundingSphere& bound() const { return m_bound; }
    // Rings about z, y and x (blue, green, red); bars along x, y and z.
    osgManipulator::Dragger* rotDragger(int i) const { return m_rotDraggers[i].get(); }
    osgManipulator::Dragger* transDragger(int i) const { return m_transDraggers[i].get(); }
    osgManipulator::Dragger* currentDragger() const { return m_curDragger; }
    const AxisPlaneColors& transColors() const { return m_transColors; }
    const AxisPlaneColors& rotColors() const { return m_rotColors; }

protected:
    ~ModelAdjustDragger() override;

private:
    osgManipulator::Dragger* handleOf(osg::Node* node) const;
    void setPicked(osgManipulator::Dragger* dragger, bool picked);

    bool m_enabled = false;
    osg::BoundingSphere m_bound;
    std::array<osg::ref_ptr<osgManipulator::Dragger>, 3> m_rotDraggers;
    std::array<osg::ref_ptr<osgManipulator::Dragger>, 3> m_transDraggers;
    osgManipulator::Dragger* m_curDragger = nullptr;
    float m_ringRadius = 0.0f;
    float m_barLength = 0.0f;
    bool m_ringStyle;
    float m_ringWidth;
    float m_barRadius;
    AxisPlaneColors m_transColors;
    AxisPlaneColors m_rotColors;
};

} // namespace Orvane
} // namespace Vorna
