#ifndef TAV_VINTA_LOCKS_H
#define TAV_VINTA_LOCKS_H

#include "tav/vinta/vinta_api.h"

#include <cstddef>
#include <functional>
#include <mutex>
#include <type_traits>
#include <utility>

/// Locks, counters under a lock, and intrusive shared ownership.  Each class keeps its implementation behind
/// one pointer, so that its size never changes.  A platform error from a lock, an unlock or a wait raises
/// std::system_error.

/// A base for classes that must not be copied.
class TAV_API tavNonCopyable {
protected:
    tavNonCopyable() = default;
    ~tavNonCopyable() = default;

private:
    tavNonCopyable(tavNonCopyable const &) = delete;
    tavNonCopyable & operator=(tavNonCopyable const &) = delete;
};

/// A recursive mutex: the same thread may lock it repeatedly and must unlock it as often.
/// Thread safety: all operations.
class TAV_API tavMutex {
public:
    /// Raises std::bad_alloc when memory is short.
    tavMutex();
    ~tavMutex();
    tavMutex(tavMutex const &) = delete;
    tavMutex & operator=(tavMutex const &) = delete;

    void lock() const;
    void unlock() const;

private:
    struct Impl;
    Impl * impl_;
};

/// The argument for a template that needs no locking.
class TAV_API tavNullMutex {
public:
    void lock() const {}
    void unlock() const {}
};

/// A recursive mutex with a condition variable.  Lock, test the condition, waitInLock, test again, unlock; on
/// the other side lock, change the state, signalInLock, unlock.  A wake-up may be spurious: test again.
/// Thread safety: all operations.
class TAV_API tavMonitor {
public:
    tavMonitor();
    ~tavMonitor();
    tavMonitor(tavMonitor const &) = delete;
    tavMonitor & operator=(tavMonitor const &) = delete;

    void lock() const;
    void unlock() const;

    /// Locks, waits once, unlocks.  `ms` is taken as unsigned milliseconds: 0 is a deadline already passed,
    /// -1 is 49.7 days.  True if the wait ended by a signal (or spuriously), false if the time ran out.
    bool wait(int ms) const;

    /// The same for a caller who holds the lock once: it is released during the wait and held again after it.
    bool waitInLock(int ms) const;

    /// Locks, wakes one waiter, unlocks.
    void signal() const;

    /// Locks, wakes all waiters, unlocks.
    void signalAll() const;

    /// Wakes one waiter, for a caller who holds the lock.
    void signalInLock() const;

    /// Wakes all waiters, for a caller who holds the lock.
    void signalAllInLock() const;

private:
    struct Impl;
    Impl * impl_;
};

/// A 32-bit counter under a mutex of its own; it wraps around.  Operators return the new value.
/// Thread safety: all operations but destruction; an assignment never holds two locks.
class TAV_API tavAtomicInt {
public:
    tavAtomicInt();
    tavAtomicInt(unsigned v);
    tavAtomicInt(tavAtomicInt const & other);
    ~tavAtomicInt();

    unsigned get() const;
    void set(unsigned v);
    tavAtomicInt & operator=(unsigned v);

    /// Reads `other` under its lock, and then writes under its own.
    tavAtomicInt & operator=(tavAtomicInt const & other);

    unsigned operator++();
    unsigned operator--();
    unsigned operator+=(unsigned v);
    unsigned operator-=(unsigned v);

private:
    friend class tavRefCountObject;

    /// Memory for the implementation, of one who keeps it within.
    struct Place {
        Place() noexcept {}
        alignas(std::recursive_mutex) unsigned char bytes[sizeof(std::recursive_mutex) + 2 * sizeof(void *)];
    };
    /// 0, with the implementation at `place`.
    explicit tavAtomicInt(Place & place) noexcept;

    struct Impl;
    Impl * impl_;
};

/// The same with 64 bits.
class TAV_API tavAtomicInt64 {
public:
    tavAtomicInt64();
    tavAtomicInt64(unsigned long long v);
    tavAtomicInt64(tavAtomicInt64 const & other);
    ~tavAtomicInt64();

    unsigned long long get() const;
    void set(unsigned long long v);
    tavAtomicInt64 & operator=(unsigned long long v);

    /// Reads `other` under its lock, and then writes under its own.
    tavAtomicInt64 & operator=(tavAtomicInt64 const & other);

    unsigned long long operator++();
    unsigned long long operator--();
    unsigned long long operator+=(unsigned long long v);
    unsigned long long operator-=(unsigned long long v);

private:
    struct Impl;
    Impl * impl_;
};

/// A 64-bit counter of two words.  An addition is several steps: two concurrent ones around a carry may
/// return the same value, so it serves callers who can bear that.
class TAV_API tavAtomicLong {
public:
    tavAtomicLong();

    unsigned long long get() const;
    unsigned long long operator++();

    /// Adds `v` to the low word.  The high word goes up whenever the low word got less, also by a negative
    /// `v`.
    unsigned long long operator+=(int v);

private:
    tavAtomicInt low_;
    tavAtomicInt high_;
};

