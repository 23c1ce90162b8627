#include "bindings/c/proxy.h"

#include "tav/vinta/vinta_basetypes_bytes.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <string_view>

namespace tav {
namespace json_client {

namespace {

using Clock = std::chrono::steady_clock;

/// Bytes to and from a proxy, until a time.
class Talk {
public:
    Talk(int socket, int limit_ms)
        : socket_(socket), end_(Clock::now() + std::chrono::milliseconds(limit_ms)) {}

    bool write(std::string_view bytes) const {
        while (!bytes.empty()) {
            if (!ready(POLLOUT)) {
                return false;
            }
            auto const n = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n < 0 && errno != EINTR && errno != EAGAIN) {
                return false;
            }
            bytes.remove_prefix(n > 0 ? static_cast<std::size_t>(n) : 0);
        }
        return true;
    }

    /// Appends `size` bytes.
    bool read(std::string & out, std::size_t size) const {
        while (size != 0) {
            char piece[512];
            if (!ready(POLLIN)) {
                return false;
            }
            auto const n = ::recv(socket_, piece, size < sizeof(piece) ? size : sizeof(piece), MSG_DONTWAIT);
            if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) {
                return false;
            }
            if (n > 0) {
                out.append(piece, static_cast<std::size_t>(n));
                size -= static_cast<std::size_t>(n);
            }
        }
        return true;
    }

private:
    bool ready(short events) const {
        for (;;) {
            auto const left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now()).count();
            if (left <= 0) {
                return false;
            }
            pollfd one = {socket_, events, 0};
            int const n = ::poll(&one, 1, left > 60000 ? 60000 : static_cast<int>(left));
            if (n > 0) {
                return true;
            }
            if (n < 0 && errno != EINTR) {
                return false;
            }
        }
    }

    int const socket_;
    Clock::time_point const end_;
};

int throughHttp(Talk const & talk, std::string const & target, ProxyWish const & wish) {
    constexpr std::size_t longest_answer = 16384;
    std::string request = "CONNECT " + target + " HTTP/1.1\r\nHost: " + target + "\r\n";
    if (!wish.user.empty()) {
        std::string word;
        tavBase64::encode(tav_istr(wish.user + ":" + wish.password), word, false);
        request += "Proxy-Authorization: Basic " + word + "\r\n";
    }
    request += "\r\n";
    if (!talk.write(request)) {
        return 1;
    }
    // What follows the answer is the gateway's, so no byte more is taken.
    std::string answer;
    while (answer.size() < 4 || answer.compare(answer.size() - 4, 4, "\r\n\r\n") != 0) {
        if (answer.size() > longest_answer || !talk.read(answer, 1)) {
            return 1;
        }
    }
    bool const good = answer.compare(0, 7, "HTTP/1.") == 0 && answer.compare(8, 2, " 2") == 0;
    return good ? 0 : 2;
}

int throughSocks(Talk const & talk, std::string const & host, unsigned short port, ProxyWish const & wish) {
    bool const named = !wish.user.empty();
    auto const byte = [](std::size_t v) { return static_cast<char>(static_cast<unsigned char>(v)); };
    std::string answer;
    if (host.size() > 255 ||
        !talk.write(named ? std::string_view("\x05\x02\x00\x02", 4) : std::string_view("\x05\x01\x00", 3)) ||
        !talk.read(answer, 2) || answer[0] != 5) {
        return 1;
    }
    if (answer[1] == 2 && named) {
        std::string const words = std::string("\x01") + byte(wish.user.size()) + wish.user +
                                  byte(wish.password.size()) + wish.password;
        answer.clear();
        if (!talk.write(words) || !talk.read(answer, 2) || answer[1] != 0) {
            return 2;
        }
    } else if (answer[1] != 0) {
        return 2;
    }
    std::string const request =
        std::string("\x05\x01\x00\x03", 4) + byte(host.size()) + host + byte(port >> 8u) + byte(port & 0xffu);
    answer.clear();
    if (!talk.write(request) || !talk.read(answer, 5) || answer[1] != 0) {
        return 2;
    }
    // The proxy's own address: four or sixteen bytes or a name, and a port.
    std::size_t const rest = answer[3] == 1   ? 3u
                             : answer[3] == 4 ? 15u
                                              : static_cast<unsigned char>(answer[4]);
    return talk.read(answer, rest + 2) ? 0 : 1;
}

} // namespace

int throughProxy(int socket, char const * host, unsigned short port, ProxyWish const & wish) {
    Talk const talk(socket, wish.limit_ms);
    std::string const name = host;
    if (wish.socks) {
        return throughSocks(talk, name, port, wish);
    }
    bool const six = name.find(':') != std::string::npos;
    return throughHttp(talk, (six ? "[" + name + "]" : name) + ":" + std::to_string(port), wish);
}

} // namespace json_client
} // namespace tav
