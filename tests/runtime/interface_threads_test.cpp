#include "tav/vinta/vinta_mt_thread.h"

#include "tav/vinta/vinta_log.h"

#include "support/exact.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <iomanip>
#include <ios>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

using tav_test::ConstOp;
using tav_test::exact;
using tav_test::implicit;
using tav_test::isCopied;
using tav_test::made;
using tav_test::onlyExplicit;
using tav_test::Op;

// What applications compile and link against: locks, shared ownership, threads, queues and the log.

extern "C" {
// The linkage is that of C; a header that says otherwise contradicts these.
decltype(tav_log_setup) tav_log_setup;
decltype(tav_log_trace_) tav_log_trace_;
decltype(tav_log_verbose_) tav_log_verbose_;
decltype(tav_log_debug_) tav_log_debug_;
decltype(tav_log_info_) tav_log_info_;
decltype(tav_log_warn_) tav_log_warn_;
decltype(tav_log_error_) tav_log_error_;
decltype(tav_log_out_) tav_log_out_;
}

namespace {

template <class T>
constexpr bool fixed = !std::is_copy_constructible<T>::value && !std::is_copy_assignable<T>::value &&
                       !std::is_move_constructible<T>::value && !std::is_move_assignable<T>::value;

template <class T>
constexpr bool locks = exact<ConstOp<T, void>>(&T::lock) && exact<ConstOp<T, void>>(&T::unlock);

/// An atomic number that is an N.
template <class T, class N>
constexpr bool atomic = std::is_default_constructible<T>::value && isCopied<T> && implicit<T, N> &&
                            exact<ConstOp<T, N>>(&T::get) &&
                        exact<Op<T, void, N>>(&T::set) && exact<Op<T, T &, N>>(&T::operator=) &&
                        exact<Op<T, T &, T const &>>(&T::operator=) && exact<Op<T, N>>(&T::operator++) &&
                        exact<Op<T, N>>(&T::operator--) && exact<Op<T, N, N>>(&T::operator+=) &&
                        exact<Op<T, N, N>>(&T::operator-=);

struct Base : tavRefCountObject {
    int number = 0;
};
struct Derived : Base {};
struct Shared : tavSharedObject {};
struct Fixed : tavNonCopyable {};

using Pointer = tavSharedPtr<Base>;
using ConstPointer = tavSharedPtr<Base const>;
using DerivedPointer = tavSharedPtr<Derived>;

} // namespace

static_assert(fixed<Fixed> && !std::is_default_constructible<tavNonCopyable>::value, "");
static_assert(!std::is_destructible<tavNonCopyable>::value && !std::is_polymorphic<tavNonCopyable>::value,
              "");
static_assert(std::is_default_constructible<tavMutex>::value && fixed<tavMutex> && locks<tavMutex>, "");
static_assert(std::is_default_constructible<tavNullMutex>::value && locks<tavNullMutex>, "");
static_assert(std::is_default_constructible<tavMonitor>::value && fixed<tavMonitor> && locks<tavMonitor>, "");
static_assert(exact<ConstOp<tavMonitor, bool, int>>(&tavMonitor::wait), "");
static_assert(exact<ConstOp<tavMonitor, bool, int>>(&tavMonitor::waitInLock), "");
static_assert(exact<ConstOp<tavMonitor, void>>(&tavMonitor::signal), "");
static_assert(exact<ConstOp<tavMonitor, void>>(&tavMonitor::signalAll), "");
static_assert(exact<ConstOp<tavMonitor, void>>(&tavMonitor::signalInLock), "");
static_assert(exact<ConstOp<tavMonitor, void>>(&tavMonitor::signalAllInLock), "");
static_assert(sizeof(tavMutex) == sizeof(void *) && sizeof(tavMonitor) == sizeof(void *), "");
static_assert(sizeof(tavAtomicInt) == sizeof(void *), "");

static_assert(atomic<tavAtomicInt, unsigned> && implicit<tavAtomicInt, int>, "");
static_assert(atomic<tavAtomicInt64, unsigned long long> && implicit<tavAtomicInt64, int>, "");
static_assert(std::is_default_constructible<tavAtomicLong>::value && isCopied<tavAtomicLong>, "");
static_assert(exact<ConstOp<tavAtomicLong, unsigned long long>>(&tavAtomicLong::get), "");
static_assert(exact<Op<tavAtomicLong, unsigned long long>>(&tavAtomicLong::operator++), "");
static_assert(exact<Op<tavAtomicLong, unsigned long long, int>>(&tavAtomicLong::operator+=), "");

