// What the allocator does with a frame's worth of memory once it is freed, when it is told a
// software rasteriser is drawing.
#include "software_rasterizer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#if defined(__GLIBC__)
#include <sys/resource.h>
#endif

using namespace Vorna::Orvane;

namespace {

#if defined(__GLIBC__) && !defined(ORVANE_SANITIZED)
// Minor page faults of a thread that allocates and writes `rounds` times 96 MiB in 1 MiB pieces
// and frees them after each round, as a rasteriser's scenes come and go: more than one of a
// thread arena's 64 MiB heaps. The faults of the last round only.
long faultsOfTheLastRound(int rounds)
{
    long faults = -1;
    std::thread frame([&] {
        constexpr size_t kPiece = size_t(1) << 20;
        constexpr int kPieces = 96;
        rusage before{};
        for (int round = 0; round < rounds; ++round) {
            getrusage(RUSAGE_THREAD, &before);
            std::vector<char*> pieces;
            for (int i = 0; i < kPieces; ++i) {
                pieces.push_back(static_cast<char*>(std::malloc(kPiece)));
                std::memset(pieces.back(), round + 1, kPiece);
            }
            for (char* piece : pieces)
                std::free(piece);
        }
        rusage after{};
        getrusage(RUSAGE_THREAD, &after);
        faults = after.ru_minflt - before.ru_minflt;
    });
    frame.join();
    return faults;
}

// Minor page faults of this thread when it makes a backlog of 300 MiB of patch arrays (1.2 MiB
// each, as a 100k-point patch has) for the second time, after another thread drew and freed the
// first backlog, as the render thread frees what a scanner thread made.
long faultsOfASecondBacklog()
{
    constexpr size_t kPiece = 1200000;
    constexpr int kPieces = 256;
    long faults = -1;
    for (int round = 0; round < 2; ++round) {
        rusage before{};
        getrusage(RUSAGE_THREAD, &before);
        std::vector<char*> pieces;
        for (int i = 0; i < kPieces; ++i) {
            pieces.push_back(static_cast<char*>(std::malloc(kPiece)));
            std::memset(pieces.back(), round + 1, kPiece);
        }
        rusage after{};
        getrusage(RUSAGE_THREAD, &after);
        faults = after.ru_minflt - before.ru_minflt;
        std::thread render([&] {
            for (char* piece : pieces)
                std::free(piece);
        });
        render.join();
    }
    return faults;
}
#endif

} // namespace

TEST(SoftwareRasterizerTest, OnlyMesasCpuRasterisersCount)
{
    EXPECT_TRUE(isSoftwareRasterizer("llvmpipe (LLVM 15.0.6, 256 bits)"));
    EXPECT_TRUE(isSoftwareRasterizer("softpipe"));
    EXPECT_FALSE(isSoftwareRasterizer("NVIDIA H100 PCIe/PCIe/SSE2"));
    EXPECT_FALSE(isSoftwareRasterizer(""));
    EXPECT_FALSE(isSoftwareRasterizer(nullptr));
}

// What the allocator keeps is glibc's; a sanitizer's allocator keeps freed memory in
// quarantine, whatever it is told.
class KeptMemoryTest : public testing::Test
{
protected:
    void SetUp() override
    {
#if !defined(__GLIBC__)
        GTEST_SKIP() << "glibc's allocator only";
#elif defined(ORVANE_SANITIZED)
        GTEST_SKIP() << "the sanitizer's allocator keeps freed memory in quarantine";
#else
        keepFreedMemoryForSoftwareRasterizer();
#endif
    }
};

TEST_F(KeptMemoryTest, AFrameOfMemoryFreedAndTakenAgainFaultsNothingIn)
{
#if defined(__GLIBC__) && !defined(ORVANE_SANITIZED)
    // 96 MiB in 4 KiB pages is 24576 faults; the first round pays them, the second reuses them.
    EXPECT_GT(faultsOfTheLastRound(1), 20000);
    EXPECT_LT(faultsOfTheLastRound(2), 1000);
#endif
}

TEST_F(KeptMemoryTest, ABacklogOfPatchesFreedOnAnotherThreadIsKeptForTheNext)
{
#if defined(__GLIBC__) && !defined(ORVANE_SANITIZED)
    // 300 MiB is 76800 pages; given back and taken again, most of them would fault once more.
    EXPECT_LT(faultsOfASecondBacklog(), 1000);
#endif
}
