#ifndef TAV_GATEWAY_GATEWAY_CORE_H
#define TAV_GATEWAY_GATEWAY_CORE_H

#include "gateway/certificates.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// A development message gateway: the server that a client of the library talks to.
///
/// It speaks TLS 1.2 and the client's frames, answers heartbeats, and follows a simple rule for packets:
/// - a receipt is checked against what was asked and not answered;
/// - `code_push_me` is answered and its body is pushed back as `code_pushed`, asking for a receipt;
/// - `code_close_me` closes the connection without an answer;
/// - a code from `route_first` to `route_last` goes, as it came, to every other connected client as well;
/// - every other packet, and each of those above, is answered with code + 1 (or its own code with `echo`),
///   the same sequence, version and body.
/// A packet that asks for a receipt gets one first.
namespace tav {
namespace gateway {

constexpr unsigned short code_push_me = 0x7001;
constexpr unsigned short code_pushed = 0x7003;
constexpr unsigned short code_close_me = 0x7005;
constexpr unsigned max_frame = 0xffffff;

/// How a gateway misbehaves, for tests.  The counts are of frames received on one connection; 0 means never.
struct Faults {
    int delay_ms = 0;            ///< each answer waits this long
    bool silence = false;        ///< frames are read and nothing is ever sent
    bool no_handshake = false;   ///< connections are accepted and their bytes never read
    unsigned close_after = 0;    ///< then the connection is closed
    unsigned reset_after = 0;    ///< then the connection is reset
    unsigned cut_after = 0;      ///< then half a frame is sent and the connection is closed
    unsigned oversize_after = 0; ///< then a length above the limit is sent
};

/// A step of what is done for a packet.
struct Step {
    enum class Kind {
        usual,    ///< what is done without a plan
        answer,   ///< `code` and `body`, with the sequence and version of the packet
        push,     ///< `code` and `body`, to the client that sent the packet
        push_all, ///< the same, to every connected client
        delay,    ///< the steps behind this one wait for `delay_ms`
        close,    ///< the connection is closed once all that was written has gone out, delayed answers too
        reset,    ///< the connection is reset at once
        cut,      ///< half a frame is sent and the connection is closed
        oversize, ///< a length above the limit is sent
        garbage,  ///< a frame is sent that holds no packet
        silence   ///< from here on frames are read and nothing is sent
    };

    Kind kind = Kind::usual;
    int delay_ms = 0;
    unsigned short code = 0;
    std::string body = {};
};

/// What is done for a packet, one step after the other; packets that come meanwhile are not held up.
struct Plan {
    bool receipt = true; ///< a packet that asks for a receipt gets one first
    std::vector<Step> steps;
};

struct Options {
    std::string address = "127.0.0.1";
    unsigned short port = 0; ///< 0: the system gives one
    bool echo = false;
    bool ask_certificate = false; ///< clients have to show a certificate that the CA has signed
    unsigned short route_first = 0x3000;
    unsigned short route_last = 0x3fff;
    bool ask_affirm = false;      ///< pushes and routed packets ask for receipts
    int affirm_timeout_ms = 5000; ///< a receipt that takes longer counts as missing
    Faults faults;
    unsigned fault_connections = 0;               ///< only the first so many connections misbehave; 0: all
    std::function<void(std::string const &)> log; ///< a line of what happens; called on the gateway's thread
    /// each packet but receipts, as it comes in; called on the gateway's thread
    std::function<void(unsigned short code, std::string const & body)> on_packet;
    /// what is done for a packet that is no receipt; null for the usual; called on the gateway's thread
    std::function<std::shared_ptr<Plan const>(unsigned short code, std::string const & body)> plan;
    /// each whole frame, its length included, as it comes in or goes out, and the code of the packet whose
    /// body it has if the gateway sends that back under another one; called on the gateway's thread
    std::function<void(unsigned connection, bool in, std::string const & frame,
                       std::optional<unsigned short> copy_of)>
        on_frame;
    /// bytes that are no frame, as they go out to misbehave, and what they are to be; called on the gateway's
    /// thread
    std::function<void(unsigned connection, std::string const & bytes, std::string const & what)> on_odd;
    /// that a connection falls silent or speaks again; called on the gateway's thread
    std::function<void(unsigned connection, bool silent)> on_silence;
    /// a connection whose handshake is done, with the address of the client, and its end; called on the
    /// gateway's thread
    std::function<void(unsigned connection, bool open, std::string const & peer)> on_connection;
};

/// What has happened so far.
struct Stats {
    unsigned connections = 0; ///< accepted
    unsigned open = 0;        ///< connected now, the handshake done
    unsigned handshakes = 0;
    unsigned failed_handshakes = 0;
    unsigned heartbeats = 0;
    unsigned packets = 0;
    unsigned replies = 0;
    unsigned pushes = 0; ///< pushed or routed, counted per receiver that is not silent
    unsigned invalid = 0;
    unsigned receipts_asked = 0;
    unsigned receipts_good = 0;
    unsigned receipts_wrong = 0;
    unsigned receipts_missing = 0;
    unsigned last_code = 0; ///< of the last packet received
};

/// The gateway.  Its connections are served by one thread of its own, from `start` to `stop`.  Every
/// operation may be called from any thread, but `stop` and the destructor not from `log`.
class Gateway {
public:
    Gateway(Options const & options, Certificates const & certificates);
    ~Gateway();
    Gateway(Gateway const &) = delete;
    Gateway & operator=(Gateway const &) = delete;

    /// Listens and serves.  Throws std::runtime_error that names the address and the reason, or what is wrong
    /// with the certificates.
    void start();
    /// Closes every connection and ends the thread.  A second call does nothing.
    void stop();
    /// The port listened on, once started.
    unsigned short port() const;

    /// Pushes a packet to every connected client.
    void push(unsigned short code, std::string const & body, bool ask_affirm, unsigned short version = 4);
    /// Sends bytes as they are, inside the TLS stream, to every connected client.
    void sendRaw(std::string const & bytes);
    /// Closes every connection; with `reset` by a reset.
    void drop(bool reset = false);
    void setFaults(Faults const & faults);

    /// The same for one connection, by its number; nothing if it is not open.
    void pushTo(unsigned connection, unsigned short code, std::string const & body,
                unsigned short version = 4);
    void drop(unsigned connection, bool reset);
    /// Whether the connection gets nothing any more, whatever the faults say.
    void silence(unsigned connection, bool on);

    Stats stats() const;
    /// Waits until `done` holds of the stats; false when that has not come in `ms` milliseconds.
    bool wait(std::function<bool(Stats const &)> const & done, int ms = 10000) const;

private:
    class Server;
    std::unique_ptr<Server> server_;
};

} // namespace gateway
} // namespace tav

#endif
