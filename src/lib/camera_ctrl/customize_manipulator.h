#pragma once

#include <QObject>
#include <atomic>
#include <functional>
#include <map>
#include <osg/BoundingBox>
#include <osg/BoundingSphere>
#include <osg/Group>
#include <osg/MatrixTransform>
#include <osgGA/OrbitManipulator>
#include <osgViewer/View>

namespace Vorna {
namespace Orvane {

// The near plane of the projection the manipulator holds; in orthographic mode the extents
// are scaled by zNear / refNear.
struct Frustum {
    float left = -0.005f;
    float right = 0.005f;
    float bottom = -0.00375f;
    float top = 0.00375f;
    float zNear = 0.01f;
    float zFar = 1000.0f;
    float refNear = 0.01f;
};

struct SpaceMouseOpeState {
    bool mouseOperating = false;
    bool spaceMouseOperating = false;
};

} // namespace Orvane
} // namespace Vorna

// The camera manipulator of every view: orbit mathematics and the mouse stack of the base,
// an operator table keyed by (modifier mask, button mask), rotation about a free rotate centre,
// pan scaled by the frustum, zoom about the depth under the cursor, and a camera that a running
// scan owns (only the wheel works then). Render thread; its signals are emitted there.
class CustomizeManipulator : public QObject, public osgGA::OrbitManipulator
{
    Q_OBJECT
public:
    enum CCMOperatorType : int { None = 0, Rotate = 1, Move = 2, Zoom = 3, Select = 4 };
    enum ManipulatorType : int { Orthographic = 0, Perspective = 1 };
    enum DirectionType : int { Front = 0, Back, Left, Right, Top, Bottom };

    // One camera animation: a turn about a single axis, a linear centre and distance.
    struct CameraTransformAnimationData : public osgGA::StandardManipulator::AnimationData {
        osg::Vec3f m_startCenter;
        float m_startDistance = 0.0f;
        float m_elapsed = 0.0f;
        osg::Quat m_startRotation;
        osg::Vec3f m_axis{0.0f, 0.0f, 1.0f};
        float m_angle = 0.0f;
        osg::Vec3f m_targetCenter;
        float m_targetDistance = 0.0f;
    };

    struct DeviceAction {
        int modifierMask = 0;
        int buttonMask = 0;
        bool operator<(const DeviceAction& o) const
        {
            return modifierMask != o.modifierMask ? modifierMask < o.modifierMask
                                                  : buttonMask < o.buttonMask;
        }
        bool operator==(const DeviceAction& o) const
        {
            return modifierMask == o.modifierMask && buttonMask == o.buttonMask;
        }
    };

    // The base always gets flags 5 (update model size, process mouse wheel).
    explicit CustomizeManipulator(int flags = 5);

