#pragma once

#include "orvane_metatypes.h"
#include "rect_cut_plane_rotate_dragger.h"

#include <QObject>
#include <atomic>
#include <osg/BoundingBox>
#include <osg/Geode>
#include <osg/MatrixTransform>
#include <osg/Uniform>
#include <osgGA/GUIActionAdapter>
#include <osgGA/GUIEventAdapter>
#include <osgManipulator/Dragger>
#include <osgManipulator/Translate1DDragger>

namespace Vorna {
namespace Orvane {

// A rectangle the user drags through the scene to cut models and the live cloud: a translucent
// plane with a border and an arrow along its normal (press and drag to push the plane along the
// normal), and a sphere at each corner (press and drag to turn the plane about the in-plane
// axis across that corner). It publishes the plane in world space as the uniforms "direction"
// and "center", with "selectIndex", for the cut programs; `addCutUniforms` puts them on the
// state set above the models to cut. Events arrive through the event traversal. Render thread,
// but for `hasRectCutPlane()`, which any thread may ask.
class RectCutPlane : public QObject, public osgManipulator::CompositeDragger
{
    Q_OBJECT
public:
    enum DragType : int { TranslateDrag = 0, RotateDrag = 1 };

    // Turned so that the plane lies across the box's longest direction, at the box's centre.
    RectCutPlane(const osg::BoundingBox& box, float selectIndex = 1.0f);

    static bool hasRectCutPlane();

    void setupDefaultGeometry() override;
    osg::Node* createLine();
    osg::Node* createPlane();
    osg::Node* createArrow();
    osg::Node* createDragSphere(int index);
    // A white, handle-less copy shown in place of the plane while cutting is off.
    osg::Node* createDisabledCutPlane();
    osg::Node* createDisabledCutPlaneNonArrow();

    // Rebuilds the parts for a new box; `a` and `b`, when not both 0, give the rectangle's size.
    // With `recompute` the plane keeps its place relative to the box's centre.
    void updateSize(const osg::BoundingBox& box, bool recompute, float a, float b);

    // The plane in world coordinates, and by the plane's own matrix alone.
    void getCutPlaneInfo(osg::Vec3f& center, osg::Vec3f& direction) const;
    void getCutPlaneInfoSelf(osg::Vec3f& center, osg::Vec3f& direction) const;

    void addCutUniforms(osg::StateSet* stateSet) const;
    void removeCutUniforms(osg::StateSet* stateSet) const;
    void setSelectIndex(float index);
    // Copies the current plane into the uniforms; runs in every update traversal too.
    void updateCutUniforms();

    // No restriction while all are 0; otherwise dragging needs one of them to hold.
    void setDragEnableMasks(int modKeyMask, int buttonMask, int key);

    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;
    void traverse(osg::NodeVisitor& nv) override;
    bool handle(const osgManipulator::PointerInfo& pi, const osgGA::GUIEventAdapter& ea,
                osgGA::GUIActionAdapter& aa) override;

    void setLineColorByEnable(bool) {}
    void setPlaneColorByEnable(bool) {}
    void recoverToNonDragged() {}

    void setSphereColorByHighlight(int index, bool highlight);
    void setArrowColorByHighlight(bool highlight);

    const osg::Vec3f& corner(int index) const { return m_corners[index & 3]; }
    osg::Node* sphereNode(int index) const { return m_spheres[index & 3].get(); }
    osg::Node* planeNode() const { return m_plane.get(); }
    osg::Node* arrowNode() const { return m_arrow.get(); }

signals:
    void offsetChanged();
    void doubleClicked();
    void draggingChanged(bool dragging);
    void matrixChanged(osg::Matrix matrix);
    void beginDragging(int dragType);
    void endDragging(int dragType);

protected:
    ~RectCutPlane() override;

private:
    friend class RectCutPlaneCheckCallback;

    void convertBBAppropriatly(const osg::BoundingBox& box);
    void computeCornerAndSpherePosition(float a, float b);
    void setGeometryColorByIntersect(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa);
    bool dragGeometryByIntersect(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa,
                                 bool handlesFirst);
    void updateEnableState(const osgGA::GUIEventAdapter& ea);
    // Points the turning dragger's axis across the pressed corner.
    void aimRotateDragger(int sphere);
    int sphereOnPath(const osg::NodePath& path) const;
    void setHandleColor(osg::Node* handle, const osg::Vec4f& color);
    float handleRadius() const;

    osg::BoundingBox m_boundingBox;
    osg::Quat m_turn;
    osg::Vec3f m_half;
    osg::Vec3f m_corners[4];
    osg::Vec3f m_center;

    osg::ref_ptr<osgManipulator::Translate1DDragger> m_translateDragger;
    osg::ref_ptr<RectCutPlaneRotateDragger> m_rotateDragger;
    // Undoes the turning dragger's aim, under which the spheres hang.
    osg::ref_ptr<osg::MatrixTransform> m_sphereHolder;
    osg::ref_ptr<osg::Node> m_spheres[4];
    osg::ref_ptr<osg::Node> m_arrow;
    osg::ref_ptr<osg::Node> m_line;
    osg::ref_ptr<osg::Node> m_plane;

    osg::Vec4f m_sphereNormalColor;
    osg::Vec4f m_sphereHighlightColor;
    osg::Vec4f m_arrowNormalColor;
    osg::Vec4f m_arrowHighlightColor;

    int m_modKeyMask = 0;
    int m_buttonMask = 0;
    int m_key = 0;
    bool m_modKeyEnabled = false;
    bool m_buttonEnabled = false;
    bool m_keyEnabled = false;

    bool m_dragging = false;
    int m_dragType = TranslateDrag;

    osg::ref_ptr<osg::Uniform> m_directionUniform;
    osg::ref_ptr<osg::Uniform> m_centerUniform;
    osg::ref_ptr<osg::Uniform> m_selectIndexUniform;
};

} // namespace Orvane
} // namespace Vorna
