#include "metal_cpp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace {

// Kernels of this test, bound by name like the library's own.
std::mutex g_orderMutex;
std::vector<int> g_order;

// Records the value at binding 0, once per dispatch.
void recordValue(const MTL::KernelArguments& args, const MTL::ThreadBlock& block)
{
    if (block.begin != 0)
        return;
    std::lock_guard<std::mutex> lock(g_orderMutex);
    g_order.push_back(*args.buffer<const int>(0));
}

// Counts each grid index it is given in the uint32 buffer at binding 0; records its thread.
std::mutex g_threadsMutex;
std::set<std::thread::id> g_kernelThreads;

void countIndices(const MTL::KernelArguments& args, const MTL::ThreadBlock& block)
{
    auto* counts = args.buffer<std::atomic<std::uint32_t>>(0);
    for (std::uint64_t i = block.begin; i < block.end; ++i)
        counts[i].fetch_add(1, std::memory_order_relaxed);
    std::lock_guard<std::mutex> lock(g_threadsMutex);
    g_kernelThreads.insert(std::this_thread::get_id());
}

// Blocks its queue until the future at binding 0 is ready.
void waitForRelease(const MTL::KernelArguments& args, const MTL::ThreadBlock&)
{
    (*args.buffer<std::shared_future<void>* const>(0))->wait();
}

const bool s_registered = MTL::registerKernel("recordValue", &recordValue) &&
                          MTL::registerKernel("countIndices", &countIndices) &&
                          MTL::registerKernel("waitForRelease", &waitForRelease);

const char* const kSource = R"(
#include <metal_stdlib>
using namespace metal;
// kernel void commentedOut(device int* a) {}
kernel void recordValue(constant int& value [[buffer(0)]]) {}
kernel void countIndices(device atomic_uint* counts [[buffer(0)]],
                         uint3 gid [[thread_position_in_grid]]) {}
kernel void waitForRelease(device void* gate [[buffer(0)]]) {}
)";

class MetalCppTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(s_registered);
        m_pool = NS::AutoreleasePool::alloc()->init();
        m_device = MTL::CreateSystemDefaultDevice();
        ASSERT_NE(m_device, nullptr);
        NS::Error* error = nullptr;
        m_library = m_device->newLibrary(NS::String::string(kSource, NS::UTF8StringEncoding),
                                         nullptr, &error);
        ASSERT_NE(m_library, nullptr) << (error ? error->localizedDescription()->utf8String() : "");
        m_queue = m_device->newCommandQueue();
        std::lock_guard<std::mutex> lock(g_orderMutex);
        g_order.clear();
    }

    void TearDown() override
    {
        for (MTL::ComputePipelineState* pipeline : m_pipelines)
            pipeline->release();
        if (m_queue)
            m_queue->release();
        if (m_library)
            m_library->release();
        if (m_device)
            m_device->release();
        m_pool->release();
    }

    MTL::ComputePipelineState* pipeline(const char* name)
    {
        MTL::Function* function =
            m_library->newFunction(NS::String::string(name, NS::UTF8StringEncoding));
        EXPECT_NE(function, nullptr) << name;
        NS::Error* error = nullptr;
        MTL::ComputePipelineState* state = m_device->newComputePipelineState(function, &error);
        if (function)
            function->release();
        m_pipelines.push_back(state);
        return state;
    }

    // Commits one dispatch of countIndices and returns the counts it left.
    std::vector<std::uint32_t> countGrid(MTL::Size grid, MTL::Size group, bool byGroups)
    {
        const MTL::Size threads =
            byGroups ? MTL::Size(grid.width * group.width, grid.height * group.height,
                                 grid.depth * group.depth)
                     : grid;
        const std::size_t total = threads.width * threads.height * threads.depth;
        MTL::Buffer* counts = m_device->newBuffer(total * 4, MTL::ResourceStorageModeShared);
        MTL::CommandBuffer* commandBuffer = m_queue->commandBuffer();
        MTL::ComputeCommandEncoder* encoder = commandBuffer->computeCommandEncoder();
        encoder->setComputePipelineState(pipeline("countIndices"));
        encoder->setBuffer(counts, 0, 0);
        if (byGroups)
            encoder->dispatchThreadgroups(grid, group);
        else
            encoder->dispatchThreads(grid, group);
        encoder->endEncoding();
        commandBuffer->commit();
        commandBuffer->waitUntilCompleted();
        std::vector<std::uint32_t> result(total);
        std::memcpy(result.data(), counts->contents(), total * 4);
        counts->release();
        return result;
    }

    NS::AutoreleasePool* m_pool = nullptr;
    MTL::Device* m_device = nullptr;
    MTL::Library* m_library = nullptr;
    MTL::CommandQueue* m_queue = nullptr;
    std::vector<MTL::ComputePipelineState*> m_pipelines;
};

