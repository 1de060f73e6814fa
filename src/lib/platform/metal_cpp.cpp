#include "metal_cpp.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <regex>
#include <sys/mman.h>
#include <unistd.h>

namespace NS {

namespace {
thread_local std::vector<AutoreleasePool*> t_pools;
}

void Object::retain() const
{
    m_refCount.fetch_add(1, std::memory_order_relaxed);
}

void Object::release() const
{
    if (m_refCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
}

Object* Object::autorelease()
{
    // Without a pool the object stays alive, as on the platform this mirrors.
    if (!t_pools.empty())
        t_pools.back()->add(this);
    return this;
}

UInteger Object::retainCount() const
{
    return m_refCount.load(std::memory_order_relaxed);
}

String* String::string(const char* text, StringEncoding)
{
    auto* string = new String(text ? text : "");
    string->autorelease();
    return string;
}

Error* Error::error(const std::string& description)
{
    auto* error = new Error(description);
    error->autorelease();
    return error;
}

String* Error::localizedDescription() const
{
    return String::string(m_description.c_str(), UTF8StringEncoding);
}

AutoreleasePool* AutoreleasePool::alloc()
{
    return new AutoreleasePool;
}

AutoreleasePool* AutoreleasePool::init()
{
    t_pools.push_back(this);
    return this;
}

AutoreleasePool::~AutoreleasePool()
{
    auto it = std::find(t_pools.begin(), t_pools.end(), this);
    if (it != t_pools.end())
        t_pools.erase(it);
    // Releasing may autorelease again; those go to the pool outside this one.
    std::vector<Object*> objects;
    objects.swap(m_objects);
    for (Object* object : objects)
        object->release();
}

} // namespace NS

namespace MTL {

namespace {

std::mutex& registryMutex()
{
    static std::mutex mutex;
    return mutex;
}

std::map<std::string, KernelFunction>& registry()
{
    static std::map<std::string, KernelFunction> kernels;
    return kernels;
}

double monotonicSeconds()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

NS::UInteger pageSize()
{
    static const NS::UInteger size = static_cast<NS::UInteger>(sysconf(_SC_PAGESIZE));
    return size;
}

NS::UInteger threadCount(const Size& size)
{
    return size.width * size.height * size.depth;
}

// Kernel names declared by a source: "kernel void name(", comments ignored.
std::vector<std::string> declaredKernels(const std::string& source)
{
    static const std::regex comments(R"(//[^\n]*|/\*[\s\S]*?\*/)");
    static const std::regex declaration(R"(\bkernel\s+void\s+([A-Za-z_]\w*)\s*\()");
    const std::string code = std::regex_replace(source, comments, " ");
    std::vector<std::string> names;
    for (auto it = std::sregex_iterator(code.begin(), code.end(), declaration);
         it != std::sregex_iterator(); ++it)
        names.push_back((*it)[1].str());
    return names;
}

} // namespace

bool registerKernel(const char* name, KernelFunction function)
{
    std::lock_guard<std::mutex> lock(registryMutex());
    registry()[name] = function;
    return true;
}

KernelFunction findKernel(const std::string& name)
{
    std::lock_guard<std::mutex> lock(registryMutex());
    auto it = registry().find(name);
    return it == registry().end() ? nullptr : it->second;
}

CompileOptions* CompileOptions::alloc()
{
    return new CompileOptions;
}

NS::String* Function::name() const
{
    return NS::String::string(m_name.c_str(), NS::UTF8StringEncoding);
}

Function* Library::newFunction(const NS::String* name)
{
    if (!name)
        return nullptr;
    for (const auto& kernel : m_kernels) {
        if (kernel.first == name->utf8String())
            return new Function(kernel.first, kernel.second);
    }
    return nullptr;
}

std::vector<std::string> Library::functionNames() const
{
    std::vector<std::string> names;
    for (const auto& kernel : m_kernels)
        names.push_back(kernel.first);
    return names;
}

Buffer::Buffer(void* contents, NS::UInteger length, ResourceOptions options,
               BufferDeallocator deallocator, bool mapped)
    : m_contents(contents), m_length(length), m_options(options),
      m_deallocator(std::move(deallocator)), m_mapped(mapped)
{
}

Buffer::~Buffer()
{
    if (m_mapped)
        munmap(m_contents, (m_length + pageSize() - 1) / pageSize() * pageSize());
    else if (m_deallocator)
        m_deallocator(m_contents, m_length);
}

// ---- encoding ----

ComputeCommandEncoder::ComputeCommandEncoder(CommandBuffer* commandBuffer)
    : m_commandBuffer(commandBuffer)
{
    m_commandBuffer->retain();
}

ComputeCommandEncoder::~ComputeCommandEncoder()
{
    m_commandBuffer->release();
}

void ComputeCommandEncoder::setComputePipelineState(const ComputePipelineState* state)
{
    m_pipeline = state;
}

void ComputeCommandEncoder::setBuffer(const Buffer* buffer, NS::UInteger offset, NS::UInteger index)
{
    if (index >= static_cast<NS::UInteger>(kMaxBufferBindings))
        return;
    m_buffers[index] = buffer;
    m_offsets[index] = offset;
    m_bytes[index].reset();
}

void ComputeCommandEncoder::setBytes(const void* bytes, NS::UInteger length, NS::UInteger index)
{
    if (index >= static_cast<NS::UInteger>(kMaxBufferBindings))
        return;
    auto copy = std::make_shared<std::vector<unsigned char>>(length);
    if (length)
        std::memcpy(copy->data(), bytes, length);
    m_bytes[index] = std::move(copy);
    m_buffers[index] = nullptr;
}

void ComputeCommandEncoder::dispatchThreads(Size threadsPerGrid, Size threadsPerThreadgroup)
{
    record(threadsPerGrid, threadsPerThreadgroup);
}

void ComputeCommandEncoder::dispatchThreadgroups(Size threadgroupsPerGrid,
                                                 Size threadsPerThreadgroup)
{
    record(Size(threadgroupsPerGrid.width * threadsPerThreadgroup.width,
                threadgroupsPerGrid.height * threadsPerThreadgroup.height,
                threadgroupsPerGrid.depth * threadsPerThreadgroup.depth),
           threadsPerThreadgroup);
}

void ComputeCommandEncoder::record(Size grid, Size threadsPerThreadgroup)
{
    if (m_ended || !m_pipeline)
        return;
    CommandBuffer::Dispatch dispatch;
    dispatch.pipeline = m_pipeline;
    m_pipeline->retain();
    for (int i = 0; i < kMaxBufferBindings; ++i) {
        if (m_buffers[i]) {
            // Held until the work is done, like the platform's retained references.
            m_buffers[i]->retain();
            dispatch.buffers[i] = m_buffers[i];
            dispatch.args.data[i] =
                static_cast<unsigned char*>(m_buffers[i]->contents()) + m_offsets[i];
            dispatch.args.length[i] = m_buffers[i]->length() - m_offsets[i];
        } else if (m_bytes[i]) {
            dispatch.bytes[i] = m_bytes[i];
            dispatch.args.data[i] = m_bytes[i]->data();
            dispatch.args.length[i] = m_bytes[i]->size();
        }
    }
    dispatch.grid = grid;
    dispatch.threadsPerThreadgroup = threadsPerThreadgroup;
    m_commandBuffer->m_dispatches.push_back(std::move(dispatch));
}

void ComputeCommandEncoder::endEncoding()
{
    m_ended = true;
}

// ---- command buffers and queues ----

CommandBuffer::~CommandBuffer()
{
    for (Dispatch& dispatch : m_dispatches) {
        dispatch.pipeline->release();
        for (const Buffer* buffer : dispatch.buffers) {
            if (buffer)
                buffer->release();
        }
    }
}

ComputeCommandEncoder* CommandBuffer::computeCommandEncoder()
{
    auto* encoder = new ComputeCommandEncoder(this);
    encoder->autorelease();
    return encoder;
}

void CommandBuffer::addCompletedHandler(const CommandBufferHandler& handler)
{
    m_handlers.push_back(handler);
}

void CommandBuffer::commit()
{
    {
        std::lock_guard<std::mutex> lock(m_statusMutex);
        if (m_status != CommandBufferStatusNotEnqueued)
            return;
        m_status = CommandBufferStatusCommitted;
    }
    m_queue->enqueue(this);
}

void CommandBuffer::waitUntilCompleted()
{
    std::unique_lock<std::mutex> lock(m_statusMutex);
    // A command buffer never committed has nothing to wait for.
    m_statusChanged.wait(
        lock, [this] { return m_finished || m_status == CommandBufferStatusNotEnqueued; });
}

CommandBufferStatus CommandBuffer::status() const
{
    std::lock_guard<std::mutex> lock(m_statusMutex);
    return m_status;
}

void CommandBuffer::setLabel(const NS::String* label)
{
    m_label = label ? label->utf8String() : "";
}

NS::String* CommandBuffer::label() const
{
    return NS::String::string(m_label.c_str(), NS::UTF8StringEncoding);
}

void CommandBuffer::execute()
{
    {
        std::lock_guard<std::mutex> lock(m_statusMutex);
        m_status = CommandBufferStatusScheduled;
    }
    m_gpuStart = monotonicSeconds();
    for (const Dispatch& dispatch : m_dispatches) {
        m_queue->device()->runDispatch(dispatch.pipeline->kernel(), dispatch.args, dispatch.grid,
                                       dispatch.threadsPerThreadgroup);
    }
    m_gpuEnd = monotonicSeconds();
    // Handlers see the finished state, as on the platform; waiters return after them.
    {
        std::lock_guard<std::mutex> lock(m_statusMutex);
        m_status = CommandBufferStatusCompleted;
    }
    NS::AutoreleasePool* pool = NS::AutoreleasePool::alloc()->init();
    for (const CommandBufferHandler& handler : m_handlers)
        handler(this);
    pool->release();
    {
        std::lock_guard<std::mutex> lock(m_statusMutex);
        m_finished = true;
    }
    m_statusChanged.notify_all();
}

CommandQueue::CommandQueue(Device* device) : m_device(device), m_state(std::make_shared<State>())
{
    m_device->retain();
    m_thread = std::thread(&CommandQueue::run, m_state);
}

CommandQueue::~CommandQueue()
{
    {
        std::lock_guard<std::mutex> lock(m_state->mutex);
        m_state->stopping = true;
    }
    m_state->pending.notify_all();
    // The last release may come from a completion handler on the queue's own thread.
    if (m_thread.get_id() == std::this_thread::get_id())
        m_thread.detach();
    else
        m_thread.join();
    m_device->release();
}

CommandBuffer* CommandQueue::commandBuffer()
{
    auto* commandBuffer = new CommandBuffer(this);
    commandBuffer->autorelease();
    return commandBuffer;
}

void CommandQueue::enqueue(CommandBuffer* commandBuffer)
{
    // The queue holds the command buffer, and the command buffer the queue, until it has run.
    commandBuffer->retain();
    retain();
    {
        std::lock_guard<std::mutex> lock(m_state->mutex);
        m_state->committed.push_back(commandBuffer);
    }
    m_state->pending.notify_one();
}

void CommandQueue::run(std::shared_ptr<State> state)
{
    for (;;) {
        CommandBuffer* next = nullptr;
        {
            std::unique_lock<std::mutex> lock(state->mutex);
            state->pending.wait(lock, [&] { return state->stopping || !state->committed.empty(); });
            if (state->committed.empty())
                return;
            next = state->committed.front();
            state->committed.pop_front();
        }
        CommandQueue* queue = next->commandQueue();
        next->execute();
        next->release();
        // May be the last reference; the loop then ends on `stopping`.
        queue->release();
    }
}

// ---- the device and its worker pool ----

struct Device::Pool {
    struct Job {
        KernelFunction kernel = nullptr;
        const KernelArguments* args = nullptr;
        Size grid;
        Size threadsPerThreadgroup;
        std::uint64_t total = 0;
        std::uint64_t blockSize = 1;
        std::atomic<std::uint64_t> next{0};
        std::atomic<std::uint64_t> done{0};
        std::mutex mutex;
        std::condition_variable finished;
        bool isFinished = false;
    };

