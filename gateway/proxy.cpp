#include <asio.hpp>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

// A development proxy: makes tunnels for HTTP CONNECT and for SOCKS5 without a password, whichever a client
// begins with. It listens on 127.0.0.1, writes its port to a file, and runs until it is killed.

namespace {

using asio::ip::tcp;

/// One client and its tunnel.
class Tunnel : public std::enable_shared_from_this<Tunnel> {
public:
    explicit Tunnel(tcp::socket client)
        : client_(std::move(client)), server_(client_.get_executor()), resolver_(client_.get_executor()) {}

    void start() {
        read(1, [this] {
            if (ask_[0] == '\x05') {
                read(1, [this] { read(static_cast<unsigned char>(ask_[1]), [this] { greet(); }); });
            } else {
                readHead();
            }
        });
    }

private:
    template <class Next>
    void read(std::size_t size, Next next) {
        std::size_t const had = ask_.size();
        ask_.resize(had + size);
        asio::async_read(client_, asio::buffer(&ask_[had], size),
                         [self = shared_from_this(), next](std::error_code const & error, std::size_t) {
                             if (!error) {
                                 next();
                             }
                         });
    }

    /// What follows the head belongs to the tunnel, so that it is read byte by byte.
    void readHead() {
        read(1, [this] {
            bool const whole = ask_.size() >= 4 && ask_.compare(ask_.size() - 4, 4, "\r\n\r\n") == 0;
            if (!whole && ask_.size() < 8000) {
                readHead();
                return;
            }
            std::string const target = ask_.substr(0, ask_.find(" HTTP/1."));
            std::size_t const colon = target.rfind(':');
            if (target.rfind("CONNECT ", 0) != 0 || colon == std::string::npos) {
                answer("HTTP/1.1 400 Bad Request\r\n\r\n", false);
                return;
            }
            yes_ = "HTTP/1.1 200 Connection established\r\n\r\n";
            no_ = "HTTP/1.1 502 Bad Gateway\r\n\r\n";
            open("CONNECT", target.substr(8, colon - 8), target.substr(colon + 1));
        });
    }

    /// Takes a client that can do without a password.
    void greet() {
        bool const plain = ask_.find('\0', 2) != std::string::npos;
        write(plain ? std::string("\x05\x00", 2) : "\x05\xff", [this, plain] {
            ask_.clear();
            if (plain) {
                read(5, [this] { readTarget(); });
            }
        });
    }

    void readTarget() {
        yes_ = std::string("\x05\x00\x00\x01\x00\x00\x00\x00\x00\x00", 10);
        no_ = yes_;
        no_[1] = '\x05';
        bool const named = ask_[3] == '\x03';
        if (ask_[1] != '\x01' || (!named && ask_[3] != '\x01')) {
            no_[1] = '\x07';
            answer(no_, false);
            return;
        }
        std::size_t const rest = named ? static_cast<unsigned char>(ask_[4]) : 3;
        read(rest + 2, [this, named, rest] {
            auto const byte = [this](std::size_t at) { return static_cast<unsigned char>(ask_[at]); };
            std::string host = ask_.substr(5, rest);
            if (!named) {
                host = asio::ip::address_v4({byte(4), byte(5), byte(6), byte(7)}).to_string();
            }
            open("SOCKS5", host, std::to_string(byte(5 + rest) << 8 | byte(6 + rest)));
        });
    }

    void open(char const * how, std::string const & host, std::string const & port) {
        std::cout << "proxy: " << how << " " << host << ":" << port << std::endl;
        auto self = shared_from_this();
        resolver_.async_resolve(host, port, [self](std::error_code const & error, auto const & found) {
            if (error) {
                self->answer(self->no_, false);
                return;
            }
            asio::async_connect(self->server_, found,
                                [self](std::error_code const & failed, tcp::endpoint const &) {
                                    self->answer(failed ? self->no_ : self->yes_, !failed);
                                });
        });
    }

    void answer(std::string const & text, bool made) {
        write(text, [this, made] {
            if (made) {
                pump(client_, server_, up_);
                pump(server_, client_, down_);
            }
        });
    }

    template <class Next>
    void write(std::string const & text, Next next) {
        auto const held = std::make_shared<std::string>(text);
        asio::async_write(
            client_, asio::buffer(*held),
            [self = shared_from_this(), held, next](std::error_code const & error, std::size_t) {
                if (!error) {
                    next();
                }
            });
    }

    using Buffer = std::array<char, 16384>;

    /// Carries what comes from one side to the other; an end closes both.
    void pump(tcp::socket & from, tcp::socket & to, Buffer & buffer) {
        from.async_read_some(asio::buffer(buffer), [self = shared_from_this(), &from, &to, &buffer](
                                                       std::error_code const & error, std::size_t size) {
            if (error) {
                self->close();
                return;
            }
            asio::async_write(to, asio::buffer(buffer, size),
                              [self, &from, &to, &buffer](std::error_code const & failed, std::size_t) {
                                  if (failed) {
                                      self->close();
                                  } else {
                                      self->pump(from, to, buffer);
                                  }
                              });
        });
    }

    void close() {
        std::error_code ignored;
        client_.close(ignored);
        server_.close(ignored);
    }

    tcp::socket client_;
    tcp::socket server_;
    tcp::resolver resolver_;
    std::string ask_;
    std::string yes_;
    std::string no_;
    Buffer up_{};
    Buffer down_{};
};

/// Without a descriptor to spare the next accept would fail at once, as the client still waits: so there is a
/// pause first.
void accept(tcp::acceptor & acceptor, asio::steady_timer & pause) {
    acceptor.async_accept([&acceptor, &pause](std::error_code const & error, tcp::socket client) {
        if (!error) {
            std::make_shared<Tunnel>(std::move(client))->start();
            accept(acceptor, pause);
            return;
        }
        pause.expires_after(std::chrono::milliseconds(100));
        pause.async_wait([&acceptor, &pause](std::error_code const &) { accept(acceptor, pause); });
    });
}

} // namespace

int main(int argc, char ** argv) {
    if (argc != 2) {
        std::cerr << "usage: tav-proxy PORT-FILE\n";
        return 2;
    }
    try {
        asio::io_context io;
        tcp::acceptor acceptor(io, tcp::endpoint(asio::ip::address_v4::loopback(), 0));
        std::string const partial = std::string(argv[1]) + ".part";
        std::ofstream out(partial);
        out << acceptor.local_endpoint().port() << "\n";
        out.close();
        if (!out || std::rename(partial.c_str(), argv[1]) != 0) {
            std::cerr << "tav-proxy: can't write " << argv[1] << "\n";
            return 1;
        }
        asio::steady_timer pause(io);
        accept(acceptor, pause);
        io.run();
    } catch (std::exception const & e) {
        std::cerr << "tav-proxy: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
