#include "model_animation.h"

#include "animation_mgr.h"

#include <cmath>

namespace Vorna {
namespace Orvane {

namespace {

// Ends the animation 0.1 s after the last control point.
class CustomizedAnimationPathCallback : public osg::AnimationPathCallback
{
public:
    explicit CustomizedAnimationPathCallback(osg::AnimationPath* path)
        : osg::AnimationPathCallback(path), m_totalTime(path->getPeriod())
    {
    }

    void operator()(osg::Node* node, osg::NodeVisitor* nv) override
    {
        if (_animationPath.valid() && nv->getVisitorType() == osg::NodeVisitor::UPDATE_VISITOR &&
            nv->getFrameStamp()) {
            const double time = nv->getFrameStamp()->getSimulationTime();
            _latestTime = time;
            if (!_pause) {
                if (_firstTime == DBL_MAX)
                    _firstTime = time;
                update(*node);
                if (!m_finished && time - _firstTime > m_totalTime + 0.1) {
                    m_finished = true;
                    AnimationMgr::instance()->finishAnimation(node);
                }
            }
        }
        osg::Callback::traverse(node, nv);
    }

private:
    double m_totalTime;
    bool m_finished = false;
};

osg::AnimationPath::ControlPoint controlPoint(const osg::Matrixd& m)
{
    return osg::AnimationPath::ControlPoint(m.getTrans(), m.getRotate(), m.getScale());
}

} // namespace

void slerpTest(osg::Quat& result, float t, const osg::Quat& from, const osg::Quat& to)
{
    double cosOmega = from.asVec4() * to.asVec4();
    osg::Quat target = to;
    // The short arc: q and -q are the same rotation.
    if (cosOmega < 0.0) {
        cosOmega = -cosOmega;
        target = -to;
    }
    double a, b;
    if (1.0 - cosOmega > 1e-6) {
        const double omega = std::acos(cosOmega);
        const double sinOmega = std::sin(omega);
        a = std::sin((1.0 - t) * omega) / sinOmega;
        b = std::sin(t * omega) / sinOmega;
    } else {
        a = 1.0 - t;
        b = t;
    }
    result = from * a + target * b;
}

ModelSingleAnimationOperation::ModelSingleAnimationOperation(osg::MatrixTransform* transform,
                                                             const osg::Matrixd& start,
                                                             const osg::Matrixd& end, float time,
                                                             bool intermediate)
    : OperationBase("model single animation"), m_transform(transform), m_start(start), m_end(end),
      m_time(time), m_intermediate(intermediate)
{
    auto* path = new osg::AnimationPath;
    path->setLoopMode(osg::AnimationPath::NO_LOOPING);
    if (!intermediate) {
        path->insert(0.0, controlPoint(start));
    } else {
        osg::Vec3d translation, scale;
        osg::Quat rotation, scaleOrientation;
        start.decompose(translation, rotation, scale, scaleOrientation);
        path->insert(0.0, osg::AnimationPath::ControlPoint(translation, rotation, scale));
        constexpr int kSteps = 2;
        const osg::Vec3d endTranslation = end.getTrans();
        const osg::Vec3d endScale = end.getScale();
        for (int i = 1; i < kSteps; ++i) {
            const float t = static_cast<float>(i) / kSteps;
            osg::Quat q;
            slerpTest(q, t, rotation, end.getRotate());
            path->insert(i * time / kSteps, osg::AnimationPath::ControlPoint(
                                                translation + (endTranslation - translation) * t, q,
                                                scale + (endScale - scale) * t));
        }
    }
    path->insert(time, controlPoint(end));
    m_callback = new CustomizedAnimationPathCallback(path);
}

void ModelSingleAnimationOperation::doOperation()
{
    if (!m_transform)
        return;
    m_transform->setUpdateCallback(m_callback.get());
    AnimationMgr::instance()->addAnimation(m_renderInfo->canvas.get(), m_transform.get(), m_time);
}

CancelModelAnimationOperation::CancelModelAnimationOperation(osg::MatrixTransform* transform,
                                                             const std::string& name)
    : OperationBase(name), m_transform(transform)
{
}

void CancelModelAnimationOperation::doOperation()
{
    if (!m_transform)
        return;
    auto* callback = dynamic_cast<osg::AnimationPathCallback*>(m_transform->getUpdateCallback());
    if (callback && callback->getAnimationPath() &&
        !callback->getAnimationPath()->getTimeControlPointMap().empty()) {
        osg::Matrixd end;
        callback->getAnimationPath()->getTimeControlPointMap().rbegin()->second.getMatrix(end);
        m_transform->setMatrix(end);
    }
    m_transform->setUpdateCallback(nullptr);
    AnimationMgr::instance()->finishAnimation(m_transform.get());
}

} // namespace Orvane
} // namespace Vorna
