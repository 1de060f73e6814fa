#include "metal_select.h"
#include "metal_select_kernels.h"
#include "orvane_log.h"

#include <QCoreApplication>
#include <QMutex>
#include <QStringList>
#include <gtest/gtest.h>
#include <osg/Camera>
#include <osg/Geode>
#include <osg/MatrixTransform>
#include <osg/Switch>
#include <osg/View>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <future>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

using namespace Vorna::Orvane;

namespace {

// ---- log capture ----

QMutex g_logMutex;
QStringList g_log;
QtMessageHandler g_previousHandler = nullptr;

void captureMessage(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    {
        QMutexLocker lock(&g_logMutex);
        g_log << message;
    }
    if (g_previousHandler && type >= QtWarningMsg)
        g_previousHandler(type, context, message);
}

int logCount(const QString& text)
{
    QMutexLocker lock(&g_logMutex);
    return static_cast<int>(std::count_if(g_log.begin(), g_log.end(),
                                          [&](const QString& l) { return l.contains(text); }));
}

void clearLog()
{
    QMutexLocker lock(&g_logMutex);
    g_log.clear();
}

// ---- inputs ----

// Owns the arrays behind a SelectParam.
struct Selection {
    osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array;
    osg::ref_ptr<osg::ByteArray> selectState = new osg::ByteArray;
    osg::ref_ptr<osg::ByteArray> initialState = new osg::ByteArray;
    osg::ref_ptr<osg::ByteArray> currentState = new osg::ByteArray;
    osg::ref_ptr<osg::FloatArray> depth = new osg::FloatArray;
    std::vector<unsigned char> mask;
    SelectParam param;

    Selection(int width, int height)
    {
        param.viewport = osg::Vec4i(0, 0, width, height);
        mask.assign(std::size_t(width) * height, 0);
        depth->assign(std::size_t(width) * height, 1.0f);
    }

    void add(const osg::Vec3& p, signed char current, signed char prior = 0,
             signed char initial = 0)
    {
        positions->push_back(p);
        currentState->push_back(current);
        selectState->push_back(prior);
        initialState->push_back(initial);
    }

    void paint(int x, int y) { mask[std::size_t(y) * param.viewport.z() + x] = 255; }

    SelectParam make()
    {
        SelectParam p = param;
        p.positions = positions.get();
        p.selectState = selectState.get();
        p.initialState = initialState.get();
        p.currentState = currentState.get();
        p.selectArea = mask.data();
        p.depth = depth.get();
        p.vertexCount = static_cast<std::uint32_t>(positions->size());
        if (p.dataType == 1 && !p.hasIndices)
            p.faceCount = p.vertexCount / 3;
        return p;
    }
};

// With identity matrices: the point whose window position is the centre of pixel (x, y).
osg::Vec3 atPixel(const Selection& s, float x, float y)
{
    return osg::Vec3((x + 0.5f) / s.param.viewport.z() * 2.0f - 1.0f,
                     (y + 0.5f) / s.param.viewport.w() * 2.0f - 1.0f, 0.0f);
}

std::vector<signed char> runSelect(MetalSelect& select, const SelectParam& param)
{
    auto promise = std::make_shared<std::promise<std::vector<signed char>>>();
    std::future<std::vector<signed char>> result = promise->get_future();
    select.SelectProcess(param, [promise](osg::ByteArray* states) {
        promise->set_value(std::vector<signed char>(states->begin(), states->end()));
    });
    if (result.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        ADD_FAILURE() << "no result";
        return {};
    }
    return result.get();
}

class MetalSelectTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_select = new MetalSelect;
        s_select->init();
    }
    static void TearDownTestSuite()
    {
        delete s_select;
        s_select = nullptr;
    }
    static MetalSelect* s_select;
};

MetalSelect* MetalSelectTest::s_select = nullptr;

