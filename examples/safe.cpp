// A connection that is safe, and three that are refused: docs/safe.md.
#include <tav/vinta/vinta.h>

#include "steps.h"

#include <sstream>
#include <string>

using namespace tav::tls;

namespace {

connect_option safeOption(std::string const & host, std::string const & port, std::string const & ca) {
    connect_option option;
    option.host = host;
    option.port = port;
    option.ca = ca; // of your own authority; empty: those that the system trusts
    option.set_tls_policy(tls_policy::safe());
    option.timedout.wait_ms(5000);
    return option;
}

std::string textOf(tls_report const & report) {
    std::ostringstream out;
    out << report;
    return out.str();
}

void tell(steps::Talk & talk, client const & gateway) {
    tls_report const report = gateway.negotiated();
    talk.step("connected: " + textOf(report), report.verified && !report.matched_name.empty());
    for (peer_certificate const & each : report.chain) {
        std::ostringstream line;
        line << each.subject << ", signed by " << each.issuer << ", until " << each.valid_to << ", SHA-256 "
             << each.fingerprint.substr(0, 16) << "...";
        talk.note(line.str());
    }
}

/// Connects as `option` says, which has to fail with a text in which `reason` stands.
void expectRefusal(steps::Talk & talk, client & gateway, connect_option option, std::string const & what,
                   std::string const & reason) {
    auto const told = std::make_shared<steps::Events>();
    option.set_on_error([&talk, told, reason](unsigned long long, unsigned short, int, char const * text) {
        talk.note(text);
        told->happened(std::string(text).find(reason) != std::string::npos ? "as expected" : "otherwise");
    });
    bool const failed = gateway.start(option)->wait() == result_error;
    talk.step(what + " is refused", failed && told->wait("as expected"));
}

} // namespace

int main(int argc, char ** argv) {
    if (argc != 3 && argc != 4) {
        std::cerr << "usage: safe HOST PORT [CA-FILE]\n";
        return 2;
    }
    connect_option const option = safeOption(argv[1], argv[2], argc == 4 ? argv[3] : "");
    if (option.host.empty() || option.port.empty()) {
        std::cerr << "safe: host and port must not be empty\n";
        return 2;
    }
    steps::Talk talk;
    client & gateway = client::instance("safe");

    bool const open = gateway.start(option)->wait() == result_ok;
    talk.step("a server with the right certificate", open);
    if (open) {
        tell(talk, gateway);
    }

    tls_policy policy = tls_policy::safe();
    policy.expected_name = "somebody-else.example";
    connect_option other = option;
    other.set_tls_policy(policy);
    expectRefusal(talk, gateway, other, "a server of another name", "hostname mismatch");

    policy = tls_policy::safe();
    policy.certificate_file = "/nowhere/me.pem";
    other.set_tls_policy(policy);
    expectRefusal(talk, gateway, other, "a policy that can't be kept", "certificate_file /nowhere/me.pem");

    policy = tls_policy::safe();
    policy.ciphers = "NO-SUCH-CIPHER";
    other.set_tls_policy(policy);
    expectRefusal(talk, gateway, other, "a cipher that is none", "ciphers NO-SUCH-CIPHER");

    client::finalize();
    return talk.failed() ? 1 : 0;
}