static_assert(std::is_polymorphic<tavRefCountObject>::value, "");
static_assert(std::has_virtual_destructor<tavRefCountObject>::value, "");
static_assert(!std::is_destructible<tavRefCountObject>::value, "only its count destroys an object");
static_assert(std::is_nothrow_default_constructible<Base>::value, "");
static_assert(std::is_nothrow_copy_constructible<Base>::value && std::is_nothrow_copy_assignable<Base>::value,
              "");
static_assert(exact<void (tavRefCountObject::*)() noexcept>(&tavRefCountObject::incRefCount), "");
static_assert(exact<void (tavRefCountObject::*)() noexcept>(&tavRefCountObject::decRefCount), "");
static_assert(exact<unsigned (tavRefCountObject::*)() const noexcept>(&tavRefCountObject::getRefCount), "");
static_assert(exact<void (tavRefCountObject::*)(tavRefCountObject &) noexcept>(&tavRefCountObject::swap), "");
static_assert(std::is_base_of<tavRefCountObject, tavSharedObject>::value, "");
static_assert(!std::is_destructible<tavSharedObject>::value && isCopied<Shared>, "");

static_assert(std::is_nothrow_default_constructible<Pointer>::value && isCopied<Pointer>, "");
static_assert(std::is_nothrow_constructible<Pointer, std::nullptr_t>::value, "");
static_assert(implicit<Pointer, std::nullptr_t> && implicit<Pointer, Base *>, "");
static_assert(implicit<Pointer, Derived *> && !made<DerivedPointer, Base *>, "");
static_assert(made<Pointer, Base *, bool> && made<ConstPointer, Base const *, bool>, "");
static_assert(std::is_nothrow_move_constructible<Pointer>::value, "");
static_assert(std::is_nothrow_move_assignable<Pointer>::value, "");
static_assert(implicit<Pointer, DerivedPointer> && implicit<Pointer, DerivedPointer const &>, "");
static_assert(std::is_nothrow_constructible<Pointer, DerivedPointer &&>::value, "");
static_assert(implicit<ConstPointer, Pointer> && !made<Pointer, ConstPointer>, "");
static_assert(!made<DerivedPointer, Pointer> && !made<DerivedPointer, Pointer const &>, "");
static_assert(!made<tavSharedPtr<Shared>, Pointer>, "");
static_assert(std::is_assignable<Pointer &, DerivedPointer>::value, "");
static_assert(std::is_assignable<Pointer &, std::nullptr_t>::value, "");
static_assert(std::is_assignable<Pointer &, Base *>::value, "");
static_assert(exact<Op<Pointer, Pointer &, Pointer const &>>(&Pointer::operator=), "");
static_assert(exact<Pointer & (Pointer::*)(Pointer &&) noexcept>(&Pointer::operator=), "");
static_assert(exact<Base * (Pointer::*)() const noexcept>(&Pointer::operator->), "");
static_assert(exact<Base & (Pointer::*)() const noexcept>(&Pointer::operator*), "");
static_assert(exact<Base * (Pointer::*)() const noexcept>(&Pointer::get), "");
static_assert(exact<Base const * (ConstPointer::*)() const noexcept>(&ConstPointer::get), "");
static_assert(exact<bool (Pointer::*)() const noexcept>(&Pointer::counted), "");
static_assert(exact<bool (Pointer::*)() const noexcept>(&Pointer::operator bool), "");
static_assert(onlyExplicit<bool, Pointer>, "the truth value is explicit");
static_assert(exact<bool (Pointer::*)() const noexcept>(&Pointer::operator!), "");
static_assert(exact<void (Pointer::*)() noexcept>(&Pointer::reset), "");
static_assert(exact<void (Pointer::*)(Pointer &) noexcept>(&Pointer::swap), "");
static_assert(exact<bool (*)(Pointer const &, DerivedPointer const &)>(&::operator==), "");
static_assert(exact<bool (*)(Pointer const &, DerivedPointer const &)>(&::operator!=), "");
static_assert(exact<bool (*)(Pointer const &, Pointer const &)>(&::operator==), "");
static_assert(exact<bool (*)(Pointer const &, Pointer const &)>(&::operator!=), "");
static_assert(exact<bool (*)(Pointer const &, std::nullptr_t)>(&::operator==), "");
static_assert(exact<bool (*)(Pointer const &, std::nullptr_t)>(&::operator!=), "");
static_assert(exact<bool (*)(std::nullptr_t, Pointer const &)>(&::operator==), "");
static_assert(exact<bool (*)(std::nullptr_t, Pointer const &)>(&::operator!=), "");
static_assert(exact<bool (*)(Pointer const &, Pointer const &)>(&::operator<), "");