// The four kernels that take one vertex per thread, with an infinitely far depth surface.
struct VertexKernel {
    const char* name;
    std::uint32_t dataType;
    bool hasIndices;
    bool isThrough;
};
const VertexKernel kVertexKernels[] = {
    {"pointsThroughSelect", 2, false, true},
    {"pointsNonThroughSelect", 2, false, false},
    {"meshThroughHasIndicesSelect", 1, true, true},
    {"meshNonThroughHasIndicesSelect", 1, true, false},
};

TEST_F(MetalSelectTest, StateRuleOfOneVertex)
{
    ASSERT_TRUE(s_select->isInited());
    struct Row {
        const char* what;
        bool erase, coverOther, recoverInitial;
        float x, y; // pixel, or a window position off the viewport
        signed char current, prior, initial;
        signed char expected;
    };
    // Painted: pixel (1, 1). Select state value 5.
    const Row rows[] = {
        {"plain vertex in the area", false, true, false, 1, 1, 0, 9, 0, 5},
        {"other state covered", false, true, false, 1, 1, 2, 9, 0, 5},
        {"other state not covered keeps the prior result", false, false, false, 1, 1, 2, 9, 0, 9},
        {"deleted vertex in the area", false, true, false, 1, 1, -1, 9, 0, -1},
        {"outside the area takes the old state", false, true, false, 2, 1, 3, 9, 0, 3},
        {"off the viewport takes the old state", false, true, false, 7.0f, 1, 4, 9, 0, 4},
        {"erase recovers the initial state", true, true, true, 1, 1, 5, 9, 7, 7},
        {"erase without recovery keeps the prior result", true, true, false, 1, 1, 5, 9, 7, 9},
        {"erase of another state keeps the prior result", true, true, true, 1, 1, 2, 9, 7, 9},
        {"erase outside the area takes the old state", true, true, true, 2, 1, 5, 9, 7, 5},
        {"deleted vertex in the area, erasing", true, true, true, 1, 1, -1, 9, 7, -1},
    };
    for (const VertexKernel& kernel : kVertexKernels) {
        for (const Row& row : rows) {
            Selection s(4, 4);
            s.paint(1, 1);
            s.add(atPixel(s, row.x, row.y), row.current, row.prior, row.initial);
            s.param.dataType = kernel.dataType;
            s.param.hasIndices = kernel.hasIndices;
            s.param.isThrough = kernel.isThrough;
            s.param.selectStateValue = 5;
            s.param.erase = row.erase;
            s.param.coverOther = row.coverOther;
            s.param.recoverInitial = row.recoverInitial;
            const std::vector<signed char> result = runSelect(*s_select, s.make());
            ASSERT_EQ(result.size(), 1u);
            EXPECT_EQ(result[0], row.expected) << kernel.name << ": " << row.what;
        }
    }
}

TEST_F(MetalSelectTest, ViewportEdges)
{
    for (const VertexKernel& kernel : kVertexKernels) {
        Selection s(4, 4);
        // x = 1 in clip space is q = 1: on the viewport, at window x = 4, which the row-major
        // mask index carries over to the first pixel of the next row.
        s.paint(0, 2);
        s.add(osg::Vec3(1.0f, atPixel(s, 0, 1).y(), 0.0f), 0);
        // Just past the right edge: off the viewport.
        s.add(osg::Vec3(1.0001f, atPixel(s, 0, 1).y(), 0.0f), 3);
        // The top edge, y = 1: on the viewport but past the last row of the mask.
        s.add(osg::Vec3(atPixel(s, 0, 0).x(), 1.0f, 0.0f), 2, 9);
        s.param.dataType = kernel.dataType;
        s.param.hasIndices = kernel.hasIndices;
        s.param.isThrough = kernel.isThrough;
        s.param.selectStateValue = 6;
        const std::vector<signed char> result = runSelect(*s_select, s.make());
        EXPECT_EQ(result, (std::vector<signed char>{6, 3, 2})) << kernel.name;
    }
}

