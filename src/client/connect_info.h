#ifndef TAV_CLIENT_CONNECT_INFO_H
#define TAV_CLIENT_CONNECT_INFO_H

#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <atomic>
#include <functional>
#include <string>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// The result of one start or reconnect.  Any thread may wait; it ends once, with the first outcome told.
class connect_info : public tls::connect_info {
public:
    /// `client` is the one whose threads must not wait for it, as thread_role knows it; `era` counts that
    /// client's closes until the start.
    connect_info(std::string name, timedout_option const & option, void const * client = nullptr,
                 unsigned era = 0);
    /// One that is finished already, with 0.
    explicit connect_info(std::string name);

    unsigned era() const { return era_; }
    /// Why it failed, or its connection broke, as its session finds out first.
    std::atomic<failure> & cause() { return cause_; }
    /// Whether its connection has come up.
    std::atomic<bool> & up() { return up_; }
    /// Whether it counts as failed.
    std::atomic<bool> & failed() { return failed_; }

    void cancel() override;
    result_type wait() override;
    result_type result() const override;

    /// As `wait`, but looks each `slice_ms` milliseconds whether `patient` still holds; what it is by then
    /// if it does not.  `patient` must not use this object.
    result_type wait(int slice_ms, std::function<bool()> const & patient);
    /// Marks it as refused a second attempt, unless it has ended.
    void busy();
    void on_conn_connected();
    void on_conn_error();
    void on_conn_timedout();
    void on_conn_cancel();

private:
    void complete(result_type result, failure why, char const * func, char const * what);

    timedout_option option_;
    tavTime start_time_;
    result_type result_;
    std::string name_;
    void const * const client_;
    unsigned const era_;
    std::atomic<failure> cause_{failure::none};
    std::atomic<bool> up_{false};
    std::atomic<bool> failed_{false};
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
