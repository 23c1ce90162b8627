#ifndef TAV_BENCH_ECHO_H
#define TAV_BENCH_ECHO_H

#include "gateway/certificates.h"
#include "message.h"

#include <asio.hpp>
#include <asio/ssl.hpp>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <utility>

/// What the measurements of the client have on the other side, and beside it.
namespace tav_bench {

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

inline tav::gateway::Certificates const & certificates() {
    static tav::gateway::Certificates const the = tav::gateway::makeCertificates();
    return the;
}

/// The file of the authority that the echo's certificate is from, as long as the object is there.
struct Authority {
    Authority()
        : file(std::filesystem::temp_directory_path() / ("tav-bench-ca-" + std::to_string(::getpid()))) {
        std::ofstream(file) << certificates().ca;
    }
    ~Authority() { std::remove(file.c_str()); }
    Authority(Authority const &) = delete;
    Authority & operator=(Authority const &) = delete;

    std::string const file;
};

inline tav::tls::connect_option optionOf(unsigned short port, std::string const & ca) {
    tav::tls::connect_option option;
    option.host = "127.0.0.1";
    option.port = std::to_string(port);
    option.ca = ca;
    option.timedout.wait_ms(5000);
    return option;
}

/// The message of the measurements: some 200 bytes.
inline std::string requestBody() {
    return std::string(tav_istr(tav_bench_own::sample().encode(true)));
}

inline std::string requestFrame() {
    tavSharedPtr<tav::im::Packet> const packet = tav::im::Packet::create(true, 4);
    packet->setCode(0x2001);
    packet->setSequence(1);
    packet->setBody(tav_istr(requestBody()));
    tavBytes body;
    packet->encode(body);
    tavBytes frame;
    frame.writeBigEndian(body.size()).writeBytes(tav_istr(body));
    return std::string(tav_istr(frame));
}

/// A connection by nothing but asio and OpenSSL, blocking.
class BareClient {
public:
    explicit BareClient(unsigned short port)
        : tls_(asio::ssl::context::tlsv12_client), stream_(io_, trusting(tls_)) {
        stream_.lowest_layer().connect(tcp::endpoint(asio::ip::address_v4::loopback(), port));
        stream_.lowest_layer().set_option(tcp::no_delay(true));
        stream_.handshake(asio::ssl::stream_base::client);
    }
    void write(std::string const & bytes) { asio::write(stream_, asio::buffer(bytes)); }
    /// Fills `bytes`.
    void read(std::string & bytes) { asio::read(stream_, asio::buffer(bytes)); }

private:
    static asio::ssl::context & trusting(asio::ssl::context & tls) {
        tls.add_certificate_authority(asio::buffer(certificates().ca));
        tls.set_verify_mode(asio::ssl::verify_peer);
        return tls;
    }

    asio::io_context io_;
    asio::ssl::context tls_;
    Stream stream_;
};

} // namespace tav_bench

#endif
