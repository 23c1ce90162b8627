#include "tools/connection.h"

#include "tools/command.h"
#include "tools/failure.h"
#include "tools/input.h"
#include "tools/integers.h"

#include <tav/kit/failure_name.h>

#include <fcntl.h>
#include <netdb.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <memory>
#include <mutex>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t largestFile = 16 * 1024 * 1024;

std::map<std::string, tls::tls_version> const & versionNames() {
    static std::map<std::string, tls::tls_version> const names = {{"1.2", tls::tls_1_2},
                                                                  {"1.3", tls::tls_1_3}};
    return names;
}

std::map<std::string, tls::system_trust> const & trustNames() {
    static std::map<std::string, tls::system_trust> const names = {{"off", tls::system_trust_off},
                                                                   {"alone", tls::system_trust_alone},
                                                                   {"added", tls::system_trust_added}};
    return names;
}

/// The lines of the key log, appended to a file that nobody else may read.
class KeyLog {
public:
    KeyLog(std::string const & path, std::shared_ptr<std::atomic<int>> error)
        : error_(std::move(error)),
          fd_(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600)) {
        if (fd_ < 0) {
            throw systemFailure(path, "can't open", errno);
        }
    }
    ~KeyLog() { ::close(fd_); }
    KeyLog(KeyLog const &) = delete;
    KeyLog & operator=(KeyLog const &) = delete;

    void put(char const * line) {
        std::string const text = std::string(line) + "\n";
        std::string_view rest = text;
        // What can't be written is missing: the connection goes on without it, and it is told at the end.
        std::lock_guard<std::mutex> const guard(mutex_);
        while (!rest.empty()) {
            ssize_t const n = ::write(fd_, rest.data(), rest.size());
            if (n >= 0) {
                rest.remove_prefix(static_cast<std::size_t>(n));
            } else if (errno != EINTR) {
                int none = 0;
                error_->compare_exchange_strong(none, errno);
                return;
            }
        }
    }

private:
    std::mutex mutex_;
    std::shared_ptr<std::atomic<int>> const error_;
    int const fd_;
};

std::string lineOf(std::string const & path) {
    std::string name;
    std::string const text = readWhole(path, name, largestFile);
    return text.substr(0, text.find_first_of("\r\n"));
}

void addTrust(CLI::App & app, ConnectionOptions & options) {
    tls::tls_policy & policy = options.policy;
    app.add_option("--ca", options.ca, "a file of authorities, or a folder of them ending in /")
        ->type_name("FILE");
    app.add_option("--also-trust", options.alsoTrusted, "authorities beside those of --ca")
        ->type_name("FILE");
    addChoice(app, "--trust", policy.trust_system, trustNames(),
              "the system's authorities; alone, which is the default: if no others are given");
    app.add_option("--name", policy.expected_name, "what the certificate has to be for, in place of HOST")
        ->type_name("NAME");
    app.add_flag("--no-name-check", options.noNameCheck, "take a certificate for any name");
    CLI::Option * const insecure =
        app.add_flag("--insecure", options.insecure, "check nothing, and believe any server");
    for (char const * const checked : {"--ca", "--also-trust", "--trust", "--name"}) {
        insecure->excludes(app.get_option(checked));
    }
    app.add_option("--crl", policy.crl_file, "certificates that were taken back")->type_name("FILE");
    app.add_flag("--crl-chain", policy.crl_check_chain,
                 "a list for every certificate of the chain, not for the server's alone");
}

void addIdentity(CLI::App & app, ConnectionOptions & options) {
    tls::tls_policy & policy = options.policy;
    app.add_option("--cert", policy.certificate_file, "a certificate of the client's own, with its chain")
        ->type_name("FILE");
    app.add_option("--key", policy.key_file, "its key, unless that stands in the same file")
        ->type_name("FILE");
    app.add_option("--key-password-file", options.passwordFile, "its first line is the key's pass phrase")
        ->type_name("FILE");
}

void addSpoken(CLI::App & app, ConnectionOptions & options) {
    tls::tls_policy & policy = options.policy;
    addChoice(app, "--tls-min", policy.min_version, versionNames(), "the lowest version of TLS");
    addChoice(app, "--tls-max", policy.max_version, versionNames(), "the highest version of TLS");
    app.add_option("--ciphers", policy.ciphers, "for TLS 1.2, in OpenSSL's form")->type_name("LIST");
    app.add_option("--cipher-suites", policy.cipher_suites, "for TLS 1.3, in OpenSSL's form")
        ->type_name("LIST");
    app.add_option("--security-level", policy.security_level, "of keys, signatures and ciphers, from 0 to 5")
        ->check(CLI::Range(0, 5))
        ->type_name("N");
    app.add_option("--server-name", options.serverName, "the name that the server is told, in place of HOST")
        ->type_name("NAME");
    app.add_flag("--no-server-name", options.noHostName, "tell the server no name");
    app.add_option("--alpn", policy.alpn, "a protocol to offer, the most wanted first; may come again")
        ->type_name("NAME");
}