static_assert(implicit<tavRefCountObject &, tavThread &> && std::is_abstract<tavThread>::value, "");
static_assert(std::has_virtual_destructor<tavThread>::value && std::is_destructible<tavThread>::value, "");
static_assert(exact<Op<tavThread, bool>>(&tavThread::on_loop), "");
static_assert(exact<Op<tavThread, void>>(&tavThread::on_stop), "");
static_assert(exact<Op<tavThread, bool>>(&tavThread::on_open), "");
static_assert(exact<Op<tavThread, void>>(&tavThread::on_close), "");
static_assert(exact<Op<tavThread, void>>(&tavThread::start), "");
static_assert(exact<Op<tavThread, void>>(&tavThread::stopRunning), "");
static_assert(exact<Op<tavThread, void>>(&tavThread::close), "");
static_assert(exact<Op<tavThread, void>>(&tavThread::detach), "");
static_assert(exact<Op<tavThread, void>>(&tavThread::run_internally), "");
static_assert(exact<ConstOp<tavThread, bool>>(&tavThread::running), "");
static_assert(exact<ConstOp<tavThread, bool>>(&tavThread::started), "");
static_assert(exact<ConstOp<tavThread, bool>>(&tavThread::broken), "");
static_assert(exact<ConstOp<tavThread, bool>>(&tavThread::loopRunning), "");
static_assert(exact<ConstOp<tavThread, tav_istr>>(&tavThread::name), "");
static_assert(exact<ConstOp<tavThread, std::string>>(&tavThread::id), "");
static_assert(locks<tavThread>, "");
static_assert(exact<ConstOp<tavThread, bool, int>>(&tavThread::wait), "");
static_assert(exact<ConstOp<tavThread, bool, int>>(&tavThread::waitInLock), "");
static_assert(exact<ConstOp<tavThread, void>>(&tavThread::notify), "");
static_assert(exact<ConstOp<tavThread, void>>(&tavThread::notifyAll), "");
static_assert(exact<ConstOp<tavThread, void>>(&tavThread::notifyInLock), "");
static_assert(exact<ConstOp<tavThread, void>>(&tavThread::notifyAllInLock), "");
static_assert(exact<tavSharedPtr<tavThread> (*)()>(&tavThread::current), "");
static_assert(exact<std::string (*)()>(&tavThread::currentId), "");
static_assert(exact<tavString (*)()>(&tavThread::currentName), "");
static_assert(exact<tavString (*)(tav_istr)>(&tavThread::createThreadName), "");
static_assert(exact<std::string (*)(std::thread::id)>(&tavThread::getThreadId), "");
static_assert(exact<tavString (*)(std::shared_ptr<std::thread>)>(&tavThread::getThreadName), "");
static_assert(exact<void (*)(char const *)>(&tavThread::setCurrentName), "");
static_assert(exact<void (*)()>(&tavThread::printThreads), "");
static_assert(exact<void (*)()>(&tavThread::finalize), "");
static_assert(exact<std::ostream & (*)(std::ostream &, tavThread const &)>(&::operator<<), "");

namespace {

/// Only what every thread has to say.
struct Idle : tavThread {
    using tavThread::tavThread;
    bool on_loop() override { return false; }
};

using Yes = std::function<bool()>;
using Action = std::function<void()>;
using Queue = tavMsgQueueThread<std::string>;

/// A thread class that overrides all of the four operations itself.
template <class T>
constexpr bool thread =
    std::is_base_of<tavThread, T>::value && !std::is_abstract<T>::value && exact<Op<T, bool>>(&T::on_loop) &&
    exact<Op<T, void>>(&T::on_stop) && exact<Op<T, bool>>(&T::on_open) && exact<Op<T, void>>(&T::on_close);

} // namespace