TEST_F(MetalSelectTest, TriangleSoupFacesShareOneResult)
{
    struct Face {
        const char* what;
        bool erase, coverOther;
        int pixel[3][2]; // pixel of each vertex; x = 9 is off the viewport
        signed char current[3];
        signed char prior;
        signed char expected[3];
    };
    // Painted: pixel (1, 1). Select state value 5.
    const Face faces[] = {
        {"one vertex in the area selects the face",
         false,
         true,
         {{0, 0}, {1, 1}, {3, 3}},
         {0, 0, 0},
         9,
         {5, 5, 5}},
        {"the first vertex's old state decides",
         false,
         false,
         {{0, 0}, {1, 1}, {3, 3}},
         {0, 3, 3},
         9,
         {5, 5, 5}},
        {"an uncovered first state keeps the prior result",
         false,
         false,
         {{1, 1}, {0, 0}, {0, 0}},
         {3, 0, 0},
         9,
         {9, 9, 9}},
        {"none in the area: the first vertex's state",
         false,
         true,
         {{0, 0}, {2, 2}, {3, 3}},
         {4, 0, 0},
         9,
         {4, 4, 4}},
        {"a deleted vertex deletes the face",
         false,
         true,
         {{1, 1}, {1, 1}, {1, 1}},
         {0, -2, 0},
         9,
         {-2, -2, -2}},
        {"a vertex off the viewport gives its own state",
         false,
         true,
         {{0, 0}, {9, 1}, {1, 1}},
         {0, 4, 0},
         9,
         {4, 4, 4}},
        {"erase keeps the prior result",
         true,
         true,
         {{1, 1}, {0, 0}, {0, 0}},
         {5, 0, 0},
         9,
         {9, 9, 9}},
    };
    for (bool through : {true, false}) {
        for (const Face& face : faces) {
            Selection s(4, 4);
            s.paint(1, 1);
            for (int k = 0; k < 3; ++k) {
                const float x = face.pixel[k][0] == 9 ? 7.0f : float(face.pixel[k][0]);
                s.add(atPixel(s, x, float(face.pixel[k][1])), face.current[k], face.prior);
            }
            s.param.dataType = 1;
            s.param.hasIndices = false;
            s.param.isThrough = through;
            s.param.erase = face.erase;
            s.param.coverOther = face.coverOther;
            s.param.selectStateValue = 5;
            const std::vector<signed char> result = runSelect(*s_select, s.make());
            EXPECT_EQ(result, std::vector<signed char>(face.expected, face.expected + 3))
                << (through ? "through: " : "visible: ") << face.what;
        }
    }
}

// Window depth of view-space z under `proj`, as the depth buffer holds it.
float windowDepth(const osg::Matrixf& proj, float z)
{
    const osg::Vec4f clip = osg::Vec4f(0.0f, 0.0f, z, 1.0f) * proj;
    return (clip.z() / clip.w() + 1.0f) / 2.0f;
}

struct DepthScene {
    Selection s{8, 8};
    osg::Matrixf proj = osg::Matrixf::perspective(60.0, 1.0, 1.0, 100.0);

    // One point straight ahead at distance 10, at the window centre (4, 4), over a surface
    // `inFront` closer to the eye.
    explicit DepthScene(float inFront, std::uint32_t dataType = 2)
    {
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x)
                s.paint(x, y);
        s.depth->assign(64, windowDepth(proj, -(10.0f - inFront)));
        s.param.isThrough = false;
        s.param.dataType = dataType;
        s.param.hasIndices = dataType == 1;
        s.param.matModelView = osg::Matrixf::identity();
        s.param.matProj = proj;
        s.param.matModelViewProj = proj;
        s.param.selectStateValue = 3;
        s.add(osg::Vec3(0.0f, 0.0f, -10.0f), 0);
    }
    void farAt(int x, int y) { (*s.depth)[y * 8 + x] = 1.0f; }
};

