#include "zeroed_pages.h"

#include <utility>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace Vorna {
namespace Orvane {

ZeroedPages::ZeroedPages(std::size_t bytes)
{
#ifdef __linux__
    if (bytes == 0)
        return;
    // Address space only: a page is backed once written, so a large reservation costs nothing.
    void* data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (data == MAP_FAILED)
        return;
#ifdef MADV_HUGEPAGE
    // Advice only: where the kernel says no, ordinary pages work as well, only slower.
    madvise(data, bytes, MADV_HUGEPAGE);
#endif
    m_data = data;
    m_size = bytes;
#else
    (void)bytes;
#endif
}

ZeroedPages::~ZeroedPages()
{
    release();
}

ZeroedPages::ZeroedPages(ZeroedPages&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)), m_size(std::exchange(other.m_size, 0))
{
}

ZeroedPages& ZeroedPages::operator=(ZeroedPages&& other) noexcept
{
    if (this != &other) {
        release();
        m_data = std::exchange(other.m_data, nullptr);
        m_size = std::exchange(other.m_size, 0);
    }
    return *this;
}

void ZeroedPages::release()
{
#ifdef __linux__
    if (m_data)
        munmap(m_data, m_size);
#endif
    m_data = nullptr;
    m_size = 0;
}

} // namespace Orvane
} // namespace Vorna
