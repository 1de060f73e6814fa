#pragma once

#include "orvane_operations.h"

#include <osg/BoundingBox>
#include <osg/Quat>
#include <vector>

namespace Vorna {
namespace Orvane {

// Operations that point the camera. Each falls back to the main view of the canvas that runs
// it, and hands rotation, centre and distance to the view's manipulator, at once or animated.

// Fits the given nodes, keeping the view direction; distance = radius x distance scale.
class FitOperation : public OperationBase
{
public:
    FitOperation(std::vector<osg::ref_ptr<osg::Node>> nodes, osgViewer::View* view = nullptr,
                 bool animated = true, float distanceScale = getFitDistanceScale(),
                 const std::string& name = "fit");
    static float getFitDistanceScale() { return 3.5f; }
    osgViewer::View* view() const { return m_view.get(); }

protected:
    void doOperation() override;

private:
    std::vector<osg::ref_ptr<osg::Node>> m_nodes;
    osg::ref_ptr<osgViewer::View> m_view;
    bool m_animated;
    float m_distanceScale;
};

// Fits what counts in the view (its valid bounds) at the projection's fit distance.
class FitOperationAuto : public OperationBase
{
public:
    explicit FitOperationAuto(osgViewer::View* view = nullptr, bool animated = true,
                              bool isManualFitView = false, bool setRotateCenter = true,
                              const std::string& name = "fit auto");
    // Repairs NaN distance, rotation, centre, view and projection matrices, each logged.
    static void restoreIfExistNanValue(osgViewer::View* view);

protected:
    void doOperation() override;

private:
    osg::ref_ptr<osgViewer::View> m_view;
    bool m_animated;
    bool m_isManualFitView;
    bool m_setRotateCenter;
};

class UpdateCameraOperation : public OperationBase
{
public:
    struct Param {
        osg::Vec3f center;
        float distance = 0.0f;
        float distanceScale = 3.5f;
        float animationTime = 0.2f;
        bool animated = true;
        bool fitToNode = false;
        bool setRotateCenter = false;
        bool keepCenter = false;
        osg::ref_ptr<osg::Node> node;
        osg::ref_ptr<osgViewer::View> view;
        osg::Quat rotation;
    };
    explicit UpdateCameraOperation(const Param& param);
    void setDistanceLimitActive(bool active) { m_distanceLimitActive = active; }
    // Fits `group` on the next run only.
    void useSceneBoundingOnce(osg::Group* group);

protected:
    void doOperation() override;

private:
    Param m_param;
    bool m_distanceLimitActive = false;
    bool m_fitOnce = false;
};

class LookAtOperation : public OperationBase
{
public:
    LookAtOperation(const osg::Vec3f& eye, const osg::Vec3f& center, const osg::Vec3f& up,
                    const std::string& name = "look at");

protected:
    void doOperation() override;

private:
    osg::Vec3f m_eye, m_center, m_up;
};

// 0 selects perspective, anything else orthographic.
class SetViewProjectionType : public OperationBase
{
public:
    explicit SetViewProjectionType(int type, osgViewer::View* view = nullptr,
                                   const std::string& name = "set view projection type");

protected:
    void doOperation() override;

private:
    int m_type;
    osg::ref_ptr<osgViewer::View> m_view;
};

// The function of the left mouse button: 0 none, 1 move, 2 rotate.
class SetCameraLBFuncOperation : public OperationBase
{
public:
    explicit SetCameraLBFuncOperation(int function,
                                      const std::string& name = "set camera lb function");

protected:
    void doOperation() override;

private:
    int m_function;
};

// Shows, updates or removes the line frame of a box among the view's aids.
class RangeBoxLineOperation : public OperationBase
{
public:
    RangeBoxLineOperation(bool enable, const osg::BoundingBox& box, osgViewer::View* view = nullptr,
                          const osg::Vec3f& color = osg::Vec3f(1.0f, 1.0f, 0.0f),
                          float lineWidth = 1.0f, const std::string& name = "range box line");

protected:
    void doOperation() override;

private:
    bool m_enable;
    osg::BoundingBox m_box;
    osg::ref_ptr<osgViewer::View> m_view;
    osg::Vec3f m_color;
    float m_lineWidth;
};

} // namespace Orvane
} // namespace Vorna
