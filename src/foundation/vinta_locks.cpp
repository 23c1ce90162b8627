#include "tav/vinta/vinta_locks.h"

#include "foundation/thread_pool.h"
#include "foundation/unshared_count.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

/// What a counter's pointer leads to: the value under a mutex of its own, the kind that a tavMutex holds, in
/// the same allocation.  `next` links a cell in a pool, where it has no value.
template <class Self, class V>
struct Cell {
    using Value = V;

    V get() {
        Guard guard(mutex);
        return value;
    }

    void set(V v) {
        Guard guard(mutex);
        value = v;
    }

    V add(V v) {
        Guard guard(mutex);
        return value += v;
    }

    V subtract(V v) {
        Guard guard(mutex);
        return value -= v;
    }

    std::size_t footprint() const noexcept { return sizeof(Self) + tav::detail::allocationCost; }

    std::recursive_mutex mutex;
    union {
        V value = 0;
        Self * next;
    };
};

/// Cells that a thread has given back and will use again.
template <class C>
struct Pool {
    using Cells = tav::detail::ThreadPool<C, sizeof(typename C::Value) <= 4 ? 12 * 1024 : 2 * 1024>;

    static C * take(typename C::Value value) {
        C * cell = Cells::take();
        if (cell == nullptr) {
            cell = new C;
        }
        cell->value = value;
        return cell;
    }

    static void give(C * cell) noexcept { Cells::give(cell); }
};

} // namespace

struct [[gnu::visibility("hidden")]] tavMutex::Impl {
    std::recursive_mutex mutex;
};

tavMutex::tavMutex() : impl_(new Impl) {}

tavMutex::~tavMutex() {
    delete impl_;
}

void tavMutex::lock() const {
    impl_->mutex.lock();
}

void tavMutex::unlock() const {
    impl_->mutex.unlock();
}

/// A thread that is woken begins by taking the lock.  So whoever signals does that behind its unlock, where
/// the woken one finds the lock free, as long as this can wake no other thread in its stead: all that wait
/// are meant, or there is but one.
struct [[gnu::visibility("hidden")]] tavMonitor::Impl {
    void lock() {
        std::thread::id const self = std::this_thread::get_id();
        if (owner.load(std::memory_order_relaxed) != self) {
            mutex.lock();
            owner.store(self, std::memory_order_relaxed);
        }
        ++depth;
    }

    void unlock() {
        if (--depth != 0) {
            return;
        }
        owner.store(std::thread::id(), std::memory_order_relaxed);
        if (!signalled) {
            mutex.unlock();
            return;
        }
        signalled = false;
        users.fetch_add(1, std::memory_order_relaxed);
        mutex.unlock();
        condition.notify_all();
        release();
    }

    /// Waits once on the condition; the caller holds the mutex.
    bool wait(int ms) {
        if (std::exchange(signalled, false)) {
            condition.notify_all();
        }
        std::chrono::milliseconds const time(static_cast<long long>(static_cast<unsigned>(ms)));
        unsigned const held = std::exchange(depth, 0);
        owner.store(std::thread::id(), std::memory_order_relaxed);
        waiters.fetch_add(1, std::memory_order_relaxed);
        std::unique_lock<std::mutex> guard(mutex, std::adopt_lock);
        std::cv_status const status = condition.wait_until(guard, std::chrono::steady_clock::now() + time);
        guard.release();
        waiters.fetch_sub(1, std::memory_order_relaxed);
        owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
        depth = held;
        return status == std::cv_status::no_timeout;
    }

    void signal(bool all) {
        unsigned const present = waiters.load(std::memory_order_relaxed);
        if (present == 0) {
            return;
        }
        if (owner.load(std::memory_order_relaxed) == std::this_thread::get_id() && (all || present == 1)) {
            signalled = true;
        } else if (all) {
            condition.notify_all();
        } else {
            condition.notify_one();
        }
    }

    /// The last one of the monitor and those that still signal ends it.
    void release() noexcept {
        if (users.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }

    std::mutex mutex;
    std::condition_variable condition;
    /// Who holds the mutex, and how often.
    std::atomic<std::thread::id> owner{std::thread::id()};
    unsigned depth = 0;
    /// All that wait are to be woken with the unlock.
    bool signalled = false;
    /// Changed by holders of the mutex only, so a signaller who holds it and sees 0 has nobody to wake.
    std::atomic<unsigned> waiters{0};
    std::atomic<unsigned> users{1};
};

tavMonitor::tavMonitor() : impl_(new Impl) {}

tavMonitor::~tavMonitor() {
    impl_->release();
}

void tavMonitor::lock() const {
    impl_->lock();
}

void tavMonitor::unlock() const {
    impl_->unlock();
}

bool tavMonitor::wait(int ms) const {
    std::lock_guard<tavMonitor const> guard(*this);
    return impl_->wait(ms);
}

bool tavMonitor::waitInLock(int ms) const {
    return impl_->wait(ms);
}

void tavMonitor::signal() const {
    std::lock_guard<tavMonitor const> guard(*this);
    impl_->signal(false);
}

void tavMonitor::signalAll() const {
    std::lock_guard<tavMonitor const> guard(*this);
    impl_->signal(true);
}

void tavMonitor::signalInLock() const {
    impl_->signal(false);
}

void tavMonitor::signalAllInLock() const {
    impl_->signal(true);
}

namespace {

/// Whether the next count that this thread makes is that of an object which nobody else knows.
[[gnu::tls_model("initial-exec")]] thread_local bool nextIsUnshared = false;

} // namespace

void tav::detail::nextCountIsUnshared() noexcept {
    nextIsUnshared = true;
}

struct [[gnu::visibility("hidden")]] tavAtomicInt::Impl : Cell<Impl, unsigned> {
    /// From the pool, or within an object: that nobody but its maker knows, with one reference, which whoever
    /// holds it has not given on to a second, or any other.
    enum class State : unsigned char { pooled, unknown, sole, known };