TEST_F(MetalSelectTest, DepthMarginAndNeighbourhoodMaximum)
{
    for (std::uint32_t dataType : {1u, 2u}) {
        // 0.005 lies within the 0.01 margin; 0.02 does not.
        EXPECT_EQ(runSelect(*s_select, DepthScene(0.005f, dataType).s.make()),
                  std::vector<signed char>{3});
        EXPECT_EQ(runSelect(*s_select, DepthScene(0.02f, dataType).s.make()),
                  std::vector<signed char>{0});
        // Through selection ignores the surface.
        DepthScene through(0.02f, dataType);
        through.s.param.isThrough = true;
        EXPECT_EQ(runSelect(*s_select, through.s.make()), std::vector<signed char>{3});
        // Erasing ignores it too.
        DepthScene erase(0.5f, dataType);
        erase.s.param.erase = true;
        erase.s.param.recoverInitial = true;
        (*erase.s.currentState)[0] = 3;
        (*erase.s.initialState)[0] = 1;
        EXPECT_EQ(runSelect(*s_select, erase.s.make()), std::vector<signed char>{1});
    }
    // The surface is taken at its farthest over the window around (3.5, 3.5): samples reach
    // from pixel 2 to pixel 6 on each axis.
    for (const auto& far : {std::make_pair(2, 2), std::make_pair(6, 6), std::make_pair(4, 3)}) {
        DepthScene scene(0.5f);
        scene.farAt(far.first, far.second);
        EXPECT_EQ(runSelect(*s_select, scene.s.make()), std::vector<signed char>{3})
            << "far pixel at " << far.first << "," << far.second;
    }
    for (const auto& far : {std::make_pair(1, 4), std::make_pair(7, 7), std::make_pair(4, 0)}) {
        DepthScene scene(0.5f);
        scene.farAt(far.first, far.second);
        EXPECT_EQ(runSelect(*s_select, scene.s.make()), std::vector<signed char>{0})
            << "far pixel at " << far.first << "," << far.second;
    }
    // At the image's last pixel the window is clamped to the image, not read past it.
    DepthScene corner(0.5f);
    // Seen at window (7.6, 7.6).
    corner.s.param.matModelViewProj = osg::Matrixf::translate(5.2f, 5.2f, 0.0f) * corner.proj;
    corner.s.param.matModelView = osg::Matrixf::translate(5.2f, 5.2f, 0.0f);
    EXPECT_EQ(runSelect(*s_select, corner.s.make()), std::vector<signed char>{0});
    corner.farAt(7, 7);
    EXPECT_EQ(runSelect(*s_select, corner.s.make()), std::vector<signed char>{3});
}

// ---- a plain single-threaded reference of the rule ----

struct Reference {
    const SelectParam& p;
    const std::vector<unsigned char>& mask;
    const std::vector<float>& depth;
    int width, height;

    Reference(const SelectParam& param, const std::vector<unsigned char>& m,
              const std::vector<float>& d)
        : p(param), mask(m), depth(d), width(param.viewport.z()), height(param.viewport.w())
    {
    }

    // Row vector times the OSG matrix, summed in the order the kernels sum.
    static float component(const osg::Matrixf& m, const osg::Vec3& v, int r)
    {
        return m(0, r) * v.x() + m(1, r) * v.y() + m(2, r) * v.z() + m(3, r);
    }

    bool screen(const osg::Vec3& v, float& x, float& y) const
    {
        const float w = component(p.matModelViewProj, v, 3);
        const float qx = (component(p.matModelViewProj, v, 0) / w + 1.0f) / 2.0f;
        const float qy = (component(p.matModelViewProj, v, 1) / w + 1.0f) / 2.0f;
        if (!(qx >= 0.0f && qx <= 1.0f && qy >= 0.0f && qy <= 1.0f))
            return false;
        x = float(p.viewport.x()) + qx * float(width);
        y = float(p.viewport.y()) + qy * float(height);
        return true;
    }

    bool inArea(float x, float y) const
    {
        const std::uint32_t idx = std::uint32_t(y) * std::uint32_t(width) + std::uint32_t(x);
        return idx < std::uint32_t(width * height) && mask[idx] == 255;
    }

    float at(int x, int y) const { return depth[std::size_t(y) * width + x]; }

