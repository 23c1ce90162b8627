#ifndef TAV_BINDINGS_C_SESSION_H
#define TAV_BINDINGS_C_SESSION_H

#include "bindings/c/last_owner.h"
#include "bindings/c/options.h"
#include "bindings/c/outbox.h"
#include "bindings/c/report.h"

#include "tav/vinta/vinta_tls_client.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace tav {
namespace json_client {

/// A message as it came.
struct Came {
    unsigned long long sno;
    unsigned short code;
    tav_istr body;
    tavMsgExt const & ext;
};

/// One client of the interface in JSON.  Thread safety: all operations.
///
/// It has more operations and members than other classes: each kind of request, and each event of a client or
/// a keeper, has an operation, and they share one lock over what they find of the connection.
class Session : public std::enable_shared_from_this<Session> {
public:
    /// Throws std::bad_alloc.
    static std::shared_ptr<Session> create(std::string const & name);
    explicit Session(std::string const & name);

    /// False, and nothing was done, if the end has come.  Throws std::bad_alloc in that case too.
    bool send(std::string_view request);
    Outbox::Found receive(std::string & out, double seconds) { return outbox_->receive(out, seconds); }
    /// False if that was done before.  Waits about two seconds at most for who still uses the client, and
    /// leaves it to that one then: it has been closed, and all that was under way has its answer.
    bool end() noexcept;
    /// "closed" has been received.
    bool isDone() const { return outbox_->isDone(); }
    /// Somebody receives, or has in the last minute.
    bool isReceivedFrom() const { return outbox_->isReceivedFrom(); }
    /// The bytes that wait to be received.
    std::size_t bytes() const { return outbox_->bytes(); }

    std::shared_ptr<Template const> messages() const;
    /// As "connected" and "disconnected" have told.
    bool isUp() const;
    /// Null if the end has come.
    std::shared_ptr<tls::client> client() const;
    /// What keeps the connection; null if nothing does.  To be let go of at once.
    std::shared_ptr<Kept> kept() const;
    /// Why the keeper's last attempt or connection failed, in words; empty if there are none.
    std::string cause() const;

private:
    using TicketPtr = std::shared_ptr<Ticket>;

    /// Which connection a callback is for; 0 is none.
    using Era = unsigned long long;

    /// Who hands messages straight to the client, by one connection: no other one takes its place before
    /// they are through.
    struct Line {
        std::shared_ptr<tls::client> client;
    };
    /// What a message goes out by, all of one connect.
    struct Ways {
        /// Null if nothing keeps the connection.
        std::shared_ptr<Kept> kept;
        /// Null if there is no connection, and none under way.
        std::shared_ptr<Line> line;
        Call::Left left;
        std::shared_ptr<Template const> messages;
    };
    using Until = LastOwner<Line>::Clock::time_point;

    void serve(TicketPtr const & ticket, Fields & fields, std::string_view type);
    void connect(TicketPtr const & ticket, std::shared_ptr<ConnectWish const> wish, int limit_ms);
    void keep(std::shared_ptr<tls::client> const & client, ConnectWish const & wish, int limit_ms, Era era,
              Call::Left const & left);
    void reconnect(TicketPtr const & ticket, Fields & fields);
    void disconnect(TicketPtr const & ticket, Fields & fields);
    /// A send, or a request.
    void sendOrRequest(TicketPtr const & ticket, Fields & fields, bool request);
    static void sendTracked(TicketPtr const & ticket, Ways const & by, SendWish const & wish);
    /// What goes by a keeper.
    static void sendKept(TicketPtr const & ticket, Ways const & by, SendWish const & wish);

    /// Without what tells of the connection.
    tls::connect_option plainOption(ConnectWish const & wish, Era era);
    tls::connect_option optionFor(ConnectWish const & wish, int limit_ms, Era era);
    void answerAttemptInLock();
    /// A connection of which nothing more is to be told is over.
    void leaveInLock();

    void onOpen(Era era, bool heartbeat);
    void onError(Era era, int code, std::string const & text);
    void onTimedOut(Era era, bool cancelled);
    void onSilence(Era era);
    void onProxyRefused(Era era);
    void onKept(Era era, kit::keeper_status const & status);
    void tellKeptInLock(kit::keeper_status const & status);
    /// The words of a failure, ahead of the keeper's state that it leads to.
    void noteCause(Era era, std::string const & text);
    void onMessage(Era era, Came const & came);
    /// Has messages of codes up to 255 told as of the connection that has come up last.
    void listenToOld();
    /// Tells that the connection is over; false if it was not up.
    bool broken(Era era, tls::failure why, std::string const & text);
    std::shared_ptr<Call> takeAttempt(Era era);
    void abandon(Era era);
    bool isUp(Era era) const;
    Ways ways() const;
    /// Fails if there is none.
    static Line & lineOf(Ways const & by);
    LastOwner<Line> newLine() const;
    /// Opens the way for the messages of this connection.
    void openLine(Era era);

    std::shared_ptr<Outbox> const outbox_ = std::make_shared<Outbox>();

    /// Of the connection that has come up last.  The client has one function for messages of codes up to 255,
    /// and has ended a connection whole before the next one is read from.
    std::atomic<Era> heard_{0};

    /// Held by whoever starts, closes or ends the connection by the application's word.
    std::mutex turn_;
    /// Never held while the client is called for that.
    mutable std::mutex mutex_;
    LastOwner<tls::client> client_;
    LastOwner<Line> line_;
    Era era_ = 0;
    bool up_ = false;
    std::shared_ptr<std::atomic<bool>> left_ = std::make_shared<std::atomic<bool>>(false);
    /// The connect that has no answer yet.
    std::shared_ptr<Call> attempt_;
    LastOwner<Kept> kept_;
    /// The keeper's end has not been told.
    bool keeping_ = false;
    kit::gateway kept_to_;
    /// In words, of the keeper's last failure; empty if there are none.
    std::string cause_;
    bool cause_is_old_ = false;
    std::shared_ptr<ConnectWish const> wish_;
    std::shared_ptr<Template const> messages_;
};

/// The answer of a request that needs no waiting; false if it is none of these.
bool serveAtOnce(Session const * session, Fields & fields, std::string_view type, std::string_view extra,
                 std::string & answer);

/// A message that is to be sent, as `send` and `request` name it.
Encoded readOutgoing(Fields & fields, std::shared_ptr<Template const> const & messages);

/// The members that tell a message: "class" and "message" if the template has them, else "body" in base64.
void putMessage(ObjectText & out, unsigned short code, tav_istr body,
                std::shared_ptr<Template const> const & messages);

void answerReply(Ticket & to, bool receipt, Came const & came,
                 std::shared_ptr<Template const> const & messages) noexcept;

/// The type of a request; throws a Failure if it has none.
std::string readType(Document const & document);

} // namespace json_client
} // namespace tav

#endif
