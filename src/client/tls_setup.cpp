#include "client/tls_setup.h"

#include "client/pem_text.h"
#include "client/trust.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/platform.h"

#include <asio/ip/address.hpp>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cstdlib>
#include <filesystem>
#include <limits>
#include <utility>
#include <vector>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using tav::detail::here;

constexpr std::size_t most_name_bytes = 255;
constexpr std::size_t most_protocol_bytes = 255;
constexpr int most_keep_alive_s = 32767;
constexpr int most_probes = 127;
constexpr int highest_security_level = 5;

[[noreturn]] void refuse(std::string const & what) {
    throw tls_policy_error("tls policy: " + tav::detail::shownText(what));
}

/// Has what reads PEM say that a policy is wrong.
template <class Read>
auto reading(Read const & read) -> decltype(read()) {
    try {
        return read();
    } catch (tls_policy_error const &) {
        throw;
    } catch (std::runtime_error const & e) {
        refuse(e.what());
    }
}

/// The text of an option that is a file or a text; `label` is the option's name without its end.
pem_text text_of(std::string const & label, std::string const & file, std::string const & text) {
    if (!file.empty() && !text.empty()) {
        refuse(label + "_file and " + label + "_pem are both given");
    }
    return file.empty() ? pem_text(label + "_pem", text) : pem_text::of_file(label + "_file", file);
}

bool is_address(std::string const & text) {
    std::error_code ec;
    asio::ip::make_address(text, ec);
    return !ec;
}

/// A DNS name as certificates and handshakes have it: without the point of the root at its end.
std::string without_root(std::string name) {
    if (name.size() > 1 && name.back() == '.') {
        name.pop_back();
    }
    return name;
}

int key_log_index() {
    static int const index = ::SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

void on_key_line(SSL const * connection, char const * line) {
    auto const * const f = static_cast<std::function<void(char const *)> const *>(
        ::SSL_CTX_get_ex_data(::SSL_get_SSL_CTX(connection), key_log_index()));
    try {
        if (f != nullptr) {
            (*f)(line);
        }
    } catch (...) {
        tav::detail::reportCaught(here("tav::tls::impl::tls_setup::on_key_line"));
    }
}

void check_range(char const * option, int value, int least, int most) {
    if (value < least || value > most) {
        refuse(std::string(option) + " " + std::to_string(value) + ": not from " + std::to_string(least) +
               " to " + std::to_string(most));
    }
}

} // namespace

tls_setup::tls_setup(tav_istr name, connect_option const & option)
    : name_(name),
      ssl_context_(asio::ssl::context::tlsv12_client),
      verifies_(false),
      expects_address_(false),
      keep_alive_s_(0),
      keep_alive_interval_s_(0),
      keep_alive_probes_(0),
      user_timeout_ms_(0) {
    tls_policy const & policy = *option.policy;
    ::ERR_clear_error();
    set_protocol(policy, option);
    set_alpn(policy);
    set_trust(policy, option);
    set_revocation(policy);
    set_expected_name(policy, option);
    set_identity(policy);
    set_server_name(policy, option);
    set_key_log(policy);
    set_watch(policy);
    ::ERR_clear_error();
}

std::error_code tls_setup::watch(int socket) const {
    std::error_code ec;
    if (keep_alive_s_ > 0) {
        ec = platform::keepAlive(socket, keep_alive_s_, keep_alive_interval_s_, keep_alive_probes_);
    }
    if (user_timeout_ms_ > 0) {
        std::error_code const second = platform::limitUnacknowledged(socket, user_timeout_ms_);
        ec = ec ? ec : second;
    }
    return ec;
}