    float sample(float fx, float fy, int x, int y, float sign) const
    {
        x = std::clamp(x, 0, width - 1);
        y = std::clamp(y, 0, height - 1);
        const float a = at(x, y);
        if (x == width - 1 && y == height - 1)
            return a;
        const float tx = sign * (fx - float(x));
        const float ty = sign * (fy - float(y));
        if (x == width - 1) {
            const float b = at(x, y + 1);
            return std::max({a + ty * (b - a), a, b});
        }
        if (y == height - 1) {
            const float b = at(x + 1, y);
            return std::max({a + tx * (b - a), a, b});
        }
        const float b = at(x + 1, y), c = at(x, y + 1), d = at(x + 1, y + 1);
        const float lower = a + tx * (b - a);
        const float upper = c + tx * (d - c);
        return std::max({lower + ty * (upper - lower), a, b, c, d});
    }

    bool blocked(const osg::Vec3& v, float x, float y) const
    {
        float best = -INFINITY;
        for (int i = -1; i <= 1; ++i) {
            for (int j = -1; j <= 1; ++j) {
                const float fx = x - 0.5f + float(i), fy = y - 0.5f + float(j);
                best = std::max(best, sample(fx, fy, int(std::floor(fx)), int(std::floor(fy)), 1));
                best = std::max(best, sample(fx, fy, int(std::ceil(fx)), int(std::ceil(fy)), -1));
            }
        }
        const float ndc = 2.0f * best - 1.0f;
        const float surface = -p.matProj(3, 2) / (p.matProj(2, 2) + ndc);
        const float z = component(p.matModelView, v, 2);
        return -z - 0.01f > -surface;
    }

    // The new state of a vertex (or a face, through its first vertex); false: left as it was.
    bool rule(signed char old, signed char initial, bool area, bool isBlocked,
              signed char& result) const
    {
        if (p.erase) {
            result = area ? initial : old;
            return !area || (old == p.selectStateValue && p.recoverInitial);
        }
        if (area && !isBlocked) {
            result = static_cast<signed char>(p.selectStateValue);
            return old == 0 || (old > 0 && p.coverOther);
        }
        result = old;
        return true;
    }

    std::vector<signed char> run() const
    {
        const auto& pos = *p.positions;
        const auto& cur = *p.currentState;
        const auto& ini = *p.initialState;
        std::vector<signed char> out(p.selectState->begin(), p.selectState->end());
        if (p.dataType == 1 && !p.hasIndices) {
            for (std::size_t f = 0; f < p.faceCount; ++f) {
                const std::size_t v = 3 * f;
                auto setAll = [&](signed char s) { out[v] = out[v + 1] = out[v + 2] = s; };
                const signed char* deleted = nullptr;
                for (int k = 0; k < 3 && !deleted; ++k)
                    deleted = cur[v + k] < 0 ? &cur[v + k] : nullptr;
                if (deleted) {
                    setAll(*deleted);
                    continue;
                }
                for (int k = 0; k < 3; ++k) {
                    float x, y;
                    if (!screen(pos[v + k], x, y)) {
                        setAll(cur[v + k]);
                        break;
                    }
                    if (!inArea(x, y)) {
                        setAll(cur[v]);
                        continue;
                    }
                    const bool isBlocked = !p.isThrough && !p.erase && blocked(pos[v + k], x, y);
                    signed char result;
                    if (rule(cur[v], ini[v], true, isBlocked, result))
                        setAll(result);
                    break;
                }
            }
            return out;
        }
        for (std::size_t i = 0; i < p.vertexCount; ++i) {
            float x, y;
            if (cur[i] < 0 || !screen(pos[i], x, y)) {
                out[i] = cur[i];
                continue;
            }
            const bool area = inArea(x, y);
            const bool isBlocked = area && !p.isThrough && !p.erase && blocked(pos[i], x, y);
            signed char result;
            if (rule(cur[i], ini[i], area, isBlocked, result))
                out[i] = result;
        }
        return out;
    }
};

