#include "bindings/c/options.h"

#include "bindings/c/proxy.h"

#include "tav/vinta/vinta_tls_policy.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace tav {
namespace json_client {

namespace {

constexpr int default_limit_ms = 30000;
constexpr int longest_limit_ms = std::numeric_limits<int>::max() - 5;

std::string readFile(Fields & fields, std::string_view name, std::string const & path) {
    std::string out;
    std::FILE * const file = std::fopen(path.c_str(), "rb");
    bool good = file != nullptr;
    int error = errno;
    if (good) {
        char piece[4096];
        while (std::size_t const size = std::fread(piece, 1, sizeof(piece), file)) {
            out.append(piece, size);
        }
        good = std::ferror(file) == 0;
        error = errno;
        std::fclose(file);
    }
    if (!good) {
        fields.refuse(fields.find(name),
                      "can't read " + path + ": " + std::generic_category().message(error));
    }
    return out;
}

void readTrust(Fields & in, tls::tls_policy & policy) {
    policy.check_name = in.flag("check_name", policy.check_name);
    policy.expected_name = in.text("expected_name");
    policy.trusted_pem = in.text("trusted_pem");
    policy.trust_system = static_cast<tls::system_trust>(
        in.word("trust_system", {"off", "alone", "added"}, policy.trust_system));
    policy.crl_file = in.text("crl_file");
    policy.crl_pem = in.text("crl_pem");
    policy.crl_check_chain = in.flag("crl_check_chain", policy.crl_check_chain);
}

void readIdentity(Fields & in, tls::tls_policy & policy) {
    policy.certificate_file = in.text("certificate_file");
    policy.certificate_pem = in.text("certificate_pem");
    policy.key_file = in.text("key_file");
    policy.key_pem = in.text("key_pem");
    if (in.has("key_password")) {
        policy.key_password = [word = in.text("key_password")] { return word; };
    }
}

tls::tls_version readVersion(Fields & in, std::string_view name, tls::tls_version otherwise) {
    int const place = in.word(name, {"1.2", "1.3"}, otherwise == tls::tls_1_3 ? 1 : 0);
    return place == 1 ? tls::tls_1_3 : tls::tls_1_2;
}

void readSpoken(Fields & in, tls::tls_policy & policy) {
    policy.min_version = readVersion(in, "min_version", policy.min_version);
    policy.max_version = readVersion(in, "max_version", policy.max_version);
    policy.ciphers = in.text("ciphers", policy.ciphers);
    policy.cipher_suites = in.text("cipher_suites", policy.cipher_suites);
    policy.security_level = static_cast<int>(in.number("security_level", -1, 5, policy.security_level));
    policy.send_host_name = in.flag("send_host_name", policy.send_host_name);
    policy.alpn = in.texts("alpn");
}

void readDeath(Fields & in, tls::tls_policy & policy) {
    policy.tcp_keep_alive_s = static_cast<int>(in.number("tcp_keep_alive_s", 0, 32767, 0));
    policy.tcp_keep_alive_interval_s = static_cast<int>(in.number("tcp_keep_alive_interval_s", 0, 32767, 0));
    policy.tcp_keep_alive_probes = static_cast<int>(in.number("tcp_keep_alive_probes", 0, 127, 0));
    policy.tcp_user_timeout_ms =
        static_cast<int>(in.number("tcp_user_timeout_ms", 0, std::numeric_limits<int>::max(), 0));
    for (char const * const each : {"tcp_keep_alive_interval_s", "tcp_keep_alive_probes"}) {
        if (policy.tcp_keep_alive_s == 0 && in.number(each, 0, 32767, 0) != 0) {
            throw failureOf(tls::failure::bad_policy, in.path(each) + ": this needs tcp_keep_alive_s",
                            in.path(each), static_cast<long long>(in.document().node(in.find(each)).begin));
        }
    }
}

void readKeyLog(Fields & in, tls::tls_policy & policy) {
    std::string const path = in.text("key_log_file");
    if (path.empty()) {
        return;
    }
    policy.key_log = [path](char const * line) {
        // Who reads it decrypts the connection: the file that is made is its owner's alone.
        int const descriptor = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        if (descriptor < 0) {
            return;
        }
        if (std::FILE * const file = ::fdopen(descriptor, "a")) {
            std::fprintf(file, "%s\n", line);
            std::fclose(file);
        } else {
            ::close(descriptor);
        }
    };
}

tls::tls_policy readPolicyOf(Fields & in) {
    tls::tls_policy policy = in.flag("safe", true) ? tls::tls_policy::safe() : tls::tls_policy();
    readTrust(in, policy);
    readIdentity(in, policy);
    readSpoken(in, policy);
    readDeath(in, policy);
    readKeyLog(in, policy);
    in.finish();
    return policy;
}

tls::tls_policy readPolicy(Fields & fields) {
    unsigned const object = fields.object("policy");
    if (object == 0) {
        return tls::tls_policy::safe();
    }
    Fields in(fields.document(), object);
    return readPolicyOf(in);
}

/// What a policy may have is what reading one asks for.
std::vector<std::string_view> policyNames() {
    Document nothing;
    Failure fault(0, std::string(), std::string());
    nothing.read("{}", fault);
    Fields in(nothing, Document::root);
    readPolicyOf(in);
    return in.known();
}

void readLimits(Fields & fields, tls::limit_option & limits) {
    unsigned const object = fields.object("limits");
    if (object == 0) {
        return;
    }
    Fields in(fields.document(), object);
    auto const count = [&in](char const * name) {
        return static_cast<unsigned>(in.number(name, 0, std::numeric_limits<unsigned>::max(), 0));
    };
    limits.queued_frames = count("queued_frames");
    limits.queued_bytes = static_cast<unsigned long long>(
        in.number("queued_bytes", 0, std::numeric_limits<long long>::max(), 0));
    limits.tracked_sends = count("tracked_sends");
    limits.received_waiting = count("received_waiting");
    in.finish();
}

void readProxy(Fields & fields, tls::connect_option & option, int limit_ms) {
    unsigned const object = fields.object("proxy");
    if (object == 0) {
        return;
    }
    Fields in(fields.document(), object);
    ProxyWish wish;
    wish.socks = in.word("type", {"http", "socks5"}, 0) == 1;
    option.proxy_host = in.necessaryText("host");
    option.proxy_port = in.portText("port");
    wish.user = in.text("user");
    wish.password = in.text("password");
    wish.limit_ms = limit_ms;
    in.finish();
    if (wish.user.size() > 255 || wish.password.size() > 255) {
        in.refuse(object, "user and password have 255 bytes at most");
    }
    option.set_on_http_proxy_connect([wish](unsigned socket, char const * host, unsigned short port) {
        return throughProxy(static_cast<int>(socket), host, port, wish);
    });
}

/// With gateways of its own a keeper needs no other address.
void readAddress(Fields & fields, unsigned keeper, tls::connect_option & option) {
    bool const elsewhere = keeper != 0 && Fields(fields.document(), keeper).has("gateways");
    if (elsewhere && !fields.has("host") && !fields.has("port")) {
        return;
    }
    option.host = fields.necessaryText("host");
    option.port = fields.portText("port");
}

} // namespace

std::string policyField(std::string_view text) {
    constexpr std::string_view front = "tls policy: ";
    if (text.substr(0, front.size()) != front) {
        return std::string();
    }
    text.remove_prefix(front.size());
    std::string_view const word = text.substr(0, text.find_first_of(" :"));
    if (word == "ca" || word == "cipher") {
        return std::string(word);
    }
    std::vector<std::string_view> const names = policyNames();
    bool const known = std::find(names.begin(), names.end(), word) != names.end();
    return known ? "policy." + std::string(word) : std::string();
}

std::shared_ptr<Template const> givenTemplate(Fields & fields) {
    std::string const text = fields.text("template");
    std::string const path = fields.text("template_file");
    if (!text.empty() && !path.empty()) {
        fields.refuse(fields.find("template_file"), "give the template as a text or as a file, not both");
    }
    for (char const * const each : {"template", "template_file"}) {
        if (fields.has(each)) {
            bool const file = std::string_view(each) == "template_file";
            return std::make_shared<Template const>(file ? readFile(fields, each, path) : text,
                                                    fields.path(each));
        }
    }
    return nullptr;
}

std::string portField(ConnectWish const & wish, kit::gateway const & to) {
    if (!wish.option.proxy_host.empty()) {
        return "proxy.port";
    }
    if (wish.keeper) {
        std::size_t const own = wish.option.host.empty() ? 0 : 1;
        std::vector<kit::gateway> const & all = wish.keeper->option.gateways;
        for (std::size_t i = own; i < all.size(); ++i) {
            if (all[i].host == to.host && all[i].port == to.port) {
                return "keeper.gateways[" + std::to_string(i - own) + "].port";
            }
        }
    }
    return "port";
}

int readLimit(Fields & fields) {
    return static_cast<int>(fields.number("time_limit_ms", 1, longest_limit_ms, default_limit_ms));
}

ConnectWish readConnect(Fields & fields) {
    ConnectWish wish;
    tls::connect_option & option = wish.option;
    unsigned const keeper = fields.object("keeper");
    readAddress(fields, keeper, option);
    option.ca = fields.text("ca");
    option.cipher = fields.text("cipher");
    option.server_name = fields.text("server_name");
    wish.heartbeat = fields.flag("heartbeat", true);
    wish.limit_ms = readLimit(fields);
    option.set_tls_policy(readPolicy(fields));
    readLimits(fields, option.limits);
    readProxy(fields, option, wish.limit_ms);
    auto const messages = givenTemplate(fields);
    fields.finish();
    if (messages) {
        wish.messages = messages;
        option.metainfo = messages->text();
    }
    if (keeper != 0) {
        wish.keeper = readKeeper(fields.document(), keeper, option, wish.messages);
    }
    return wish;
}

} // namespace json_client
} // namespace tav