TEST_F(MetalCppTest, DispatchRunsEveryGridIndexExactlyOnce)
{
    struct Case {
        MTL::Size grid;
        MTL::Size group;
        bool byGroups;
    };
    const Case cases[] = {
        {MTL::Size(1, 1, 1), MTL::Size(1024, 1, 1), false},
        {MTL::Size(10000001, 1, 1), MTL::Size(1024, 1, 1), false}, // not a multiple of the group
        {MTL::Size(1000, 7, 3), MTL::Size(64, 1, 1), false},       // three dimensions
        {MTL::Size(17, 1, 1), MTL::Size(1024, 1, 1), true},        // whole threadgroups
    };
    for (const Case& c : cases) {
        const std::vector<std::uint32_t> counts = countGrid(c.grid, c.group, c.byGroups);
        const auto wrong =
            std::find_if(counts.begin(), counts.end(), [](std::uint32_t n) { return n != 1; });
        EXPECT_EQ(wrong, counts.end())
            << "index " << (wrong - counts.begin()) << " ran "
            << (wrong == counts.end() ? 1 : *wrong) << " times in a grid of " << c.grid.width << "x"
            << c.grid.height << "x" << c.grid.depth;
    }
    std::lock_guard<std::mutex> lock(g_threadsMutex);
    EXPECT_FALSE(g_kernelThreads.count(std::this_thread::get_id()))
        << "kernels run on the device's workers, not on the caller";
}

TEST_F(MetalCppTest, QueueRunsCommandBuffersInCommitOrderAndHandlersOnItsOwnThread)
{
    MTL::ComputePipelineState* record = pipeline("recordValue");
    constexpr int kCount = 64;
    std::mutex mutex;
    std::vector<int> handlerOrder;
    std::set<std::thread::id> handlerThreads;
    std::vector<MTL::CommandBuffer*> buffers;
    for (int i = 0; i < kCount; ++i) {
        MTL::CommandBuffer* commandBuffer = m_queue->commandBuffer();
        MTL::ComputeCommandEncoder* encoder = commandBuffer->computeCommandEncoder();
        encoder->setComputePipelineState(record);
        encoder->setBytes(&i, sizeof(i), 0);
        encoder->dispatchThreads(MTL::Size(1, 1, 1), MTL::Size(1, 1, 1));
        encoder->endEncoding();
        commandBuffer->addCompletedHandler([&, i](MTL::CommandBuffer* done) {
            EXPECT_EQ(done->status(), MTL::CommandBufferStatusCompleted);
            std::lock_guard<std::mutex> lock(mutex);
            handlerOrder.push_back(i);
            handlerThreads.insert(std::this_thread::get_id());
        });
        commandBuffer->commit();
        buffers.push_back(commandBuffer);
    }
    buffers.back()->waitUntilCompleted();

    std::vector<int> expected(kCount);
    for (int i = 0; i < kCount; ++i)
        expected[i] = i;
    {
        std::lock_guard<std::mutex> lock(g_orderMutex);
        EXPECT_EQ(g_order, expected);
    }
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(handlerOrder, expected);
    ASSERT_EQ(handlerThreads.size(), 1u) << "one queue, one completion thread";
    EXPECT_NE(*handlerThreads.begin(), std::this_thread::get_id());
    EXPECT_GE(buffers.back()->GPUEndTime(), buffers.back()->GPUStartTime());
}

TEST_F(MetalCppTest, QueuesRunIndependently)
{
    // The first queue is held inside a kernel; the second one still completes its work.
    std::promise<void> gate;
    std::shared_future<void> released = gate.get_future().share();
    std::shared_future<void>* gatePointer = &released;
    MTL::CommandBuffer* held = m_queue->commandBuffer();
    MTL::ComputeCommandEncoder* encoder = held->computeCommandEncoder();
    encoder->setComputePipelineState(pipeline("waitForRelease"));
    encoder->setBytes(&gatePointer, sizeof(gatePointer), 0);
    encoder->dispatchThreads(MTL::Size(1, 1, 1), MTL::Size(1, 1, 1));
    encoder->endEncoding();
    std::thread::id heldThread;
    held->addCompletedHandler(
        [&](MTL::CommandBuffer*) { heldThread = std::this_thread::get_id(); });
    held->commit();

    MTL::CommandQueue* other = m_device->newCommandQueue();
    MTL::CommandBuffer* free = other->commandBuffer();
    std::thread::id freeThread;
    free->addCompletedHandler(
        [&](MTL::CommandBuffer*) { freeThread = std::this_thread::get_id(); });
    free->commit();
    free->waitUntilCompleted();
    EXPECT_NE(held->status(), MTL::CommandBufferStatusCompleted);

    gate.set_value();
    held->waitUntilCompleted();
    EXPECT_EQ(held->status(), MTL::CommandBufferStatusCompleted);
    EXPECT_NE(heldThread, freeThread) << "each queue has a thread of its own";
    other->release();
}