TEST_F(MetalSelectTest, LargeRandomSelectionEqualsTheReferenceLoop)
{
    constexpr int kWidth = 640, kHeight = 480;
    constexpr std::size_t kCount = 3000000; // a multiple of 3 for the triangle soups
    std::mt19937 random(17);
    std::uniform_real_distribution<float> across(-6.0f, 6.0f), distance(6.0f, 14.0f);
    std::uniform_int_distribution<int> state(-3, 12);

    Selection s(kWidth, kHeight);
    s.positions->reserve(kCount);
    for (std::size_t i = 0; i < kCount; ++i) {
        const signed char current = static_cast<signed char>(state(random));
        s.add(osg::Vec3(across(random), across(random), -distance(random)), current,
              static_cast<signed char>(state(random)), static_cast<signed char>(state(random)));
    }
    // Tiles of the mask painted at random; a depth surface of random tiles and random pixels.
    std::bernoulli_distribution painted(0.5), speck(0.05);
    for (int ty = 0; ty < kHeight; ty += 8)
        for (int tx = 0; tx < kWidth; tx += 8)
            if (painted(random))
                for (int y = ty; y < ty + 8; ++y)
                    for (int x = tx; x < tx + 8; ++x)
                        s.paint(x, y);
    const osg::Matrixf proj = osg::Matrixf::perspective(70.0, double(kWidth) / kHeight, 1.0, 50.0);
    const osg::Matrixf view =
        osg::Matrixf::rotate(0.1, osg::Vec3(0, 1, 0)) * osg::Matrixf::translate(0.2f, -0.1f, -0.5f);
    for (int ty = 0; ty < kHeight; ty += 16) {
        for (int tx = 0; tx < kWidth; tx += 16) {
            const float tile = windowDepth(proj, -distance(random));
            for (int y = ty; y < ty + 16; ++y)
                for (int x = tx; x < tx + 16; ++x)
                    (*s.depth)[y * kWidth + x] =
                        speck(random) ? windowDepth(proj, -distance(random)) : tile;
        }
    }
    s.param.matModelView = view;
    s.param.matProj = proj;
    s.param.matModelViewProj = view * proj;
    s.param.selectStateValue = 4;
    const std::vector<float> depth(s.depth->begin(), s.depth->end());

    struct Kernel {
        const char* name;
        std::uint32_t dataType;
        bool hasIndices, isThrough;
    };
    const Kernel kernels[] = {
        {"pointsThroughSelect", 2, false, true},
        {"pointsNonThroughSelect", 2, false, false},
        {"meshThroughHasIndicesSelect", 1, true, true},
        {"meshNonThroughHasIndicesSelect", 1, true, false},
        {"meshThroughNoIndicesSelect", 1, false, true},
        {"meshNonThroughNoIndicesSelect", 1, false, false},
    };
    struct Mode {
        const char* name;
        bool erase, coverOther, recoverInitial;
    };
    const Mode modes[] = {{"select", false, true, false},
                          {"select without cover", false, false, false},
                          {"erase and recover", true, true, true}};
    for (const Kernel& kernel : kernels) {
        for (const Mode& mode : modes) {
            s.param.dataType = kernel.dataType;
            s.param.hasIndices = kernel.hasIndices;
            s.param.isThrough = kernel.isThrough;
            s.param.erase = mode.erase;
            s.param.coverOther = mode.coverOther;
            s.param.recoverInitial = mode.recoverInitial;
            const SelectParam param = s.make();
            const std::vector<signed char> expected = Reference(param, s.mask, depth).run();
            const std::vector<signed char> actual = runSelect(*s_select, param);
            ASSERT_EQ(actual.size(), expected.size());
            const auto mismatch = std::mismatch(actual.begin(), actual.end(), expected.begin());
            EXPECT_TRUE(mismatch.first == actual.end())
                << kernel.name << ", " << mode.name << ": vertex "
                << (mismatch.first - actual.begin()) << " is " << int(*mismatch.first)
                << ", expected " << int(*mismatch.second);
            // The case must exercise the rule, not just copy states through.
            const auto changed = std::inner_product(
                actual.begin(), actual.end(), param.currentState->begin(), std::size_t(0),
                std::plus<>(), [](signed char a, signed char b) { return a != b ? 1 : 0; });
            EXPECT_GT(changed, kCount / 50) << kernel.name << ", " << mode.name;
        }
    }
}

