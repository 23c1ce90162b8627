#ifndef TAV_TOOLS_WEB_H
#define TAV_TOOLS_WEB_H

#include "gateway/gateway_core.h"
#include "tools/templates.h"
#include "tools/traffic.h"

#include <memory>
#include <string>

namespace tav {
namespace tool {

struct WebOptions {
    std::string address = "127.0.0.1";
    /// 0: the system gives one.
    int port = 0;
    bool reveal = false;
    /// Milliseconds that somebody has for a question, and for taking the answer.
    int patience = 5000;
};

/// The page that shows what a gateway sees, and what it takes to act on it.  Whoever asks for anything has to
/// know the token, and to ask this machine by its address or as localhost.
class Web {
public:
    /// Throws a Failure if this program was built without what serves a page.
    static void demand();

    /// Listens and serves.  All that it is given must outlive it.  Throws a Failure if it can't listen.
    Web(WebOptions const & options, Template const & model, Traffic & traffic, gateway::Gateway & gateway);
    /// Ends what it serves.
    ~Web();
    Web(Web const &) = delete;
    Web & operator=(Web const &) = delete;

    /// Where the page is, with the token: for a browser on this machine.
    std::string place() const;
    /// Whether others may ask for it at any address of this machine.
    bool isOnAllAddresses() const;

private:
    class Server;
    std::unique_ptr<Server> server_;
};

/// The page: its scripts and styles are in it, under a nonce that it is given.
std::string webPage(std::string const & nonce);

} // namespace tool
} // namespace tav

#endif
