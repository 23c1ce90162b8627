#ifndef TAV_TOOLS_LIVE_H
#define TAV_TOOLS_LIVE_H

#include "tools/connection.h"
#include "tools/convert_parts.h"
#include "tools/interrupts.h"
#include "tools/output.h"
#include "tools/templates.h"

#include <tav/kit/keeper.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <limits>
#include <memory>
#include <mutex>
#include <string>

namespace tav {
namespace tool {

/// When a connection is made again.
enum class Reconnect {
    /// Never: its end ends the program.
    never,
    /// Whenever it ends; a first one that does not come about ends the program.
    automatic,
    /// Also while there has been none.
    always
};

std::map<std::string, Reconnect> const & reconnectNames();

struct LiveOptions {
    ConnectionOptions connection;
    Reconnect reconnect = Reconnect::automatic;
    bool json = false;
    /// Whether a request may go out once more if its connection ended before the reply.
    bool repeat = false;
    /// Whether replies are printed, and nothing else that comes.
    bool repliesAlone = false;
    /// Whether a connection that is up is told, too.
    bool tellsUp = false;
};

/// --reconnect and --json, and all options of the connection.
void addLiveOptions(CLI::App & app, LiveOptions & options);

/// What the connection has told, on its threads, for the one that prints it.
struct LiveEvent {
    enum class Kind { state, push, ended };

    Kind kind = Kind::state;
    /// Of a state.
    kit::keeper_status status;
    /// Of a state: what more is known of its cause.
    std::string text;
    /// Of a message: its code, sequence and body.
    unsigned short code = 0xffff;
    unsigned long long sequence = 0;
    std::string body;
    /// Of a message that was sent: its number, and why it failed, or whether a reply is here.
    unsigned long long number = 0;
    std::error_code why;
    bool replied = false;
};

/// The events that wait to be printed.  Pushes wait for room, so that a reader who is slow holds up the
/// gateway, and not the memory.
class LiveQueue {
public:
    LiveQueue();
    ~LiveQueue();
    LiveQueue(LiveQueue const &) = delete;
    LiveQueue & operator=(LiveQueue const &) = delete;

    void put(LiveEvent event);
    /// While a connection is being made its first pushes wait, if there is room, for the word that it is up:
    /// the two come on different threads.
    bool take(LiveEvent & event);
    /// From here on nobody waits, and nothing is kept.
    void close();
    /// Can be read when there may be something to take.
    int fd() const { return fd_; }

    /// What was told of a failure of the connection last.
    void cause(std::string text);
    std::string cause();

private:
    bool hasRoom() const;

    int fd_ = -1;
    std::mutex mutex_;
    std::condition_variable room_;
    std::deque<LiveEvent> events_;
    std::size_t bytes_ = 0;
    bool closed_ = false;
    bool connecting_ = true;
    std::string cause_;
};

/// A connection that is kept, of a program with one thread: it sends, waits and prints on the caller's.  It
/// has a member more than other classes: half of them count.
class Live {
public:
    using Clock = std::chrono::steady_clock;

    Live(LiveOptions const & options, Template const & model, Output & output);
    /// Closes the connection.
    ~Live();
    Live(Live const &) = delete;
    Live & operator=(Live const &) = delete;

    /// Begins, and waits until then for a connection; false if there is none.
    bool connect(Clock::time_point until = Clock::time_point::max());
    /// Sends the message of this number; with a reply code it waits for that reply, or else for nothing.
    void put(Message const & message, unsigned short reply, unsigned long long number);
    /// How many of those that were sent have not ended.
    std::size_t underWay() const { return begun_ - ended_; }
    /// How many pushes were printed, and that no more than these are.
    unsigned long long pushes() const { return pushes_; }
    void mostPushes(unsigned long long v) { mostPushes_ = v; }

    /// Waits for something to print and prints it: until `fd` can be read, if it is one, or until then.  True
    /// if `fd` can be read.  Throws Interrupted.
    bool serve(int fd, Clock::time_point until);
    /// Waits until all has ended and, as far as the limit of a reply allows, gone out.
    void finish();
    /// Whether there will be no connection any more.
    bool isGone() const { return gone_; }
    /// 0, or 3 if something has failed.
    int code() const { return code_; }

private:
    void show(LiveEvent const & event);
    void showState(LiveEvent const & event);
    void showEnd(LiveEvent const & event);
    void showMessage(std::string const & kind, LiveEvent const & event);
    /// Prints what there is; true if there was something.
    bool drain();
    kit::keeper_option how();

    LiveOptions const & options_;
    Template const & model_;
    Output & output_;
    Interrupts interrupts_;
    std::shared_ptr<LiveQueue> const queue_;
    std::shared_ptr<std::atomic<bool>> const wasUp_;
    std::unique_ptr<kit::keeper> keeper_;
    kit::keeper_state state_ = kit::keeper_state::stopped;
    bool broke_ = false;
    bool gone_ = false;
    unsigned long long begun_ = 0;
    unsigned long long ended_ = 0;
    unsigned long long taken_ = 0;
    unsigned long long pushes_ = 0;
    unsigned long long mostPushes_ = std::numeric_limits<unsigned long long>::max();
    int code_ = 0;
};

/// The body of a message as a line of JSON, by the class of its code: its bytes if there is none.
std::string jsonOf(unsigned short code, std::string_view body, Template const & model);

} // namespace tool
} // namespace tav

#endif
