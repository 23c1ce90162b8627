#ifndef TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_CONTEXT_H
#define TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_CONTEXT_H

#include "client/process_exit.h"
#include "client/resolver.h"
#include "client/trust.h"
#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_basetypes_text.h"

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/ssl/context.hpp>

#include <atomic>
#include <string>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What a client keeps across its connections: the I/O context on which all network completions run, the TLS
/// context with trusted certificates and ciphers, and the resolver.  TLS 1.2 is the only version.
///
/// Thread safety: `init` on one thread at a time; all else from any thread.
class context {
public:
    using results_type = resolver::results_type;
    using resolve_handler = resolver::handler;

    /// Throws std::system_error with "context" if the TLS library can't make one.
    explicit context(tav_istr name);
    ~context();
    context(context const &) = delete;
    context & operator=(context const &) = delete;

    /// Applies the certificate file, or directory ending in "/", and the cipher list.  Nothing is done if
    /// each is empty or the same as before, and what lies under the path in force is as it was.  Certificates
    /// add up; an unknown cipher list leaves the former one in force.  A path that can't be used is told at
    /// each call.  False if a file could not be loaded, or if nothing was ever applied.
    bool init(std::string verify_path, std::string cipher);

    /// Whether the peer's certificate is checked.
    bool should_verify() const;

    /// Drops what is being resolved and stops the I/O context, so that `run` returns.
    void close();

    /// The body of the I/O thread: runs completions until `close`, then those that are ready by then, so that
    /// nothing in the I/O context keeps a closed session alive.  Throws what a completion throws; call it
    /// again to go on.
    void run();

    /// True on the thread that is inside `run`.
    bool runs_here() const;

    /// Runs `f` on the I/O thread later; false, and `f` is dropped, when `run` has returned after `close`.
    template <class F>
    bool post(F && f) {
        detail::Guard const guard(mutex_);
        if (finished_) {
            return false;
        }
        asio::post(io_context_, std::forward<F>(f));
        return true;
    }

    /// Resolves and calls `handler` on the I/O thread; after `close` it is dropped without a call.  Gives a
    /// number for `cancel_resolve`, which drops the handler.
    unsigned long long async_resolve(std::string const & host, std::string const & service,
                                     resolve_handler handler);
    void cancel_resolve(unsigned long long id);

    /// The cipher list in force.
    std::string cipher_list() const;

    asio::io_context & io_context() { return io_context_; }
    asio::ssl::context & ssl_context() { return ssl_context_; }

private:
    void apply();
    void load_verify_file(std::string const & path);
    void set_cipher_list();
    void drain();

    std::string const name_;
    std::string verify_path_;
    std::string cipher_;
    asio::io_context io_context_;
    asio::ssl::context ssl_context_;
    process_exit exit_;
    resolver resolver_;
    /// What was last read under `verify_path_`, and what is wrong with it.
    certificate_path certificates_;
    bool opened_;
    std::atomic<bool> should_verify_;
    std::atomic<bool> closed_;
    detail::Mutex mutex_;
    std::string cipher_list_ TAV_GUARDED_BY(mutex_);
    bool finished_ TAV_GUARDED_BY(mutex_);
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
