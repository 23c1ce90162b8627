#ifndef TAV_BINDINGS_C_LAST_OWNER_H
#define TAV_BINDINGS_C_LAST_OWNER_H

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

namespace tav {
namespace json_client {

/// A thing that others use for a moment, and whose owner ends it once they have gone.
///
/// Thread safety: none, the owner has a lock for it; what `share` gave is a pointer as any other.
template <class T>
class LastOwner {
public:
    using Clock = std::chrono::steady_clock;

    LastOwner() = default;
    explicit LastOwner(std::unique_ptr<T> thing) : watch_(std::make_shared<Watch>()) {
        // A pointer that can't be made has its deleter called.
        shared_ = std::shared_ptr<T>(thing.release(), [watch = watch_](T * last) { leave(*watch, last); });
    }

    /// Null if there is nothing.
    std::shared_ptr<T> const & share() const { return shared_; }
    explicit operator bool() const { return shared_ != nullptr; }

    /// Gives it up, and ends it here when the last user has gone.  True if that is done, or there was
    /// nothing.  A user that stays longer than `until` is left alone with it: it goes with that one, there.
    bool end(Clock::time_point until) noexcept {
        std::shared_ptr<Watch> const watch = std::move(watch_);
        if (!watch) {
            return true;
        }
        {
            std::lock_guard<std::mutex> const guard(watch->mutex);
            watch->awaited = true;
        }
        shared_.reset();
        std::unique_ptr<T> last;
        std::unique_lock<std::mutex> guard(watch->mutex);
        bool const gone = watch->left.wait_until(guard, until, [&] { return watch->last != nullptr; });
        watch->awaited = false;
        last = std::move(watch->last);
        guard.unlock();
        return gone;
    }

private:
    struct Watch {
        std::mutex mutex;
        std::condition_variable left;
        bool awaited = false;
        std::unique_ptr<T> last;
    };

    static void leave(Watch & watch, T * last) noexcept {
        std::unique_ptr<T> here(last);
        std::lock_guard<std::mutex> const guard(watch.mutex);
        if (watch.awaited) {
            watch.last = std::move(here);
            watch.left.notify_all();
        }
    }

    std::shared_ptr<Watch> watch_;
    std::shared_ptr<T> shared_;
};

} // namespace json_client
} // namespace tav

#endif
