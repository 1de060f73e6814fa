#pragma once

#include <QObject>
#include <osg/observer_ptr>

namespace Vorna
{
namespace Orvane
{

class CanvasBase;

// The application's entry point for scene changes: its methods make operations that a canvas
// runs on its render thread. GUI thread, except setCanvas (render thread at renderer set-up).
class OrvaneSingleton : public QObject
{
    Q_OBJECT
public:
    static OrvaneSingleton* instance();

    // The last canvas whose renderer was set up wins.
    void setCanvas(CanvasBase* canvas);
    CanvasBase* getCanvas() const;

private:
    explicit OrvaneSingleton(QObject* parent = nullptr);

    osg::observer_ptr<CanvasBase> m_canvas;
};

} // namespace Orvane
} // namespace Vorna