    explicit Pool(unsigned count)
    {
        for (unsigned i = 0; i < count; ++i)
            workers.emplace_back([this] { work(); });
    }

    ~Pool()
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
        }
        wake.notify_all();
        for (std::thread& worker : workers)
            worker.join();
    }

    void work()
    {
        for (;;) {
            std::shared_ptr<Job> job;
            {
                std::unique_lock<std::mutex> lock(mutex);
                wake.wait(lock, [this] { return stopping || !jobs.empty(); });
                if (stopping)
                    return;
                job = jobs.front();
            }
            runBlocks(*job);
            std::lock_guard<std::mutex> lock(mutex);
            if (!jobs.empty() && jobs.front() == job)
                jobs.pop_front();
        }
    }

    static void runBlocks(Job& job)
    {
        for (;;) {
            const std::uint64_t begin = job.next.fetch_add(job.blockSize);
            if (begin >= job.total)
                return;
            ThreadBlock block;
            block.begin = begin;
            block.end = std::min(job.total, begin + job.blockSize);
            block.grid = job.grid;
            block.threadsPerThreadgroup = job.threadsPerThreadgroup;
            job.kernel(*job.args, block);
            const std::uint64_t count = block.end - block.begin;
            if (job.done.fetch_add(count) + count == job.total) {
                std::lock_guard<std::mutex> lock(job.mutex);
                job.isFinished = true;
                job.finished.notify_all();
            }
        }
    }

