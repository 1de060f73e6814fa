#include "debug_handler.h"

#include "debug_interface.h"
#include "orvane_log.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QWindow>

namespace Vorna {
namespace Orvane {
namespace RenderDebug {

void DebugUI::enableDebug()
{
    qCDebug(orvane) << "enableDebug implemantation";
    if (QGuiApplication::allWindows().isEmpty()) {
        qCDebug(orvane) << "can't find any window";
        return;
    }
    if (m_window)
        return;
    static const bool registered = [] {
        qmlRegisterUncreatableType<DebugInterface>("Vorna.Orvane", 1, 0, "DebugInterface",
                                                   "given by the render debug window");
        return true;
    }();
    Q_UNUSED(registered)
    // An engine of its own, so the panel never touches the application's QML.
    auto* engine = new QQmlEngine(this);
    m_engine = engine;
    engine->rootContext()->setContextProperty("$DbgRender", new DebugInterface(engine));
    QQmlComponent component(engine, QUrl("qrc:/qml/DebugWindow.qml"));
    QObject* window = component.create();
    if (!window) {
        qCWarning(orvane) << component.errorString();
        return;
    }
    m_window = window;
}

void DebugUI::disableDebug()
{
    delete m_window;
}

DebugUI::~DebugUI()
{
    // The window's bindings refer to the engine: the window goes first.
    delete m_window;
    delete m_engine;
}

DebugHandler::DebugHandler()
{
    // Nobody types "orvdbg" by accident.
    for (char c : {'o', 'r', 'v', 'd', 'b', 'g'})
        m_keySequence.append(c);
}

DebugHandler::~DebugHandler()
{
    // The panel serves this canvas: it goes with it.
    if (m_debugUI)
        m_debugUI->deleteLater();
}

bool DebugHandler::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter&)
{
    if (ea.getEventType() != osgGA::GUIEventAdapter::KEYDOWN)
        return false;
    int key = ea.getKey();
    if (key == osgGA::GUIEventAdapter::KEY_Shift_L || key == osgGA::GUIEventAdapter::KEY_Shift_R)
        return false;
    // Input lower-cases only the letters the manipulators use; the others arrive as Qt's
    // upper-case key codes.
    if (key >= 'A' && key <= 'Z')
        key += 'a' - 'A';
    if (m_typedKeys.isEmpty() || m_typedKeys.last() != key)
        m_typedKeys.append(key);
    if (m_typedKeys.size() == m_keySequence.size()) {
        if (m_typedKeys == m_keySequence)
            m_debugUI ? disableDebug() : enableDebug();
        m_typedKeys.clear();
    }
    return false;
}

void DebugHandler::enableDebug()
{
    qCDebug(orvane) << "enable render debug";
    m_debugUI = new DebugUI;
    if (QCoreApplication::instance())
        m_debugUI->moveToThread(QCoreApplication::instance()->thread());
    QMetaObject::invokeMethod(m_debugUI, "enableDebug", Qt::QueuedConnection);
}

void DebugHandler::disableDebug()
{
    qCDebug(orvane) << "disable render debug";
    QMetaObject::invokeMethod(m_debugUI, "disableDebug", Qt::QueuedConnection);
    m_debugUI->deleteLater();
    m_debugUI = nullptr;
}

} // namespace RenderDebug
} // namespace Orvane
} // namespace Vorna
