#pragma once

#include "orvane_metatypes.h"

#include <QColor>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QQuickFramebufferObject>
#include <QScopedPointer>
#include <QSharedPointer>
#include <QTimer>
#include <QVersionNumber>
#include <atomic>
#include <osg/OperationThread>
#include <osg/ref_ptr>
#include <osgGA/EventQueue>
#include <vector>

namespace osgViewer {
class View;
}

namespace Vorna {
namespace Orvane {

class Canvas3DItemCanvas;
class Canvas3DRenderer;
class CanvasBase;
class KeyEventFilter;
class SpaceMouseMgr;
struct SpaceMouseCommandStruct;
class TouchTranslator;

// The QtQuick item that shows the 3D scene. Lives on the GUI thread; its renderer lives on the
// QtQuick render thread. Frames are rendered on demand: frame()/framing() arm a budget in
// milliseconds, and each pacing tick turns a non-zero budget into QQuickItem::update().
// frame(), framing(), setMaxFrame() and addOperation() may be called from any thread.
// Which pointer events the item translates; a disabled one is ignored and propagates.
struct MouseEventControlStruct {
    bool enablePress = true;
    bool enableRelease = true;
    bool enableDoubleClick = true;
    bool enableMove = true;
    bool enableWheel = true;
};

class Canvas3DItem : public QQuickFramebufferObject
{
    Q_OBJECT
    Q_PROPERTY(QColor clearColor READ clearColor WRITE setClearColor NOTIFY clearColorChanged)
    Q_PROPERTY(double widthRatio READ widthRatio WRITE setWidthRatio NOTIFY widthRatioChanged)
    Q_PROPERTY(double heightRatio READ heightRatio WRITE setHeightRatio NOTIFY heightRatioChanged)
    Q_PROPERTY(int maxFrame READ maxFrame WRITE setMaxFrame NOTIFY maxFrameChanged)
public:
    enum TriggerUpdateType { TimerTrigger = 0, FrameSwappedTrigger = 1 };
    Q_ENUM(TriggerUpdateType)

    explicit Canvas3DItem(QQuickItem* parent = nullptr);
    ~Canvas3DItem() override;

    QColor clearColor() const { return m_clearColor; }
    void setClearColor(const QColor& color);
    double widthRatio() const { return m_widthRatio; }
    void setWidthRatio(double ratio);
    double heightRatio() const { return m_heightRatio; }
    void setHeightRatio(double ratio);
    // The effective rate: with FrameSwappedTrigger the refresh rate over the swap interval.
    int maxFrame() const;
    void setMaxFrame(int frames);

    Q_INVOKABLE QVersionNumber version() const { return m_version; }
    void setVersion(const QVersionNumber& version) { m_version = version; }
    Q_INVOKABLE QString vendor() const { return m_vendor; }
    void setVendor(const QString& vendor) { m_vendor = vendor; }

    // Arms one frame period of budget (or, every three minutes of a running budget, renews
    // the pacing connection).
    void frame();
    // Keeps frames coming for `seconds`, at least one frame period; replaces a running budget.
    void framing(float seconds);
    // Queued home requests coalesce into one.
    void home();

    Q_INVOKABLE void addOperation(osg::Operation* op);
    Q_INVOKABLE void addOperations(std::vector<osg::ref_ptr<osg::Operation>> ops);
    osg::OperationQueue* operationQueue() const { return m_operationQueue.get(); }
    osgGA::EventQueue* eventQueue() const { return m_eventQueue.get(); }
    CanvasBase* getCanvasBase() const;
    osgViewer::View* mainView() const;

    bool isRendererCreated() const { return m_rendererCreated; }
    // Milliseconds of frames still wanted; 0 when the canvas is idle. GUI thread.
    int remainingFrameBudget() const { return m_remainingMs; }
    // Counts frame(), framing() and unblocking, on whatever thread they were called.
    quint64 frameRequests() const { return m_frameRequests.load(); }
    TriggerUpdateType getTriggerUpdateType() const { return m_triggerUpdateType; }
    void setTriggerUpdateType(TriggerUpdateType type);

    // The touch recogniser's state, for inspection.
    const TouchTranslator* touchTranslator() const { return m_touch.data(); }
    void setEnableMouseEvent(const MouseEventControlStruct& control) { m_mouseControl = control; }
    void setEnable2FingerScrollZoomOnTrackpad(bool enable) { m_enable2FingerScrollZoom = enable; }
    void setKeyScrollAddition(unsigned int key) { m_keyScrollAddition = key; }
    // Qt key to the code that handlers see: space, fourteen letters in lower case, and the
    // modifier and delete keys as X11 keysyms; everything else unchanged.
    static int getOsgKey(QKeyEvent* event);
    static unsigned int getOsgEventButton(Qt::MouseButton button);

