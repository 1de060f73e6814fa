#pragma once

#include <cstddef>

namespace Vorna {
namespace Orvane {

// Zero-filled memory straight from the kernel, asked for on huge pages, for a software
// rasteriser to adopt as a buffer's storage. Such a rasteriser clears every new buffer itself,
// and on a virtual machine that first touch costs a fault per 4 KiB page, slower than drawing
// the points; fresh pages are zero already and fault once per 2 MiB. Move-only.
class ZeroedPages
{
public:
    ZeroedPages() = default;
    // data() is null when the kernel refuses.
    explicit ZeroedPages(std::size_t bytes);
    ~ZeroedPages();
    ZeroedPages(ZeroedPages&& other) noexcept;
    ZeroedPages& operator=(ZeroedPages&& other) noexcept;
    ZeroedPages(const ZeroedPages&) = delete;
    ZeroedPages& operator=(const ZeroedPages&) = delete;

    void* data() const { return m_data; }
    std::size_t size() const { return m_size; }

private:
    void release();

    void* m_data = nullptr;
    std::size_t m_size = 0;
};

} // namespace Orvane
} // namespace Vorna
