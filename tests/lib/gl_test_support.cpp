#include "gl_test_support.h"

#include "frame_counter.h"
#include "orvane_operations.h"

#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QMutex>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QTest>
#include <cmath>
#include <gtest/gtest.h>
#include <osgGA/OrbitManipulator>
#include <osgViewer/View>

using namespace Vorna::Orvane;

namespace OrvaneTest {

namespace {
QMutex g_logMutex;
QStringList g_log;
QtMessageHandler g_previousHandler = nullptr;
int g_captures = 0;

void captureHandler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (context.category && QByteArray(context.category) == "Vorna.Orvane") {
        QMutexLocker lock(&g_logMutex);
        g_log << message;
    }
    if (g_previousHandler && type != QtDebugMsg && type != QtInfoMsg)
        g_previousHandler(type, context, message);
}

} // namespace

int scaledTimeout(int timeoutMs)
{
#ifdef ORVANE_SANITIZED
    // Sanitizer instrumentation slows the render thread about five times.
    return timeoutMs * 5;
#else
    return timeoutMs;
#endif
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs)
{
    timeoutMs = scaledTimeout(timeoutMs);
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QTest::qWait(5);
    }
    return true;
}

double residentMiB()
{
    QFile statm("/proc/self/statm");
    if (!statm.open(QIODevice::ReadOnly))
        return 0.0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toDouble() * 4096.0 / (1024.0 * 1024.0) : 0.0;
}

LogCapture::LogCapture()
{
    QMutexLocker lock(&g_logMutex);
    if (g_captures++ == 0)
        g_previousHandler = qInstallMessageHandler(captureHandler);
    g_log.clear();
}

LogCapture::~LogCapture()
{
    QMutexLocker lock(&g_logMutex);
    if (--g_captures == 0)
        qInstallMessageHandler(g_previousHandler);
}

QStringList LogCapture::lines() const
{
    QMutexLocker lock(&g_logMutex);
    return g_log;
}

bool LogCapture::contains(const QString& text) const
{
    return count(text) > 0;
}

int LogCapture::count(const QString& text) const
{
    int n = 0;
    for (const QString& line : lines())
        n += line.contains(text) ? 1 : 0;
    return n;
}

const QColor CanvasWindow::kSiblingColor(20, 200, 60);

CanvasWindow::CanvasWindow() : m_window(new QQuickWindow), m_frames(new std::atomic<int>(0))
{
    m_window->resize(kWidth, kHeight);
    m_window->setColor(Qt::black);
    m_item = new Canvas3DItem(m_window->contentItem());
    m_item->setSize(QSizeF(kCanvasWidth, kHeight));

    static QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData(QByteArrayLiteral("import QtQuick 2.15\nRectangle { color: \"") +
                          kSiblingColor.name().toLatin1() + "\" }",
                      QUrl());
    auto* sibling = qobject_cast<QQuickItem*>(component.create());
    sibling->setParentItem(m_window->contentItem());
    sibling->setParent(m_window->contentItem());
    sibling->setX(kCanvasWidth);
    sibling->setSize(QSizeF(kWidth - kCanvasWidth, kHeight));
}

CanvasWindow::~CanvasWindow()
{
    m_window.reset();
    QCoreApplication::processEvents();
    // What the render thread handed back with deleteLater (the debug panel's owner) goes now,
    // as an application's running event loop would take it, not at exit where nothing would.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

bool CanvasWindow::show()
{
    m_window->show();
    return waitUntil([this] { return m_item->isRendererCreated(); });
}

void CanvasWindow::destroyItem()
{
    delete m_item;
    m_item = nullptr;
}

int CanvasWindow::settle(const std::function<int(const QImage&)>& count, int expected)
{
    int last = -1;
    waitUntil([&] {
        last = count(grab());
        return last == expected;
    });
    return last;
}

QImage CanvasWindow::grab()
{
    return m_window->grabWindow().convertToFormat(QImage::Format_ARGB32);
}

QImage CanvasWindow::grabAfterFrames(int frames, int width, int height)
{
    const int start = sceneFrames();
    EXPECT_TRUE(waitUntil([&] {
        m_item->frame();
        return sceneFrames() >= start + frames;
    }));
    return grab().copy(0, 0, width, height);
}

bool CanvasWindow::run(osg::Operation* op, std::function<void(RenderInfo&)> body)
{
    auto done = std::make_shared<std::atomic<bool>>(false);
    if (op)
        m_item->addOperation(op);
    m_item->addOperation(new LambdaOperation([done, body](RenderInfo& info) {
        if (body)
            body(info);
        *done = true;
    }));
    // Generous: the frame before may be a multi-million-point one on a busy software rasteriser.
    return waitUntil([done] { return done->load(); }, 30000);
}

bool CanvasWindow::lookAt(const osg::Vec3d& eye, const osg::Vec3d& centre, const osg::Vec3d& up)
{
    bool placed = false;
    const bool ran = run(nullptr, [&](RenderInfo& info) {
        auto* manipulator =
            dynamic_cast<osgGA::OrbitManipulator*>(info.mainView()->getCameraManipulator());
        if (!manipulator)
            return;
        manipulator->setTransformation(eye, centre, up);
        placed = true;
    });
    // The manipulator hands its matrix to the camera in the next update.
    return ran && placed && run(nullptr) && run(nullptr);
}

QPoint CanvasWindow::pixelOf(const osg::Vec3d& world)
{
    QPoint pixel(-1, -1);
    run(nullptr, [&](RenderInfo& info) {
        const osg::Camera* camera = info.mainView()->getCamera();
        if (!camera->getViewport())
            return;
        const osg::Vec3d window = world * camera->getViewMatrix() * camera->getProjectionMatrix() *
                                  camera->getViewport()->computeWindowMatrix();
        // GL counts rows from the bottom, images from the top.
        pixel = QPoint(static_cast<int>(std::floor(window.x())),
                       static_cast<int>(std::floor(camera->getViewport()->height() - window.y())));
    });
    return pixel;
}

void CanvasWindow::installFrameCounter()
{
    auto counter = m_frames;
    m_item->addOperation(new LambdaOperation([counter](RenderInfo& info) {
        info.masterCamera()->addFinalDrawCallback(new FrameCounterCallback(counter));
    }));
}

int CanvasWindow::sceneFrames() const
{
    return m_frames->load();
}

bool near(const QColor& a, const QColor& b, int tolerance)
{
    return std::abs(a.red() - b.red()) <= tolerance &&
           std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance;
}

} // namespace OrvaneTest

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