void tls_setup::set_protocol(tls_policy const & policy, connect_option const & option) {
    if (policy.security_level != -1) {
        check_range("security_level", policy.security_level, 0, highest_security_level);
        ::SSL_CTX_set_security_level(handle(), policy.security_level);
    }
    check_range("min_version", policy.min_version, tls_1_2, tls_1_3);
    check_range("max_version", policy.max_version, tls_1_2, tls_1_3);
    if (policy.min_version > policy.max_version) {
        refuse("min_version is above max_version");
    }
    if (::SSL_CTX_set_max_proto_version(handle(), policy.max_version) != 1 ||
        ::SSL_CTX_set_min_proto_version(handle(), policy.min_version) != 1) {
        refuse("max_version: " + openssl_reason("not supported"));
    }
    ::SSL_CTX_set_options(handle(), SSL_OP_NO_RENEGOTIATION);
    bool const by_option = !option.cipher.empty();
    std::string const list = by_option || policy.ciphers.empty() ? option.cipher_list() : policy.ciphers;
    if (::SSL_CTX_set_cipher_list(handle(), list.c_str()) != 1) {
        refuse(std::string(by_option ? "cipher " : "ciphers ") + list + ": " +
               openssl_reason("no cipher match"));
    }
    if (!policy.cipher_suites.empty() &&
        ::SSL_CTX_set_ciphersuites(handle(), policy.cipher_suites.c_str()) != 1) {
        refuse("cipher_suites " + policy.cipher_suites + ": " + openssl_reason("no cipher match"));
    }
}

void tls_setup::set_alpn(tls_policy const & policy) {
    std::string wire;
    for (std::string const & protocol : policy.alpn) {
        if (protocol.empty() || protocol.size() > most_protocol_bytes) {
            refuse("alpn \"" + protocol + "\": not of 1 to 255 bytes");
        }
        wire += static_cast<char>(static_cast<unsigned char>(protocol.size()));
        wire += protocol;
    }
    if (!wire.empty() &&
        ::SSL_CTX_set_alpn_protos(handle(), reinterpret_cast<unsigned char const *>(wire.data()),
                                  static_cast<unsigned>(wire.size())) != 0) {
        refuse("alpn: " + openssl_reason("refused"));
    }
}

void tls_setup::set_trust(tls_policy const & policy, connect_option const & option) {
    check_range("trust_system", policy.trust_system, system_trust_off, system_trust_added);
    bool const own = !option.ca.empty() || !policy.trusted_pem.empty();
    bool const of_system =
        policy.trust_system == system_trust_added || (policy.trust_system == system_trust_alone && !own);
    if (!option.ca.empty()) {
        trust_files(option.ca);
    }
    if (!policy.trusted_pem.empty()) {
        X509_STORE * const store = ::SSL_CTX_get_cert_store(handle());
        for (auto const & each :
             reading([&] { return pem_text("trusted_pem", policy.trusted_pem).certificates(); })) {
            if (::X509_STORE_add_cert(store, each.get()) != 1) {
                refuse("trusted_pem: " + openssl_reason("refused"));
            }
        }
    }
    if (of_system) {
        trust_system();
        if (!policy.check_name && policy.expected_name.empty()) {
            log_parts(tavLogger::WARN, here("tav::tls::impl::tls_setup::set_trust"), name_,
                      " the system's authorities are trusted and no name is checked: any peer with a public "
                      "certificate is believed");
        }
    }
    verifies_ = own || of_system;
}

void tls_setup::trust_files(std::string const & path) {
    certificate_path const found = look_at_certificates(path);
    if (!found.trouble.empty()) {
        refuse("ca " + path + ": " + found.trouble);
    }
    for (std::string const & file : found.files) {
        log_parts(tavLogger::INFO, here("tav::tls::impl::tls_setup::trust_files"), name_,
                  " load_verify_file ", file);
        X509_STORE * const store = ::SSL_CTX_get_cert_store(handle());
        for (auto const & each : reading([&] { return pem_text::of_file("ca", file).certificates(); })) {
            if (::X509_STORE_add_cert(store, each.get()) != 1) {
                refuse("ca " + file + ": " + openssl_reason("refused"));
            }
        }
    }
}

