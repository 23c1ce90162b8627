#ifndef TAV_CLIENT_MESSAGE_CALLBACKS_H
#define TAV_CLIENT_MESSAGE_CALLBACKS_H

#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <map>
#include <memory>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// The callbacks that an application has set at a client itself, and not with a start or a send: one for
/// each message code, and one for all messages whose code has a single byte.
/// Thread safety: all operations.  No function of the application goes while the lock is held, and what an
/// operation has given lives on when it is replaced.
class message_callbacks {
public:
    message_callbacks() = default;
    message_callbacks(message_callbacks const &) = delete;
    message_callbacks & operator=(message_callbacks const &) = delete;

    /// The last one set for a code is the only one that counts.
    void set_type(unsigned short msgcode, msg_type_callback callback);
    /// Null if none was set for the code.
    std::shared_ptr<msg_type_callback> of_type(unsigned short msgcode) const;

    /// A null function is none.
    void set_old(nbr_function f);
    std::shared_ptr<nbr_function const> old() const;

private:
    detail::Guarding<tavMutex> mutex_;
    std::map<unsigned short, std::shared_ptr<msg_type_callback>> types_ TAV_GUARDED_BY(mutex_);
    std::shared_ptr<nbr_function const> old_ TAV_GUARDED_BY(mutex_);
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
