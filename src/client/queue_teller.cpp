#include "client/queue_teller.h"

#include "client/failures.h"
#include "client/process_exit.h"
#include "foundation/report.h"

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// High and low water.
constexpr int most_untold = 2;

} // namespace

std::shared_ptr<queue_teller::connection> queue_teller::begin(std::function<void(bool full)> told) {
    auto const made = std::make_shared<connection>();
    made->told = std::move(told);
    detail::Guard const guard(mutex);
    std::shared_ptr<connection> const before = present_.lock();
    present_ = made;
    if (before) {
        turn(*before, false);
        before->over = true;
        tell(before);
    }
    return made;
}

// Turns that follow each other while a function runs cancel out by pairs, but for the last pair: who was
// refused hears of low water behind that.
void queue_teller::turn(connection & of, bool full) noexcept {
    if (of.full != full && !of.over) {
        of.full = full;
        of.untold += of.untold == most_untold ? -1 : 1;
    }
}

void queue_teller::list(std::shared_ptr<connection> const & of) noexcept {
    if (of->untold == 0 || of->listed) {
        return;
    }
    of->listed = true;
    (last_ != nullptr ? last_->next : first_) = of;
    last_ = of.get();
}

void queue_teller::tell(std::shared_ptr<connection> const & of) noexcept {
    list(of);
    if (telling_) {
        return;
    }
    telling_ = true;
    while (first_) {
        // Held while its function runs, and let go without the lock: that may end what the function holds.
        std::shared_ptr<connection> next = first_;
        if (next->untold > 0) {
            bool const full = next->full == (next->untold % 2 != 0);
            --next->untold;
            mutex.unlock();
            call(*next, full);
            mutex.lock();
            continue;
        }
        first_ = std::move(next->next);
        last_ = first_ ? last_ : nullptr;
        next->listed = false;
        mutex.unlock();
        next.reset();
        mutex.lock();
    }
    telling_ = false;
}

// The send that reached the limit may have been accepted: what the function's own calls failed for is not its
// failure.
void queue_teller::call(connection const & of, bool full) noexcept {
    if (!of.told) {
        return;
    }
    failure_scope const kept(static_cast<failure>(last_failure().value()));
    try {
        of.told(full);
        process_exit::pass();
    } catch (...) {
        tav::detail::reportCaught(tav::detail::here("tav::tls::impl::queue_teller::call"));
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
