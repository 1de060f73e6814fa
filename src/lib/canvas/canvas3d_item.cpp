#include "canvas3d_item.h"

#include "canvas3d_item_canvas.h"
#include "canvas3d_renderer.h"
#include "key_event_filter.h"
#include "orvane_log.h"
#include "orvane_operations.h"
#include "space_mouse_mgr.h"
#include "touch_gesture.h"

#include <QGuiApplication>
#include <QQuickWindow>
#include <QScreen>
#include <QThread>
#include <cmath>
#include <ctime>

namespace Vorna {
namespace Orvane {

Qt::WindowState Canvas3DItem::m_oldWindowState = Qt::WindowNoState;
QSharedPointer<SpaceMouseMgr> Canvas3DItem::m_pSpaceMouseMgr;

namespace {
// Used when no screen reports a rate, so that budgets stay finite.
constexpr double kFallbackRefreshRate = 60.0;
} // namespace

Canvas3DItem::Canvas3DItem(QQuickItem* parent)
    : QQuickFramebufferObject(parent), m_keyEventFilter(new KeyEventFilter),
      m_elapsedTimer(new QElapsedTimer)
{
    setMirrorVertically(true);
    setTextureFollowsItemSize(true);
    setAcceptHoverEvents(true);
    setAcceptedMouseButtons(Qt::AllButtons);
    setWidthRatio(1.0);
    setHeightRatio(1.0);

    // Mouse y grows downwards, as in Qt.
    m_eventQueue = new osgGA::EventQueue(osgGA::GUIEventAdapter::Y_INCREASING_DOWNWARDS);
    m_operationQueue = new osg::OperationQueue;
    m_touch.reset(new TouchTranslator(m_eventQueue.get(), [this] { frame(); }));
    setAcceptTouchEvents(true);

    registerMetaTypes();
    qRegisterMetaType<QVersionNumber>("QVersionNumber");

    m_elapsedTimer->start();
    connect(this, &QQuickItem::windowChanged, this, &Canvas3DItem::onWindowChanged);
    connect(m_keyEventFilter.data(), &KeyEventFilter::keyPressed, this,
            [this](QKeyEvent* e) { keyPressEvent(e); });
    connect(m_keyEventFilter.data(), &KeyEventFilter::keyReleased, this,
            [this](QKeyEvent* e) { keyReleaseEvent(e); });
    monitorScreenRefreshRateChanged();
    m_canvas = new Canvas3DItemCanvas(this);
}

Canvas3DItem::~Canvas3DItem()
{
    qCDebug(orvane) << "Canvas item destroyed";
    // The base destructor leaves the window and emits windowChanged: no slot of ours may run then.
    disconnect(this, &QQuickItem::windowChanged, this, &Canvas3DItem::onWindowChanged);
    if (window())
        window()->removeEventFilter(m_keyEventFilter.data());
    m_canvas->detachItem();
}

template <typename F> void Canvas3DItem::postToItemThread(F body)
{
    QMetaObject::invokeMethod(this, std::move(body), Qt::AutoConnection);
}

void Canvas3DItem::setClearColor(const QColor& color)
{
    if (color == m_clearColor)
        return;
    m_clearColor = color;
    addOperation(new ClearColorOperation(
        osg::Vec4f(color.redF(), color.greenF(), color.blueF(), color.alphaF())));
    emit clearColorChanged(color);
}

void Canvas3DItem::setWidthRatio(double ratio)
{
    m_widthRatio = ratio;
    emit widthRatioChanged(ratio);
}

void Canvas3DItem::setHeightRatio(double ratio)
{
    m_heightRatio = ratio;
    emit heightRatioChanged(ratio);
}

double Canvas3DItem::highestRefreshRate()
{
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (screens.isEmpty()) {
        qCInfo(orvane) << "No screens found!";
        return kFallbackRefreshRate;
    }
    double rate = 0.0;
    for (QScreen* screen : screens)
        rate = std::max(rate, screen->refreshRate());
    return rate > 0.0 ? rate : kFallbackRefreshRate;
}

int Canvas3DItem::maxFrame() const
{
    switch (m_triggerUpdateType) {
    case TimerTrigger:
        return m_maxFrame;
    case FrameSwappedTrigger:
        return static_cast<int>(highestRefreshRate() / std::max(1, m_frameSwappedInterval));
    }
    qCCritical(orvane) << "TriggerUpdateType is undefined!";
    return -1;
}

int Canvas3DItem::frameIntervalMs() const
{
    const int rate = maxFrame();
    return static_cast<int>(std::ceil(1000.0 / (rate > 0 ? rate : kFallbackRefreshRate)));
}

void Canvas3DItem::setMaxFrame(int frames)
{
    postToItemThread([this, frames] {
        if (frames == m_maxFrame)
            return;
        m_maxFrame = frames;
        switch (m_triggerUpdateType) {
        case TimerTrigger:
            if (m_updateTimer)
                m_updateTimer->setInterval(static_cast<int>(1000.0 / std::max(1, frames)));
            break;
        case FrameSwappedTrigger:
            calculateFrameSwappedInterval();
            break;
        default:
            qCCritical(orvane) << "TriggerUpdateType is undefined!";
        }
        emit maxFrameChanged();
    });
}

void Canvas3DItem::calculateFrameSwappedInterval()
{
    m_frameSwappedCount = 0;
    const double rate = highestRefreshRate();
    m_frameSwappedInterval = m_maxFrame < 1 ? 1 : std::max(1, static_cast<int>(rate / m_maxFrame));
}

void Canvas3DItem::monitorScreenRefreshRateChanged()
{
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (screens.isEmpty())
        qCInfo(orvane) << "No screens found!";
    for (QScreen* screen : screens) {
        connect(screen, &QScreen::refreshRateChanged, this, [this](qreal) {
            switch (m_triggerUpdateType) {
            case FrameSwappedTrigger:
                calculateFrameSwappedInterval();
                break;
            case TimerTrigger:
                break;
            default:
                qCCritical(orvane) << "TriggerUpdateType is undefined!";
            }
        });
    }
}

void Canvas3DItem::frame()
{
    ++m_frameRequests;
    postToItemThread([this] {
        if (m_remainingMs == 0) {
            m_remainingMs = frameIntervalMs();
            m_elapsedTimer->restart();
        } else if (m_rendererCreated) {
            // While frames are wanted without pause, renew the pacing connection every three
            // minutes of process time: a dead connection must not freeze the view for good.
            const std::clock_t now = std::clock();
            if ((now - m_lastReconnectClock) / 1000000 > 180) {
                m_remainingMs = frameIntervalMs();
                m_lastReconnectClock = now;
                reconnectCallupdate();
            }
        }
    });
}

void Canvas3DItem::framing(float seconds)
{
    ++m_frameRequests;
    postToItemThread([this, seconds] {
        m_remainingMs = std::max(static_cast<int>(seconds * 1000.0f), frameIntervalMs());
        m_elapsedTimer->restart();
    });
}

void Canvas3DItem::home()
{
    m_operationQueue->remove("home");
    m_operationQueue->add(new HomeOperation);
    frame();
}

void Canvas3DItem::addOperation(osg::Operation* op)
{
    if (!op)
        return;
    m_operationQueue->add(op);
    frame();
}

void Canvas3DItem::addOperations(std::vector<osg::ref_ptr<osg::Operation>> ops)
{
    if (ops.empty())
        return;
    m_operationQueue->add(new MultiOperation(ops));
    frame();
}

CanvasBase* Canvas3DItem::getCanvasBase() const
{
    return m_canvas.get();
}

osgViewer::View* Canvas3DItem::mainView() const
{
    return m_canvas->mainView();
}

void Canvas3DItem::callUpdate()
{
    QQuickWindow* w = window();
    if (!w)
        return;
    // Keeps the window's render loop turning, so that the next pacing tick comes.
    w->update();
    if (m_remainingMs == 0)
        return;
    // The tick that spends the budget still asks for a frame, one more than was asked for
    // when frames are slow: the renderer shows the last image again for it unless something
    // was asked for since.
    const bool spendsBudget = m_elapsedTimer->elapsed() >= m_remainingMs;
    switch (m_triggerUpdateType) {
    case TimerTrigger:
        update();
        m_lastUpdateSpendsBudget = spendsBudget;
        break;
    case FrameSwappedTrigger:
        if (++m_frameSwappedCount >= m_frameSwappedInterval) {
            update();
            m_lastUpdateSpendsBudget = spendsBudget;
            m_frameSwappedCount = 0;
        }
        break;
    default:
        qCCritical(orvane) << "TriggerUpdateType is undefined!";
    }
    const qint64 elapsed = m_elapsedTimer->restart();
    if (elapsed < m_remainingMs) {
        m_remainingMs -= static_cast<int>(elapsed);
    } else {
        m_remainingMs = 0;
        // A stride of swaps is under way: let it end in an update.
        if (m_triggerUpdateType == FrameSwappedTrigger && m_frameSwappedCount != 0)
            m_remainingMs = 1;
    }
}

void Canvas3DItem::connectFrameSwapped()
{
    disconnectFrameSwapped();
    if (window())
        m_frameSwappedConnection =
            connect(window(), &QQuickWindow::frameSwapped, this, &Canvas3DItem::callUpdate);
}

void Canvas3DItem::disconnectFrameSwapped()
{
    if (m_frameSwappedConnection)
        disconnect(m_frameSwappedConnection);
    m_frameSwappedConnection = {};
}

void Canvas3DItem::makeUpdateTimer()
{
    m_updateTimer.reset(new QTimer);
    m_updateTimer->setInterval(static_cast<int>(1000.0 / std::max(1, m_maxFrame)));
    m_updateTimer->setTimerType(Qt::PreciseTimer);
    connect(m_updateTimer.data(), &QTimer::timeout, this, &Canvas3DItem::callUpdate);
    m_updateTimer->start();
}

void Canvas3DItem::setTriggerUpdateType(TriggerUpdateType type)
{
    if (type == m_triggerUpdateType)
        return;
    m_triggerUpdateType = type;
    switch (type) {
    case TimerTrigger:
        disconnectFrameSwapped();
        makeUpdateTimer();
        break;
    case FrameSwappedTrigger:
        calculateFrameSwappedInterval();
        m_updateTimer.reset();
        connectFrameSwapped();
        break;
    default:
        qCCritical(orvane) << "TriggerUpdateType is undefined!";
    }
}

void Canvas3DItem::reconnectCallupdate()
{
    switch (m_triggerUpdateType) {
    case TimerTrigger:
        makeUpdateTimer();
        break;
    case FrameSwappedTrigger:
        calculateFrameSwappedInterval();
        connectFrameSwapped();
        break;
    default:
        qCCritical(orvane) << "TriggerUpdateType is undefined!";
    }
}

QQuickFramebufferObject::Renderer* Canvas3DItem::createRenderer() const
{
    auto* renderer = new Canvas3DRenderer(m_canvas.get());
    m_renderer = renderer;
    qCDebug(orvane) << "renderer created in createRenderer";
    QMetaObject::invokeMethod(const_cast<Canvas3DItem*>(this), "onRendererCreated",
                              Qt::QueuedConnection);
    return renderer;
}

void Canvas3DItem::onRendererCreated()
{
    m_rendererCreated = true;
    m_triggerUpdateType = FrameSwappedTrigger;
    m_frameSwappedInterval = 1;
    m_frameSwappedCount = 0;
    m_updateTimer.reset();
    calculateFrameSwappedInterval();
    connectFrameSwapped();
    // The first frame was swapped before this connection existed; in a window that nothing
    // else repaints no further swap would come, and queued operations would wait forever.
    if (window())
        window()->update();
    initSpaceMouse();
    emit rendererCreated();
    m_canvas->setRendererCreated();
}

void Canvas3DItem::setUpdateBlocked(bool block)
{
    Canvas3DRenderer* renderer = m_renderer;
    if (!renderer)
        return;
    // Unblocking asks for one frame; QQuickItem::update() belongs to the GUI thread.
    if (renderer->setUpdateBlocked(block)) {
        ++m_frameRequests;
        postToItemThread([this] {
            m_lastUpdateSpendsBudget = false;
            update();
        });
    }
}

void Canvas3DItem::setSamples(uint samples)
{
    Canvas3DRenderer* renderer = m_renderer;
    if (!renderer)
        return;
    renderer->setSamples(samples);
    frame();
}

void Canvas3DItem::onWindowChanged(QQuickWindow* w)
{
    if (!w)
        return;
    geometryChanged(boundingRect(), boundingRect());
    w->installEventFilter(m_keyEventFilter.data());
    disconnect(w, &QWindow::windowStateChanged, this, &Canvas3DItem::onWindowStateChanged);
    connect(w, &QWindow::windowStateChanged, this, &Canvas3DItem::onWindowStateChanged);
}

void Canvas3DItem::onWindowStateChanged(Qt::WindowState)
{
    if (!window())
        return;
    const Qt::WindowState state = window()->windowState();
    if (state != m_oldWindowState) {
        m_windowMinimized = state == Qt::WindowMinimized;
        m_oldWindowState = state;
    }
}

void Canvas3DItem::geometryChanged(const QRectF& newGeometry, const QRectF& oldGeometry)
{
    // The base keeps QML bindings on x/y/width/height alive and follows the size with the FBO.
    QQuickFramebufferObject::geometryChanged(newGeometry, oldGeometry);
    if (newGeometry.width() <= 0 || newGeometry.height() <= 0)
        return;
    const double dpr = window() ? window()->devicePixelRatio() : 1.0;
    const int x = static_cast<int>(newGeometry.x());
    const int y = static_cast<int>(newGeometry.y());
    const int w = static_cast<int>(newGeometry.width() * dpr);
    const int h = static_cast<int>(newGeometry.height() * dpr);
    m_operationQueue->add(new GeometryChangeOperation(x, y, w, h));
    m_eventQueue->windowResize(x, y, w, h);
    emit signalGeometryChanged();
    frame();
}

void Canvas3DItem::initSpaceMouse()
{
    if (!m_pSpaceMouseMgr)
        m_pSpaceMouseMgr.reset(new SpaceMouseMgr(m_canvas.get()));
    qCDebug(orvane) << "mainview pSpaceMouse initialization start";
    if (!m_pSpaceMouseMgr->getIsInitSpaceMouseSuccess()) {
        qCDebug(orvane) << "mainview pSpaceMouse initialization failed";
        return;
    }
    qCDebug(orvane) << "mainview pSpaceMouse initialization end";
}

bool Canvas3DItem::enable3DConnexion(bool enable)
{
    if (!m_pSpaceMouseMgr || !m_pSpaceMouseMgr->getIsInitSpaceMouseSuccess()) {
        qCWarning(orvane) << "3DConnexion initialization failed";
        return false;
    }
    return m_pSpaceMouseMgr->enable3DSpaceMouse(enable);
}

bool Canvas3DItem::set3DxCustomizeCommand(const std::vector<SpaceMouseCommandStruct>& commands)
{
    if (!m_pSpaceMouseMgr || !m_pSpaceMouseMgr->getIsInitSpaceMouseSuccess()) {
        qCWarning(orvane) << "3DConnexion initialization failed";
        return false;
    }
    m_pSpaceMouseMgr->setCustomizeCommand(commands);
    return true;
}

} // namespace Orvane
} // namespace Vorna