    std::vector<std::thread> workers;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::shared_ptr<Job>> jobs;
    bool stopping = false;
};

Device::Device()
{
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    m_pool.reset(new Pool(cores));
}

Device::~Device() = default;

Device* CreateSystemDefaultDevice()
{
    // Never destroyed: worker threads must not be joined during static destruction.
    static Device* device = new Device;
    device->retain();
    return device;
}

NS::String* Device::name() const
{
    return NS::String::string("CPU compute device", NS::UTF8StringEncoding);
}

unsigned Device::workerCount() const
{
    return static_cast<unsigned>(m_pool->workers.size());
}

CommandQueue* Device::newCommandQueue()
{
    return new CommandQueue(this);
}

Library* Device::newLibrary(const NS::String* source, const CompileOptions*, NS::Error** error)
{
    const std::string text = source ? source->utf8String() : std::string();
    const std::vector<std::string> names = declaredKernels(text);
    if (names.empty()) {
        if (error)
            *error = NS::Error::error("source declares no kernel");
        return nullptr;
    }
    auto* library = new Library;
    for (const std::string& name : names) {
        KernelFunction kernel = findKernel(name);
        if (!kernel) {
            library->release();
            if (error)
                *error = NS::Error::error("no implementation of kernel '" + name + "'");
            return nullptr;
        }
        library->m_kernels.emplace_back(name, kernel);
    }
    return library;
}

