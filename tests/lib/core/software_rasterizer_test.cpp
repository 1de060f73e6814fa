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
long minorFaultsOfThisThread()
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_minflt;
}

// `count` pieces of `bytes` each, every page written.
std::vector<char*> takeAndWrite(size_t bytes, int count, int fill)
{
    std::vector<char*> pieces;
    for (int i = 0; i < count; ++i) {
        pieces.push_back(static_cast<char*>(std::malloc(bytes)));
        std::memset(pieces.back(), fill, bytes);
    }
    return pieces;
}

void freeAll(const std::vector<char*>& pieces)
{
    for (char* piece : pieces)
        std::free(piece);
}

// Minor page faults of a thread that allocates and writes `rounds` times 96 MiB in 1 MiB pieces
// and frees them after each round, as a rasteriser's scenes come and go: more than one of a
// thread arena's 64 MiB heaps. The faults of the last round only.
long faultsOfTheLastRound(int rounds)
{
    long faults = -1;
    std::thread frame([&] {
        for (int round = 0; round < rounds; ++round) {
            const long before = minorFaultsOfThisThread();
            freeAll(takeAndWrite(size_t(1) << 20, 96, round + 1));
            faults = minorFaultsOfThisThread() - before;
        }
    });
    frame.join();
    return faults;
}

// Minor page faults of this thread when it makes a backlog of 300 MiB of patch arrays (1.2 MiB
// each, as a 100k-point patch has) for the second time, after another thread drew and freed the
// first backlog, as the render thread frees what a scanner thread made.
long faultsOfASecondBacklog()
{
    long faults = -1;
    for (int round = 0; round < 2; ++round) {
        const long before = minorFaultsOfThisThread();
        const std::vector<char*> pieces = takeAndWrite(1200000, 256, round + 1);
        faults = minorFaultsOfThisThread() - before;
        std::thread render([&] { freeAll(pieces); });
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
