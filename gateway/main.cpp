#include "gateway/command_line.h"

#include "tav/vinta/vinta_im_pkt.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <fstream>
#include <iostream>
#include <memory>

namespace {

using namespace tav::gateway;

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
    std::string note;
    Certificates const certificates = certificatesOf(settings, note);
    if (!note.empty()) {
        std::cerr << "tav-gateway: " << note;
    }
    parseRoute(settings);
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
    std::cout << listeningLine(settings, gateway.port()) << std::endl;
    writePort(settings, gateway.port());
    if (settings.untilEof) {
        std::string line;
        while (std::getline(std::cin, line)) {
        }
    } else {
        int taken = 0;
        sigwait(&signals, &taken);
    }
    gateway.stop();
    std::cout << stoppedLine(gateway.stats()) << std::endl;
}

} // namespace

int main(int argc, char ** argv) {
    Settings settings;
    CLI::App app("A development message gateway: TLS 1.2, frames of a 4-byte length and a packet.\n\n" +
                     std::string(usualRule),
                 "tav-gateway");
    app.set_version_flag("--version", std::string("tav-gateway ") + tav::version_t::release());
    addOptions(app, settings);
    app.add_option("--record", settings.record,
                   "file to which each packet is appended as a frame, for tav convert");
    CLI11_PARSE(app, argc, argv);

    try {
        run(settings);
    } catch (std::exception const & e) {
        std::cerr << "tav-gateway: " << e.what() << std::endl;
        return 1;
    }
    return 0;
}