static_assert(onlyExplicit<Idle, tav_istr> && !std::is_default_constructible<Idle>::value, "");
static_assert(thread<tavThread_> && made<tavThread_, tav_istr, Yes, Action, Yes, Action>, "");
static_assert(!made<tavThread_, tav_istr, Yes, Action, Yes>, "");
static_assert(made<tavThread_, char const *, Yes, std::nullptr_t, std::nullptr_t, std::nullptr_t>, "");
static_assert(thread<tavTimerThread>, "");
static_assert(made<tavTimerThread, tav_istr, int, std::function<bool(bool)>, Action, int>, "");
static_assert(!made<tavTimerThread, tav_istr, int, std::function<bool(bool)>, Action>, "");

static_assert(made<tavTaskQueue, tav_istr, int> && fixed<tavTaskQueue>, "");
static_assert(!std::is_base_of<tavRefCountObject, tavTaskQueue>::value, "");
static_assert(exact<Op<tavTaskQueue, void>>(&tavTaskQueue::start), "");
static_assert(exact<Op<tavTaskQueue, void, Action>>(&tavTaskQueue::put), "");
static_assert(exact<Op<tavTaskQueue, void>>(&tavTaskQueue::close), "");
static_assert(exact<Op<tavTaskQueue, bool>>(&tavTaskQueue::on_loop), "");
static_assert(exact<Op<tavTaskQueue, void>>(&tavTaskQueue::on_stop), "");

static_assert(std::is_base_of<tavThread, Queue>::value && !std::is_abstract<Queue>::value, "");
static_assert(made<Queue, tav_istr, int, std::function<void(std::string const &)>>, "");
static_assert(!made<Queue, tav_istr, int>, "");
static_assert(exact<Op<Queue, void, std::string const &>>(&Queue::put), "");
static_assert(exact<Op<Queue, void, std::string &&>>(&Queue::put), "");
static_assert(exact<Op<Queue, void>>(&Queue::flush), "");
static_assert(exact<Op<Queue, bool>>(&Queue::on_loop), "");
static_assert(exact<Op<Queue, void>>(&Queue::on_stop), "");

static_assert(exact<std::shared_ptr<std::thread> (*)(Action, std::string, int)>(&tav_async_run), "");
static_assert(exact<void (*)(Action, std::string, int)>(&tav_async_call), "");
static_assert(exact<unsigned (*)()>(&tav_get_tid) && exact<unsigned (*)()>(&tav_get_pid), "");

using Level = tavLogger::LogLevel;
using Callback = tavLogger::Callback;
using Text = char const *;
static_assert(std::is_enum<Level>::value && implicit<int, Level>, "the levels are plain numbers");
static_assert(tavLogger::ALL == 0 && tavLogger::TRACE == 1 && tavLogger::VERBOSE == 2, "");
static_assert(tavLogger::DEBUG == 3 && tavLogger::INFO == 4 && tavLogger::WARN == 5, "");
static_assert(tavLogger::ERROR == 6 && tavLogger::ASSERT == 7 && tavLogger::OUT == 100, "");
static_assert(tavLogger::NONE == 255 && tavLogger::UNKNOWN == -1, "");
static_assert(std::is_same<Callback, void (*)(int, char const *)>::value, "");
static_assert(std::is_default_constructible<tavLogger>::value, "");
static_assert(exact<tav_istr (*)()>(&tavLogger::DEFAULT_TAG), "");
static_assert(
    exact<void (*)(tav_istr, tav_istr, tav_istr, Callback, tav_istr, int, bool, Level)>(&tavLogger::open),
    "");
static_assert(exact<void (*)(tav_istr, Callback, bool, Level)>(&tavLogger::setup), "");
static_assert(exact<void (*)()>(&tavLogger::close) && exact<void (*)()>(&tavLogger::flush), "");
static_assert(exact<void (*)()>(&tavLogger::finalize), "");
static_assert(exact<bool (*)(tav_istr, Level)>(&tavLogger::isLoggable), "");
static_assert(exact<void (*)(tav_istr)>(&tavLogger::setLogLevel), "");
static_assert(exact<void (*)(tav_istr, Level)>(&tavLogger::setLogLevel), "");
static_assert(exact<void (*)(Level)>(&tavLogger::setLogLevel), "");
static_assert(exact<void (*)(Callback)>(&tavLogger::setCallback), "");
static_assert(exact<void (*)(tav_istr, Level, tav_istr, Text, int, Text)>(&tavLogger::writeLog), "");
static_assert(exact<tavString (*)()>(&tavLogger::str), "");
static_assert(exact<std::ostream & (*)(std::ostream &, tavLogger const &)>(&::operator<<), "");

