// Preloaded into ThreadSanitizer runs with the QMutex shim. Qt queues posted events and
// OpenSceneGraph counts references inside uninstrumented libraries, so the checker sees no order
// between posting and delivery, or between the last unref and the delete on another thread.
// These stand in for the exported entry points that calls cross (from our code, or from one Qt
// library into QtCore), mark the hand-over and call the real function.
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
    int ref;
    void (*impl)(int which, SlotObject* self, void* receiver, void** args, bool* ret);
};

// Adds to a slot object's count as QtCore does, out of the checker's sight like QtCore's own
// changes: a visible change would race with the delete in QtCore that the count orders.
int addToRef(SlotObject* slot, int delta)
{
    int old = delta;
    asm volatile("lock xaddl %0, %1" : "+r"(old), "+m"(slot->ref) : : "memory");
    return old;
}

// QEvent: vtable pointer, d pointer, then the type.
struct Event {
    void* vtable;
    void* d;
    unsigned short type;
};

// Queued signals reach their receivers through QtCore alone; every emission releases this and
// every queued call's delivery acquires it.
char g_signals;

// Emitting reads the sender's connections, which connecting wrote under a lock inside QtCore.
void emitting(void* sender)
{
    __tsan_acquire(sender);
    __tsan_release(&g_signals);
}

// Queued arguments are copied inside the call: release again after it, for a receiver that
// has not run yet.
void emitted()
{
    __tsan_release(&g_signals);
}

// QMetaObject::Connection as returned: through a hidden pointer, as for any class with a
// destructor of its own.
struct Connection {
    void* d;
    ~Connection() {}
};

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
    // The caller's reference may be the last and go inside the call, after the receiver ran the
    // lambda: hold one more, so that the slot object (the lambda's captures) is freed here after
    // an acquire.
    auto* slotObject = static_cast<SlotObject*>(slot);
    addToRef(slotObject, 1);
    const bool invoked = real(object, slot, type, ret);
    if (type == BlockingQueuedConnection)
        __tsan_acquire(object);
    if (addToRef(slotObject, -1) == 1) {
        __tsan_acquire(object);
        slotObject->impl(0, slotObject, nullptr, nullptr, nullptr);
    }
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
    emitting(sender);
    real(sender, offset, index, args);
    emitted();
}

void _ZN11QMetaObject8activateEP7QObjectPKS_iPPv(void* sender, const void* meta, int index,
                                                 void** args)
{
    static const auto real = next<void (*)(void*, const void*, int, void**)>(
        "_ZN11QMetaObject8activateEP7QObjectPKS_iPPv", "Qt_5");
    emitting(sender);
    real(sender, meta, index, args);
    emitted();
}

void _ZN11QMetaObject8activateEP7QObjectiPPv(void* sender, int index, void** args)
{
    static const auto real =
        next<void (*)(void*, int, void**)>("_ZN11QMetaObject8activateEP7QObjectiPPv", "Qt_5");
    emitting(sender);
    real(sender, index, args);
    emitted();
}

// QObject::connectImpl(const QObject*, void**, const QObject*, void**, QSlotObjectBase*,
// Qt::ConnectionType, const int*, const QMetaObject*): what the connect templates call.
Connection
_ZN7QObject11connectImplEPKS_PPvS1_S3_PN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPKiPK11QMetaObject(
    const void* sender, void** signal, const void* receiver, void** slot, void* slotObject,
    int type, const int* types, const void* senderMeta)
{
    static const auto real = next<Connection (*)(const void*, void**, const void*, void**, void*,
                                                 int, const int*, const void*)>(
        "_ZN7QObject11connectImplEPKS_PPvS1_S3_PN9QtPrivate15QSlotObjectBaseEN2Qt14"
        "ConnectionTypeEPKiPK11QMetaObject",
        "Qt_5");
    __tsan_release(const_cast<void*>(sender));
    return real(sender, signal, receiver, slot, slotObject, type, types, senderMeta);
}

// QObject::connect(const QObject*, const char*, const QObject*, const char*, Qt::ConnectionType)
Connection _ZN7QObject7connectEPKS_PKcS1_S3_N2Qt14ConnectionTypeE(const void* sender,
                                                                  const char* signal,
                                                                  const void* receiver,
                                                                  const char* method, int type)
{
    static const auto real =
        next<Connection (*)(const void*, const char*, const void*, const char*, int)>(
            "_ZN7QObject7connectEPKS_PKcS1_S3_N2Qt14ConnectionTypeE", "Qt_5");
    __tsan_release(const_cast<void*>(sender));
    return real(sender, signal, receiver, method, type);
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
