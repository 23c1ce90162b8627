#include "client/client_state.h"

#include <string>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using Lock = detail::Guard<detail::Guarding<tavMutex>>;

} // namespace

client_state::client_state()
    : option_(std::make_shared<connect_option>()), metainfo_(std::make_shared<metainfo>(std::string())) {}

client_state::option_ptr client_state::option() const {
    Lock const guard(mutex_);
    return option_;
}

client_state::metainfo_ptr client_state::meta() const {
    Lock const guard(mutex_);
    return metainfo_;
}

client_state::session_ptr client_state::session() const {
    Lock const guard(mutex_);
    return session_;
}

client_state::connect_ptr client_state::connecting() const {
    connect_ptr last;
    {
        Lock const guard(mutex_);
        last = connecting_;
    }
    return last && last->result() < 0 ? last : nullptr;
}

client_state::option_ptr client_state::replace(option_ptr fresh) {
    Lock const guard(mutex_);
    option_.swap(fresh);
    return fresh;
}

client_state::session_ptr client_state::replace(session_ptr fresh) {
    Lock const guard(mutex_);
    session_.swap(fresh);
    return fresh;
}

void client_state::begin(connect_ptr info, metainfo_ptr * described) {
    Lock const guard(mutex_);
    if (described != nullptr) {
        metainfo_.swap(*described);
    }
    connecting_.swap(info);
}

client_state::connect_ptr client_state::take_connecting(connect_ptr const & info) {
    Lock const guard(mutex_);
    return connecting_ == info ? std::move(connecting_) : nullptr;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