// ---- locking, threads and log lines ----

TEST_F(MetalSelectTest, ConcurrentSelectionsAreServedOneAfterTheOther)
{
    Selection s(4, 4);
    s.paint(1, 1);
    for (int i = 0; i < 1000; ++i)
        s.add(atPixel(s, 1, 1), 0);
    const SelectParam param = s.make();

    std::mutex mutex;
    std::vector<std::string> events;
    auto note = [&](const std::string& event) {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back(event);
    };
    std::atomic<int> calling{0};
    std::atomic<int> callbacks[2] = {{0}, {0}};
    std::thread::id callbackThreads[2];
    std::thread::id callerThreads[2];
    std::promise<void> finished[2];

    auto caller = [&](int id) {
        callerThreads[id] = std::this_thread::get_id();
        calling.fetch_add(1);
        s_select->SelectProcess(param, [&, id](osg::ByteArray* states) {
            // Hold the first result until the other caller is on its way in.
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
            while (calling.load() < 2 && std::chrono::steady_clock::now() < deadline)
                std::this_thread::yield();
            callbackThreads[id] = std::this_thread::get_id();
            EXPECT_EQ(states->size(), 1000u);
            note("done " + std::to_string(id));
            if (callbacks[id].fetch_add(1) == 0)
                finished[id].set_value();
        });
        note("returned " + std::to_string(id));
    };
    std::thread first(caller, 0), second(caller, 1);
    first.join();
    second.join();
    for (auto& f : finished)
        ASSERT_EQ(f.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);

    EXPECT_EQ(callbacks[0].load(), 1);
    EXPECT_EQ(callbacks[1].load(), 1);
    for (int id = 0; id < 2; ++id) {
        EXPECT_NE(callbackThreads[id], callerThreads[0]);
        EXPECT_NE(callbackThreads[id], callerThreads[1]);
    }
    // Whoever came second returned from SelectProcess only after the first result was out.
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(events.size(), 4u);
    const auto doneAt = std::find_if(events.begin(), events.end(),
                                     [](const std::string& e) { return e.rfind("done ", 0) == 0; });
    ASSERT_NE(doneAt, events.end());
    const std::string later = doneAt->back() == '0' ? "1" : "0";
    const auto laterReturnAt = std::find(events.begin(), events.end(), "returned " + later);
    EXPECT_LT(doneAt - events.begin(), laterReturnAt - events.begin());
}