    static Impl * at(Place & place) noexcept {
        static_assert(sizeof(Impl) <= sizeof place.bytes && alignof(Impl) <= alignof(Place),
                      "the place is large enough");
        Impl * const made = new (place.bytes) Impl;
        made->become(nextIsUnshared ? State::unknown : State::known);
        nextIsUnshared = false;
        return made;
    }

    bool is(State which) const noexcept {
        return state.load(std::memory_order_relaxed) == which;
    }
    void become(State which) noexcept {
        state.store(which, std::memory_order_relaxed);
    }

    /// Adds a reference.  The first one of an object that nobody knows is taken ahead of the moment at which
    /// other threads learn of it, and so without the lock.
    void refer() {
        if (is(State::unknown)) {
            value = 1;
            become(State::sole);
            return;
        }
        Guard guard(mutex);
        become(State::known);
        ++value;
    }

    /// Takes a reference away; true if it was the last.  A second one is made of the first while that is
    /// held: when the first goes and there was never another, nobody is left who could take the lock.
    bool release() {
        if (is(State::sole)) {
            value = 0;
            become(State::known);
            return true;
        }
        return subtract(1) == 0;
    }

    std::atomic<State> state{State::pooled};
};

tavAtomicInt::tavAtomicInt() : impl_(Pool<Impl>::take(0)) {}

tavAtomicInt::tavAtomicInt(unsigned v) : impl_(Pool<Impl>::take(v)) {}

tavAtomicInt::tavAtomicInt(tavAtomicInt const & other) : impl_(Pool<Impl>::take(other.get())) {}

tavAtomicInt::tavAtomicInt(Place & place) noexcept : impl_(Impl::at(place)) {}

tavAtomicInt::~tavAtomicInt() {
    if (!impl_->is(Impl::State::pooled)) {
        impl_->~Impl();
    } else {
        Pool<Impl>::give(impl_);
    }
}

unsigned tavAtomicInt::get() const {
    return impl_->get();
}

void tavAtomicInt::set(unsigned v) {
    impl_->set(v);
}

tavAtomicInt & tavAtomicInt::operator=(unsigned v) {
    set(v);
    return *this;
}

tavAtomicInt & tavAtomicInt::operator=(tavAtomicInt const & other) {
    if (this != &other) {
        set(other.get());
    }
    return *this;
}

unsigned tavAtomicInt::operator++() {
    return impl_->add(1);
}

unsigned tavAtomicInt::operator--() {
    return impl_->subtract(1);
}

unsigned tavAtomicInt::operator+=(unsigned v) {
    return impl_->add(v);
}

unsigned tavAtomicInt::operator-=(unsigned v) {
    return impl_->subtract(v);
}

struct [[gnu::visibility("hidden")]] tavAtomicInt64::Impl : Cell<Impl, unsigned long long>{};

tavAtomicInt64::tavAtomicInt64() : impl_(Pool<Impl>::take(0)) {}

tavAtomicInt64::tavAtomicInt64(unsigned long long v) : impl_(Pool<Impl>::take(v)) {}

tavAtomicInt64::tavAtomicInt64(tavAtomicInt64 const & other) : impl_(Pool<Impl>::take(other.get())) {}

tavAtomicInt64::~tavAtomicInt64() {
    Pool<Impl>::give(impl_);
}

unsigned long long tavAtomicInt64::get() const {
    return impl_->get();
}

void tavAtomicInt64::set(unsigned long long v) {
    impl_->set(v);
}

tavAtomicInt64 & tavAtomicInt64::operator=(unsigned long long v) {
    set(v);
    return *this;
}

tavAtomicInt64 & tavAtomicInt64::operator=(tavAtomicInt64 const & other) {
    if (this != &other) {
        set(other.get());
    }
    return *this;
}

unsigned long long tavAtomicInt64::operator++() {
    return impl_->add(1);
}

unsigned long long tavAtomicInt64::operator--() {
    return impl_->subtract(1);
}

unsigned long long tavAtomicInt64::operator+=(unsigned long long v) {
    return impl_->add(v);
}

unsigned long long tavAtomicInt64::operator-=(unsigned long long v) {
    return impl_->subtract(v);
}

tavAtomicLong::tavAtomicLong() = default;

unsigned long long tavAtomicLong::get() const {
    unsigned long long const high = high_.get();
    return high << 32 | low_.get();
}

unsigned long long tavAtomicLong::operator++() {
    return *this += 1;
}

unsigned long long tavAtomicLong::operator+=(int v) {
    unsigned const before = low_.get();
    low_ += static_cast<unsigned>(v);
    if (low_.get() < before) {
        ++high_;
    }
    return get();
}

void tavRefCountObject::incRefCount() noexcept {
    refCount_.impl_->refer();
}

void tavRefCountObject::decRefCount() noexcept {
    if (refCount_.impl_->release()) {
        delete this;
    }
}

unsigned tavRefCountObject::getRefCount() const noexcept {
    return refCount_.impl_->is(tavAtomicInt::Impl::State::sole) ? 1 : refCount_.get();
}

void tavRefCountObject::swap(tavRefCountObject & other) noexcept {
    refCount_.impl_->become(tavAtomicInt::Impl::State::known);
    other.refCount_.impl_->become(tavAtomicInt::Impl::State::known);
    unsigned const mine = refCount_.get();
    refCount_ = other.refCount_;
    other.refCount_ = mine;
}

tavRefCountObject::~tavRefCountObject() = default;

tavSharedObject::~tavSharedObject() = default;
