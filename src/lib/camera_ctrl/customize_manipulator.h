#pragma once

#include <QObject>
#include <map>
#include <osg/Group>
#include <osg/MatrixTransform>
#include <osgGA/OrbitManipulator>
#include <osgViewer/View>

// The camera manipulator of every view: orbit mathematics and the mouse stack of the base,
// with an operator table keyed by (modifier mask, button mask). Render thread; its signals are
// emitted there.
class CustomizeManipulator : public QObject, public osgGA::OrbitManipulator
{
    Q_OBJECT
public:
    enum CCMOperatorType : int { None = 0, Rotate = 1, Move = 2, Zoom = 3, Select = 4 };
    enum ManipulatorType : int { Orthographic = 0, Perspective = 1 };

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

    void setOSGViewer(osgViewer::View* view);
    osgViewer::View* getOSGViewer() const { return m_pViewer; }
    float getPerspectiveFov() const { return m_perspectiveFov; }
    void setPerspectiveFovy(float fovy) { m_perspectiveFov = fovy; }
    ManipulatorType getManipulatorType() const { return m_manipulatorType; }

    void setDeviceActionOperatorType(const DeviceAction& action, CCMOperatorType type);
    CCMOperatorType operatorOf(const DeviceAction& action) const;
    void setRotate() { setDeviceActionOperatorType({0, 1}, Rotate); }
    void setMove() { setDeviceActionOperatorType({0, 1}, Move); }
    void setNone() { setDeviceActionOperatorType({0, 1}, None); }
    void setSelect() { setDeviceActionOperatorType({0, 1}, Select); }
    bool getIsMoving() const;

    void setRotateCenter(const osg::Vec3f& center) { m_rotateCenter = center; }
    const osg::Vec3f& getRotateCenter() const { return m_rotateCenter; }
    void setRotateSensitivity(float sensitivity) { m_rotateSensitivity = sensitivity; }
    void setRotateMode(bool useBaseTrackball, float sensitivity);
    void setMaximumDistance(double distance, bool relativeToModelSize);
    double getMaximumDistance(bool* relativeToModelSize = nullptr) const;

    // Zooming during a scan sums its distance changes; a new scan starts from zero.
    void cleanDistanceChange() { m_scanDistanceChange = 0.0f; }
    float getScanDistanceChange() const { return m_scanDistanceChange; }

    void enable() { m_enabled = true; }
    void disable() { m_enabled = false; }
    bool isEnabled() const { return m_enabled; }

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

private:
    void initRotateCenterSphere();

    static int m_maximumDistanceFlagIndex;

    bool m_isZoomOptimization = false;
    bool m_enabled = true;
    bool m_lbEnable = true;
    bool m_rbEnable = true;
    bool m_shiftWheelEnable = true;
    ManipulatorType m_manipulatorType = Perspective;
    osgViewer::View* m_pViewer = nullptr;
    float m_perspectiveFov = 40.0f;
    double _maximumDistance;
    osg::Vec3f m_rotateCenter;
    bool m_useBaseTrackball = true;
    osg::ref_ptr<osg::Group> m_rotateCenterGroup;
    osg::ref_ptr<osg::MatrixTransform> m_rotateCenterTransform;
    float m_rotateSensitivity = 1.5f;
    bool m_interactOpPlatform = false;
    std::map<DeviceAction, CCMOperatorType> m_deviceActionOperators;
    float m_scanDistanceChange = 0.0f;
};
