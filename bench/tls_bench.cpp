#include "gateway/certificates.h"
#include "message.h"

#include <asio.hpp>
#include <asio/ssl.hpp>
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

namespace {

using asio::ip::tcp;
using Stream = asio::ssl::stream<tcp::socket>;

/// Sends back every frame of every connection, one thread for all of them: the server of both benchmarks.
class Echo {
public:
    explicit Echo(tav::gateway::Certificates const & certificates)
        : tls_(asio::ssl::context::tlsv12_server),
          acceptor_(io_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)) {
        tls_.use_certificate_chain(asio::buffer(certificates.chain));
        tls_.use_private_key(asio::buffer(certificates.key), asio::ssl::context::pem);
        accept();
        thread_ = std::thread([this] { io_.run(); });
    }
    ~Echo() {
        io_.stop();
        thread_.join();
    }
    unsigned short port() const { return acceptor_.local_endpoint().port(); }

private:
    struct Connection : std::enable_shared_from_this<Connection> {
        Connection(tcp::socket socket, asio::ssl::context & tls) : stream(std::move(socket), tls) {}

        void start() {
            stream.lowest_layer().set_option(tcp::no_delay(true));
            stream.async_handshake(asio::ssl::stream_base::server,
                                   [self = shared_from_this()](std::error_code e) {
                                       if (!e) {
                                           self->head();
                                       }
                                   });
        }
        void head() {
            frame.resize(4);
            asio::async_read(stream, asio::buffer(frame),
                             [self = shared_from_this()](std::error_code e, std::size_t) {
                                 if (!e) {
                                     self->body();
                                 }
                             });
        }
        void body() {
            std::size_t size = 0;
            for (char const c : frame) {
                size = size << 8 | static_cast<unsigned char>(c);
            }
            frame.resize(4 + size);
            asio::async_read(stream, asio::buffer(&frame[4], size),
                             [self = shared_from_this()](std::error_code e, std::size_t) {
                                 if (!e) {
                                     self->back();
                                 }
                             });
        }
        void back() {
            asio::async_write(stream, asio::buffer(frame),
                              [self = shared_from_this()](std::error_code e, std::size_t) {
                                  if (!e) {
                                      self->head();
                                  }
                              });
        }

        Stream stream;
        std::string frame;
    };

    void accept() {
        acceptor_.async_accept([this](std::error_code e, tcp::socket socket) {
            if (!e) {
                std::make_shared<Connection>(std::move(socket), tls_)->start();
                accept();
            }
        });
    }

    asio::io_context io_;
    asio::ssl::context tls_;
    tcp::acceptor acceptor_;
    std::thread thread_;
};

tav::gateway::Certificates const & certificates() {
    static tav::gateway::Certificates const the = tav::gateway::makeCertificates();
    return the;
}

std::string requestFrame() {
    tavSharedPtr<tav::im::Packet> const packet = tav::im::Packet::create(true, 4);
    packet->setCode(0x2001);
    packet->setSequence(1);
    packet->setBody(tav_istr(tav_bench_own::sample().encode(true)));
    tavBytes body;
    packet->encode(body);
    tavBytes frame;
    frame.writeBigEndian(body.size()).writeBytes(tav_istr(body));
    return std::string(tav_istr(frame));
}

/// A request and its reply by the library: an object goes out, its echo comes back as an object.
void requestReplyOwn(benchmark::State & state) {
    Echo const echo(certificates());
    std::string const ca =
        std::filesystem::temp_directory_path() / ("tav-bench-ca-" + std::to_string(::getpid()));
    std::ofstream(ca) << certificates().ca;
    tavLogger::setup("(clear(NONE))", nullptr, false, tavLogger::WARN);
    {
        tav::tls::client client("bench");
        tav::tls::connect_option option;
        option.host = "127.0.0.1";
        option.port = std::to_string(echo.port());
        option.ca = ca;
        option.timedout.wait_ms(5000);
        if (client.start(option)->wait() != tav::tls::result_ok) {
            state.SkipWithError("no connection");
        }
        tav_bench_own::Note const note = tav_bench_own::sample();
        tav_bench_own::Note reply;
        for (auto _ : state) {
            if (client.send_and_wait(note, reply, 5000) != tav::tls::result_ok) {
                state.SkipWithError("no reply");
                break;
            }
        }
        client.close();
    }
    std::remove(ca.c_str());
}
BENCHMARK(requestReplyOwn)->UseRealTime();

/// The same frames by nothing but asio and OpenSSL: a blocking client.
void requestReplyBare(benchmark::State & state) {
    Echo const echo(certificates());
    asio::io_context io;
    asio::ssl::context tls(asio::ssl::context::tlsv12_client);
    tls.add_certificate_authority(asio::buffer(certificates().ca));
    tls.set_verify_mode(asio::ssl::verify_peer);
    Stream stream(io, tls);
    stream.lowest_layer().connect(tcp::endpoint(asio::ip::address_v4::loopback(), echo.port()));
    stream.lowest_layer().set_option(tcp::no_delay(true));
    stream.handshake(asio::ssl::stream_base::client);
    std::string const frame = requestFrame();
    std::string reply(frame.size(), '\0');
    for (auto _ : state) {
        asio::write(stream, asio::buffer(frame));
        asio::read(stream, asio::buffer(&reply[0], 4));
        asio::read(stream, asio::buffer(&reply[4], reply.size() - 4));
        benchmark::DoNotOptimize(reply);
    }
    if (reply != frame) {
        state.SkipWithError("a wrong reply");
    }
}
BENCHMARK(requestReplyBare)->UseRealTime();

} // namespace