TEST_F(MetalCppTest, SetBytesCopiesAtTheCallAndBuffersOutliveTheirOwnersUntilDone)
{
    MTL::ComputePipelineState* record = pipeline("recordValue");
    int value = 7;
    std::atomic<bool> freed{false};
    void* page = nullptr;
    ASSERT_EQ(posix_memalign(&page, 4096, 4096), 0);
    std::memcpy(page, &value, sizeof(value));
    MTL::Buffer* wrapped = m_device->newBuffer(page, 4096, MTL::ResourceStorageModeShared,
                                               [&freed](void* pointer, NS::UInteger) {
                                                   freed = true;
                                                   std::free(pointer);
                                               });
    ASSERT_NE(wrapped, nullptr);

    MTL::CommandBuffer* commandBuffer = m_queue->commandBuffer();
    MTL::ComputeCommandEncoder* encoder = commandBuffer->computeCommandEncoder();
    encoder->setComputePipelineState(record);
    encoder->setBytes(&value, sizeof(value), 0);
    encoder->dispatchThreads(MTL::Size(1, 1, 1), MTL::Size(1, 1, 1));
    value = 8; // too late for the first dispatch
    encoder->setBuffer(wrapped, 0, 0);
    encoder->dispatchThreads(MTL::Size(1, 1, 1), MTL::Size(1, 1, 1));
    encoder->endEncoding();
    wrapped->release();
    EXPECT_FALSE(freed) << "the command buffer holds what it binds";
    commandBuffer->commit();
    commandBuffer->waitUntilCompleted();
    m_pool->release(); // our reference to the command buffer goes; the queue drops its own
    m_pool = NS::AutoreleasePool::alloc()->init();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!freed && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_TRUE(freed);
    std::lock_guard<std::mutex> lock(g_orderMutex);
    EXPECT_EQ(g_order, (std::vector<int>{7, 7}));
}

TEST_F(MetalCppTest, BuffersAreZeroedAndWrappedMemoryMustBePageAligned)
{
    MTL::Buffer* buffer = m_device->newBuffer(10000, MTL::ResourceStorageModeShared);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->length(), 10000u);
    const auto* bytes = static_cast<const unsigned char*>(buffer->contents());
    EXPECT_TRUE(std::all_of(bytes, bytes + 10000, [](unsigned char b) { return b == 0; }));
    buffer->release();

    std::vector<char> memory(3 * 4096);
    char* aligned = reinterpret_cast<char*>(
        (reinterpret_cast<std::uintptr_t>(memory.data()) + 4095) / 4096 * 4096);
    EXPECT_EQ(m_device->newBuffer(aligned + 1, 4096, MTL::ResourceStorageModeShared, nullptr),
              nullptr);
    EXPECT_EQ(m_device->newBuffer(aligned, 100, MTL::ResourceStorageModeShared, nullptr), nullptr);
    MTL::Buffer* wrapped =
        m_device->newBuffer(aligned, 4096, MTL::ResourceStorageModeShared, nullptr);
    ASSERT_NE(wrapped, nullptr);
    EXPECT_EQ(wrapped->contents(), aligned);
    wrapped->release();
}

TEST_F(MetalCppTest, KernelWithoutImplementationFailsTheCompile)
{
    NS::Error* error = nullptr;
    const char* source = "kernel void recordValue(constant int& v [[buffer(0)]]) {}\n"
                         "kernel void notImplementedAnywhere(device float* a [[buffer(0)]]) {}\n";
    MTL::Library* library =
        m_device->newLibrary(NS::String::string(source, NS::UTF8StringEncoding), nullptr, &error);
    EXPECT_EQ(library, nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_NE(
        std::string(error->localizedDescription()->utf8String()).find("notImplementedAnywhere"),
        std::string::npos);

    // Only declared kernels are functions of a library; the commented one is not declared.
    EXPECT_EQ(m_library->functionNames(),
              (std::vector<std::string>{"recordValue", "countIndices", "waitForRelease"}));
    EXPECT_EQ(m_library->newFunction(NS::String::string("commentedOut", NS::UTF8StringEncoding)),
              nullptr);
    error = nullptr;
    EXPECT_EQ(m_device->newComputePipelineState(nullptr, &error), nullptr);
    EXPECT_NE(error, nullptr);
}

} // namespace