    bool enable3DConnexion(bool enable);
    bool set3DxCustomizeCommand(const std::vector<SpaceMouseCommandStruct>& commands);
    static QSharedPointer<SpaceMouseMgr> spaceMouseMgr() { return m_pSpaceMouseMgr; }

    Renderer* createRenderer() const override;

public slots:
    void setUpdateBlocked(bool block);
    void setSamples(uint samples);
    void onWindowStateChanged(Qt::WindowState state);
    // A finger held still past the long press time: right press and double click.
    void onLongPressFinished();

signals:
    void clearColorChanged(QColor color);
    void widthRatioChanged(double ratio);
    void heightRatioChanged(double ratio);
    void signalGeometryChanged();
    void rendererCreated();
    void maxFrameChanged();

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void hoverMoveEvent(QHoverEvent* event) override;
    void touchEvent(QTouchEvent* event) override;
    bool event(QEvent* event) override;
    void geometryChanged(const QRectF& newGeometry, const QRectF& oldGeometry) override;

private slots:
    void onRendererCreated();
    void onWindowChanged(QQuickWindow* window);
    void callUpdate();

private:
    friend class Canvas3DItemCanvas;
    friend class Canvas3DRenderer;

    // Runs `body` on the item's thread: at once when already there, else posted.
    template <typename F> void postToItemThread(F body);
    int frameIntervalMs() const;
    static double highestRefreshRate();
    void calculateFrameSwappedInterval();
    void monitorScreenRefreshRateChanged();
    void reconnectCallupdate();
    void connectFrameSwapped();
    void disconnectFrameSwapped();
    void makeUpdateTimer();
    void initSpaceMouse();
    void setKeyboardModifiers(QInputEvent* event);
    void setMouseEventData(QMouseEvent* event);
    void setHoverEventData(QHoverEvent* event);
    void addScrollEvent(bool up);
    // False when the event kind is disabled: the event is then ignored and propagates.
    bool prepareMouseEvent(QMouseEvent* event, bool enabled);
    void translateKeyEvent(QKeyEvent* event, bool press);

    QColor m_clearColor;
    double m_widthRatio = 1.0;
    double m_heightRatio = 1.0;
    QVersionNumber m_version;
    QString m_vendor;
    osg::ref_ptr<osgGA::EventQueue> m_eventQueue;
    osg::ref_ptr<osg::OperationQueue> m_operationQueue;
    bool m_rendererCreated = false;
    QScopedPointer<QTimer> m_updateTimer;
    qint64 m_lastReconnectClock = 0;
    int m_maxFrame = 60;
    int m_remainingMs = 0;
    std::atomic<quint64> m_frameRequests{0};
    // The last update() came from the tick that spent the budget. GUI thread; read by the
    // renderer's synchronize, which runs with the GUI thread blocked.
    bool m_lastUpdateSpendsBudget = false;
    QScopedPointer<KeyEventFilter> m_keyEventFilter;
    // Set by createRenderer; cleared when QtQuick deletes the renderer.
    mutable std::atomic<Canvas3DRenderer*> m_renderer{nullptr};
    osg::ref_ptr<Canvas3DItemCanvas> m_canvas;
    bool m_windowMinimized = false;
    QScopedPointer<QElapsedTimer> m_elapsedTimer;
    TriggerUpdateType m_triggerUpdateType = FrameSwappedTrigger;
    int m_frameSwappedInterval = 1;
    int m_frameSwappedCount = 0;
    QMetaObject::Connection m_frameSwappedConnection;

    // Input state, GUI thread; positions in device pixels.
    osg::Vec2f m_mousePos;
    unsigned int m_modKeyMask = 0;
    unsigned int m_mouseButton = 0;
    bool m_skipNextHover = false;
    MouseEventControlStruct m_mouseControl;
    unsigned int m_currentKey = 0;
    unsigned int m_keyScrollAddition = Qt::Key_Alt;
    bool m_enable2FingerScrollZoom = true;
    // Touch points and the double tap / long press recogniser; fills m_skipNextHover.
    QScopedPointer<TouchTranslator> m_touch;

    static Qt::WindowState m_oldWindowState;
    static QSharedPointer<SpaceMouseMgr> m_pSpaceMouseMgr;
};

} // namespace Orvane
} // namespace Vorna
