#pragma once

// A compute device with the interface of Metal's C++ wrappers, run on the CPU: each kernel
// declared in a library's source binds by name to a C++ function registered with
// MTL::registerKernel. Every thread of this layer lives inside it: a queue runs its committed
// command buffers in order on a thread of its own, a dispatch splits its grid over the
// device's worker pool, and completion handlers run on the queue's thread.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace NS {

using UInteger = unsigned long;
using Integer = long;

enum StringEncoding : UInteger {
    ASCIIStringEncoding = 1,
    UTF8StringEncoding = 4,
};

// Reference counted as in Foundation: objects from alloc / new... / copy start at one.
class Object
{
public:
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    void retain() const;
    void release() const;
    // Hands the object to the innermost AutoreleasePool of this thread.
    Object* autorelease();
    UInteger retainCount() const;

protected:
    Object() = default;
    virtual ~Object() = default;

private:
    mutable std::atomic<UInteger> m_refCount{1};
};

class String : public Object
{
public:
    // Autoreleased.
    static String* string(const char* text, StringEncoding encoding);
    const char* utf8String() const { return m_text.c_str(); }
    UInteger length() const { return m_text.size(); }

private:
    explicit String(std::string text) : m_text(std::move(text)) {}
    std::string m_text;
};

class Error : public Object
{
public:
    // Autoreleased.
    static Error* error(const std::string& description);
    String* localizedDescription() const;

private:
    explicit Error(std::string description) : m_description(std::move(description)) {}
    std::string m_description;
};

// Objects autoreleased on a thread are released when the innermost pool of that thread is.
class AutoreleasePool : public Object
{
public:
    static AutoreleasePool* alloc();
    AutoreleasePool* init();
    void drain() { release(); }

private:
    friend class Object;
    AutoreleasePool() = default;
    ~AutoreleasePool() override;
    void add(Object* object) { m_objects.push_back(object); }
    std::vector<Object*> m_objects;
};

} // namespace NS

namespace MTL {

class Buffer;
class CommandBuffer;
class CommandQueue;
class ComputeCommandEncoder;
class ComputePipelineState;
class Device;
class Function;
class Library;

struct Size {
    Size() = default;
    Size(NS::UInteger w, NS::UInteger h, NS::UInteger d) : width(w), height(h), depth(d) {}
    NS::UInteger width = 0;
    NS::UInteger height = 0;
    NS::UInteger depth = 0;
};

enum ResourceOptions : NS::UInteger {
    ResourceStorageModeShared = 0,
    ResourceStorageModeManaged = 16,
    ResourceStorageModePrivate = 32,
};

enum LanguageVersion : NS::UInteger {
    LanguageVersion2_0 = 131072,
};

enum CommandBufferStatus : NS::UInteger {
    CommandBufferStatusNotEnqueued = 0,
    CommandBufferStatusEnqueued = 1,
    CommandBufferStatusCommitted = 2,
    CommandBufferStatusScheduled = 3,
    CommandBufferStatusCompleted = 4,
    CommandBufferStatusError = 5,
};

constexpr int kMaxBufferBindings = 31;
constexpr NS::UInteger kMaxTotalThreadsPerThreadgroup = 1024;

// What a kernel sees of its bindings: contents (offset applied) and length, null when unbound.
struct KernelArguments {
    void* data[kMaxBufferBindings] = {};
    NS::UInteger length[kMaxBufferBindings] = {};

    template <typename T> T* buffer(int index) const { return static_cast<T*>(data[index]); }
    bool isBound(int index) const { return data[index] != nullptr; }
};

// A block of threads of one dispatch: linear indices [begin, end) over the grid, x fastest.
struct ThreadBlock {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    Size grid;
    Size threadsPerThreadgroup;
};

using KernelFunction = void (*)(const KernelArguments& args, const ThreadBlock& block);

// Binds the kernel `name` of every library source to `function`. Returns true, so that a
// file-scope constant can register at load time.
bool registerKernel(const char* name, KernelFunction function);
KernelFunction findKernel(const std::string& name);

using CommandBufferHandler = std::function<void(CommandBuffer*)>;
using BufferDeallocator = std::function<void(void* pointer, NS::UInteger length)>;

class CompileOptions : public NS::Object
{
public:
    static CompileOptions* alloc();
    CompileOptions* init() { return this; }
    void setLanguageVersion(LanguageVersion version) { m_languageVersion = version; }
    LanguageVersion languageVersion() const { return m_languageVersion; }

private:
    CompileOptions() = default;
    LanguageVersion m_languageVersion = LanguageVersion2_0;
};

class Function : public NS::Object
{
public:
    NS::String* name() const;
    KernelFunction kernel() const { return m_kernel; }

private:
    friend class Library;
    Function(std::string name, KernelFunction kernel) : m_name(std::move(name)), m_kernel(kernel) {}
    std::string m_name;
    KernelFunction m_kernel;
};

class Library : public NS::Object
{
public:
    // Null for a name the source does not declare.
    Function* newFunction(const NS::String* name);
    std::vector<std::string> functionNames() const;

private:
    friend class Device;
    Library() = default;
    std::vector<std::pair<std::string, KernelFunction>> m_kernels;
};

class ComputePipelineState : public NS::Object
{
public:
    NS::UInteger maxTotalThreadsPerThreadgroup() const { return kMaxTotalThreadsPerThreadgroup; }
    NS::UInteger threadExecutionWidth() const { return 32; }
    KernelFunction kernel() const { return m_kernel; }

private:
    friend class Device;
    explicit ComputePipelineState(KernelFunction kernel) : m_kernel(kernel) {}
    KernelFunction m_kernel;
};

class Buffer : public NS::Object
{
public:
    NS::UInteger length() const { return m_length; }
    void* contents() const { return m_contents; }
    ResourceOptions resourceOptions() const { return m_options; }

private:
    friend class Device;
    Buffer(void* contents, NS::UInteger length, ResourceOptions options,
           BufferDeallocator deallocator, bool mapped);
    ~Buffer() override;
    void* m_contents;
    NS::UInteger m_length;
    ResourceOptions m_options;
    BufferDeallocator m_deallocator;
    bool m_mapped;
};

class ComputeCommandEncoder : public NS::Object
{
public:
    void setComputePipelineState(const ComputePipelineState* state);
    void setBuffer(const Buffer* buffer, NS::UInteger offset, NS::UInteger index);
    // Copies the bytes now: the caller's memory may go at once.
    void setBytes(const void* bytes, NS::UInteger length, NS::UInteger index);
    void dispatchThreads(Size threadsPerGrid, Size threadsPerThreadgroup);
    void dispatchThreadgroups(Size threadgroupsPerGrid, Size threadsPerThreadgroup);
    void endEncoding();

private:
    friend class CommandBuffer;
    explicit ComputeCommandEncoder(CommandBuffer* commandBuffer);
    ~ComputeCommandEncoder() override;
    void record(Size grid, Size threadsPerThreadgroup);

