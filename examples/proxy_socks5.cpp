// Through a SOCKS5 proxy that wants no password; the proxy looks the host's name up.
#include <tav/vinta/vinta.h>

#include <iostream>
#include <string>

#include <sys/socket.h>

using namespace tav::tls;

static bool put(int fd, std::string const & bytes) {
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}
/// Reads `size` bytes; empty if the proxy ends first.
static std::string get(int fd, std::size_t size) {
    std::string bytes(size, '\0');
    return ::recv(fd, &bytes[0], size, MSG_WAITALL) == static_cast<ssize_t>(size) ? bytes : std::string();
}

/// Asks the proxy at the other end of `socket`, which blocks, for the tunnel: RFC 1928.
static int openTunnel(unsigned socket, char const * host, unsigned short port) {
    int const fd = static_cast<int>(socket);
    std::string const name = host;
    if (name.size() > 255 || !put(fd, "\x05\x01" + std::string(1, '\0')) ||
        get(fd, 2) != std::string("\x05\x00", 2)) {
        return 1; // not SOCKS5, or a password is wanted
    }
    std::string const to = {static_cast<char>(name.size())};
    std::string const at = {static_cast<char>(port >> 8), static_cast<char>(port & 0xff)};
    put(fd, std::string("\x05\x01\x00\x03", 4) + to + name + at);
    std::string const head = get(fd, 5); // version, outcome, 0, kind of address, its first byte
    if (head.empty() || head[1] != 0) {
        std::cerr << "proxy: refused, code " << (head.empty() ? -1 : head[1]) << "\n";
        return 1;
    }
    std::size_t const rest = head[3] == 1 ? 3 : head[3] == 4 ? 15 : static_cast<unsigned char>(head[4]);
    return get(fd, rest + 2).empty() ? 1 : 0;
}

int main(int argc, char ** argv) {
    if (argc != 6) {
        std::cerr << "usage: proxy_socks5 HOST PORT CA-FILE PROXY-HOST PROXY-PORT\n";
        return 2;
    }
    client gateway("proxy_socks5");
    global_callback through;
    through.proxy_host_ = argv[4];
    through.proxy_port_ = argv[5];
    through.set_on_http_proxy_connect(openTunnel); // the name is an old one: it serves proxies of any kind
    auto const start = gateway.start(argv[1], argv[2], argv[3], nullptr, through, timedout_option(5000));
    if (!start || start->wait() != result_ok) {
        std::cerr << "proxy_socks5: " << (start ? start->error() : last_failure()).message() << "\n";
        return 1;
    }
    std::cout << "connected through the proxy at " << gateway.get_remote_addr() << "\n";
    return 0;
}
