// Selection on the compute device, end to end, beside a plain loop applying the same rule.
// Needs no GL. Run: build/bench/select_bench [--no-100m]
// Each figure is the median of 3 timed runs after one warm-up run.
#include "metal_select.h"
#include "metal_select_kernels.h"
#include "simd_types.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

using namespace Vorna::Orvane;

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 1024;

double nowMs()
{
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

double median3(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

std::uint64_t availableBytes()
{
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    std::uint64_t kb = 0;
    std::string unit;
    while (meminfo >> key >> kb >> unit) {
        if (key == "MemAvailable:")
            return kb * 1024;
    }
    return 0;
}

// xorshift: fast enough to make 100M points in seconds.
struct Random {
    std::uint64_t s = 0x9E3779B97F4A7C15ull;
    std::uint32_t next()
    {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return static_cast<std::uint32_t>(s >> 32);
    }
    float uniform(float a, float b) { return a + (b - a) * (next() >> 8) * (1.0f / 16777216.0f); }
};

struct Data {
    osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array;
    osg::ref_ptr<osg::ByteArray> selectState = new osg::ByteArray;
    osg::ref_ptr<osg::ByteArray> initialState = new osg::ByteArray;
    osg::ref_ptr<osg::ByteArray> currentState = new osg::ByteArray;
    osg::ref_ptr<osg::FloatArray> depth = new osg::FloatArray;
    std::vector<unsigned char> mask;
    osg::Matrixf view, proj;

    // Points spread over the view; the mask paints the left third of the viewport.
    explicit Data(std::size_t count)
    {
        Random random;
        proj = osg::Matrixf::perspective(60.0, double(kWidth) / kHeight, 1.0, 100.0);
        view = osg::Matrixf::translate(0.0f, 0.0f, -20.0f);
        positions->resize(count);
        currentState->resize(count);
        selectState->resize(count);
        initialState->resize(count);
        const float halfHeight = 0.5f * 20.0f * 1.1547f; // tan(30 degrees) at distance 20
        const float halfWidth = halfHeight * kWidth / kHeight;
        for (std::size_t i = 0; i < count; ++i) {
            (*positions)[i] =
                osg::Vec3(random.uniform(-halfWidth, halfWidth),
                          random.uniform(-halfHeight, halfHeight), random.uniform(-2.0f, 2.0f));
            const std::uint32_t r = random.next();
            const signed char state = (r & 15) == 0 ? -1 : (r & 15) < 3 ? 2 : 0;
            (*currentState)[i] = state;
            (*selectState)[i] = state;
            (*initialState)[i] = 0;
        }
        mask.assign(std::size_t(kWidth) * kHeight, 0);
        for (int y = 0; y < kHeight; ++y)
            std::memset(&mask[std::size_t(y) * kWidth], 255, kWidth / 3);
        // A surface through the cloud's middle: about half the painted points lie behind it.
        depth->assign(std::size_t(kWidth) * kHeight, 0.0f);
        const osg::Vec4f clip = osg::Vec4f(0.0f, 0.0f, -20.0f, 1.0f) * proj;
        std::fill(depth->begin(), depth->end(), (clip.z() / clip.w() + 1.0f) / 2.0f);
    }

    SelectParam param(bool through) const
    {
        SelectParam p;
        p.isThrough = through;
        p.positions = positions.get();
        p.selectState = selectState.get();
        p.initialState = initialState.get();
        p.currentState = currentState.get();
        p.selectArea = mask.data();
        p.depth = depth.get();
        p.matModelView = view;
        p.matProj = proj;
        p.matModelViewProj = view * proj;
        p.viewport = osg::Vec4i(0, 0, kWidth, kHeight);
        p.vertexCount = static_cast<std::uint32_t>(positions->size());
        p.dataType = 2;
        p.selectStateValue = 3;
        return p;
    }
};

// From the call to the result in hand: input copies, kernel and result array included.
double endToEndMs(MetalSelect& select, const SelectParam& param, std::size_t* selected)
{
    std::promise<double> done;
    std::future<double> result = done.get_future();
    const double start = nowMs();
    select.SelectProcess(param, [&](osg::ByteArray* states) {
        const double end = nowMs();
        if (selected)
            *selected = std::count(states->begin(), states->end(), 3);
        done.set_value(end - start);
    });
    return result.get();
}

// The same rule over the same arrays on all cores, writing in place: no device, no copies.
double floorMs(const SelectParam& param, std::vector<signed char>& out)
{
    ComputeParam cp;
    cp.vertexCount = param.vertexCount;
    cp.selectStateValue = param.selectStateValue;
    osg::Matrixf mvp = param.matModelViewProj, mv = param.matModelView, pr = param.matProj;
    osgMt2SimdMt(mvp, cp.matModelViewProj);
    osgMt2SimdMt(mv, cp.matModelView);
    osgMt2SimdMt(pr, cp.matProj);
    cp.viewport = simd_float4{float(param.viewport.x()), float(param.viewport.y()),
                              float(param.viewport.z()), float(param.viewport.w())};
    const float* positions = static_cast<const float*>(param.positions->getDataPointer());
    const signed char* current = &param.currentState->front();
    const signed char* initial = &param.initialState->front();
    const float* depth = &param.depth->front();
    const unsigned char* area = param.selectArea;
    const std::size_t count = param.vertexCount;
    const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    auto run = [&](std::size_t begin, std::size_t end) {
        if (param.isThrough)
            SelectKernel::selectVertices<true>(begin, end, positions, out.data(), initial, current,
                                               area, depth, cp);
        else
            SelectKernel::selectVertices<false>(begin, end, positions, out.data(), initial, current,
                                                area, depth, cp);
    };
    const double start = nowMs();
    std::vector<std::thread> pool;
    const std::size_t chunk = (count + threads - 1) / threads;
    for (unsigned t = 0; t < threads; ++t) {
        const std::size_t begin = std::min(count, t * chunk);
        pool.emplace_back(run, begin, std::min(count, begin + chunk));
    }
    for (std::thread& thread : pool)
        thread.join();
    return nowMs() - start;
}

void measure(MetalSelect& select, const Data& data, const char* size, bool withFloor)
{
    const SelectParam through = data.param(true);
    const SelectParam visible = data.param(false);
    std::vector<signed char> out(data.selectState->begin(), data.selectState->end());
    std::size_t selectedThrough = 0, selectedVisible = 0;
    endToEndMs(select, through, nullptr); // first use makes the device buffers
    if (withFloor)
        floorMs(through, out);
    std::vector<double> e2eThrough, e2eVisible, floorThrough, floorVisible;
    for (int run = 0; run < 3; ++run) {
        e2eThrough.push_back(endToEndMs(select, through, &selectedThrough));
        if (withFloor) {
            e2eVisible.push_back(endToEndMs(select, visible, &selectedVisible));
            std::copy(data.selectState->begin(), data.selectState->end(), out.begin());
            floorThrough.push_back(floorMs(through, out));
            std::copy(data.selectState->begin(), data.selectState->end(), out.begin());
            floorVisible.push_back(floorMs(visible, out));
        }
    }
    std::printf("select_ms_%s_through %.1f ms\n", size, median3(e2eThrough));
    if (!withFloor)
        return;
    std::printf("select_ms_%s_visible %.1f ms\n", size, median3(e2eVisible));
    std::printf("select_floor_ms_%s %.1f ms\n", size, median3(floorThrough));
    std::printf("select_floor_ms_%s_depth %.1f ms\n", size, median3(floorVisible));
    std::printf("select_ratio_%s_through %.2f x\n", size,
                median3(e2eThrough) / median3(floorThrough));
    std::printf("select_ratio_%s_visible %.2f x\n", size,
                median3(e2eVisible) / median3(floorVisible));
    std::printf("select_selected_%s_through %zu points\n", size, selectedThrough);
    std::printf("select_selected_%s_visible %zu points\n", size, selectedVisible);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    // The lock and timing lines of every select would swamp the figures.
    QLoggingCategory::setFilterRules(QStringLiteral("Vorna.Orvane.debug=false"));
    bool with100M = true;
    for (int i = 1; i < argc; ++i)
        with100M = with100M && std::strcmp(argv[i], "--no-100m") != 0;

    std::printf("select_cores %u cores\n", std::max(1u, std::thread::hardware_concurrency()));
    MetalSelect select;
    select.init();
    {
        const Data data(10000000);
        measure(select, data, "10M", true);
    }
    // Inputs (16 bytes a point), their device copies (16 more) and the result (1).
    const std::uint64_t needed = std::uint64_t(100000000) * 34;
    if (!with100M)
        std::printf("select_ms_100M_through skipped (--no-100m)\n");
    else if (availableBytes() < needed + (std::uint64_t(1) << 30))
        std::printf("select_ms_100M_through skipped (%.1f GB available, %.1f GB needed)\n",
                    availableBytes() / 1e9, needed / 1e9);
    else {
        MetalSelect large;
        large.init();
        const Data data(100000000);
        measure(large, data, "100M", false);
    }
    return 0;
}
