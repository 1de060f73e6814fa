#include "huge_pages.h"

#include <cstdint>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace Vorna {
namespace Orvane {

void adviseHugePages(void* data, std::size_t bytes)
{
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr std::uintptr_t kHuge = std::uintptr_t(2) << 20;
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = (begin + kHuge - 1) & ~(kHuge - 1);
    const std::uintptr_t last = (begin + bytes) & ~(kHuge - 1);
    if (!data || last <= first)
        return;
    // Advice only: a refusal leaves ordinary pages, which work as before.
    madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}

} // namespace Orvane
} // namespace Vorna
