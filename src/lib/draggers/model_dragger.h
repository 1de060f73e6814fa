#pragma once

#include <QMetaType>
#include <QObject>
#include <array>
#include <osg/BoundingSphere>
#include <osg/MatrixTransform>
#include <osg/Matrixd>
#include <osg/Switch>
#include <osg/Vec4f>
#include <osgGA/GUIActionAdapter>
#include <osgGA/GUIEventAdapter>
#include <osgManipulator/Dragger>
#include <vector>

namespace Vorna {
namespace Orvane {

// The matrices of the models a ModelDragger moves, in the order they were connected.
class ModelMatrixs
{
public:
    ModelMatrixs() = default;
    explicit ModelMatrixs(const std::vector<osg::Matrixd>& matrices) : m_matrices(matrices) {}

    const std::vector<osg::Matrixd>& matrices() const { return m_matrices; }
    std::size_t size() const { return m_matrices.size(); }
    const osg::Matrixd& operator[](std::size_t i) const { return m_matrices[i]; }

private:
    std::vector<osg::Matrixd> m_matrices;
};

// The gizmo that moves and turns one or more models by hand: three arrows along x, y and z and
// three arcs about them, drawn over everything at a constant size on screen. It is empty until
// `enable` builds the handles around the connected models, moves their transforms while the user
// drags, and reports each drag by signals. It stays out of the scene's bound and out of fits.
// Calling order: construct, connectMt, enable(true, pose), drags, enable(false, ...).
// Render thread only; the signals are emitted there, in the event traversal.
class ModelDragger : public QObject, public osgManipulator::CompositeDragger
{
    Q_OBJECT
public:
    // Colours of x, y and z at rest, then of x, y and z when picked.
    struct AxisPlaneColors {
        osg::Vec4f colors[6];
        const osg::Vec4f& rest(int axis) const { return colors[axis]; }
        const osg::Vec4f& picked(int axis) const { return colors[axis + 3]; }
    };

    ModelDragger(bool lighting, bool manageNodeMasks, unsigned int connectedMask,
                 unsigned int draggerMask);

    // `pose` turns the gizmo; its centre is always the centre of the connected models.
    bool enable(bool on, osg::Matrixd pose);
    bool isEnabled() const { return m_enabled; }
    bool connectMt(osg::ref_ptr<osg::MatrixTransform> mt);
    bool connectMt(std::vector<osg::ref_ptr<osg::MatrixTransform>> mts);
    void disconnect();
    // The rotation of the gizmo's own matrix.
    osg::Quat getRotate() const;

    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;
    bool handleInner(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa);

    void createRotDraggers();
    void createTransDraggers();
    osg::Node* createRing(float radius, float tube, const osg::Vec4f& color, float from, float to);
    osg::Node* createLine(const osg::Vec4f& color);

    const osg::BoundingSphere& bound() const { return m_bound; }
    // Arcs about z, y and x (blue, green, red), then arrows along x, y and z.
    osgManipulator::Dragger* rotDragger(int i) const { return m_rotDraggers[i].get(); }
    osgManipulator::Dragger* transDragger(int i) const { return m_transDraggers[i].get(); }
    osgManipulator::Dragger* hovered() const { return m_hovered; }
    const AxisPlaneColors& transColors() const { return m_transColors; }
    const AxisPlaneColors& rotColors() const { return m_rotColors; }
    float ringRadius() const { return m_ringRadius; }

signals:
    void beginOfDrag();
    void matrixChanged(osg::Matrix matrix);
    void matrixChanged(Vorna::Orvane::ModelMatrixs matrices);
    void endOfDrag();

protected:
    ~ModelDragger() override;

private:
    void emitMatrices();
    // Which of the six handles `node` is; null for none.
    osgManipulator::Dragger* handleOf(osg::Node* node) const;
    void showPicked(osgManipulator::Dragger* dragger, bool picked);
    void removeHandles();

    bool m_enabled = false;
    osg::BoundingSphere m_bound;
    std::array<osg::ref_ptr<osgManipulator::Dragger>, 3> m_rotDraggers;
    std::array<osg::ref_ptr<osgManipulator::Dragger>, 3> m_transDraggers;
    osgManipulator::Dragger* m_hovered = nullptr;
    bool m_lighting;
    float m_ringTube = 3.2f;
    float m_lineRadius = 3.22f;
    float m_ringRadius = 100.0f;
    AxisPlaneColors m_transColors;
    AxisPlaneColors m_rotColors;
    osg::Switch* m_switch;
    bool m_manageNodeMasks;
    osg::ref_ptr<osg::MatrixTransform> m_mt;
    std::vector<osg::ref_ptr<osg::MatrixTransform>> m_mts;
    unsigned int m_mtMask = 0;
    std::vector<unsigned int> m_mtsMasks;
    unsigned int m_connectedMask;
    unsigned int m_draggerMask;
    float m_devicePixelRatio = 1.0f;
};

} // namespace Orvane
} // namespace Vorna

Q_DECLARE_METATYPE(Vorna::Orvane::ModelMatrixs)
