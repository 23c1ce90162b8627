#ifndef TAV_CLIENT_IO_THREAD_H
#define TAV_CLIENT_IO_THREAD_H

#include "client/vinta_tls_client_impl_context.h"
#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <asio/steady_timer.hpp>

#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// The thread of one client on which all of its network completions run, and the I/O context that it makes
/// for them.  Internal.
///
/// Thread safety: start and close on one thread at a time, io on any that came to be after the start.
class io_thread {
public:
    /// Who is told what a completion threw, on the thread itself.
    class owner {
    public:
        virtual void on_exception(std::exception const & e) = 0;
        virtual void on_no_memory(std::bad_alloc const & e) = 0;

    protected:
        ~owner() = default;
    };

    /// `name` begins the log lines, and the name of the thread.
    explicit io_thread(std::string name) : name_(std::move(name)) {}
    io_thread(io_thread const &) = delete;
    io_thread & operator=(io_thread const &) = delete;

    /// Starts the thread, which keeps `told`, who holds the owner of this object, until it is closed.  Throws
    /// what kept the context from being made.
    void start(std::shared_ptr<owner> told);
    /// Ends the thread once what is ready has run; nothing if there is none.
    void close();

    /// Null before the start.
    std::shared_ptr<context> const & io() const { return context_; }

private:
    bool on_open();
    bool on_loop(owner & told);
    /// Runs completions; true if one of them threw, and there is more to run.
    bool run(owner & told);
    void on_close(owner & told);
    void on_stop();
    void keep_alive();

    std::string const name_;
    std::shared_ptr<context> context_;
    std::shared_ptr<asio::steady_timer> keep_alive_timer_;
    /// Why the thread could not open; set before `start` goes on.
    std::exception_ptr open_failure_;
    tavSharedPtr<tavThread> thread_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
