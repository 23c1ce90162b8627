#include "client/session_state.h"

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

bool session_state::ended() const noexcept {
    int const present = step_;
    return present == closing || present == closed;
}

bool session_state::advance(step from, step to) noexcept {
    int expected = from;
    return step_.compare_exchange_strong(expected, to);
}

session_state::step session_state::begin_closing() noexcept {
    int present = step_;
    while (present != created && present != closing && present != closed) {
        if (step_.compare_exchange_weak(present, closing)) {
            return static_cast<step>(present);
        }
    }
    return created;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
