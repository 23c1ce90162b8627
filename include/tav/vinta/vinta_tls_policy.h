#ifndef TAV_VINTA_TLS_POLICY_H
#define TAV_VINTA_TLS_POLICY_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_time.h"

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

/// How safe a connection has to be, and how safe one has become.
///
/// A `tls_policy` is filled in once and handed to a `connect_option`.  What it promises: a connection that
/// opens has kept all of it; a policy that can't be kept (a file that is missing, a key that does not match)
/// fails the start or reconnect with result 1 and an `on_error` text that names the option; nothing is ever
/// left out silently.  The one exception is the watch over the socket, `tcp_keep_alive_s` to
/// `tcp_user_timeout_ms`: what the system does not take of it is told at WARN, and the connection opens.
/// Without a policy, and with an empty one, connections are made as `connect_option` alone describes, to the
/// byte.
///
/// A `tls_report` tells what came of it: `client::negotiated`.
namespace tav {
namespace tls {

/// A version of TLS.
enum tls_version {
    tls_1_2 = 0x0303,
    tls_1_3 = 0x0304,
};

/// Whether the certificates that the system trusts count.
enum system_trust {
    system_trust_off,   ///< They don't.
    system_trust_alone, ///< They do if neither `connect_option::ca` nor `tls_policy::trusted_pem` is given.
    system_trust_added, ///< They do, beside those.
};

/// What a connection has to keep.  Each option's comment begins with its default, and its unit if it has one.
///
/// A connection with a policy trusts what this policy and its `connect_option::ca` give and nothing from
/// earlier starts.  Files are read anew at each start and reconnect, on the client's thread "session".
///
/// It has more members than other classes: each is a choice by itself, with a default that asks for nothing,
/// and nothing changes them but who fills them in.
///
/// Thread safety: none; a start takes its own copy.
class TAV_API tls_policy {
public:
    /// An empty policy: all defaults.
    tls_policy();
    tls_policy(tls_policy const & other);
    tls_policy & operator=(tls_policy const & other);
    ~tls_policy();

    /// What a client should have on a network that is not its own: the name is checked, the system's
    /// certificates count unless others are given, the server is told the name, TLS 1.3 is offered beside
    /// 1.2, keys below 112 bits of strength are refused, and TLS 1.2 has ciphers with forward secrecy only.
    static tls_policy safe();

    /// True if every option has its default.
    bool empty() const;

    // Whom to believe.

    /// Default: false.  The certificate has to be for `connect_option::host`, or for `expected_name` if that
    /// is given: a DNS name among its alternative names (a wildcard stands for one whole label), or an IP
    /// address among them if the host is an address.  The common name is not looked at.
    bool check_name;
    /// Default: empty, the host.  The name or address that the certificate has to be for; turns the check on.
    /// For a host that is reached by another name than its own, as through a forwarded port.
    std::string expected_name;
    /// Default: empty.  Trusted certificates as PEM text, beside those of `connect_option::ca`.
    std::string trusted_pem;
    /// Default: system_trust_off.  Whether the system's certificates are trusted: those under OpenSSL's
    /// default paths, or under SSL_CERT_FILE and SSL_CERT_DIR of the environment.  Without a check of the
    /// name any holder of a public certificate is believed then, which a WARN line says.
    system_trust trust_system;
    /// Default: empty.  A file of revocation lists, in PEM.  With this or `crl_pem` the server's certificate
    /// must not be revoked, and a list of its issuer has to be there and in force.
    std::string crl_file;
    /// Default: empty.  Revocation lists as PEM text, beside those of the file.
    std::string crl_pem;
    /// Default: false.  The lists are asked for every certificate of the chain, not for the server's alone.
    bool crl_check_chain;

    // Who the client is.

    /// Default: empty.  A PEM file with the client's certificate and behind it those that lead to its root.
    std::string certificate_file;
    /// Default: empty.  The same as text; give one of the two.
    std::string certificate_pem;
    /// Default: empty, the certificate's file or text.  A PEM file with the certificate's private key.
    std::string key_file;
    /// Default: empty.  The same as text; give one of the two.
    std::string key_pem;
    /// Default: none, the key must not be encrypted.  Called for the pass phrase of an encrypted key, at each
    /// start and reconnect, on the client's thread "session"; may block, and then holds up all that this
    /// client is told to do meanwhile.  The limit of a connect begins behind it.  The library wipes its
    /// copies.
    std::function<std::string()> key_password;

