#ifndef TAV_BINDINGS_C_OUTBOX_H
#define TAV_BINDINGS_C_OUTBOX_H

#include "bindings/c/json.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

/// The texts on their way to `tav_json_receive`, and the promise that each request gets one of them.
namespace tav {
namespace json_client {

/// Answers and events in the order in which they came.  Thread safety: all operations.
class Outbox {
public:
    using Item = std::list<std::string>;

    enum class Found { text, none, gone };

    /// A request is under way; false, and nothing is, if the end has come.
    bool begin();
    /// It gets no answer after all.
    void forget() noexcept;
    /// Its answer, a list of one.
    void answer(Item & item) noexcept;
    /// Throws std::bad_alloc.
    void event(std::string text);

    Found receive(std::string & out, double seconds);
    /// "closed" has been received.
    bool isDone() const;
    /// Somebody receives, or has in the last minute.
    bool isReceivedFrom() const;
    /// The bytes that wait to be received.
    std::size_t bytes() const;

    /// No request begins any more.  False if that was so before.
    bool end() noexcept;
    /// Nothing comes any more but answers: the last of them is followed by "closed".
    void close() noexcept;

    /// Waits until fewer than `most` texts wait to be received, while `patient` says so.
    void waitForRoom(std::size_t most, std::function<bool()> const & patient);
    /// Has those who wait for room ask their `patient` now.
    void stir() noexcept;

private:
    void closeInLock() noexcept;

    mutable std::mutex mutex_;
    std::condition_variable came_;
    std::condition_variable went_;
    Item items_;
    Item last_{std::string("{\"@type\":\"closed\"}")};
    unsigned long long under_way_ = 0;
    bool ended_ = false;
    bool closed_ = false;
    bool done_ = false;
    unsigned receivers_ = 0;
    std::chrono::steady_clock::time_point received_at_ = std::chrono::steady_clock::time_point::min();
};

/// A request that was taken.  It has one answer: the first that it is given, and "cancelled" if it goes
/// without any.
class Ticket {
public:
    /// Throws std::bad_alloc; a ticket that was made has all that an answer needs.
    Ticket(std::shared_ptr<Outbox> to, std::string extra);
    ~Ticket();
    Ticket(Ticket const &) = delete;
    Ticket & operator=(Ticket const &) = delete;

    std::string const & extra() const { return extra_; }

    void answer(std::string text) noexcept;
    void fail(Failure const & failure) noexcept;

private:
    std::shared_ptr<Outbox> const to_;
    std::string const extra_;
    std::mutex mutex_;
    /// The answer of who gets none, until there is another one.
    Outbox::Item item_;
    bool answered_ = false;
};

/// A request that ends by the client's word, told with the cause once it is known.
class Call {
public:
    /// True once the application has ended the connection itself.
    using Left = std::shared_ptr<std::atomic<bool> const>;

    /// `port` is the member that has the port which is looked up, for a connect.
    Call(std::shared_ptr<Ticket> ticket, Left left, std::string port = std::string())
        : ticket_(std::move(ticket)), left_(std::move(left)), port_(std::move(port)) {}

    Ticket & ticket() { return *ticket_; }
    /// What the client gave for it, which knows the cause.
    void known(std::shared_ptr<tls::future_obj> info) noexcept;
    /// It ended badly.  `text` is for people; `otherwise` is the cause if nobody knows a better one.
    void ended(tls::failure otherwise, std::string text) noexcept;

private:
    void tell() noexcept;

    std::shared_ptr<Ticket> const ticket_;
    Left const left_;
    std::string const port_;
    std::mutex mutex_;
    std::shared_ptr<tls::future_obj> info_;
    bool known_ = false;
    bool ended_ = false;
    tls::failure otherwise_ = tls::failure::none;
    std::string text_;
};

/// The error answer.
std::string errorText(Failure const & failure, std::string_view extra);

} // namespace json_client
} // namespace tav

#endif
