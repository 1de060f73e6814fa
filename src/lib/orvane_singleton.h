#pragma once

#include "canvas3d_shadermanager.h"

#include <QObject>
#include <osg/observer_ptr>

namespace Vorna {
namespace Orvane {

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
    // The one catalogue of named programs.
    ShaderManager& getShaderManager() { return m_shaderManager; }

private:
    explicit OrvaneSingleton(QObject* parent = nullptr);

    osg::observer_ptr<CanvasBase> m_canvas;
    ShaderManager m_shaderManager;
};

} // namespace Orvane
} // namespace Vorna
