#ifndef TAV_CLIENT_THREAD_ROLE_H
#define TAV_CLIENT_THREAD_ROLE_H

#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_mt_thread.h"

/// What a client's threads know of themselves.  Internal.
namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// Says which of a client's threads the calling thread is, while it lives.  Roles nest: the frames that a
/// session leaves behind are handled as by "receiver" on the thread that closes it.
class thread_role {
public:
    enum kind { io, session, error, sender, receiver, timer };

    /// `client` stands for the client: the address of its context.  `connection` is the session whose thread
    /// it is, if it is one's.
    thread_role(void const * client, kind what, void const * connection = nullptr);
    ~thread_role();
    thread_role(thread_role const &) = delete;
    thread_role & operator=(thread_role const &) = delete;

    /// Makes the calling thread one of this client's for all of its life, as what it holds may go when its
    /// last role is over.  For threads that serve nobody else.
    static void belong(void const * client);
    /// Whether the calling thread is any of this client's.  A thread that one of those has made is not.
    static bool of_client(void const * client);
    /// Whether it is one that this client needs for a connect, so that waiting there for one would never end.
    static bool needed_to_connect(void const * client);
    /// Whether it is one that has to end this client's sends, so that waiting there for one would never end.
    static bool needed_to_end_sends(void const * client);
    /// Whether it is one of this session's own.
    static bool of_session(void const * connection);

private:
    template <class Accepts>
    static bool any(Accepts accepts);

    void const * const client_;
    void const * const connection_;
    kind const kind_;
    thread_role const * const before_;
};

/// Ends a thread; on itself it is left to end by itself.
void end_thread(tavThread & thread);

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
