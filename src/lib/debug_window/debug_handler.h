#pragma once

#include <QObject>
#include <QVector>
#include <osgGA/GUIEventHandler>

namespace Vorna {
namespace Orvane {
namespace RenderDebug {

// Owns the developers' tuning window; lives on the application's thread.
class DebugUI : public QObject
{
    Q_OBJECT
public slots:
    void enableDebug();
    void disableDebug();
};

// Opens or closes the tuning window when the secret key sequence is typed on the view.
// Render thread.
class DebugHandler : public osgGA::GUIEventHandler
{
public:
    DebugHandler();
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;
    bool isPanelOpen() const { return m_debugUI != nullptr; }

private:
    void enableDebug();
    void disableDebug();

    QVector<int> m_typedKeys;
    QVector<int> m_keySequence;
    DebugUI* m_debugUI = nullptr;
};

} // namespace RenderDebug
} // namespace Orvane
} // namespace Vorna
