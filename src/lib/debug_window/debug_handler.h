#pragma once

#include <QObject>
#include <QPointer>
#include <QVector>
#include <osgGA/GUIEventHandler>

namespace Vorna {
namespace Orvane {
namespace RenderDebug {

class DebugInterface;

// Owns the developers' tuning window; lives on the application's thread.
class DebugUI : public QObject
{
    Q_OBJECT
public:
    ~DebugUI() override;
    QObject* window() const { return m_window; }

public slots:
    void enableDebug();
    void disableDebug();

private:
    QPointer<QObject> m_window;
    QPointer<QObject> m_engine;
};

// Opens or closes the tuning window when the secret key sequence is typed on the view.
// Render thread.
class DebugHandler : public osgGA::GUIEventHandler
{
public:
    DebugHandler();
    ~DebugHandler() override;
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