// The library looks into these places without a word when there is nothing.
void tls_setup::trust_system() {
    auto const place = [](char const * variable, char const * otherwise) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the library sets none.
        char const * const set = std::getenv(variable);
        return std::string(set != nullptr ? set : otherwise);
    };
    std::string const file = place(::X509_get_default_cert_file_env(), ::X509_get_default_cert_file());
    std::string const folder = place(::X509_get_default_cert_dir_env(), ::X509_get_default_cert_dir());
    std::error_code ec;
    if (!std::filesystem::exists(file, ec) && !std::filesystem::exists(folder, ec)) {
        refuse("trust_system: neither " + file + " nor " + folder + " is there");
    }
    if (::SSL_CTX_set_default_verify_paths(handle()) != 1) {
        refuse("trust_system: " + openssl_reason("they can't be read"));
    }
    ::ERR_clear_error();
}

void tls_setup::set_revocation(tls_policy const & policy) {
    bool const given = !policy.crl_file.empty() || !policy.crl_pem.empty();
    if (!given && policy.crl_check_chain) {
        refuse("crl_check_chain: neither crl_file nor crl_pem is given");
    }
    if (!given) {
        return;
    }
    if (!verifies_) {
        refuse("revocation lists are given, and no certificate is trusted: give ca, trusted_pem or "
               "trust_system");
    }
    X509_STORE * const store = ::SSL_CTX_get_cert_store(handle());
    auto const add = [store](pem_text const & text) {
        for (auto const & each : text.revocation_lists()) {
            if (::X509_STORE_add_crl(store, each.get()) != 1) {
                refuse(text.label() + ": " + openssl_reason("refused"));
            }
        }
    };
    reading([&] {
        if (!policy.crl_file.empty()) {
            add(pem_text::of_file("crl_file", policy.crl_file));
        }
        if (!policy.crl_pem.empty()) {
            add(pem_text("crl_pem", policy.crl_pem));
        }
    });
    ::X509_VERIFY_PARAM_set_flags(::SSL_CTX_get0_param(handle()),
                                  X509_V_FLAG_CRL_CHECK |
                                      (policy.crl_check_chain ? X509_V_FLAG_CRL_CHECK_ALL : 0ul));
}

