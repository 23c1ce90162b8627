// A connection that is safe, with a certificate of one's own if the server asks for one: docs/safe.md.
#include <tav/vinta/vinta.h>

#include <iostream>
#include <string>

using namespace tav::tls;

static connect_option safeOption(std::string const & host, std::string const & port, std::string const & ca) {
    connect_option option;
    option.host = host;
    option.port = port;
    option.ca = ca; // of your own authority; empty: those that the system trusts
    option.set_tls_policy(tls_policy::safe());
    option.timedout.wait_ms(5000);
    return option;
}

int main(int argc, char ** argv) {
    if (argc != 4 && argc != 6) {
        std::cerr << "usage: safe HOST PORT CA-FILE [CERTIFICATE-FILE KEY-FILE]\n";
        return 2;
    }
    connect_option option = safeOption(argv[1], argv[2], argv[3]);
    if (argc == 6) {
        tls_policy policy = tls_policy::safe();
        policy.certificate_file = argv[4];
        policy.key_file = argv[5];
        option.set_tls_policy(policy);
    }
    option.set_on_error([](unsigned long long, unsigned short, int, char const * text) {
        std::cerr << "safe: " << text << "\n";
    });
    client gateway("safe");
    auto const start = gateway.start(option);
    if (!start || start->wait() != result_ok) {
        std::cerr << "safe: " << (start ? start->error() : last_failure()).message() << "\n";
        return 1;
    }
    tls_report const report = gateway.negotiated();
    std::cout << report << "\n";
    for (peer_certificate const & each : report.chain) {
        std::cout << "  " << each.subject << ", signed by " << each.issuer << ", until " << each.valid_to
                  << ", SHA-256 " << each.fingerprint.substr(0, 16) << "...\n";
    }
    return report.verified && !report.matched_name.empty() ? 0 : 1;
}