TEST_F(MetalSelectTest, LogLinesAndBadInput)
{
    Selection s(4, 4);
    s.paint(1, 1);
    s.add(atPixel(s, 1, 1), 0);
    clearLog();
    EXPECT_EQ(runSelect(*s_select, s.make()), std::vector<signed char>{1});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (logCount("m_mutex->unlock()") < 1 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(logCount("m_mutex->lock()"), 1);
    EXPECT_EQ(logCount("comute time ="), 1);
    // The previous test's last unlock may land after the log was cleared.
    EXPECT_GE(logCount("m_mutex->unlock()"), 1);

    // Inputs that do not hold vertexCount entries end the call with a line and no callback,
    // and leave the object free for the next one.
    bool called = false;
    SelectParam bad = s.make();
    bad.vertexCount = 2;
    s_select->SelectProcess(bad, [&](osg::ByteArray*) { called = true; });
    bad = s.make();
    bad.isThrough = false;
    bad.depth = nullptr;
    s_select->SelectProcess(bad, [&](osg::ByteArray*) { called = true; });
    bad = s.make();
    bad.selectArea = nullptr;
    s_select->SelectProcess(bad, [&](osg::ByteArray*) { called = true; });
    EXPECT_EQ(logCount("select param is invalid"), 3);
    EXPECT_EQ(runSelect(*s_select, s.make()), std::vector<signed char>{1});
    EXPECT_FALSE(called);

    // Without init nothing happens at all.
    MetalSelect idle;
    idle.SelectProcess(s.make(), [&](osg::ByteArray*) { called = true; });
    EXPECT_FALSE(called);
}

TEST_F(MetalSelectTest, EmptySelectionHandsBackAnEmptyArray)
{
    Selection s(4, 4);
    const std::vector<signed char> result = runSelect(*s_select, s.make());
    EXPECT_TRUE(result.empty());
}

// ---- wire format and helpers ----

TEST(ComputeParamTest, WireLayout)
{
    EXPECT_EQ(sizeof(ComputeParam), 224u);
    EXPECT_EQ(offsetof(ComputeParam, erase), 0u);
    EXPECT_EQ(offsetof(ComputeParam, coverOther), 1u);
    EXPECT_EQ(offsetof(ComputeParam, recoverInitial), 2u);
    EXPECT_EQ(offsetof(ComputeParam, vertexCount), 4u);
    EXPECT_EQ(offsetof(ComputeParam, faceCount), 8u);
    EXPECT_EQ(offsetof(ComputeParam, selectStateValue), 12u);
    EXPECT_EQ(offsetof(ComputeParam, matModelViewProj), 16u);
    EXPECT_EQ(offsetof(ComputeParam, matModelView), 80u);
    EXPECT_EQ(offsetof(ComputeParam, matProj), 144u);
    EXPECT_EQ(offsetof(ComputeParam, viewport), 208u);
    const ComputeParam defaults;
    EXPECT_FALSE(defaults.erase);
    EXPECT_TRUE(defaults.coverOther);
    EXPECT_FALSE(defaults.recoverInitial);
    EXPECT_EQ(defaults.selectStateValue, 1);
}

TEST(OsgMt2SimdMtTest, OsgElementGoesToColumnRow)
{
    osg::Matrixf m;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            m(i, j) = float(10 * i + j);
    simd_float4x4 simd;
    osgMt2SimdMt(m, simd);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_EQ(simd.columns[i][j], float(10 * i + j)) << i << "," << j;
    // So that the kernels' column-vector product equals OSG's row-vector product.
    const osg::Matrixf proj =
        osg::Matrixf::perspective(45.0, 1.5, 0.5, 20.0) * osg::Matrixf::translate(0.3f, 0.0f, 0.0f);
    osg::Matrixf copy = proj;
    osgMt2SimdMt(copy, simd);
    const osg::Vec4f expected = osg::Vec4f(1.0f, 2.0f, -3.0f, 1.0f) * proj;
    const simd_float4 actual = SelectKernel::transform(simd, 1.0f, 2.0f, -3.0f);
    for (int r = 0; r < 4; ++r)
        EXPECT_NEAR(actual[r], expected[r], 1e-5f) << r;
}

TEST(MetalSelectGetStateTest, PathUnderTheViewsCamera)
{
    osg::ref_ptr<osg::View> view = new osg::View;
    osg::ref_ptr<osg::View> otherView = new osg::View;
    osg::ref_ptr<osg::Switch> sw = new osg::Switch;
    osg::ref_ptr<osg::MatrixTransform> mt =
        new osg::MatrixTransform(osg::Matrixd::translate(1, 2, 3));
    osg::ref_ptr<osg::Geode> node = new osg::Geode;
    view->getCamera()->addChild(sw);
    sw->addChild(mt, true);
    mt->addChild(node);

    bool visible = false;
    osg::Matrixd matrix;
    MetalSelect::getState(view.get(), node.get(), visible, matrix);
    EXPECT_TRUE(visible);
    EXPECT_EQ(matrix.getTrans(), osg::Vec3d(1, 2, 3));

    sw->setChildValue(mt, false);
    MetalSelect::getState(view.get(), node.get(), visible, matrix);
    EXPECT_FALSE(visible);

    // A path under another view's camera is not this view's.
    visible = true;
    matrix = osg::Matrixd::identity();
    MetalSelect::getState(otherView.get(), node.get(), visible, matrix);
    EXPECT_TRUE(visible);
    EXPECT_TRUE(matrix.isIdentity());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    g_previousHandler = qInstallMessageHandler(captureMessage);
    QLoggingCategory::setFilterRules(QStringLiteral("Vorna.Orvane.debug=true"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
