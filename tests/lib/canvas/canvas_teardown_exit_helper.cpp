// Leaves main with operations queued on a canvas that a global still holds, with a live cloud
// holding patches, so that they go during static destruction, after the application object.
#include "canvas3d_item.h"
#include "incre_point_geomtry_apple.h"
#include "orvane_log.h"
#include "orvane_operations.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QQuickWindow>
#include <cstdio>
#include <memory>

using namespace Vorna::Orvane;

namespace {

osg::ref_ptr<CanvasBase> g_canvas;
osg::ref_ptr<IncrePointGeometryApple> g_cloud;

// Logs from its destructor, which runs among the static destructors.
class LoggingOperation : public OperationBase
{
protected:
    void doOperation() override { qCInfo(orvane) << "helper operation ran"; }
    ~LoggingOperation() override { qCInfo(orvane) << "helper operation dropped"; }
};

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    auto window = std::make_unique<QQuickWindow>();
    window->resize(160, 120);
    auto* item = new Canvas3DItem(window->contentItem());
    item->setSize(QSizeF(160, 120));
    window->show();
    QElapsedTimer timer;
    timer.start();
    while (!item->isRendererCreated() && timer.elapsed() < 60000)
        app.processEvents(QEventLoop::AllEvents, 10);
    if (!item->isRendererCreated()) {
        std::printf("helper: no renderer\n");
        return 2;
    }
    g_canvas = item->getCanvasBase();
    g_cloud = new IncrePointGeometryApple(false, false, true);
    // Queued and never drawn: the canvas stops drawing first.
    item->setUpdateBlocked(true);
    for (int i = 0; i < 50; ++i)
        g_canvas->addOperation(new LoggingOperation);
    auto patch = std::make_shared<IncrePatchData>();
    patch->vertArr = new osg::Vec3Array(10);
    patch->normArr = new osg::Vec3Array(10);
    patch->patchIdData.assign(10, 0);
    g_cloud->addIncreasePatchData(patch); // not started: logged and dropped
    std::printf("helper: queued\n");
    std::fflush(stdout);
    // The window and item go with main; the canvas, its queue and the cloud go after it.
    return 0;
}
