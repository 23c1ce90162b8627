#include "tav/vinta/vinta_tls_policy.h"

#include <ostream>

namespace tav {
namespace tls {

namespace {

/// For TLS 1.2: a key of its own for each connection, and authenticated encryption.
char const safe_ciphers[] =
    "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-RSA-AES128-GCM-SHA256:ECDHE-ECDSA-AES256-GCM-SHA384:"
    "ECDHE-RSA-AES256-GCM-SHA384:ECDHE-ECDSA-CHACHA20-POLY1305:ECDHE-RSA-CHACHA20-POLY1305";

constexpr int safe_security_level = 2;

} // namespace

tls_policy::tls_policy()
    : check_name(false),
      trust_system(system_trust_off),
      crl_check_chain(false),
      min_version(tls_1_2),
      max_version(tls_1_2),
      security_level(-1),
      send_host_name(false),
      tcp_keep_alive_s(0),
      tcp_keep_alive_interval_s(0),
      tcp_keep_alive_probes(0),
      tcp_user_timeout_ms(0) {}

tls_policy::tls_policy(tls_policy const & other) = default;

tls_policy & tls_policy::operator=(tls_policy const & other) = default;

tls_policy::~tls_policy() = default;

tls_policy tls_policy::safe() {
    tls_policy out;
    out.check_name = true;
    out.trust_system = system_trust_alone;
    out.max_version = tls_1_3;
    out.ciphers = safe_ciphers;
    out.security_level = safe_security_level;
    out.send_host_name = true;
    return out;
}

bool tls_policy::empty() const {
    bool const believes_all = !check_name && expected_name.empty() && trusted_pem.empty() &&
                              trust_system == system_trust_off && crl_file.empty() && crl_pem.empty() &&
                              !crl_check_chain;
    bool const is_nobody = certificate_file.empty() && certificate_pem.empty() && key_file.empty() &&
                           key_pem.empty() && !key_password;
    bool const speaks_as_ever = min_version == tls_1_2 && max_version == tls_1_2 && ciphers.empty() &&
                                cipher_suites.empty() && security_level == -1 && !send_host_name &&
                                alpn.empty();
    bool const probes_nothing = tcp_keep_alive_s == 0 && tcp_keep_alive_interval_s == 0 &&
                                tcp_keep_alive_probes == 0 && tcp_user_timeout_ms == 0;
    return believes_all && is_nobody && speaks_as_ever && probes_nothing && !key_log;
}

bool tls_report::empty() const {
    return version.empty();
}

std::ostream & operator<<(std::ostream & out, tls_report const & v) {
    if (v.empty()) {
        return out << "no connection";
    }
    std::string text = v.version + " " + v.cipher;
    if (!v.alpn.empty()) {
        text += " alpn " + v.alpn;
    }
    text += v.verified ? ", verified" : ", not verified";
    if (!v.matched_name.empty()) {
        text += " as " + v.matched_name;
    }
    if (!v.chain.empty()) {
        text += ", peer " + v.chain.front().subject;
    }
    return out << text;
}

} // namespace tls
} // namespace tav
