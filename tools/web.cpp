#include "tools/web.h"

#include "tools/failure.h"
#include "tools/output.h"
#include "tools/web_api.h"

#include <arpa/inet.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <httplib.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t tokenBytes = 16;
constexpr std::size_t largestMessage = 1024 * 1024;
constexpr std::size_t largestHead = 16384;
constexpr std::size_t threads = 16;
/// Connections that are answered or wait for it: each is a descriptor that the gateway has not.
constexpr int mostAtOnce = 64;
/// Milliseconds until somebody has to begin, and between two looks whether all is to end.
constexpr int mostIdle = 1000;
constexpr int lookAfter = 100;
constexpr int forbidden = 403;

std::string randomHex(std::size_t bytes) {
    std::array<unsigned char, 32> random{};
    if (RAND_bytes(random.data(), static_cast<int>(bytes)) != 1) {
        throw Failure(exitUse, "--web: there are no random bytes for a token");
    }
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < bytes; ++i) {
        text += digits[random[i] >> 4];
        text += digits[random[i] & 15u];
    }
    return text;
}

/// Takes as long for every wrong text of the right length.
bool isSame(std::string const & given, std::string const & token) {
    return given.size() == token.size() && CRYPTO_memcmp(given.data(), token.data(), token.size()) == 0;
}

/// Whether the page was asked for by an address, as localhost, or by the name that it was told to listen on.
/// A name that somebody else may bind to this machine is refused: his pages would be of the same origin.
bool isOwnHost(std::string host, std::string const & own) {
    std::size_t const colon = host.rfind(':');
    std::size_t const bracket = host.rfind(']');
    if (colon != std::string::npos && (bracket == std::string::npos || bracket < colon)) {
        host.resize(colon);
    }
    std::array<unsigned char, sizeof(in6_addr)> address{};
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        return ::inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), address.data()) == 1;
    }
    return host == "localhost" || host == own || ::inet_pton(AF_INET, host.c_str(), address.data()) == 1;
}

httplib::Headers commonHeaders() {
    return {{"Cache-Control", "no-store"},
            {"X-Content-Type-Options", "nosniff"},
            {"X-Frame-Options", "DENY"},
            {"Referrer-Policy", "no-referrer"},
            {"Cross-Origin-Resource-Policy", "same-origin"},
            {"Cross-Origin-Opener-Policy", "same-origin"}};
}

WebApi::Parameters parametersOf(httplib::Request const & request) {
    WebApi::Parameters parameters;
    for (auto const & one : request.params) {
        parameters[one.first] = one.second;
    }
    return parameters;
}

/// A connection that ends if it is idle, if its question as a whole or the taking of the answer lasts too
/// long, if the head of the question is too large, or if the server ends.
class TimedStream : public httplib::Stream {
public:
    TimedStream(socket_t socket, std::chrono::milliseconds patience, std::atomic<socket_t> const & server)
        : socket_(socket), patience_(patience), server_(server), readEnd_(Clock::now() + patience) {}

    /// Whether a question begins.
    bool begins() const {
        return ready(POLLIN, std::min(readEnd_, Clock::now() + std::chrono::milliseconds(mostIdle)));
    }
    bool is_readable() const override { return at_ < taken_ || ready(POLLIN, readEnd_); }
    bool is_writable() const override { return ready(POLLOUT, writeEnd()); }

    ssize_t read(char * to, std::size_t size) override {
        if (at_ == taken_) {
            if (!ready(POLLIN, readEnd_)) {
                return -1;
            }
            ssize_t const n = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
            if (n <= 0 || !takesHead(std::string_view(buffer_.data(), static_cast<std::size_t>(n)))) {
                return n <= 0 ? n : -1;
            }
            at_ = 0;
            taken_ = static_cast<std::size_t>(n);
        }
        std::size_t const n = std::min(size, taken_ - at_);
        std::memcpy(to, buffer_.data() + at_, n);
        at_ += n;
        return static_cast<ssize_t>(n);
    }

    /// Once all is said: takes what still comes of the question.  To close on unread bytes, or ahead of them,
    /// would reset the connection, and who asks would see that in the place of the answer.
    void end() {
        ::shutdown(socket_, SHUT_WR);
        for (std::size_t left = 2 * largestMessage; ready(POLLIN, readEnd_);) {
            ssize_t const n = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
            if (n <= 0 || static_cast<std::size_t>(n) > left) {
                return;
            }
            left -= static_cast<std::size_t>(n);
        }
    }

    ssize_t write(char const * from, std::size_t size) override {
        return is_writable() ? ::send(socket_, from, size, MSG_NOSIGNAL | MSG_DONTWAIT) : -1;
    }

    void get_remote_ip_and_port(std::string &, int &) const override {}
    void get_local_ip_and_port(std::string &, int &) const override {}
    socket_t socket() const override { return socket_; }

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point writeEnd() const {
        if (!writes_) {
            writes_ = true;
            writeEnd_ = Clock::now() + patience_;
        }
        return writeEnd_;
    }

