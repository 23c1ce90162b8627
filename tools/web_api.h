#ifndef TAV_TOOLS_WEB_API_H
#define TAV_TOOLS_WEB_API_H

#include "tools/frame_views.h"
#include "tools/json_messages.h"
#include "tools/web.h"

#include <map>
#include <mutex>
#include <string>

namespace tav {
namespace tool {

/// Why something that was asked for can't be done, and the status of HTTP that says so.
class WebFailure : public std::runtime_error {
public:
    WebFailure(int status, std::string const & text) : std::runtime_error(text), status_(status) {}
    int status() const noexcept { return status_; }

private:
    int status_;
};

/// What the page asks for, and JSON that answers it, without HTTP.  Every operation may be called from any
/// thread, and throws a WebFailure.
class WebApi {
public:
    using Parameters = std::map<std::string, std::string>;

    WebApi(WebOptions const & options, Template const & model, Traffic & traffic, gateway::Gateway & gateway);

    /// The connections, and the packets behind number `after` that fit `way`, `connection`, `code`, `class`
    /// and `text`: the last ones, as many as a page can take.
    std::string state(Parameters const & asked);
    /// The packet of number `id`.
    std::string packet(Parameters const & asked) const;
    /// Sends the message, JSON of the template, to a connection, or to all for 0, and tells how many get it.
    std::string push(Parameters const & asked, std::string const & message);
    std::string close(Parameters const & asked);
    std::string reset(Parameters const & asked);
    /// With `on` 1 or 0.
    std::string silence(Parameters const & asked);

private:
    struct Filter;
    FrameSummary const & summaryOf(SeenPacket const & packet);
    void forget(unsigned long long oldest);
    unsigned openConnection(Parameters const & asked) const;
    /// How many get what is sent to this connection, or to all for 0.
    std::size_t receiversOf(unsigned to) const;

    WebOptions const options_;
    Traffic & traffic_;
    gateway::Gateway & gateway_;
    FrameViews const views_;
    JsonMessages const messages_;
    std::mutex mutex_;
    /// Of the packets that were looked at, by number.
    std::map<unsigned long long, FrameSummary> summaries_;
};

} // namespace tool
} // namespace tav

#endif
