// Tells the thread sanitizer where Qt hands work and results from one thread to another. Qt is not
// instrumented, and its locks are system calls that the sanitizer does not see. These functions
// stand for Qt's of the same names in calls from our code, and call them.
//
// What is told holds between the two ends of one handover only: a task, a call or a future. Two
// threads that touch the same memory beside that are still reported.

#include <sanitizer/tsan_interface.h>

#include <QFutureInterface>
#include <QMetaObject>
#include <QThreadPool>

#include <dlfcn.h>
#include <sched.h>

#include <cstdarg>
#include <functional>
#include <utility>

namespace {

/// Qt's own function. Member functions take their object as the first argument.
template <class Function>
Function *original(const char *name)
{
    auto *const found = reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
    if (!found)
        qFatal("Qt has no function %s", name);
    return found;
}

void give(const void *place)
{
    __tsan_release(const_cast<void *>(place));
}

void take(const void *place)
{
    __tsan_acquire(const_cast<void *>(place));
}

/// Before the receiver of an event gets it.
bool takeEvent(void **receiverAndEvent)
{
    take(receiverAndEvent[0]);
    return false;
}

const bool isWatchingEvents =
    QInternal::registerCallback(QInternal::EventNotifyCallback, takeEvent);

} // namespace

extern "C" int __clone(int (*)(void *), void *, int, void *, ...) noexcept;

// Qt starts programs by a clone() that shares the memory until the new program runs. The
// sanitizer's own clone() takes this for a fork(): it watches the program no longer, and ends it at
// its next thread.
extern "C" __attribute__((visibility("default"))) int clone(int (*function)(void *), void *stack,
                                                            int flags, void *argument, ...) noexcept
{
    va_list rest;
    va_start(rest, argument);
    void *const parentId = va_arg(rest, void *);
    void *const storage = va_arg(rest, void *);
    void *const childId = va_arg(rest, void *);
    va_end(rest);
    return __clone(function, stack, flags, argument, parentId, storage, childId);
}

void QThreadPool::start(std::function<void()> work, int priority)
{
    using Start = void(QThreadPool *, std::function<void()>, int);
    static auto *const call = original<Start>("_ZN11QThreadPool5startESt8functionIFvvEEi");
    // Two pointers are kept within the function object, which Qt alone moves. What they point to is
    // read after the handover.
    auto *const task = new std::function<void()>(std::move(work));
    give(task);
    auto run = [this, task] {
        take(task);
        (*task)();
        delete task;
        give(this);
    };
    call(this, run, priority);
}

bool QThreadPool::waitForDone(int milliseconds)
{
    static auto *const call = original<bool(QThreadPool *, int)>("_ZN11QThreadPool11waitForDoneEi");
    const bool isDone = call(this, milliseconds);
    if (isDone)
        take(this);
    return isDone;
}

bool QMetaObject::invokeMethodImpl(QObject *receiver, QtPrivate::QSlotObjectBase *function,
                                   Qt::ConnectionType type, void *result)
{
    using Invoke = bool(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType, void *);
    static auto *const call = original<Invoke>(
        "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14"
        "ConnectionTypeEPv");
    give(receiver);
    return call(receiver, function, type, result);
}

void QFutureInterfaceBase::reportFinished()
{
    static auto *const call =
        original<void(QFutureInterfaceBase *)>("_ZN20QFutureInterfaceBase14reportFinishedEv");
    give(d);
    call(this);
}

void QFutureInterfaceBase::waitForResult(int index)
{
    static auto *const call =
        original<void(QFutureInterfaceBase *, int)>("_ZN20QFutureInterfaceBase13waitForResultEi");
    call(this, index);
    take(d);
}

void QFutureInterfaceBase::waitForFinished()
{
    static auto *const call =
        original<void(QFutureInterfaceBase *)>("_ZN20QFutureInterfaceBase15waitForFinishedEv");
    call(this);
    take(d);
}

bool QFutureInterfaceBase::derefT() const noexcept
{
    static auto *const call =
        original<bool(const QFutureInterfaceBase *)>("_ZNK20QFutureInterfaceBase6derefTEv");
    give(d);
    const bool isHeld = call(this);
    if (!isHeld)
        take(d);
    return isHeld;
}
