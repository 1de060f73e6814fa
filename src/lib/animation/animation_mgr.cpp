#include "animation_mgr.h"

#include <algorithm>

namespace Vorna {
namespace Orvane {

AnimationMgr* AnimationMgr::instance()
{
    static AnimationMgr* g_animationMgr = new AnimationMgr;
    return g_animationMgr;
}

void AnimationMgr::addAnimation(CanvasBase* canvas, osg::Object* object, float time)
{
    if (!canvas)
        return;
    QMutexLocker lock(&m_mutex);
    m_animations[canvas][object] = time;
    // Never falls: frames are asked for as long as the longest animation seen, plus a margin.
    static float maxAnimationTime = 0.0f;
    maxAnimationTime = std::max(maxAnimationTime, time + 3.0f);
    canvas->framing(maxAnimationTime);
}

void AnimationMgr::finishAnimation(osg::Object* object)
{
    QMutexLocker lock(&m_mutex);
    for (auto it = m_animations.begin(); it != m_animations.end(); ++it) {
        auto found = it->second.find(object);
        if (found == it->second.end())
            continue;
        it->second.erase(found);
        if (it->second.empty()) {
            // One more frame draws the last pose.
            it->first->framing(0.0f);
            m_animations.erase(it);
        }
        emit animationFinished(object);
        return;
    }
}

bool AnimationMgr::isAnimating(osg::Object* object) const
{
    QMutexLocker lock(&m_mutex);
    for (const auto& [canvas, objects] : m_animations)
        if (objects.count(object))
            return true;
    return false;
}

} // namespace Orvane
} // namespace Vorna
