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
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <vector>

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

// Bytes per second of one large memcpy, best of a few runs.
double memcpyGbps()
{
    constexpr size_t kBytes = size_t(256) << 20;
    std::vector<char> from(kBytes, 1), to(kBytes);
    double best = 0.0;
    for (int run = 0; run < 3; ++run) {
        QElapsedTimer timer;
        timer.start();
        std::memcpy(to.data(), from.data(), kBytes);
        best = std::max(best, kBytes / (timer.nsecsElapsed() * 1e-9) / 1e9);
    }
    return best;
}

// The machine's own limit for what the live cloud does per point: a 37-byte point (position,
// normal, colour, state) scattered by random id into four arrays, on two threads.
double scatterLimitMpts()
{
    constexpr size_t kCloud = 10000000, kPoints = 4000000;
    std::vector<float> position(kCloud * 3), normal(kCloud * 3), colour(kCloud * 3);
    std::vector<signed char> state(kCloud);
    std::vector<float> source(kPoints * 9, 1.0f);
    std::vector<int> ids(kPoints);
    std::mt19937 random(7);
    for (int& id : ids)
        id = static_cast<int>(random() % kCloud);
    QElapsedTimer timer;
    timer.start();
    const auto work = [&](size_t first, size_t last) {
        for (size_t i = first; i < last; ++i) {
            const size_t v = static_cast<size_t>(ids[i]) * 3;
            std::memcpy(&position[v], &source[i * 9], 12);
            std::memcpy(&normal[v], &source[i * 9 + 3], 12);
            std::memcpy(&colour[v], &source[i * 9 + 6], 12);
            state[ids[i]] = 1;
        }
    };
    std::thread a(work, 0, kPoints / 2);
    work(kPoints / 2, kPoints);
    a.join();
    return kPoints / (timer.nsecsElapsed() * 1e-9) / 1e6;
}

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    std::printf("memcpy_gbps %.2f GB/s\n", memcpyGbps());
    std::printf("scatter_limit_mpts %.1f Mpoints/s\n", scatterLimitMpts());
    std::fflush(stdout);
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
    const double firstFrameMs = sinceCreation.nsecsElapsed() / 1e6;

    // Let the start-up budget run out, then count scene frames with nothing changing.
    spinUntil([&] { return canvas->remainingFrameBudget() == 0; }, 5000);
    spinFor(200);
    const int idleStart = frames->load();
    spinFor(2000);
    std::printf("idle_frames_2s %d frames\n", frames->load() - idleStart);
    std::printf("first_frame_ms %.1f ms\n", firstFrameMs);
    return 0;
}