ComputePipelineState* Device::newComputePipelineState(const Function* function, NS::Error** error)
{
    if (!function || !function->kernel()) {
        if (error)
            *error = NS::Error::error("function is null");
        return nullptr;
    }
    return new ComputePipelineState(function->kernel());
}

Buffer* Device::newBuffer(NS::UInteger length, ResourceOptions options)
{
    if (length == 0)
        return nullptr;
    const NS::UInteger mapped = (length + pageSize() - 1) / pageSize() * pageSize();
    void* memory =
        mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    return new Buffer(memory, length, options, nullptr, true);
}

Buffer* Device::newBuffer(const void* pointer, NS::UInteger length, ResourceOptions options)
{
    Buffer* buffer = newBuffer(length, options);
    if (buffer && pointer)
        std::memcpy(buffer->contents(), pointer, length);
    return buffer;
}

Buffer* Device::newBuffer(void* pointer, NS::UInteger length, ResourceOptions options,
                          const BufferDeallocator& deallocator)
{
    if (!pointer || length == 0 || reinterpret_cast<std::uintptr_t>(pointer) % pageSize() != 0 ||
        length % pageSize() != 0)
        return nullptr;
    return new Buffer(pointer, length, options, deallocator, false);
}

void Device::runDispatch(KernelFunction kernel, const KernelArguments& args, Size grid,
                         Size threadsPerThreadgroup)
{
    const std::uint64_t total = threadCount(grid);
    if (!kernel || total == 0)
        return;
    auto job = std::make_shared<Pool::Job>();
    job->kernel = kernel;
    job->args = &args;
    job->grid = grid;
    job->threadsPerThreadgroup = threadsPerThreadgroup;
    job->total = total;
    // A few blocks per worker balance the load; whole threadgroups keep their threads together.
    const std::uint64_t group = std::max<std::uint64_t>(1, threadCount(threadsPerThreadgroup));
    const std::uint64_t perBlock = std::max<std::uint64_t>(
        4096, (total + m_pool->workers.size() * 8 - 1) / (m_pool->workers.size() * 8));
    job->blockSize = (perBlock + group - 1) / group * group;
    {
        std::lock_guard<std::mutex> lock(m_pool->mutex);
        m_pool->jobs.push_back(job);
    }
    m_pool->wake.notify_all();
    std::unique_lock<std::mutex> lock(job->mutex);
    job->finished.wait(lock, [&] { return job->isFinished; });
}

} // namespace MTL