    CommandBuffer* m_commandBuffer;
    const ComputePipelineState* m_pipeline = nullptr;
    const Buffer* m_buffers[kMaxBufferBindings] = {};
    NS::UInteger m_offsets[kMaxBufferBindings] = {};
    std::shared_ptr<std::vector<unsigned char>> m_bytes[kMaxBufferBindings];
    bool m_ended = false;
};

class CommandBuffer : public NS::Object
{
public:
    // Autoreleased.
    ComputeCommandEncoder* computeCommandEncoder();
    void addCompletedHandler(const CommandBufferHandler& handler);
    void commit();
    // Returns once the work is done and the completion handlers have returned.
    void waitUntilCompleted();
    CommandBufferStatus status() const;
    // Seconds on a monotonic clock: start of the first dispatch and end of the last.
    double GPUStartTime() const { return m_gpuStart; }
    double GPUEndTime() const { return m_gpuEnd; }
    void setLabel(const NS::String* label);
    NS::String* label() const;
    CommandQueue* commandQueue() const { return m_queue; }

private:
    friend class CommandQueue;
    friend class ComputeCommandEncoder;
    explicit CommandBuffer(CommandQueue* queue) : m_queue(queue) {}
    ~CommandBuffer() override;

    struct Dispatch {
        const ComputePipelineState* pipeline = nullptr;
        const Buffer* buffers[kMaxBufferBindings] = {};
        KernelArguments args;
        std::shared_ptr<std::vector<unsigned char>> bytes[kMaxBufferBindings];
        Size grid;
        Size threadsPerThreadgroup;
    };
    // On the queue's thread.
    void execute();

    CommandQueue* m_queue;
    std::vector<Dispatch> m_dispatches;
    std::vector<CommandBufferHandler> m_handlers;
    std::string m_label;
    double m_gpuStart = 0.0;
    double m_gpuEnd = 0.0;
    mutable std::mutex m_statusMutex;
    std::condition_variable m_statusChanged;
    CommandBufferStatus m_status = CommandBufferStatusNotEnqueued;
    bool m_finished = false; // completed and every handler returned
};

class CommandQueue : public NS::Object
{
public:
    // Autoreleased.
    CommandBuffer* commandBuffer();
    Device* device() const { return m_device; }

private:
    friend class CommandBuffer;
    friend class Device;
    explicit CommandQueue(Device* device);
    ~CommandQueue() override;
    void enqueue(CommandBuffer* commandBuffer);

    // Shared with the queue's thread, which may outlive the object by a moment.
    struct State {
        std::mutex mutex;
        std::condition_variable pending;
        std::deque<CommandBuffer*> committed;
        bool stopping = false;
    };
    static void run(std::shared_ptr<State> state);

    Device* m_device;
    std::shared_ptr<State> m_state;
    std::thread m_thread;
};

class Device : public NS::Object
{
public:
    CommandQueue* newCommandQueue();
    // Null with *error set when a declared kernel has no registered function.
    Library* newLibrary(const NS::String* source, const CompileOptions* options, NS::Error** error);
    ComputePipelineState* newComputePipelineState(const Function* function, NS::Error** error);
    // Zero-filled, page-aligned; null for length 0.
    Buffer* newBuffer(NS::UInteger length, ResourceOptions options);
    Buffer* newBuffer(const void* pointer, NS::UInteger length, ResourceOptions options);
    // Wraps memory that stays the caller's: page-aligned address and page-multiple length, or
    // null. The deallocator, if any, runs when the buffer goes.
    Buffer* newBuffer(void* pointer, NS::UInteger length, ResourceOptions options,
                      const BufferDeallocator& deallocator);
    NS::String* name() const;
    unsigned workerCount() const;

    // Runs `kernel` over every index of `grid` on the worker pool; returns when all are done.
    void runDispatch(KernelFunction kernel, const KernelArguments& args, Size grid,
                     Size threadsPerThreadgroup);

private:
    friend Device* CreateSystemDefaultDevice();
    Device();
    ~Device() override;
    struct Pool;
    std::unique_ptr<Pool> m_pool;
};

// The one device of the process, retained for the caller.
Device* CreateSystemDefaultDevice();

} // namespace MTL