void addWatch(CLI::App & app, ConnectionOptions & options) {
    tls::tls_policy & policy = options.policy;
    constexpr int longest = 32767;
    constexpr int mostProbes = 127;
    app.add_option("--keep-alive", policy.tcp_keep_alive_s, "seconds of silence until TCP probes")
        ->check(CLI::Range(0, longest))
        ->type_name("S");
    app.add_option("--keep-alive-interval", policy.tcp_keep_alive_interval_s, "seconds between two probes")
        ->check(CLI::Range(0, longest))
        ->type_name("S");
    app.add_option("--keep-alive-probes", policy.tcp_keep_alive_probes, "probes until the connection ends")
        ->check(CLI::Range(0, mostProbes))
        ->type_name("N");
    app.add_option("--user-timeout", policy.tcp_user_timeout_ms,
                   "milliseconds until bytes that nobody acknowledges end the connection")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()))
        ->type_name("MS");
    app.add_option("--keylog", options.keyLog,
                   "append the keys of the connection, for who is to decrypt a capture of it")
        ->type_name("FILE");
}

} // namespace

void parsePlace(std::string const & place, std::string & host, std::string & port) {
    std::size_t const colon = place.rfind(':');
    bool const braced = !place.empty() && place.front() == '[';
    std::size_t const close = place.find(']');
    bool const good = colon != std::string::npos && colon != 0 && colon + 1 < place.size() &&
                      (braced ? close + 1 == colon : place.find(':') == colon);
    if (!good) {
        throw Failure(exitUse, "\"" + place + "\" is not HOST:PORT, nor [ADDRESS]:PORT");
    }
    host = braced ? place.substr(1, close - 1) : place.substr(0, colon);
    port = place.substr(colon + 1);
    Integer number;
    bool const numeric = readInteger(port, number);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the command line is read by one thread.
    bool const named = !numeric && ::getservbyname(port.c_str(), "tcp") != nullptr;
    if (!named && (!numeric || number.negative || number.magnitude == 0 || number.magnitude > 65535)) {
        throw Failure(exitUse,
                      "\"" + place + "\": a port is a number from 1 to 65535, or the name of a service");
    }
}

void addConnectionOptions(CLI::App & app, ConnectionOptions & options) {
    app.add_option("HOST:PORT", options.place, "the gateway; an address of IPv6 stands between brackets")
        ->required();
    addTrust(app, options);
    addIdentity(app, options);
    addSpoken(app, options);
    addWatch(app, options);
    app.add_option("--timeout", options.timeoutMs, "milliseconds for connecting, and for each reply")
        ->check(CLI::Range(1, std::numeric_limits<int>::max() / 2))
        ->type_name("MS")
        ->capture_default_str();
}

tls::connect_option connectOption(ConnectionOptions const & options) {
    tls::connect_option made;
    parsePlace(options.place, made.host, made.port);
    made.ca = options.ca;
    made.server_name = options.serverName;
    tls::tls_policy policy = options.policy;
    std::string name;
    if (!options.alsoTrusted.empty()) {
        policy.trusted_pem = readWhole(options.alsoTrusted, name, largestFile);
    }
    for (std::string const & file : {options.ca, policy.certificate_file, policy.key_file, policy.crl_file}) {
        if (!file.empty() && ::access(file.c_str(), R_OK) != 0) {
            throw systemFailure(file, "can't open", errno);
        }
    }
    if (options.noNameCheck) {
        policy.check_name = false;
    }
    if (options.noHostName) {
        policy.send_host_name = false;
    }
    if (options.insecure) {
        made.ca.clear();
        policy.check_name = false;
        policy.expected_name.clear();
        policy.trusted_pem.clear();
        policy.trust_system = tls::system_trust_off;
    }
    if (!options.passwordFile.empty()) {
        policy.key_password = [word = lineOf(options.passwordFile)] { return word; };
    }
    if (!options.keyLog.empty()) {
        auto const log = std::make_shared<KeyLog>(options.keyLog, options.keyLogError);
        policy.key_log = [log](char const * line) { log->put(line); };
    }
    made.set_tls_policy(policy);
    return made;
}

int withKeyLog(ConnectionOptions const & options, int code, Output & output) {
    int const error = *options.keyLogError;
    if (error == 0) {
        return code;
    }
    output.tell(std::string("tav: ") + systemFailure(options.keyLog, "can't write", error).what() + "\n");
    return code > exitNetwork ? code : static_cast<int>(exitUse);
}

std::string nameOf(std::error_code why) {
    return kit::failure_name(why);
}

std::string toldFailure(std::error_code why, std::string const & text) {
    return nameOf(why) + ": " + why.message() + (text.empty() ? "" : " (" + text + ")");
}

} // namespace tool
} // namespace tav
