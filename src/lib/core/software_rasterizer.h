#pragma once

namespace Vorna {
namespace Orvane {

// Whether GL_RENDERER names one of Mesa's CPU rasterisers (llvmpipe, softpipe).
bool isSoftwareRasterizer(const char* glRenderer);

// A software rasteriser bins each frame into memory it allocates and frees again. Handed back
// to the kernel between frames, that memory is faulted in again page by page in the next one,
// which on a large cloud costs a good part of the frame (on a virtual machine, a 1M-point
// frame's 62 MiB took it from 130 to 400 ms). Makes the allocator keep freed memory for reuse
// instead. Process-wide; only for a software rasteriser; idempotent.
void keepFreedMemoryForSoftwareRasterizer();

} // namespace Orvane
} // namespace Vorna
