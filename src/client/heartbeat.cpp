#include "client/heartbeat.h"

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

void heartbeat::heard(long long now) noexcept {
    heard_ms_ = now;
    read_since_ = true;
}

void heartbeat::listened(std::optional<unsigned long long> bytes, long long now) noexcept {
    bool const was_read = read_since_.exchange(false);
    if (bytes && *bytes != bytes_ && !was_read) {
        heard_ms_ = now;
    }
    bytes_ = bytes.value_or(bytes_);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
