#include "gateway/gateway_core.h"

#include "tav/vinta/vinta_im_pkt.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>

namespace {

using namespace tav::gateway;

std::string readFile(std::string const & path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    if (!in || !(out << in.rdbuf())) {
        throw std::runtime_error("can't read " + path);
    }
    return out.str();
}

char const * const rule =
    "A development message gateway: TLS 1.2, frames of a 4-byte length and a packet.\n"
    "\n"
    "What it does with a packet:\n"
    "  a receipt         is checked against what was asked, and not answered\n"
    "  code 0x7001       is answered, and its body is pushed back as 0x7003, asking for a receipt\n"
    "  code 0x7005       closes the connection without an answer\n"
    "  code in --route   goes, as it came, to every other connected client as well\n"
    "  every packet      is answered with code + 1 (--echo: its own code), the same sequence and body\n"
    "A packet that asks for a receipt gets one first.  An empty frame, the heartbeat, comes back.\n"
    "At first start a CA and a certificate for localhost are made in the certificate folder; clients trust\n"
    "its ca.pem, and have client.pem to show with --ask-certificate.  It runs until SIGINT or SIGTERM, or "
    "until its standard input ends with --until-eof.\n"
    "With --port-file it writes its port there once it listens.\n";

struct Settings {
    Options options;
    std::string folder = "gateway-certificates";
    std::string chain;
    std::string key;
    std::string portFile;
    std::string route;
    std::string record;
    bool quiet = false;
    bool untilEof = false;
};

void parseRoute(std::string const & text, Options & options) {
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

/// Appends each packet to the file as a frame, numbered from 1, for who looks at it later.
std::function<void(unsigned short, std::string const &)> recorder(std::string const & path) {
    auto const out = std::make_shared<std::ofstream>(path, std::ios::binary | std::ios::app);
    if (!*out) {
        throw std::runtime_error("can't write " + path);
    }
    unsigned long long number = 0;
    return [out, number](unsigned short code, std::string const & body) mutable {
        constexpr unsigned short old = 0xff;
        constexpr unsigned short version = 4;
        tavSharedPtr<tav::im::Packet> const packet = tav::im::Packet::create(code > old, version);
        packet->setCode(code);
        packet->setSequence(++number & 0xffffu);
        packet->setBody(tav_istr(body));
        tavBytes bytes;
        packet->encode(bytes);
        tavBytes frame;
        frame.writeBigEndian(bytes.size());
        frame.writeBytes(bytes);
        out->write(reinterpret_cast<char const *>(frame.data()), static_cast<std::streamsize>(frame.size()));
        out->flush();
    };
}

void run(Settings & settings) {
    Certificates certificates;
    if (settings.chain.empty()) {
        ensureCertificates(settings.folder);
        certificates.ca = readFile(caFile(settings.folder));
        certificates.chain = readFile(chainFile(settings.folder));
        certificates.key = readFile(keyFile(settings.folder));
        if (settings.options.ask_certificate && !std::filesystem::exists(clientFile(settings.folder))) {
            std::cerr << "tav-gateway: " << settings.folder
                      << " was made without a client.pem; one that is made anew has it\n";
        }
    } else {
        certificates.chain = readFile(settings.chain);
        certificates.key = readFile(settings.key);
    }
    if (!settings.route.empty()) {
        parseRoute(settings.route, settings.options);
    }
    if (!settings.record.empty()) {
        settings.options.on_packet = recorder(settings.record);
    }
    if (!settings.quiet) {
        settings.options.log = [](std::string const & line) {
            std::cout << "gateway: " << line << std::endl;
        };
    }

    // The signals are taken by sigwait below, so every thread made from here on must leave them alone.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    Gateway gateway(settings.options, certificates);
    gateway.start();
    std::cout << "gateway: listening on " << settings.options.address << " port " << gateway.port()
              << std::endl;
    if (!settings.portFile.empty()) {
        std::string const partial = settings.portFile + ".part";
        std::ofstream out(partial);
        out << gateway.port() << "\n";
        out.close();
        if (!out || std::rename(partial.c_str(), settings.portFile.c_str()) != 0) {
            throw std::runtime_error("can't write " + settings.portFile);
        }
    }
    if (settings.untilEof) {
        std::string line;
        while (std::getline(std::cin, line)) {
        }
    } else {
        int taken = 0;
        sigwait(&signals, &taken);
    }
    gateway.stop();
    Stats const stats = gateway.stats();
    std::cout << "gateway: stopped; connections " << stats.connections << ", packets " << stats.packets
              << ", replies " << stats.replies << ", pushes " << stats.pushes << ", receipts "
              << stats.receipts_good << " of " << stats.receipts_asked << std::endl;
}

} // namespace

int main(int argc, char ** argv) {
    Settings settings;
    Options & options = settings.options;
    Faults & faults = options.faults;

    CLI::App app(rule, "tav-gateway");
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
    app.add_option("--record", settings.record,
                   "file to which each packet is appended as a frame, for tav convert");
    app.add_flag("--ask-affirm", options.ask_affirm, "ask for receipts of what is passed on");
    app.add_option("--affirm-timeout", options.affirm_timeout_ms, "ms after which a receipt is missing")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    app.add_flag("--quiet", settings.quiet, "do not tell what happens");
    app.add_flag("--until-eof", settings.untilEof, "stop when the standard input ends");

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
    CLI11_PARSE(app, argc, argv);

    try {
        run(settings);
    } catch (std::exception const & e) {
        std::cerr << "tav-gateway: " << e.what() << std::endl;
        return 1;
    }
    return 0;
}
