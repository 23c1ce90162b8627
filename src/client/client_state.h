#ifndef TAV_CLIENT_CLIENT_STATE_H
#define TAV_CLIENT_CLIENT_STATE_H

#include "client/connect_info.h"
#include "client/vinta_tls_client_impl_metainfo.h"
#include "client/vinta_tls_client_impl_session.h"
#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <memory>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What of one client the next start or reconnect replaces: its option, the meta model that goes with it, the
/// connect that is under way and the session.  Internal.
///
/// Thread safety: all operations.  Others read while one is replaced, so copies are given, and what is
/// replaced is given back, as the functions of the application that it may hold must not go under the lock.
class client_state {
public:
    using connect_ptr = std::shared_ptr<connect_info>;
    using option_ptr = std::shared_ptr<connect_option>;
    using metainfo_ptr = std::shared_ptr<metainfo>;
    using session_ptr = tavSharedPtr<impl::session>;

    client_state();
    client_state(client_state const &) = delete;
    client_state & operator=(client_state const &) = delete;

    /// Neither is ever null: a client that was not started has empty ones.
    option_ptr option() const;
    metainfo_ptr meta() const;
    /// Null if there is none.
    session_ptr session() const;
    /// The start or reconnect that has not ended; one that has counts as none.
    connect_ptr connecting() const;

    option_ptr replace(option_ptr fresh);
    session_ptr replace(session_ptr fresh);
    /// With `described` that takes the meta model's place.
    void begin(connect_ptr info, metainfo_ptr * described = nullptr);
    /// Takes out the connect that is under way; null if it is not this one.
    connect_ptr take_connecting(connect_ptr const & info);

private:
    /// First of all: no template is read before the kinds of fields have their names.
    pml::field_type::Initializer field_initializer_;
    detail::Guarding<tavMutex> mutex_;
    option_ptr option_ TAV_GUARDED_BY(mutex_);
    metainfo_ptr metainfo_ TAV_GUARDED_BY(mutex_);
    connect_ptr connecting_ TAV_GUARDED_BY(mutex_);
    session_ptr session_ TAV_GUARDED_BY(mutex_);
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
