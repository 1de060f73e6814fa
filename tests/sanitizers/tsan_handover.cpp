// Preloaded into ThreadSanitizer runs with the QMutex shim. Qt queues posted events and
// OpenSceneGraph counts references inside uninstrumented libraries, so the checker sees no order
// between posting and delivery, or between the last unref and the delete on another thread.
// These stand in for the exported entry points that calls cross (from our code, or from one Qt
// library into QtCore), mark the hand-over and call the real function.
#include <atomic>
#include <dlfcn.h>
#include <osg/Referenced>
#include <sanitizer/tsan_interface.h>

namespace {

// QGenericArgument and QGenericReturnArgument as passed by value.
struct Arg {
    const char* name;
    void* data;
};

enum { BlockingQueuedConnection = 3 };
enum { MetaCallEvent = 43 };

// QtPrivate::QSlotObjectBase: a reference count, then the function that calls and destroys it.
struct SlotObject {
    std::atomic<int> ref;
    void (*impl)(int which, SlotObject* self, void* receiver, void** args, bool* ret);
};

// QEvent: vtable pointer, d pointer, then the type.
struct Event {
    void* vtable;
    void* d;
    unsigned short type;
};

// Queued signals reach their receivers through QtCore alone; every emission releases this and
// every queued call's delivery acquires it.
char g_signals;

template <typename F> F next(const char* name, const char* version = nullptr)
{
    return reinterpret_cast<F>(version ? dlvsym(RTLD_NEXT, name, version) : dlsym(RTLD_NEXT, name));
}

// Events and queued calls are ordered per receiver: posting releases it, delivery acquires it.
void posted(const void* receiver)
{
    __tsan_release(const_cast<void*>(receiver));
}

} // namespace

extern "C" {

// QCoreApplication::postEvent(QObject*, QEvent*, int)
void _ZN16QCoreApplication9postEventEP7QObjectP6QEventi(void* receiver, void* event, int priority)
{
    static const auto real = next<void (*)(void*, void*, int)>(
        "_ZN16QCoreApplication9postEventEP7QObjectP6QEventi", "Qt_5");
    posted(receiver);
    real(receiver, event, priority);
}

// QCoreApplication::notify(QObject*, QEvent*): reached through QGuiApplication::notify for every
// event a GUI application delivers, on every thread. Leaving it releases the receiver again, so
// that a blocking queued caller sees what the call wrote.
bool _ZN16QCoreApplication6notifyEP7QObjectP6QEvent(void* app, void* receiver, void* event)
{
    static const auto real = next<bool (*)(void*, void*, void*)>(
        "_ZN16QCoreApplication6notifyEP7QObjectP6QEvent", "Qt_5");
    __tsan_acquire(receiver);
    if (static_cast<Event*>(event)->type == MetaCallEvent)
        __tsan_acquire(&g_signals);
    const bool handled = real(app, receiver, event);
    __tsan_release(receiver);
    return handled;
}

// QMetaObject::invokeMethodImpl(QObject*, QtPrivate::QSlotObjectBase*, Qt::ConnectionType, void*)
bool _ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPv(
    void* object, void* slot, int type, void* ret)
{
    static const auto real = next<bool (*)(void*, void*, int, void*)>(
        "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14"
        "ConnectionTypeEPv",
        "Qt_5");
    posted(object);
    if (type != BlockingQueuedConnection)
        return real(object, slot, type, ret);
    // The caller's last reference goes inside the call, after the wait: hold one more, so that
    // the slot object (the lambda's captures) is freed after the acquire.
    auto* slotObject = static_cast<SlotObject*>(slot);
    slotObject->ref.fetch_add(1);
    const bool invoked = real(object, slot, type, ret);
    __tsan_acquire(object);
    if (slotObject->ref.fetch_sub(1) == 1)
        slotObject->impl(0, slotObject, nullptr, nullptr, nullptr);
    return invoked;
}

// QMetaObject::invokeMethod(QObject*, const char*, Qt::ConnectionType, QGenericReturnArgument,
// QGenericArgument x 10)
bool _ZN11QMetaObject12invokeMethodEP7QObjectPKcN2Qt14ConnectionTypeE22QGenericReturnArgument16QGenericArgumentS7_S7_S7_S7_S7_S7_S7_S7_S7_(
    void* object, const char* member, int type, Arg ret, Arg a0, Arg a1, Arg a2, Arg a3, Arg a4,
    Arg a5, Arg a6, Arg a7, Arg a8, Arg a9)
{
    static const auto real =
        next<bool (*)(void*, const char*, int, Arg, Arg, Arg, Arg, Arg, Arg, Arg, Arg, Arg, Arg,
                      Arg)>("_ZN11QMetaObject12invokeMethodEP7QObjectPKcN2Qt14ConnectionTypeE22"
                            "QGenericReturnArgument16QGenericArgumentS7_S7_S7_S7_S7_S7_S7_S7_S7_",
                            "Qt_5");
    posted(object);
    const bool invoked = real(object, member, type, ret, a0, a1, a2, a3, a4, a5, a6, a7, a8, a9);
    if (type == BlockingQueuedConnection)
        __tsan_acquire(object);
    return invoked;
}

// QMetaObject::activate(QObject*, int, int, void**) and its two siblings, called by the code moc
// writes for every signal.
void _ZN11QMetaObject8activateEP7QObjectiiPPv(void* sender, int offset, int index, void** args)
{
    static const auto real =
        next<void (*)(void*, int, int, void**)>("_ZN11QMetaObject8activateEP7QObjectiiPPv", "Qt_5");
    __tsan_release(&g_signals);
    real(sender, offset, index, args);
}

void _ZN11QMetaObject8activateEP7QObjectPKS_iPPv(void* sender, const void* meta, int index,
                                                 void** args)
{
    static const auto real = next<void (*)(void*, const void*, int, void**)>(
        "_ZN11QMetaObject8activateEP7QObjectPKS_iPPv", "Qt_5");
    __tsan_release(&g_signals);
    real(sender, meta, index, args);
}

void _ZN11QMetaObject8activateEP7QObjectiPPv(void* sender, int index, void** args)
{
    static const auto real =
        next<void (*)(void*, int, void**)>("_ZN11QMetaObject8activateEP7QObjectiPPv", "Qt_5");
    __tsan_release(&g_signals);
    real(sender, index, args);
}

// osg::Referenced::signalObserversAndDelete(bool, bool) const: called, also from inside libosg,
// once the count reaches zero. Every decrement our code makes is an instrumented atomic on the
// count; acquiring it orders them before the delete.
void _ZNK3osg10Referenced24signalObserversAndDeleteEbb(const void* self, bool signalDelete,
                                                       bool doDelete)
{
    static const auto real = next<void (*)(const void*, bool, bool)>(
        "_ZNK3osg10Referenced24signalObserversAndDeleteEbb");
    // vtable pointer, _observerSet, then _refCount.
    static_assert(sizeof(osg::Referenced) == 3 * sizeof(void*), "unexpected osg::Referenced");
    __tsan_acquire(const_cast<char*>(static_cast<const char*>(self)) + 2 * sizeof(void*));
    real(self, signalDelete, doDelete);
}
}
