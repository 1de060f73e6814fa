// Canvas figures on whatever GL the display gives (Mesa llvmpipe under Xvfb in CI machines).
// Run: scripts/build.sh && xvfb-run -a build/bench/orvane_bench
#include "canvas3d_item.h"
#include "frame_counter.h"
#include "orvane_operations.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QQuickWindow>
#include <atomic>
#include <cstdio>
#include <memory>

using namespace Vorna::Orvane;

namespace {

void spinUntil(const std::function<bool()>& done, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < timeoutMs)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

void spinFor(int ms)
{
    spinUntil([] { return false; }, ms);
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    auto frames = std::make_shared<std::atomic<int>>(0);

    QElapsedTimer sinceCreation;
    sinceCreation.start();
    QQuickWindow window;
    window.resize(1280, 1024);
    auto* canvas = new Canvas3DItem(window.contentItem());
    canvas->setSize(QSizeF(1280, 1024));
    canvas->addOperation(new LambdaOperation([frames](RenderInfo& info) {
        info.masterCamera()->addFinalDrawCallback(new FrameCounterCallback(frames));
    }));
    window.show();
    spinUntil([&] { return frames->load() > 0; }, 30000);
    std::printf("first_frame_ms %.1f ms\n", sinceCreation.nsecsElapsed() / 1e6);

    // Let the start-up budget run out, then count scene frames with nothing changing.
    spinUntil([&] { return canvas->remainingFrameBudget() == 0; }, 5000);
    spinFor(200);
    const int idleStart = frames->load();
    spinFor(2000);
    std::printf("idle_frames_2s %d frames\n", frames->load() - idleStart);
    return 0;
}
