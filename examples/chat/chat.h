#ifndef TAV_EXAMPLES_CHAT_CHAT_H
#define TAV_EXAMPLES_CHAT_CHAT_H

#include "loop.h"
#include "messages.h"
#include "screen.h"

#include <tav/kit/keeper.h>

#include <deque>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>

namespace chat {

/// One user's part of the conversation.  All of it runs on the loop's thread: the kit is given the loop as
/// executor, so that nothing here needs a lock.
class Chat {
public:
    Chat(Loop & loop, Screen & screen, tav::tls::connect_option const & option, std::string name);
    ~Chat();
    Chat(Chat const &) = delete;
    Chat & operator=(Chat const &) = delete;

    /// Reads lines until the user or the system wants it to end.
    void run();

private:
    void command(std::string const & line);
    void say(std::string const & text);
    void enter(std::string const & room);
    void rename(std::string const & name);
    void leave();

    void hear(Line const & line);
    void hearPast(Past const & past);
    void onState(tav::kit::keeper_status const & status);
    void onEnter(Enter const & enter);
    void repeatFor(Enter const & enter);
    void onHere(Here const & here);

    template <class Message, class Function>
    void on(Function f);
    tav::kit::login_function login();
    Enter presence() const;
    unsigned long long number() { return numbers_(); }
    void note(std::string const & text);
    void showPrompt();

    Loop & loop_;
    Screen & screen_;
    std::mt19937_64 numbers_;
    unsigned long long const who_;
    std::string name_;
    std::string room_ = "lobby";
    std::multimap<long long, Line>
        past_;                          ///< What was told of the past and is not on the screen, by its time.
    std::deque<Line> mine_;             ///< What was said here of late, for those who come.
    std::set<unsigned long long> seen_; ///< The lines on the screen, so that none comes twice.
    std::map<std::string, unsigned long long> last_; ///< The last line that others have of each room.
    bool up_ = false;
    std::unique_ptr<tav::kit::keeper> keeper_;
};

} // namespace chat

#endif
