#pragma once

#include <cstddef>

namespace Vorna {
namespace Orvane {

// Asks the kernel to back the 2 MiB-aligned part of [data, data + bytes) with huge pages
// before it is first written. A software rasteriser keeps buffer storage in ordinary process
// memory, and on a virtual machine the first touch of each 4 KiB page can cost more than
// drawing the points on it. Harmless where the memory is not ordinary (a driver's mapping) or
// the kernel says no.
void adviseHugePages(void* data, std::size_t bytes);

} // namespace Orvane
} // namespace Vorna
