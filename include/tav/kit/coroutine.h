#ifndef TAV_KIT_COROUTINE_H
#define TAV_KIT_COROUTINE_H

#include "tav/kit/talk.h"

/// Requests that a coroutine awaits, and a class of coroutines to await them in.  Nothing here without C++20.
#ifdef __cpp_impl_coroutine

#include <atomic>
#include <coroutine>
#include <exception>
#include <future>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace tav {
namespace kit {

/// The completion token for `co_await`.
struct use_awaitable_t {};
inline constexpr use_awaitable_t use_awaitable{};

namespace detail {

template <>
inline constexpr bool may_block<use_awaitable_t> = false;

/// Where a request and the coroutine that awaits it meet.
template <class Reply>
struct meeting {
    enum phase { running, awaited, ended, dropped };

    std::atomic<int> at{running};
    std::optional<result<Reply>> what;
    std::coroutine_handle<> coroutine;
    executor where;

    void resume(std::shared_ptr<meeting> const & self) {
        turn::take(std::make_shared<turn>([self] {
                       if (self->at != dropped) {
                           self->coroutine.resume();
                       }
                   }),
                   where);
    }
};

} // namespace detail

/// A request that was sent and is to be awaited once; several may be under way together.  It is sent by the
/// call of `request`; to drop it, or the coroutine that awaits it, cancels it.  A coroutine that waits is
/// destroyed on the thread on which it would go on, that of its executor; from another thread, or without an
/// executor, use a cancellation instead: a reply may be about to resume it.
template <class Reply>
class [[nodiscard]] awaitable {
    using meeting = detail::meeting<Reply>;

public:
    explicit awaitable(detail::initiation<Reply> const & start) : meeting_(std::make_shared<meeting>()) {
        meeting_->where = start.where();
        sent_ = pending(start.here([to = meeting_](result<Reply> v) {
            to->what.emplace(std::move(v));
            int before = meeting::running;
            if (to->at.compare_exchange_strong(before, meeting::ended)) {
                return;
            }
            before = meeting::awaited;
            if (to->at.compare_exchange_strong(before, meeting::ended)) {
                to->resume(to);
            }
        }));
    }
    awaitable(awaitable &&) noexcept = default;
    awaitable & operator=(awaitable &&) = delete;
    ~awaitable() {
        if (meeting_ && meeting_->at.exchange(meeting::dropped) != meeting::ended) {
            sent_.cancel();
        }
    }

    /// With an executor the coroutine always goes on there.
    bool await_ready() const noexcept { return meeting_->at == meeting::ended && !meeting_->where; }

    bool await_suspend(std::coroutine_handle<> coroutine) {
        // The coroutine may go on elsewhere, and take this object with it, before this function returns.
        std::shared_ptr<meeting> const here = meeting_;
        here->coroutine = coroutine;
        int before = meeting::running;
        if (here->at.compare_exchange_strong(before, meeting::awaited)) {
            return true;
        }
        if (!here->where) {
            return false;
        }
        here->resume(here);
        return true;
    }

