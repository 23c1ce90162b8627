// Through a proxy that makes tunnels on request (HTTP CONNECT).
#include <tav/vinta/vinta.h>

#include <iostream>
#include <string>

#include <sys/socket.h>

using namespace tav::tls;

/// Asks the proxy at the other end of `socket`, which blocks, for the tunnel.  TLS begins behind its answer,
/// so not a byte more than that is read.
static int openTunnel(unsigned socket, char const * host, unsigned short port) {
    std::string const target = std::string(host) + ":" + std::to_string(port);
    std::string const ask = "CONNECT " + target + " HTTP/1.1\r\nHost: " + target + "\r\n\r\n";
    int const fd = static_cast<int>(socket);
    if (::send(fd, ask.data(), ask.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(ask.size())) {
        return 1;
    }
    std::string head;
    char c = 0;
    while (head.find("\r\n\r\n") == std::string::npos) {
        if (head.size() > 8000 || ::recv(fd, &c, 1, 0) != 1) {
            return 1;
        }
        head += c;
    }
    std::cout << "proxy: " << head.substr(0, head.find('\r')) << "\n";
    return head.rfind("HTTP/1.", 0) == 0 && head.substr(8, 5) == " 200 " ? 0 : 1;
}

int main(int argc, char ** argv) {
    if (argc != 6) {
        std::cerr << "usage: proxy_http HOST PORT CA-FILE PROXY-HOST PROXY-PORT\n";
        return 2;
    }
    connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.proxy_host = argv[4];
    option.proxy_port = argv[5];
    option.timedout.wait_ms(5000);
    option.set_on_http_proxy_connect(openTunnel);
    option.set_tls_policy(tls_policy::safe()); // the proxy sees nothing but TLS, and can't pose as the server

    client gateway("proxy_http");
    auto const start = gateway.start(option);
    if (!start || start->wait() != result_ok) {
        std::cerr << "proxy_http: " << (start ? start->error() : last_failure()).message() << "\n";
        return 1;
    }
    std::cout << gateway.negotiated() << "\n";
    return 0;
}