/// The root of objects that tavSharedPtr counts.  A new object has the count 0; the object is deleted when
/// the count falls to 0 again, and is its owner's affair as long as no counted pointer ever held it.  The
/// count belongs to the object and not to its value, so copies start at 0 and assignment leaves it alone.
/// Nothing here raises or allocates.  Thread safety: the counting operations.
class TAV_API tavRefCountObject {
public:
    tavRefCountObject() noexcept : refCount_(countPlace_) {}
    tavRefCountObject(tavRefCountObject const &) noexcept : refCount_(countPlace_) {}
    tavRefCountObject & operator=(tavRefCountObject const &) noexcept { return *this; }

    void incRefCount() noexcept;

    /// Deletes the object when the count becomes 0.
    void decRefCount() noexcept;

    unsigned getRefCount() const noexcept;

    /// Exchanges the counts only.
    void swap(tavRefCountObject & other) noexcept;

protected:
    virtual ~tavRefCountObject();

private:
    tavAtomicInt::Place countPlace_;
    tavAtomicInt refCount_;
};

/// A counted object with one count however many paths lead to the root.
class TAV_API tavSharedObject : public virtual tavRefCountObject {
protected:
    ~tavSharedObject() override;
};

/// A pointer to a counted object.  With `counted` false it is a plain pointer to an object that someone else
/// owns, such as one on the stack: nothing is counted and nothing is freed.
/// Thread safety: distinct pointers to one object; one pointer as any plain value.
template <class T>
class TAV_API tavSharedPtr {
public:
    tavSharedPtr() noexcept = default;
    tavSharedPtr(std::nullptr_t) noexcept {}

    /// Takes a counted reference.
    tavSharedPtr(T * p) : ptr_(p) { inc(); }

    tavSharedPtr(T * p, bool counted) : ptr_(p), counted_(counted) { inc(); }

    tavSharedPtr(tavSharedPtr const & other) : ptr_(other.ptr_), counted_(other.counted_) { inc(); }

    /// Takes the reference over; `other` becomes null.
    tavSharedPtr(tavSharedPtr && other) noexcept : ptr_(other.ptr_), counted_(other.counted_) {
        other.forget();
    }

    template <class U, class = std::enable_if_t<std::is_convertible<U *, T *>::value>>
    tavSharedPtr(tavSharedPtr<U> const & other) : ptr_(other.ptr_), counted_(other.counted_) {
        inc();
    }

    template <class U, class = std::enable_if_t<std::is_convertible<U *, T *>::value>>
    tavSharedPtr(tavSharedPtr<U> && other) noexcept : ptr_(other.ptr_), counted_(other.counted_) {
        other.forget();
    }

    ~tavSharedPtr() {
        if (ptr_ != nullptr && counted_) {
            mutableObject()->decRefCount();
        }
    }

    tavSharedPtr & operator=(tavSharedPtr const & other) {
        tavSharedPtr(other).swap(*this);
        return *this;
    }

    tavSharedPtr & operator=(tavSharedPtr && other) noexcept {
        tavSharedPtr(std::move(other)).swap(*this);
        return *this;
    }

    T * operator->() const noexcept { return ptr_; }
    T & operator*() const noexcept { return *ptr_; }
    T * get() const noexcept { return ptr_; }

    /// Whether the pointer takes part in the count; true for a null pointer that was not told otherwise.
    bool counted() const noexcept { return counted_; }

    explicit operator bool() const noexcept { return ptr_ != nullptr; }
    bool operator!() const noexcept { return ptr_ == nullptr; }

    /// Becomes null.
    void reset() noexcept { tavSharedPtr().swap(*this); }

    void swap(tavSharedPtr & other) noexcept {
        std::swap(ptr_, other.ptr_);
        std::swap(counted_, other.counted_);
    }

private:
    template <class U>
    friend class tavSharedPtr;

    std::remove_cv_t<T> * mutableObject() const noexcept { return const_cast<std::remove_cv_t<T> *>(ptr_); }

    void inc() const {
        if (ptr_ != nullptr && counted_) {
            mutableObject()->incRefCount();
        }
    }

    void forget() noexcept {
        ptr_ = nullptr;
        counted_ = true;
    }

    T * ptr_ = nullptr;
    bool counted_ = true;
};

template <class T, class U>
bool operator==(tavSharedPtr<T> const & a, tavSharedPtr<U> const & b) {
    return a.get() == b.get();
}

template <class T, class U>
bool operator!=(tavSharedPtr<T> const & a, tavSharedPtr<U> const & b) {
    return a.get() != b.get();
}

template <class T>
bool operator==(tavSharedPtr<T> const & a, std::nullptr_t) {
    return a.get() == nullptr;
}

template <class T>
bool operator!=(tavSharedPtr<T> const & a, std::nullptr_t) {
    return a.get() != nullptr;
}

template <class T>
bool operator==(std::nullptr_t, tavSharedPtr<T> const & a) {
    return a.get() == nullptr;
}

template <class T>
bool operator!=(std::nullptr_t, tavSharedPtr<T> const & a) {
    return a.get() != nullptr;
}

/// Orders by address.
template <class T>
bool operator<(tavSharedPtr<T> const & a, tavSharedPtr<T> const & b) {
    return std::less<T *>()(a.get(), b.get());
}

#endif
