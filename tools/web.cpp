#include "tools/web.h"

#include "tools/failure.h"
#include "tools/output.h"
#include "tools/web_api.h"

#include <arpa/inet.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <httplib.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t tokenBytes = 16;
constexpr std::size_t largestMessage = 1024 * 1024;
constexpr std::size_t threads = 4;
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

} // namespace

class Web::Server {
public:
    Server(WebOptions const & options, Template const & model, Traffic & traffic, gateway::Gateway & gateway)
        : address_(options.address), token_(randomHex(tokenBytes)), api_(options, model, traffic, gateway) {
        server_.new_task_queue = [] { return new httplib::ThreadPool(threads); };
        // Nobody else may listen on the port as well.
        server_.set_socket_options([](socket_t socket) {
            int const yes = 1;
            ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        });
        server_.set_payload_max_length(largestMessage);
        // A browser that keeps connections would keep the threads.
        server_.set_keep_alive_max_count(1);
        // Nor may one that is opened ahead of a question, or by somebody who never asks.
        server_.set_keep_alive_timeout(1);
        constexpr time_t patience = 5;
        server_.set_read_timeout(patience);
        server_.set_write_timeout(patience);
        server_.set_default_headers(commonHeaders());
        route();
        port_ = options.port == 0                              ? server_.bind_to_any_port(address_)
                : server_.bind_to_port(address_, options.port) ? options.port
                                                               : -1;
        if (port_ < 0) {
            throw Failure(exitNetwork,
                          "--web: can't listen on " + address_ + " port " + std::to_string(options.port));
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
        bool const braced = address_.find(':') != std::string::npos;
        return "http://" + (braced ? "[" + address_ + "]" : address_) + ":" + std::to_string(port_) +
               "/?token=" + token_;
    }

private:
    using Request = httplib::Request;
    using Response = httplib::Response;

    void route() {
        server_.set_pre_routing_handler([this](Request const & request, Response & response) {
            return isAllowed(request, response) ? httplib::Server::HandlerResponse::Unhandled
                                                : httplib::Server::HandlerResponse::Handled;
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
            refuse(response, "Ask for this page by the address that was printed, or as localhost.\n");
            return false;
        }
        bool const isPage = request.method == "GET" && request.path == "/";
        std::string const given =
            isPage ? request.get_param_value("token") : request.get_header_value("X-Tav-Token");
        if (!isSame(given, token_)) {
            refuse(response, "The token is wrong: open the address that the gateway has printed.\n");
            return false;
        }
        return true;
    }

    static void refuse(Response & response, char const * text) {
        response.status = forbidden;
        response.set_content(text, "text/plain; charset=utf-8");
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
    httplib::Server server_;
    int port_ = -1;
    std::thread thread_;
};

void Web::demand() {}

Web::Web(WebOptions const & options, Template const & model, Traffic & traffic, gateway::Gateway & gateway)
    : server_(std::make_unique<Server>(options, model, traffic, gateway)) {}

Web::~Web() = default;

std::string Web::place() const {
    return server_->place();
}

} // namespace tool
} // namespace tav
