#include "client/broken_end.h"

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

void broken_end::begin(std::error_code ec) noexcept {
    error_ = ec;
    begun_ = true;
}

void broken_end::limit(std::chrono::milliseconds time, std::function<void()> over) {
    detail::Guard const guard(limit_mutex_);
    limit_.expires_after(time);
    limit_.async_wait([over = std::move(over)](std::error_code cancelled) {
        if (!cancelled) {
            over();
        }
    });
}

bool broken_end::tell() {
    if (std::exchange(told_, true)) {
        return false;
    }
    cancel();
    return true;
}

void broken_end::cancel() {
    detail::Guard const guard(limit_mutex_);
    limit_.cancel();
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
