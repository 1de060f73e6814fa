#pragma once

#include <initializer_list>
#include <string>
#include <utility>

namespace MTL {
class ComputePipelineState;
class Device;
class Library;
} // namespace MTL

namespace Vorna {
namespace Orvane {

// Compiles the catalogue's compute source `programName` for `device` (language version 2.0).
// A null library prints the compiler's text, logs "shader library is null!" and fails the
// assertion named after `owner`.
MTL::Library* newCatalogueLibrary(MTL::Device* device, const std::string& programName,
                                  const char* owner);

// Builds one pipeline per (kernel name, destination); a failure prints the error and fails the
// assertion named after `owner`. Null device or library: "device is null or shader library is
// null!" and nothing is built.
void buildPipelines(
    MTL::Device* device, MTL::Library* library,
    std::initializer_list<std::pair<const char*, MTL::ComputePipelineState**>> kernels,
    const char* owner);

} // namespace Orvane
} // namespace Vorna