    /// The head ends with a line that has nothing in it; the bytes of a body are counted by who takes them.
    bool takesHead(std::string_view bytes) {
        for (std::size_t i = 0; i < bytes.size() && !headEnded_; ++i) {
            ++line_;
            if (++head_ > largestHead) {
                return false;
            }
            if (bytes[i] == '\n') {
                headEnded_ = line_ == 2 && last_ == '\r';
                line_ = 0;
            }
            last_ = bytes[i];
        }
        return true;
    }

    bool ready(short what, Clock::time_point end) const {
        while (server_ != INVALID_SOCKET) {
            auto const left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
            if (left <= 0) {
                return false;
            }
            pollfd one{socket_, what, 0};
            if (::poll(&one, 1, static_cast<int>(std::min<long long>(left, lookAfter))) > 0) {
                return true;
            }
        }
        return false;
    }

    socket_t const socket_;
    std::chrono::milliseconds const patience_;
    std::atomic<socket_t> const & server_;
    Clock::time_point const readEnd_;
    mutable bool writes_ = false;
    mutable Clock::time_point writeEnd_;
    std::array<char, 4096> buffer_{};
    std::size_t at_ = 0;
    std::size_t taken_ = 0;
    bool headEnded_ = false;
    std::size_t head_ = 0;
    std::size_t line_ = 0;
    char last_ = 0;
};

/// Whether the connection that this thread has in hand is one too many.
thread_local bool isOneTooMany = false;

/// Threads that answer, with so many connections at once; others are closed as they come.
class Answering : public httplib::TaskQueue {
public:
    void enqueue(std::function<void()> answer) override {
        if (atOnce_ >= mostAtOnce) {
            isOneTooMany = true;
            answer();
            isOneTooMany = false;
            return;
        }
        ++atOnce_;
        pool_.enqueue([this, held = std::move(answer)] {
            held();
            --atOnce_;
        });
    }
    void shutdown() override { pool_.shutdown(); }

private:
    std::atomic<int> atOnce_{0};
    httplib::ThreadPool pool_{threads};
};

/// One question a connection: a browser that keeps connections would keep the threads, and so would somebody
/// who sends a byte now and then.
class TimedServer : public httplib::Server {
public:
    explicit TimedServer(int patience) : patience_(patience) {}

    /// Once bound: some who come at once don't have the system put the others off for seconds.
    void widen() const { ::listen(svr_sock_, SOMAXCONN); }
    /// The address of this machine to ask for, if it listens on all that there are; else empty.
    std::string oneOfAll() const {
        sockaddr_storage bound{};
        socklen_t size = sizeof(bound);
        if (::getsockname(svr_sock_, reinterpret_cast<sockaddr *>(&bound), &size) != 0) {
            return {};
        }
        auto const & four = reinterpret_cast<sockaddr_in const &>(bound);
        if (bound.ss_family == AF_INET && four.sin_addr.s_addr == htonl(INADDR_ANY)) {
            return "127.0.0.1";
        }
        auto const & six = reinterpret_cast<sockaddr_in6 const &>(bound);
        return bound.ss_family == AF_INET6 && IN6_IS_ADDR_UNSPECIFIED(&six.sin6_addr) ? "::1" : "";
    }

private:
    bool process_and_close_socket(socket_t socket) override {
        TimedStream stream(socket, patience_, svr_sock_);
        bool ended = false;
        bool const good = !isOneTooMany && stream.begins() && process_request(stream, true, ended, nullptr);
        if (good) {
            stream.end();
        }
        ::shutdown(socket, SHUT_RDWR);
        ::close(socket);
        return good;
    }

    std::chrono::milliseconds const patience_;
};

} // namespace

