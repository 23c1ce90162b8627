#include "client/message_callbacks.h"

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using Lock = detail::Guard<detail::Guarding<tavMutex>>;

} // namespace

void message_callbacks::set_type(unsigned short msgcode, msg_type_callback callback) {
    auto entry = std::make_shared<msg_type_callback>(std::move(callback));
    Lock const guard(mutex_);
    types_[msgcode].swap(entry);
}

std::shared_ptr<msg_type_callback> message_callbacks::of_type(unsigned short msgcode) const {
    Lock const guard(mutex_);
    auto const found = types_.find(msgcode);
    return found != types_.end() ? found->second : nullptr;
}

void message_callbacks::set_old(nbr_function f) {
    auto entry = f ? std::make_shared<nbr_function const>(std::move(f)) : nullptr;
    Lock const guard(mutex_);
    old_.swap(entry);
}

std::shared_ptr<nbr_function const> message_callbacks::old() const {
    Lock const guard(mutex_);
    return old_;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