void tls_setup::set_expected_name(tls_policy const & policy, connect_option const & option) {
    bool const given = !policy.expected_name.empty();
    if (!policy.check_name && !given) {
        return;
    }
    if (!verifies_) {
        refuse(std::string(given ? "expected_name" : "check_name") +
               ": no certificate is trusted: give ca, trusted_pem or trust_system");
    }
    std::string const wanted = given ? policy.expected_name : option.host;
    X509_VERIFY_PARAM * const param = ::SSL_CTX_get0_param(handle());
    std::error_code ec;
    asio::ip::address const address = asio::ip::make_address(wanted, ec);
    expects_address_ = !ec;
    int set = 0;
    if (!expects_address_) {
        expected_name_ = without_root(wanted);
        ::X509_VERIFY_PARAM_set_hostflags(param, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS |
                                                     X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
        // A point ahead of a name would stand for all names below it.
        bool const plain = expected_name_.front() != '.' && expected_name_.size() <= most_name_bytes;
        set = plain ? ::X509_VERIFY_PARAM_set1_host(param, expected_name_.data(), expected_name_.size()) : 0;
    } else if (address.is_v4()) {
        auto const bytes = address.to_v4().to_bytes();
        expected_name_ = address.to_string();
        set = ::X509_VERIFY_PARAM_set1_ip(param, bytes.data(), bytes.size());
    } else {
        // A certificate knows no zones.
        auto const bytes = address.to_v6().to_bytes();
        expected_name_ = asio::ip::address_v6(bytes).to_string();
        set = ::X509_VERIFY_PARAM_set1_ip(param, bytes.data(), bytes.size());
    }
    if (set != 1) {
        refuse((given ? "expected_name " : "check_name: host ") + wanted +
               ": no name that a certificate can have");
    }
}

void tls_setup::set_identity(tls_policy const & policy) {
    bool const has_key = !policy.key_file.empty() || !policy.key_pem.empty();
    if (policy.certificate_file.empty() && policy.certificate_pem.empty()) {
        if (has_key || policy.key_password) {
            refuse(std::string(policy.key_file.empty() ? has_key ? "key_pem" : "key_password" : "key_file") +
                   " is given without a certificate");
        }
        return;
    }
    pem_text const shown =
        reading([&] { return text_of("certificate", policy.certificate_file, policy.certificate_pem); });
    auto const chain = reading([&] { return shown.certificates(); });
    pem_text const secret = reading([&] {
        return has_key ? text_of("key", policy.key_file, policy.key_pem)
                       : text_of("certificate", policy.certificate_file, policy.certificate_pem);
    });
    auto const key = reading([&] { return secret.key(policy.key_password); });
    if (::X509_check_private_key(chain.front().get(), key.get()) != 1) {
        refuse(secret.label() + " does not match " + shown.label() + ": " + openssl_reason("another key"));
    }
    if (::SSL_CTX_use_certificate(handle(), chain.front().get()) != 1) {
        refuse(shown.label() + ": " + openssl_reason("refused"));
    }
    for (std::size_t i = 1; i < chain.size(); ++i) {
        if (::SSL_CTX_add1_chain_cert(handle(), chain[i].get()) != 1) {
            refuse(shown.label() + ": " + openssl_reason("refused"));
        }
    }
    if (::SSL_CTX_use_PrivateKey(handle(), key.get()) != 1) {
        refuse(secret.label() + ": " + openssl_reason("refused"));
    }
}

void tls_setup::set_server_name(tls_policy const & policy, connect_option const & option) {
    if (!option.server_name.empty()) {
        server_name_ = option.server_name;
    } else if (policy.send_host_name && !is_address(option.host)) {
        server_name_ = without_root(option.host);
    }
    if (server_name_.size() > most_name_bytes) {
        refuse("send_host_name: a name of more than 255 bytes");
    }
}

void tls_setup::set_key_log(tls_policy const & policy) {
    if (!policy.key_log) {
        return;
    }
    key_log_ = policy.key_log;
    if (::SSL_CTX_set_ex_data(handle(), key_log_index(), &key_log_) != 1) {
        refuse("key_log: " + openssl_reason("out of memory"));
    }
    ::SSL_CTX_set_keylog_callback(handle(), on_key_line);
    log_parts(tavLogger::WARN, here("tav::tls::impl::tls_setup::set_key_log"), name_,
              " key log is on: who reads it can decrypt this connection");
}

void tls_setup::set_watch(tls_policy const & policy) {
    check_range("tcp_keep_alive_s", policy.tcp_keep_alive_s, 0, most_keep_alive_s);
    check_range("tcp_keep_alive_interval_s", policy.tcp_keep_alive_interval_s, 0, most_keep_alive_s);
    check_range("tcp_keep_alive_probes", policy.tcp_keep_alive_probes, 0, most_probes);
    check_range("tcp_user_timeout_ms", policy.tcp_user_timeout_ms, 0, std::numeric_limits<int>::max());
    if (policy.tcp_keep_alive_s == 0 &&
        (policy.tcp_keep_alive_interval_s != 0 || policy.tcp_keep_alive_probes != 0)) {
        refuse("tcp_keep_alive_interval_s and tcp_keep_alive_probes need tcp_keep_alive_s");
    }
    keep_alive_s_ = policy.tcp_keep_alive_s;
    keep_alive_interval_s_ = policy.tcp_keep_alive_interval_s;
    keep_alive_probes_ = policy.tcp_keep_alive_probes;
    user_timeout_ms_ = policy.tcp_user_timeout_ms;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
