#pragma once

#include "canvas_base.h"

#include <QMutex>
#include <QObject>
#include <map>
#include <osg/Object>
#include <osg/ref_ptr>

namespace Vorna {
namespace Orvane {

// Keeps frames coming while anything animates on a canvas, and announces each end. Rendering
// is on demand, so whatever moves by itself must register here. Any thread; the animation
// mutex is always taken before the canvas's.
class AnimationMgr : public QObject
{
    Q_OBJECT
public:
    static AnimationMgr* instance();

    // Asks the canvas for frames for the longest animation ever seen plus three seconds.
    void addAnimation(CanvasBase* canvas, osg::Object* object, float time);
    // The last running object of a canvas leaves it with one more frame.
    void finishAnimation(osg::Object* object);
    bool isAnimating(osg::Object* object) const;

signals:
    // Emitted with the mutex held: a direct receiver must not call back into the manager.
    void animationFinished(osg::Object* animator);

private:
    mutable QMutex m_mutex;
    std::map<osg::ref_ptr<CanvasBase>, std::map<osg::Object*, float>> m_animations;
};

} // namespace Orvane
} // namespace Vorna
