#include "tools/command.h"
#include "tools/connection.h"
#include "tools/failure.h"
#include "tools/terminal_text.h"
#include "tools/tls_probe.h"

#include <cstdio>
#include <memory>

namespace tav {
namespace tool {

namespace {

struct Options {
    std::string place;
    ProbeOptions probe;
    bool json = false;
};

std::string milliseconds(double ms) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f ms", ms);
    return text;
}

std::string joined(std::vector<std::string> const & parts) {
    std::string text;
    for (std::string const & part : parts) {
        text += (text.empty() ? "" : ", ") + part;
    }
    return text.empty() ? "none" : text;
}

std::string leftText(CertificateText const & one) {
    int const days = one.daysLeft < 0 ? -one.daysLeft : one.daysLeft;
    std::string const text = std::to_string(days) + (days == 1 ? " day" : " days");
    return one.expired ? "expired " + text + " ago" : text + " left";
}

void print(CertificateText const & one, std::size_t i, Output & output) {
    output.line(output.in('b', "certificate " + std::to_string(i)) + ": " + forTerminal(one.subject) +
                (one.selfSigned ? " (self-signed)" : ""));
    output.line("    issuer       " + forTerminal(one.issuer));
    output.line("    names        " + forTerminal(joined(one.names)));
    output.line("    key          " + one.key);
    output.line("    valid        " + one.validFrom + " to " + one.validTo + ", " + leftText(one));
    output.line("    SHA-256      " + one.fingerprint);
    output.line("    of its key   " + one.keyFingerprint);
}

bool isGood(ProbeResult const & result) {
    return result.faults.empty() && result.nameMatches;
}

std::string noMatch(ProbeResult const & result) {
    return "the certificate is not for " + result.name;
}

std::string mendOfName(ProbeResult const & result) {
    bool const named = !result.chain.empty() && !result.chain.front().names.empty();
    return named ? "connect by one of its names, " + joined(result.chain.front().names) + ", or have " +
                       result.name + " added"
                 : "have one made with " + result.name + " as a subject alternative name";
}

void print(ProbeResult const & result, Output & output) {
    output.line("address      " + result.address);
    for (auto const & phase : result.phases) {
        output.line(phase.first + std::string(13 - phase.first.size(), ' ') + milliseconds(phase.second));
    }
    output.line("protocol     " + result.protocol);
    output.line("cipher       " + result.cipher);
    if (result.clientAsked) {
        output.line("client       the server asks for a certificate");
    }
    for (std::size_t i = 0; i < result.chain.size(); ++i) {
        print(result.chain[i], i, output);
    }
    for (VerifyFault const & fault : result.faults) {
        bool const certificate = fault.depth != VerifyFault::noCertificate;
        output.line(output.in('r', "error") + ": " +
                    (certificate ? "certificate " + std::to_string(fault.depth) + ": " : "") + fault.words +
                    (certificate ? " (" + std::to_string(fault.code) + ")" : ""));
        output.line("    mend: " + fault.mend);
    }
    if (result.nameMatches) {
        output.line("name         " + forTerminal(result.name) + " matches");
    } else {
        output.line(output.in('r', "error") + ": " + forTerminal(noMatch(result)));
        output.line("    mend: " + forTerminal(mendOfName(result)));
    }
}

std::string asJson(CertificateText const & one) {
    std::string names;
    for (std::string const & name : one.names) {
        names += (names.empty() ? "" : ",") + jsonText(name);
    }
    return "{\"subject\":" + jsonText(one.subject) + ",\"issuer\":" + jsonText(one.issuer) + ",\"names\":[" +
           names + "],\"key\":" + jsonText(one.key) + ",\"from\":" + jsonText(one.validFrom) +
           ",\"to\":" + jsonText(one.validTo) + ",\"days_left\":" + std::to_string(one.daysLeft) +
           ",\"sha256\":\"" + one.fingerprint + "\",\"key_sha256\":\"" + one.keyFingerprint +
           "\",\"authority\":" + (one.authority ? "true" : "false") +
           ",\"self_signed\":" + (one.selfSigned ? "true" : "false") + "}";
}

std::string asJson(ProbeResult const & result) {
    std::string phases;
    for (auto const & phase : result.phases) {
        char text[32];
        std::snprintf(text, sizeof(text), "%.3f", phase.second);
        phases += (phases.empty() ? "" : ",") + ("\"" + phase.first + "_ms\":") + text;
    }
    std::string chain;
    for (CertificateText const & one : result.chain) {
        chain += (chain.empty() ? "" : ",") + asJson(one);
    }
    std::string faults;
    for (VerifyFault const & fault : result.faults) {
        faults +=
            (faults.empty() ? "" : ",") +
            ("{\"certificate\":" +
             std::string(fault.depth == VerifyFault::noCertificate ? "null" : std::to_string(fault.depth))) +
            ",\"code\":" + std::to_string(fault.code) + ",\"text\":" + jsonText(fault.words) +
            ",\"mend\":" + jsonText(fault.mend) + "}";
    }
    return "{\"address\":" + jsonText(result.address) + "," + phases +
           ",\"protocol\":" + jsonText(result.protocol) + ",\"cipher\":" + jsonText(result.cipher) +
           ",\"client_asked\":" + (result.clientAsked ? "true" : "false") + ",\"chain\":[" + chain +
           "],\"errors\":[" + faults + "],\"name\":" + jsonText(result.name) +
           ",\"name_matches\":" + (result.nameMatches ? "true" : "false") + "}";
}

int tls(Options & options, Output & output) {
    parsePlace(options.place, options.probe.host, options.probe.port);
    ProbeResult const result = probe(options.probe);
    if (options.json) {
        output.line(asJson(result));
    } else {
        print(result, output);
    }
    return isGood(result) ? exitGood : exitFound;
}

} // namespace

Run addTls(CLI::App & app) {
    auto const options = std::make_shared<Options>();
    app.add_option("HOST:PORT", options->place, "the server; an address of IPv6 stands between brackets")
        ->required();
    app.add_option("--ca", options->probe.ca, "a file of authorities, in place of the system's")
        ->type_name("FILE");
    auto const isNamed = [](std::string const & name) {
        return name.empty() ? std::string("a certificate is for no empty name") : std::string();
    };
    app.add_option("--name", options->probe.name, "what the certificate has to be for, in place of HOST")
        ->check(isNamed)
        ->type_name("NAME");
    CLI::Option * const own = app.add_option("--cert", options->probe.certificate,
                                             "a certificate of the client's own, with its chain")
                                  ->type_name("FILE");
    app.add_option("--key", options->probe.key, "its key, unless that stands in the same file")
        ->needs(own)
        ->type_name("FILE");
    app.add_option("--timeout", options->probe.timeoutMs, "milliseconds for connecting and the handshake")
        ->check(CLI::Range(1, 3600000))
        ->type_name("MS")
        ->capture_default_str();
    app.add_flag("--json", options->json, "print one JSON object");
    return [options](Output & output) { return tls(*options, output); };
}

} // namespace tool
} // namespace tav
