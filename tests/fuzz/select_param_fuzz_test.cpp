// Random selections on the compute device, well-formed and not: a bad parameter set is refused
// with its log line and no callback, a good one answers with one state per vertex, and a
// deleted vertex stays deleted whatever the mask, matrices and viewport say.
#include "fuzz_runs.h"
#include "metal_select.h"

#include <QCoreApplication>
#include <QMutex>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <future>
#include <limits>
#include <vector>

using namespace Vorna::Orvane;

namespace {

QMutex g_logMutex;
int g_refusals = 0;

void countRefusals(QtMsgType, const QMessageLogContext& context, const QString& message)
{
    if (context.category && QByteArray(context.category) == "Vorna.Orvane" &&
        message.contains("select param is invalid")) {
        QMutexLocker lock(&g_logMutex);
        ++g_refusals;
    }
}

int refusals()
{
    QMutexLocker lock(&g_logMutex);
    return g_refusals;
}

// The arrays behind one random SelectParam, and whether the library must accept it.
struct RandomSelection {
    osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array;
    osg::ref_ptr<osg::ByteArray> selectState = new osg::ByteArray;
    osg::ref_ptr<osg::ByteArray> initialState = new osg::ByteArray;
    osg::ref_ptr<osg::ByteArray> currentState = new osg::ByteArray;
    osg::ref_ptr<osg::FloatArray> depth = new osg::FloatArray;
    std::vector<unsigned char> mask;
    SelectParam param;
    bool valid = true;

    explicit RandomSelection(std::mt19937_64& random)
    {
        const auto pick = [&](int n) { return static_cast<int>(random() % n); };
        const auto value = [&]() -> float {
            switch (pick(12)) {
            case 0:
                return std::numeric_limits<float>::quiet_NaN();
            case 1:
                return std::numeric_limits<float>::infinity();
            case 2:
                return -1e30f;
            default:
                return static_cast<float>(pick(4001) - 2000) / 1000.0f;
            }
        };
        int width = 1 + pick(48), height = 1 + pick(48);
        const int count = pick(300);
        for (int i = 0; i < count; ++i) {
            positions->push_back(osg::Vec3(value(), value(), value()));
            currentState->push_back(static_cast<signed char>(pick(256)));
            selectState->push_back(static_cast<signed char>(pick(256)));
            initialState->push_back(static_cast<signed char>(pick(256)));
        }
        param.isThrough = pick(2);
        param.dataType = 1 + pick(2);
        param.hasIndices = pick(2);
        param.erase = pick(2);
        param.coverOther = pick(2);
        param.recoverInitial = pick(2);
        param.selectStateValue = pick(300) - 150;
        param.vertexCount = static_cast<std::uint32_t>(count);
        param.faceCount = param.dataType == 1 && !param.hasIndices ? param.vertexCount / 3 : 0;
        // Mostly the identity, which keeps most vertices on screen; sometimes anything.
        for (osg::Matrixf* m : {&param.matModelViewProj, &param.matModelView, &param.matProj})
            if (pick(4) == 0)
                for (int r = 0; r < 4; ++r)
                    for (int c = 0; c < 4; ++c)
                        (*m)(r, c) = value();

        // One fault, or none.
        bool shortDepth = false;
        switch (pick(10)) {
        case 0: // a viewport of no area
            (pick(2) ? width : height) = -pick(3);
            valid = false;
            break;
        case 1: // counts past the arrays
            param.vertexCount += 1 + pick(1000);
            valid = false;
            break;
        case 2: // faces past the vertices of a triangle soup
            param.dataType = 1;
            param.hasIndices = false;
            param.faceCount = param.vertexCount / 3 + 1 + pick(10);
            valid = false;
            break;
        case 3: { // an array missing
            if (pick(2))
                positions = nullptr;
            else
                (pick(2) ? selectState : currentState) = nullptr;
            valid = false;
            break;
        }
        case 4: // a depth image smaller than the viewport, for a selection that needs one
            param.isThrough = false;
            shortDepth = true;
            valid = false;
            break;
        case 5: // a data type of neither kind
            param.dataType = 3 + pick(10);
            valid = false;
            break;
        case 6: // a viewport away from the origin
            param.viewport.x() = pick(200) - 100;
            param.viewport.y() = pick(200) - 100;
            break;
        default:
            break;
        }
        param.viewport.z() = width;
        param.viewport.w() = height;
        const std::size_t pixels = width > 0 && height > 0 ? std::size_t(width) * height : 0;
        mask.resize(std::max<std::size_t>(pixels, 1));
        for (unsigned char& m : mask)
            m = pick(3) == 0 ? 255 : static_cast<unsigned char>(pick(256));
        depth->assign(shortDepth ? random() % pixels : pixels, 0.5f);
        param.positions = positions.get();
        param.selectState = selectState.get();
        param.initialState = initialState.get();
        param.currentState = currentState.get();
        param.selectArea = mask.data();
        param.depth = depth.get();
    }
};

} // namespace

TEST(SelectParamFuzz, BadParametersAreRefusedAndGoodOnesKeepDeletedVertices)
{
    MetalSelect select;
    select.init();
    ASSERT_TRUE(select.isInited());
    auto random = OrvaneFuzz::generator();
    OrvaneFuzz::Figure figure("select_param");
    const std::uint64_t total = OrvaneFuzz::runs(5000);
    std::uint64_t accepted = 0;
    for (; figure.inputs < total; ++figure.inputs) {
        RandomSelection s(random);
        const int before = refusals();
        auto promise = std::make_shared<std::promise<std::vector<signed char>>>();
        auto result = promise->get_future();
        select.SelectProcess(s.param, [promise](osg::ByteArray* states) {
            promise->set_value(std::vector<signed char>(states->begin(), states->end()));
        });
        if (!s.valid) {
            // A refusal is logged before SelectProcess returns and calls nothing back.
            ASSERT_EQ(refusals(), before + 1) << "input " << figure.inputs;
            ASSERT_EQ(result.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
            continue;
        }
        ASSERT_EQ(result.wait_for(std::chrono::seconds(60)), std::future_status::ready)
            << "input " << figure.inputs;
        ASSERT_EQ(refusals(), before) << "input " << figure.inputs;
        const std::vector<signed char> states = result.get();
        ASSERT_EQ(states.size(), s.param.vertexCount);
        // Points: a deleted vertex is copied through untouched.
        if (s.param.dataType == 2)
            for (std::size_t i = 0; i < states.size(); ++i)
                if ((*s.currentState)[i] < 0)
                    ASSERT_EQ(states[i], (*s.currentState)[i]) << "input " << figure.inputs;
        ++accepted;
    }
    EXPECT_GT(accepted, total / 4);
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(countRefusals);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