    result<Reply> await_resume() { return std::move(*meeting_->what); }

private:
    std::shared_ptr<meeting> meeting_;
    pending sent_;
};

template <class Reply>
struct completion<use_awaitable_t, Reply> {
    static awaitable<Reply> begin(detail::initiation<Reply> const & start, use_awaitable_t) {
        return awaitable<Reply>(start);
    }
};

template <class T>
class task;

namespace detail {

/// What a task and the one who awaits it share.
class task_end {
public:
    /// True if the coroutine had ended before anybody waited.
    bool wait_for(std::coroutine_handle<> next) {
        next_ = next;
        return ended_.exchange(true);
    }
    struct last {
        bool await_ready() const noexcept { return false; }
        template <class Promise>
        void await_suspend(std::coroutine_handle<Promise> self) const noexcept {
            task_end & end = self.promise();
            // The first of the two to come leaves it to the other, and touches nothing any more.
            if (end.ended_.exchange(true)) {
                end.next_.resume();
            }
        }
        void await_resume() const noexcept {}
    };

private:
    std::coroutine_handle<> next_;
    std::atomic<bool> ended_{false};
};

template <class T>
class task_promise : public task_end {
public:
    task<T> get_return_object();
    std::suspend_always initial_suspend() const noexcept { return {}; }
    last final_suspend() const noexcept { return {}; }
    void unhandled_exception() { raised_ = std::current_exception(); }
    template <class V>
    void return_value(V && v) {
        value_.emplace(std::forward<V>(v));
    }
    T take() {
        if (raised_) {
            std::rethrow_exception(raised_);
        }
        return std::move(*value_);
    }

private:
    std::optional<T> value_;
    std::exception_ptr raised_;
};

template <>
class task_promise<void> : public task_end {
public:
    task<void> get_return_object();
    std::suspend_always initial_suspend() const noexcept { return {}; }
    last final_suspend() const noexcept { return {}; }
    void unhandled_exception() { raised_ = std::current_exception(); }
    void return_void() const noexcept {}
    void take() const {
        if (raised_) {
            std::rethrow_exception(raised_);
        }
    }

private:
    std::exception_ptr raised_;
};

} // namespace detail

/// A coroutine that begins when it is awaited, or spawned, and gives a T or raises.  It is awaited once.  To
/// destroy it cancels what it awaits, on the thread on which it goes on alone (see `awaitable`).
template <class T = void>
class [[nodiscard]] task {
public:
    using promise_type = detail::task_promise<T>;

    explicit task(std::coroutine_handle<promise_type> coroutine) : coroutine_(coroutine) {}
    task(task && other) noexcept : coroutine_(std::exchange(other.coroutine_, nullptr)) {}
    task & operator=(task &&) = delete;
    ~task() {
        if (coroutine_) {
            coroutine_.destroy();
        }
    }

    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> next) const {
        // This object may be gone when resume returns, unless the coroutine has ended within it.
        std::coroutine_handle<promise_type> const coroutine = coroutine_;
        coroutine.resume();
        return !coroutine.promise().wait_for(next);
    }
    T await_resume() const { return coroutine_.promise().take(); }

private:
    std::coroutine_handle<promise_type> coroutine_;
};

namespace detail {

template <class T>
task<T> task_promise<T>::get_return_object() {
    return task<T>(std::coroutine_handle<task_promise<T>>::from_promise(*this));
}
inline task<void> task_promise<void>::get_return_object() {
    return task<void>(std::coroutine_handle<task_promise<void>>::from_promise(*this));
}

/// A coroutine that owns itself.
struct spawned {
    struct promise_type {
        spawned get_return_object() const noexcept { return {}; }
        std::suspend_never initial_suspend() const noexcept { return {}; }
        std::suspend_never final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        void unhandled_exception() const noexcept { std::terminate(); }
    };
};

template <class T>
spawned run_to_end(task<T> work, std::promise<T> told) {
    // What the coroutine holds is gone when its end is told.
    try {
        if constexpr (std::is_void<T>::value) {
            {
                task<T> const own = std::move(work);
                co_await own;
            }
            told.set_value();
        } else {
            std::optional<T> value;
            {
                task<T> const own = std::move(work);
                value.emplace(co_await own);
            }
            told.set_value(std::move(*value));
        }
    } catch (...) {
        told.set_exception(std::current_exception());
    }
}

} // namespace detail

/// Begins a coroutine on the calling thread, which goes on when the coroutine first waits.  The future tells
/// its end and need not be kept.
template <class T>
std::future<T> spawn(task<T> work) {
    std::promise<T> told;
    std::future<T> made = told.get_future();
    detail::run_to_end(std::move(work), std::move(told));
    return made;
}

} // namespace kit
} // namespace tav

#endif

#endif
