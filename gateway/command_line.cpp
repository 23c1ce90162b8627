#include "gateway/command_line.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tav {
namespace gateway {

char const * const usualRule =
    "What it does with a packet:\n"
    "  a receipt         is checked against what was asked, and not answered\n"
    "  code 0x7001       is answered, and its body is pushed back as 0x7003, asking for a receipt\n"
    "  code 0x7005       closes the connection without an answer\n"
    "  code in --route   goes, as it came, to every other connected client as well\n"
    "  every packet      is answered with code + 1 (--echo: its own code), the same sequence and body\n"
    "A packet that asks for a receipt gets one first.  An empty frame, the heartbeat, comes back.\n"
    "At first start a CA and a certificate for localhost are made in the certificate folder; clients trust\n"
    "its ca.pem, and have client.pem to show with --ask-certificate.  It runs until SIGINT or SIGTERM, or\n"
    "until its standard input ends with --until-eof.  With --port-file it writes its port there once it\n"
    "listens.\n";

namespace {

std::string readFile(std::string const & path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    if (!in || !(out << in.rdbuf())) {
        throw std::runtime_error("can't read " + path);
    }
    return out.str();
}

void addFaults(CLI::App & app, Options & options) {
    Faults & faults = options.faults;
    std::string const group = "Misbehaviour, for tests (counts of frames received on a connection)";
    app.add_option("--fault-connections", options.fault_connections, "only the first so many; 0: all")
        ->group(group);
    app.add_option("--delay", faults.delay_ms, "ms before each answer")
        ->group(group)
        ->check(CLI::NonNegativeNumber);
    app.add_flag("--silence", faults.silence, "read and never answer")->group(group);
    app.add_flag("--no-handshake", faults.no_handshake, "accept and leave it at that")->group(group);
    app.add_option("--close-after", faults.close_after, "close after N frames")->group(group);
    app.add_option("--reset-after", faults.reset_after, "reset after N frames")->group(group);
    app.add_option("--cut-after", faults.cut_after, "cut a frame in the middle after N frames")->group(group);
    app.add_option("--oversize-after", faults.oversize_after, "send a length above the limit after N frames")
        ->group(group);
}

} // namespace

void addOptions(CLI::App & app, Settings & settings) {
    Options & options = settings.options;
    app.add_option("--address", options.address, "address to listen on")->capture_default_str();
    app.add_option("--port", options.port, "port to listen on; 0: the system gives one")
        ->capture_default_str();
    app.add_option("--port-file", settings.portFile, "file to write the port to");
    app.add_option("--certificates", settings.folder, "certificate folder, made at first start")
        ->capture_default_str();
    auto * const chain =
        app.add_option("--chain", settings.chain, "PEM file of the server's certificate chain");
    auto * const key = app.add_option("--key", settings.key, "PEM file of the server's key");
    chain->needs(key);
    key->needs(chain);
    app.add_flag("--ask-certificate", options.ask_certificate,
                 "refuse clients without a certificate of the folder's CA, such as its client.pem")
        ->excludes(chain);
    app.add_flag("--echo", options.echo, "answer with the code that came");
    app.add_option("--route", settings.route, "code or codes CODE-CODE to pass on; default 0x3000-0x3fff");
    app.add_flag("--ask-affirm", options.ask_affirm, "ask for receipts of what is passed on");
    app.add_option("--affirm-timeout", options.affirm_timeout_ms, "ms after which a receipt is missing")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    app.add_flag("--quiet", settings.quiet, "do not tell what happens");
    app.add_flag("--until-eof", settings.untilEof, "stop when the standard input ends");
    addFaults(app, options);
}

void parseRoute(Settings & settings) {
    std::string const & text = settings.route;
    if (text.empty()) {
        return;
    }
    Options & options = settings.options;
    std::size_t const dash = text.find('-', 1);
    std::size_t end = 0;
    auto const number = [&](std::string const & part) {
        unsigned long value = 0x10000;
        try {
            value = std::stoul(part, &end, 0);
        } catch (std::exception const &) {
            end = 0;
        }
        if (end != part.size() || part.empty() || value > 0xffff) {
            throw std::runtime_error("--route: \"" + text +
                                     "\" is not CODE or CODE-CODE, codes from 0 to 0xffff");
        }
        return static_cast<unsigned short>(value);
    };
    options.route_first = number(text.substr(0, dash));
    options.route_last = dash == std::string::npos ? options.route_first : number(text.substr(dash + 1));
    if (options.route_last < options.route_first) {
        throw std::runtime_error("--route: \"" + text + "\" ends before it begins");
    }
}

Certificates certificatesOf(Settings const & settings, std::string & note) {
    Certificates certificates;
    if (!settings.chain.empty()) {
        certificates.chain = readFile(settings.chain);
        certificates.key = readFile(settings.key);
        return certificates;
    }
    ensureCertificates(settings.folder);
    certificates.ca = readFile(caFile(settings.folder));
    certificates.chain = readFile(chainFile(settings.folder));
    certificates.key = readFile(keyFile(settings.folder));
    if (settings.options.ask_certificate && !std::filesystem::exists(clientFile(settings.folder))) {
        note += settings.folder + " was made without a client.pem; one that is made anew has it\n";
    }
    return certificates;
}

void writePort(Settings const & settings, unsigned short port) {
    if (settings.portFile.empty()) {
        return;
    }
    std::string const partial = settings.portFile + ".part";
    std::ofstream out(partial);
    out << port << "\n";
    out.close();
    if (!out || std::rename(partial.c_str(), settings.portFile.c_str()) != 0) {
        throw std::runtime_error("can't write " + settings.portFile);
    }
}

std::string listeningLine(Settings const & settings, unsigned short port) {
    return "gateway: listening on " + settings.options.address + " port " + std::to_string(port);
}

std::string stoppedLine(Stats const & stats) {
    std::ostringstream out;
    out << "gateway: stopped; connections " << stats.connections << ", packets " << stats.packets
        << ", replies " << stats.replies << ", pushes " << stats.pushes << ", receipts "
        << stats.receipts_good << " of " << stats.receipts_asked;
    return out.str();
}

} // namespace gateway
} // namespace tav