    // Overridden camera behaviour.
    void computeHomePosition(const osg::Camera* camera = nullptr,
                             bool useBoundingBox = false) override;
    void setTrackballSize(const double& size) override;
    void setDistance(double distance) override;
    void setCenter(const osg::Vec3d& center) override;
    void setTransformation(const osg::Vec3d& eye, const osg::Vec3d& center,
                           const osg::Vec3d& up) override;
    using osgGA::OrbitManipulator::setTransformation;
    void setNode(osg::Node* node) override;
    void home(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us) override;
    void home(double currentTime) override;
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us) override;
    void updateCamera(osg::Camera& camera) override;

    // Camera animation, stepped by the frame loop.
    void setTransformAnimation(const osg::Quat& rotation, const osg::Vec3f& center, float distance,
                               float animationTime, float startTime);
    void applyAnimationStep(const double t, const double previous) override;
    bool performAnimationMovement(const osgGA::GUIEventAdapter& ea,
                                  osgGA::GUIActionAdapter& us) override;
    void finishAnimation() override;
    const CameraTransformAnimationData* cameraAnimation() const
    {
        return dynamic_cast<const CameraTransformAnimationData*>(_animationData.get());
    }

    // Named view directions.
    osg::Quat getRotateByDirection(DirectionType type) const;
    void setCameraDirectionType(DirectionType type, bool animated);
    osg::Operation* setCameraDirectionTypeOperation(DirectionType type, bool animated,
                                                    float distanceScale = 3.5f);
    osg::Operation* setCameraPosWithAnimationOperation(const osg::Quat& rotation, bool fitToNode,
                                                       float animationTime, float distanceScale);
    void setCameraPosWithAnimation(const osg::Quat& rotation, bool fitToNode, float animationTime);
    void setIsFrontZDirUp(bool up) { m_isFrontZDirUp = up; }
    bool getIsFrontZDirUp() const { return m_isFrontZDirUp; }
    void setIsFrontXDirFront(bool front) { m_isFrontXDirFront = front; }
    bool getIsFrontXDirFront() const { return m_isFrontXDirFront; }
    // Emits isAlreadyFitState(flag) when the camera already stands at that distance and centre.
    void checkIsAlreadyFit(float distance, const osg::Vec3f& center, bool isManualFitView);
    void setMouseInGizemoFitRegion(bool in);
    bool bMouseInGizmoFitRegion() const { return m_mouseInGizmoFitRegion; }
    // The projection a fit at `distance` will have: orthographic extents follow the distance.
    osg::Matrixd getPrjMatAndOrthoAdjustByDist(double distance) const;

    void rotate(double dt, double dx, double dy);
    void move(double dt, double dx, double dy);
    void panModel(const float dx, const float dy, const float dz = 0.f) override;

    void setOSGViewer(osgViewer::View* view);
    osgViewer::View* getOSGViewer() const { return m_pViewer; }
    float getPerspectiveFov() const { return m_perspectiveFov; }
    void setPerspectiveFovy(float fovy);
    ManipulatorType getManipulatorType() const { return m_manipulatorType; }
    void setManipulatorType(const ManipulatorType& type);
    void updateAsLookAt();
    void setProjectionHandle(std::function<void(bool)> handle)
    {
        m_projectionHandle = std::move(handle);
    }
    const Vorna::Orvane::Frustum& getFrustum() const { return m_frustum; }
    void setBoundingBox(const osg::BoundingBox& box) { m_boundingBox = box; }

    void setDeviceActionOperatorType(const DeviceAction& action, CCMOperatorType type);
    CCMOperatorType operatorOf(const DeviceAction& action) const;
    void setRotate() { setDeviceActionOperatorType({0, 1}, Rotate); }
    void setMove() { setDeviceActionOperatorType({0, 1}, Move); }
    void setNone() { setDeviceActionOperatorType({0, 1}, None); }
    void setSelect() { setDeviceActionOperatorType({0, 1}, Select); }
    bool getIsMoving() const;
    void switchInteractOpPlatform(bool platform) { m_interactOpPlatform = platform; }

    void setRotateCenter(const osg::Vec3f& center);
    const osg::Vec3f& getRotateCenter() const { return m_rotateCenter; }
    void setShowRotateCenter(bool show) { m_showRotateCenter = show; }
    void setRotateSensitivity(float sensitivity) { m_rotateSensitivity = sensitivity; }
    void setRotateMode(bool useBaseTrackball, float sensitivity);
    // The base trackball on a disc of the model's on-screen radius about the rotate centre,
    // from the last two pointer events; nothing here calls it. No node: axis and angle stay.
    void rotateTrackballCustom(float scale, osg::Vec3d& axis, float& angle);
    // Window pixels spanned by `radius` along the view's x axis at the rotate centre.
    float getBBoxRadius2D(float radius) const;
    void setMaximumDistance(double distance, bool relativeToModelSize = false);
    double getMaximumDistance(bool* relativeToModelSize = nullptr) const;
    void setRect(int width, int height)
    {
        m_rectWidth = width;
        m_rectHeight = height;
    }
    void setConvertViewDatum(bool convert) { m_convertViewDatum = convert; }
    void setIsNonThroughSelect(bool nonThrough) { m_isNonThroughSelect = nonThrough; }
    void setLbEnable() { m_lbEnable = true; }
    void setLbDisable() { m_lbEnable = false; }
    void setRbEnable() { m_rbEnable = true; }
    void setRbDisable() { m_rbEnable = false; }
    void setShiftWheelEnable() { m_shiftWheelEnable = true; }
    void setShiftWheelDisable() { m_shiftWheelEnable = false; }
    void setIsZoomOptimization(bool on) { m_isZoomOptimization = on; }
    bool getIsZoomOptimization() const { return m_isZoomOptimization; }
    void enable() { m_enabled = true; }
    void disable() { m_enabled = false; }
    bool isEnabled() const { return m_enabled; }
    void resetMouseEventStack();
    const Vorna::Orvane::SpaceMouseOpeState& spaceMouseOpeState() const
    {
        return m_spaceMouseOpeState;
    }

    // Distance that shows the whole sphere in the camera's projection; 0 if it can't.
    double computeFitDistance(const osg::BoundingSphere& sphere, const osg::Camera* camera) const;
    osg::BoundingSphere getValidBoundingSphere() const;
    osg::BoundingBox getValidBoundingBox() const;

    // Zoom about the depth under the cursor.
    void zoomModelCustom(const osgGA::GUIEventAdapter& ea, float dy, bool zoomOut);
    bool zoomModelPost(const osgGA::GUIEventAdapter& ea, float scale, bool zoomOut);
    bool calculateZoomCenter(const osgGA::GUIEventAdapter& ea, osg::Vec3f& out, bool keepLast);
    bool getZoomCenterEx(const osgGA::GUIEventAdapter& ea, osg::Vec3f& out, bool keepLast);
    bool getZoomCenterExDepth(const osgGA::GUIEventAdapter& ea, bool keepLast, float& depth);
    bool computeIntersect(const osgGA::GUIEventAdapter& ea, const osg::Node* node,
                          osg::Vec3f& point);
    float getBoundingSphereScreenRadius(const osg::BoundingSphere& sphere) const;
    void avoidDistanceNan();
    void avoidCenterNanWhenZoom(const osgGA::GUIEventAdapter& ea, const osg::Vec3f& saved,
                                float scale);
    void OptimizeCameraParam();
    void setMinZoomThreshold(float threshold) { m_minZoomThreshold = threshold; }
    void setMaxZoomThreshold(float threshold) { m_maxZoomThreshold = threshold; }
    void cleanDistanceChange() { m_scanDistanceChange = 0.0f; }
    float getScanDistanceChange() const { return m_scanDistanceChange; }
    float getOrthoCenterShift() const { return m_orthoCenterShift; }