    // What is spoken.

    /// Default: TLS 1.2.  The lowest version that is accepted.
    tls_version min_version;
    /// Default: TLS 1.2.  The highest version that is offered.
    tls_version max_version;
    /// Default: empty, the library's list.  Ciphers for TLS 1.2 in OpenSSL's form, for a start whose
    /// `connect_option::cipher` is empty.
    std::string ciphers;
    /// Default: empty, OpenSSL's list.  Cipher suites for TLS 1.3 in OpenSSL's form.
    std::string cipher_suites;
    /// Default: -1, OpenSSL's own.  The least strength of keys, signatures and ciphers, from 0 to 5, as
    /// OpenSSL's security levels: 2 means 112 bits, so RSA keys of 2048 bits.
    int security_level;
    /// Default: false.  The server is told `connect_option::host` (SNI), unless it is an address, where
    /// `connect_option::server_name` is empty.
    bool send_host_name;
    /// Default: empty.  The protocols offered by ALPN, the most wanted first, each of 1 to 255 bytes.  A
    /// server that chooses none is no failure: see tls_report::alpn.
    std::vector<std::string> alpn;

    // How a dead connection is noticed.

    /// Default: 0, off.  Seconds of silence, up to 32767, after which the system begins to probe the
    /// connection.
    int tcp_keep_alive_s;
    /// Default: 0, the system's.  Seconds between two probes, up to 32767; needs `tcp_keep_alive_s`.
    int tcp_keep_alive_interval_s;
    /// Default: 0, the system's.  Unanswered probes, up to 127, that end the connection; needs
    /// `tcp_keep_alive_s`.
    int tcp_keep_alive_probes;
    /// Default: 0, the system's.  Milliseconds after which sent bytes that nobody has acknowledged end the
    /// connection.
    int tcp_user_timeout_ms;

    // To look inside.

    /// Default: none.  Given each line of the key log (the NSS format, without line feed), on the I/O thread:
    /// whoever has them can decrypt the connection.  A WARN line at each start says that it is on.
    std::function<void(char const * line)> key_log;
};

/// A certificate that a server has shown.
struct TAV_API peer_certificate {
    std::string subject;            ///< As `CN=localhost,O=Example` (RFC 2253, bytes beyond ASCII escaped).
    std::string issuer;             ///< The same of who signed it.
    std::vector<std::string> names; ///< The DNS names and addresses that it is for, in its order.
    tavTime valid_from;
    tavTime valid_to;
    std::string fingerprint; ///< SHA-256 of the whole, 64 lower-case hexadecimal digits.
};

/// What was negotiated for one connection, as it stood at the end of the handshake.  A plain value.
struct TAV_API tls_report {
    std::string version; ///< "TLSv1.2" or "TLSv1.3".
    std::string cipher;  ///< OpenSSL's name, such as "ECDHE-RSA-AES256-GCM-SHA384".
    std::string alpn;    ///< The protocol that the server chose; empty if none.
    /// What the server showed, its own certificate first.
    std::vector<peer_certificate> chain;
    bool verified = false; ///< The chain was checked, and had to pass.
    std::string
        matched_name; ///< The name or address that the certificate was found to be for; empty if unasked.
    /// OpenSSL's code for what the check of the chain found; 0 is good.  Not 0 where nothing had to pass.
    int verify_result = 0;
    std::string verify_text; ///< The code in OpenSSL's words; "ok" for 0.

    /// True for no connection.
    bool empty() const;
};

/// `TLSv1.3 TLS_AES_256_GCM_SHA384 alpn h2, verified as localhost, peer CN=localhost`; the parts that there
/// are.
TAV_API std::ostream & operator<<(std::ostream & out, tls_report const & v);

} // namespace tls
} // namespace tav

#endif