static_assert(exact<void (*)(Text)>(&tav_log_setup), "");
static_assert(exact<void (*)(Text, Text, int, Text)>(&tav_log_trace_), "");
static_assert(exact<void (*)(Text, Text, int, Text)>(&tav_log_verbose_), "");
static_assert(exact<void (*)(Text, Text, int, Text)>(&tav_log_debug_), "");
static_assert(exact<void (*)(Text, Text, int, Text)>(&tav_log_info_), "");
static_assert(exact<void (*)(Text, Text, int, Text)>(&tav_log_warn_), "");
static_assert(exact<void (*)(Text, Text, int, Text)>(&tav_log_error_), "");
static_assert(exact<void (*)(Text, Text, int, Text)>(&tav_log_out_), "");

namespace {

template <class T>
constexpr bool printer =
    std::is_default_constructible<T>::value && exact<Op<T, T &, int const &>>(&T::operator<<) &&
    exact<Op<T, T &, tavString const &>>(&T::operator<<) && exact<ConstOp<T, std::string>>(&T::str) &&
    exact<void (*)(std::string)>(&T::print) && exact<void (*)(std::string)>(&T::println);

} // namespace

static_assert(printer<tav::console> && printer<tav::debugger>, "");

TEST(InterfaceThreads, LocksWorkWithTheGuardsOfTheLibrary) {
    tavMutex const mutex;
    tavMonitor const monitor;
    tavNullMutex const none;
    std::lock_guard<tavMutex const> a(mutex);
    std::unique_lock<tavMonitor const> b(monitor);
    std::lock_guard<tavNullMutex const> c(none);
    EXPECT_TRUE(b.owns_lock());
}

TEST(InterfaceThreads, AtomicsAreAssignedNumbersOfEveryKind) {
    tavAtomicInt small = 3;
    small = 5;
    small += 2;
    EXPECT_EQ(--small, 6u);
    tavAtomicInt64 wide(small.get());
    wide = tavAtomicInt64(7);
    EXPECT_EQ(++wide, 8u);
}

TEST(InterfaceThreads, PointersCompareConvertAndSort) {
    Pointer const base = new Derived;
    DerivedPointer const derived(static_cast<Derived *>(base.get()));
    ConstPointer const constant = derived;
    EXPECT_TRUE(base == derived && constant == base && base != nullptr && nullptr != base);
    EXPECT_EQ(base->getRefCount(), 3u);
    Pointer uncounted(base.get(), false);
    EXPECT_EQ((*base).getRefCount(), 3u);
    EXPECT_TRUE(uncounted && !uncounted.counted());
    uncounted = nullptr;
    EXPECT_TRUE(!uncounted && uncounted == nullptr && nullptr == uncounted);
    std::map<Pointer, int> sorted;
    sorted[base] = 1;
    EXPECT_EQ(sorted[derived], 1);
}

TEST(InterfaceThreads, QueuesTakeCopiesAndTemporaries) {
    std::string got;
    {
        tavSharedPtr<Queue> queue(new Queue("queue", 1, [&got](std::string const & item) { got += item; }));
        std::string const kept = "a";
        queue->put(kept);
        queue->put("b");
        queue->put(std::string("c"));
        queue->flush();
    }
    EXPECT_EQ(got, "abc");
}

TEST(InterfaceThreads, ThreadsAreWrittenInAClassOrWithFunctions) {
    tavSharedPtr<tavThread> idle(new Idle("idle"));
    idle->start();
    idle->close();
    std::atomic<int> loops{0};
    tavSharedPtr<tavThread> made(new tavThread_(
        "made", [&loops] { return ++loops < 3; }, nullptr, nullptr, nullptr));
    made->start();
    for (int i = 0; i < 2000 && loops < 3; ++i) {
        made->wait(5);
    }
    made->close();
    EXPECT_EQ(loops, 3);
    EXPECT_EQ(tavThread::currentId(), tavThread::getThreadId(std::this_thread::get_id()));
}

TEST(InterfaceThreads, PrintersAreTemporariesAndTakeManipulators) {
    std::string const line =
        (tav::debugger() << 1 << "a" << std::setw(3) << tavString("b").size() << std::hex << 16 << std::endl)
            .str();
    EXPECT_TRUE(tav_istr(line).endWith(" --- 1a  110\n")) << line;
}