signals:
    void rotated();
    void moved();
    void scaled();
    void updated();
    void changed();
    void isMouseInGizemoFitRegion(bool inFitRegion);
    void isAlreadyFitState(bool isManualFitView);

protected:
    ~CustomizeManipulator() override;

    bool performMovement() override;
    void rotateTrackball(const float px0, const float py0, const float px1, const float py1,
                         const float scale) override;
    bool handleMousePush(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us) override;
    bool handleMouseDrag(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us) override;
    bool handleMouseRelease(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us) override;
    bool handleMouseWheel(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us) override;
    bool handleKeyDown(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us) override;
    bool handleKeyUp(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us) override;
    virtual bool handleMultiTouch(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us);
    virtual bool handleMultiTouchDrag(const osgGA::GUIEventAdapter* now,
                                      const osgGA::GUIEventAdapter* last, double dt);
    virtual bool handleMultiTouchMove(const osgGA::GUIEventAdapter* now,
                                      const osgGA::GUIEventAdapter* last, double dt);
    virtual bool handleMultiTouchRotate(const osgGA::GUIEventAdapter* now,
                                        const osgGA::GUIEventAdapter* last, double dt);

private:
    void initRotateCenterSphere();
    void initRotateMap(std::map<DirectionType, osg::Quat>& map) const;
    osg::Quat directionRotation(DirectionType type) const;
    void updateRotateCenterSpherePos();
    void trackballCustom(osg::Vec3d& axis, float& angle, float p1x, float p1y, float p2x,
                         float p2y);
    void updateSelectDepthCallback();
    void updateMousePosInPostDrawCallback(const osgGA::GUIEventAdapter& ea);
    osg::Camera* camera() const { return m_pViewer ? m_pViewer->getCamera() : nullptr; }
    double viewportAspect() const;
    // View x projection x window: world to window pixels, y up.
    osg::Matrixd worldToWindow() const;
    // The pointer (or the centre of two fingers) in window pixels, y up.
    osg::Vec2f windowPosition(const osgGA::GUIEventAdapter& ea) const;
    osg::Vec2f getMultiTouchCenter(const osgGA::GUIEventAdapter& ea) const;
    void writeOrthoFrustum(double top, double aspect, double zNear, double zFar);

    static int m_maximumDistanceFlagIndex;

    bool m_isZoomOptimization = false;
    bool m_enabled = true;
    bool m_lbEnable = true;
    bool m_rbEnable = true;
    bool m_shiftWheelEnable = true;
    ManipulatorType m_manipulatorType = Perspective;
    osgViewer::View* m_pViewer = nullptr;
    float m_perspectiveFov = 40.0f;
    int m_rectWidth = 1;
    int m_rectHeight = 1;
    double _maximumDistance;
    bool m_convertViewDatum = false;
    osg::Vec3f m_rotateCenter;
    bool m_pickRotateCenterOnRelease = false;
    bool m_rotateCenterKeyDown = false;
    bool m_useBaseTrackball = true;
    bool m_showRotateCenter = false;
    osg::ref_ptr<osg::Group> m_rotateCenterGroup;
    osg::ref_ptr<osg::MatrixTransform> m_rotateCenterTransform;
    osg::ref_ptr<osgGA::GUIEventAdapter> m_lastTouchEvent;
    std::map<DirectionType, osg::Quat> m_rotateMap;
    bool m_isFrontZDirUp = true;
    bool m_isFrontXDirFront = false;
    bool m_mouseInGizmoFitRegion = false;
    float m_rotateSensitivity = 1.5f;
    osg::Quat m_lastRotation;
    osg::Vec3d m_lastCenter;
    double m_lastDistance = 0.0;
    float m_lastZoomDepth = 0.99f;
    Vorna::Orvane::Frustum m_frustum;
    osg::BoundingBox m_boundingBox;
    std::function<void(bool)> m_projectionHandle;
    Vorna::Orvane::SpaceMouseOpeState m_spaceMouseOpeState;
    std::map<DeviceAction, CCMOperatorType> m_deviceActionOperators;
    float m_orthoCenterShift = 0.0f;
    bool m_isNonThroughSelect = false;
    bool m_lastNonThroughSelect = false;
    bool m_interactOpPlatform = false;
    float m_minZoomThreshold = 0.01f;
    float m_maxZoomThreshold = 1e10f;
    // Atomic: the façade's updateScanStateNoOpe clears it on the caller's thread.
    std::atomic<float> m_scanDistanceChange{0.0f};
};
