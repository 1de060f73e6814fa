#pragma once

#include "orvane_operations.h"

#include <osg/AnimationPath>
#include <osg/MatrixTransform>

namespace Vorna {
namespace Orvane {

// Moves a transform from one pose to another over `time` seconds, keeping frames coming
// through AnimationMgr. With `intermediate`, the path gets a middle control point.
class ModelSingleAnimationOperation : public OperationBase
{
public:
    ModelSingleAnimationOperation(osg::MatrixTransform* transform, const osg::Matrixd& start,
                                  const osg::Matrixd& end, float time, bool intermediate = false);
    osg::AnimationPathCallback* callback() const { return m_callback.get(); }

protected:
    void doOperation() override;

private:
    osg::ref_ptr<osg::MatrixTransform> m_transform;
    osg::Matrixd m_start;
    osg::Matrixd m_end;
    float m_time;
    osg::ref_ptr<osg::AnimationPathCallback> m_callback;
    bool m_intermediate;
};

// Stops a model animation at its end pose.
class CancelModelAnimationOperation : public OperationBase
{
public:
    explicit CancelModelAnimationOperation(osg::MatrixTransform* transform,
                                           const std::string& name = "cancel model animation");

protected:
    void doOperation() override;

private:
    osg::ref_ptr<osg::MatrixTransform> m_transform;
};

// Spherical interpolation along the short arc.
void slerpTest(osg::Quat& result, float t, const osg::Quat& from, const osg::Quat& to);

} // namespace Orvane
} // namespace Vorna
