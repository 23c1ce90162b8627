#ifndef TAV_BINDINGS_C_PROXY_H
#define TAV_BINDINGS_C_PROXY_H

#include <string>

namespace tav {
namespace json_client {

/// How to get through a proxy.
struct ProxyWish {
    bool socks = false; ///< SOCKS version 5; else HTTP CONNECT.
    std::string user;   ///< Empty: without authentication.
    std::string password;
    int limit_ms = 0;
};

/// Makes the tunnel on a connected socket.  0 when it is there; then no byte behind the proxy's answer has
/// been read.
int throughProxy(int socket, char const * host, unsigned short port, ProxyWish const & wish);

} // namespace json_client
} // namespace tav

#endif