class Web::Server {
public:
    Server(WebOptions const & options, Template const & model, Traffic & traffic, gateway::Gateway & gateway)
        : address_(options.address),
          token_(randomHex(tokenBytes)),
          api_(options, model, traffic, gateway),
          server_(options.patience) {
        server_.new_task_queue = [] { return new Answering(); };
        // Nobody else may listen on the port as well.
        server_.set_socket_options([](socket_t socket) {
            int const yes = 1;
            ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        });
        server_.set_payload_max_length(largestMessage);
        server_.set_default_headers(commonHeaders());
        route();
        errno = 0;
        port_ = options.port == 0                              ? server_.bind_to_any_port(address_)
                : server_.bind_to_port(address_, options.port) ? options.port
                                                               : -1;
        if (port_ < 0) {
            std::string const reason = errno == 0 ? "" : ": " + std::generic_category().message(errno);
            throw Failure(exitNetwork, "--web: can't listen on " + address_ + " port " +
                                           std::to_string(options.port) + reason);
        }
        server_.widen();
        if (std::string one = server_.oneOfAll(); !one.empty()) {
            shown_ = std::move(one);
            onAll_ = true;
        }
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        // What is ended ahead of its begin would not end.
        while (!server_.is_running()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    ~Server() {
        server_.stop();
        thread_.join();
    }
    Server(Server const &) = delete;
    Server & operator=(Server const &) = delete;

    std::string place() const {
        bool const braced = shown_.find(':') != std::string::npos;
        return "http://" + (braced ? "[" + shown_ + "]" : shown_) + ":" + std::to_string(port_) +
               "/?token=" + token_;
    }
    bool onAll() const { return onAll_; }

private:
    using Request = httplib::Request;
    using Response = httplib::Response;

    void route() {
        server_.set_pre_routing_handler([this](Request const & request, Response & response) {
            return isAllowed(request, response) ? httplib::Server::HandlerResponse::Unhandled
                                                : httplib::Server::HandlerResponse::Handled;
        });
        server_.set_error_handler([](Request const &, Response & response) {
            if (response.body.empty()) {
                char const * const text = response.status == 413 ? "This is larger than 1 MB."
                                          : response.status == 411
                                              ? "A body is sent as it is, with its length ahead."
                                          : response.status == 404 ? "There is nothing of this name."
                                                                   : "This can't be read.";
                response.set_content("{\"error\":" + jsonText(text) + "}", "application/json");
            }
        });
        server_.Get("/", [](Request const &, Response & response) { givePage(response); });
        get("/api/state", [this](Request const & r) { return api_.state(parametersOf(r)); });
        get("/api/packet", [this](Request const & r) { return api_.packet(parametersOf(r)); });
        post("/api/push", [this](Request const & r) { return api_.push(parametersOf(r), r.body); });
        post("/api/close", [this](Request const & r) { return api_.close(parametersOf(r)); });
        post("/api/reset", [this](Request const & r) { return api_.reset(parametersOf(r)); });
        post("/api/silence", [this](Request const & r) { return api_.silence(parametersOf(r)); });
    }

    template <class Call>
    void get(char const * path, Call const & call) {
        server_.Get(
            path, [call](Request const & request, Response & response) { answer(request, response, call); });
    }
    template <class Call>
    void post(char const * path, Call const & call) {
        server_.Post(
            path, [call](Request const & request, Response & response) { answer(request, response, call); });
    }

    template <class Call>
    static void answer(Request const & request, Response & response, Call const & call) {
        try {
            response.set_content(call(request), "application/json");
        } catch (WebFailure const & e) {
            response.status = e.status();
            response.set_content("{\"error\":" + jsonText(e.what()) + "}", "application/json");
        } catch (std::exception const & e) {
            response.status = 400;
            response.set_content("{\"error\":" + jsonText(reasonOf(e)) + "}", "application/json");
        }
    }

    /// The page itself is asked for by an address that has the token, all else with a header, which no page
    /// of somebody else can have sent.
    bool isAllowed(Request const & request, Response & response) const {
        if (!isOwnHost(request.get_header_value("Host"), address_)) {
            refuse(request, response, "Ask for this page by the address that was printed, or as localhost.");
            return false;
        }
        bool const isPage = request.path == "/";
        std::string const given =
            isPage ? request.get_param_value("token") : request.get_header_value("X-Tav-Token");
        if (!isSame(given, token_)) {
            refuse(request, response, "The token is wrong: open the address that the gateway has printed.");
            return false;
        }
        // The bound of a body is that of its length: one without, or one that unpacks, would have none.
        bool const asks = request.method == "GET" || request.method == "HEAD";
        if (!asks && (!request.has_header("Content-Length") || request.has_header("Transfer-Encoding") ||
                      request.has_header("Content-Encoding"))) {
            response.status = 411;
            return false;
        }
        return true;
    }

    static void refuse(Request const & request, Response & response, std::string const & text) {
        response.status = forbidden;
        if (request.path.compare(0, 5, "/api/") == 0) {
            response.set_content("{\"error\":" + jsonText(text) + "}", "application/json");
        } else {
            response.set_content(text + "\n", "text/plain; charset=utf-8");
        }
    }

    static void givePage(Response & response) {
        std::string const nonce = randomHex(tokenBytes);
        response.set_header("Content-Security-Policy",
                            "default-src 'none'; script-src 'nonce-" + nonce + "'; style-src 'nonce-" +
                                nonce +
                                "'; connect-src 'self'; img-src data:; base-uri 'none'; form-action 'none'; "
                                "frame-ancestors 'none'");
        response.set_content(webPage(nonce), "text/html; charset=utf-8");
    }

    std::string const address_;
    std::string const token_;
    WebApi api_;
    TimedServer server_;
    int port_ = -1;
    /// The address that is told.
    std::string shown_ = address_;
    bool onAll_ = false;
    std::thread thread_;
};

void Web::demand() {}

Web::Web(WebOptions const & options, Template const & model, Traffic & traffic, gateway::Gateway & gateway)
    : server_(std::make_unique<Server>(options, model, traffic, gateway)) {}

Web::~Web() = default;

std::string Web::place() const {
    return server_->place();
}

bool Web::isOnAllAddresses() const {
    return server_->onAll();
}

} // namespace tool
} // namespace tav
