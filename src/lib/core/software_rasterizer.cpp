#include "software_rasterizer.h"

#include "orvane_log.h"

#include <atomic>
#include <cstring>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace Vorna {
namespace Orvane {

bool isSoftwareRasterizer(const char* glRenderer)
{
    return glRenderer &&
           (std::strstr(glRenderer, "llvmpipe") || std::strstr(glRenderer, "softpipe"));
}

void keepFreedMemoryForSoftwareRasterizer()
{
    static std::atomic<bool> done{false};
    if (done.exchange(true))
        return;
#if defined(__GLIBC__)
    // The rasteriser's scenes come and go in pieces of tens of MiB, several at a time. Up to
    // the largest size the allocator would reach on its own, allocations come from its heaps,
    // where freed memory is reused.
    constexpr int kHeapAllocationBytes = 32 << 20;
    // A thread's arena grows in heaps of 64 MiB and unmaps a heap once it is empty, whatever
    // the trim threshold: a frame that bins a little more than a heap holds then faults a new
    // one in page by page. Padding the top by a whole heap keeps empty heaps.
    constexpr int kThreadHeapBytes = 64 << 20;
    // The main arena grows by that pad too. Trimmed at a quarter of a GiB, a backlog of patches
    // of about that size (a few frames of a scanner while a big cloud draws) was given back at
    // each frame, by a shrink that costs milliseconds on the thread that frees, and faulted in
    // again by the producer.
    constexpr int kKeptBytes = 1 << 30;
    const bool kept = mallopt(M_TRIM_THRESHOLD, kKeptBytes) == 1 &&
                      mallopt(M_MMAP_THRESHOLD, kHeapAllocationBytes) == 1 &&
                      mallopt(M_TOP_PAD, kThreadHeapBytes) == 1;
    qCInfo(orvane) << "software rasteriser: the allocator keeps freed memory for reuse" << kept;
#endif
}

} // namespace Orvane
} // namespace Vorna
