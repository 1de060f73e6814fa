#include "compute_library.h"

#include "canvas3d_shadermanager.h"
#include "metal_cpp.h"
#include "orvane_log.h"

#include <cstdio>

namespace Vorna {
namespace Orvane {

MTL::Library* newCatalogueLibrary(MTL::Device* device, const std::string& programName,
                                  const char* owner)
{
    NS::AutoreleasePool* pool = NS::AutoreleasePool::alloc()->init();
    const char* source = ShaderManager::instance()->getCharDataByMetalShader(programName);
    MTL::CompileOptions* options = MTL::CompileOptions::alloc()->init();
    options->setLanguageVersion(static_cast<MTL::LanguageVersion>(131072));
    NS::Error* error = nullptr;
    MTL::Library* library =
        device->newLibrary(NS::String::string(source, NS::UTF8StringEncoding), options, &error);
    options->release();
    if (!library) {
        std::printf("%s\n", error ? error->localizedDescription()->utf8String() : "");
        qCCritical(orvane) << "shader library is null!";
        Q_ASSERT_X(false, owner, "shader library is null!");
    }
    pool->release();
    return library;
}

void buildPipelines(
    MTL::Device* device, MTL::Library* library,
    std::initializer_list<std::pair<const char*, MTL::ComputePipelineState**>> kernels,
    const char* owner)
{
    if (!device || !library) {
        qCCritical(orvane) << "device is null or shader library is null!";
        return;
    }
    NS::AutoreleasePool* pool = NS::AutoreleasePool::alloc()->init();
    for (const auto& kernel : kernels) {
        MTL::Function* function =
            library->newFunction(NS::String::string(kernel.first, NS::UTF8StringEncoding));
        NS::Error* error = nullptr;
        *kernel.second = device->newComputePipelineState(function, &error);
        if (function)
            function->release();
        if (!*kernel.second) {
            std::printf("%s\n", error ? error->localizedDescription()->utf8String() : "");
            Q_ASSERT_X(false, owner, "compute pipeline failed");
        }
    }
    pool->release();
}

} // namespace Orvane
} // namespace Vorna
