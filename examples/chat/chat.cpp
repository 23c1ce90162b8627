#include "chat.h"

#include "text.h"

#include <chrono>
#include <ctime>
#include <utility>

namespace chat {
namespace {

using namespace std::chrono_literals;
using tav::kit::keeper_state;
using tav::kit::result;
using tav::kit::within;

constexpr char const * help =
    "what you type is said to the room; /join ROOM, /name NAME, /who, /help, /quit are commands";
constexpr std::size_t longest_text = 1000;
constexpr std::size_t most_of_mine = 50;
constexpr std::size_t most_seen = 100000;
constexpr long long lately_ms = 60000;
constexpr auto past_patience = 300ms;
constexpr std::size_t longest_name = 40;

std::string text(tavString const & v) {
    return v.data();
}

std::string clock(long long ms) {
    std::time_t const seconds = static_cast<std::time_t>(ms / 1000);
    std::tm when{};
    ::localtime_r(&seconds, &when);
    char out[16];
    return std::string(out, std::strftime(out, sizeof out, "%H:%M", &when));
}

bool isName(std::string const & v) {
    return !v.empty() && v.size() <= longest_name && v == shown(v) && v.find(' ') == std::string::npos;
}

} // namespace

Chat::Chat(Loop & loop, Screen & screen, tav::tls::connect_option const & option, std::string name)
    : loop_(loop),
      screen_(screen),
      numbers_(std::random_device{}()),
      who_(numbers_()),
      name_(std::move(name)) {
    tav::kit::keeper_option how;
    how.login = login();
    how.where = loop_.executor();
    how.on_state = [this](tav::kit::keeper_status const & status) { onState(status); };
    keeper_ = std::make_unique<tav::kit::keeper>(option, how, tav_istr(name_));

    on<Say>([this](Say const & say) { hear(say.line); });
    on<Past>([this](Past const & past) {
        if (past.to == who_) {
            hearPast(past);
        }
    });
    on<Enter>([this](Enter const & enter) { onEnter(enter); });
    on<Leave>([this](Leave const & one) {
        if (text(one.room) == room_) {
            note(shown(text(one.name)) + " has left");
        }
    });
    on<Who>([this](Who const & one) {
        if (text(one.room) == room_) {
            Here here;
            here.to = one.who;
            here.room = one.room;
            here.name = name_.c_str();
            static_cast<void>(send(*keeper_, here));
        }
    });
    on<Here>([this](Here const & here) { onHere(here); });
}

Chat::~Chat() {
    keeper_.reset();
    // What the keeper has told of its end still refers to this.
    loop_.run();
}

template <class Message, class Function>
void Chat::on(Function f) {
    tav::kit::on<Message>(keeper_->client(), std::move(f), loop_.executor());
}

/// Each connection begins by coming into the room, which brings what was missed.
tav::kit::login_function Chat::login() {
    return [this](tav::tls::client & client, tav::kit::login_end const & end) {
        // The names belong to the loop's thread.
        loop_.post([this, &client, end] {
            if (keeper_) {
                tav::kit::request<Entered>(client, presence(), 5s, [end](result<Entered> const & entered) {
                    end(entered ? result<void>() : result<void>(entered.error()));
                });
            }
        });
    };
}

Enter Chat::presence() const {
    Enter here;
    here.who = who_;
    here.room = room_.c_str();
    here.name = name_.c_str();
    auto const found = last_.find(room_);
    here.last = found == last_.end() ? 0 : found->second;
    return here;
}

void Chat::run() {
    note(help);
    showPrompt();
    keeper_->start();
    std::string line;
    while (!loop_.stopped() && screen_.read(line)) {
        if (line.empty()) {
            continue;
        }
        if (line[0] == '/') {
            command(line);
        } else {
            say(line);
        }
    }
    leave();
}

void Chat::command(std::string const & line) {
    std::size_t const space = line.find(' ');
    std::string const word = line.substr(0, space);
    std::string const rest = space == std::string::npos ? std::string() : line.substr(space + 1);
    if (word == "/quit") {
        loop_.stop();
    } else if (word == "/who") {
        Who who;
        static_cast<Enter &>(who) = presence();
        static_cast<void>(send(*keeper_, who));
        note(shown(name_) + " (you)");
    } else if (word == "/join" && isName(rest)) {
        enter(rest);
    } else if (word == "/name" && isName(rest)) {
        rename(rest);
    } else {
        note(help);
    }
}

void Chat::say(std::string const & words) {
    if (words.size() > longest_text) {
        note("that is too long: at most " + std::to_string(longest_text) + " bytes");
        return;
    }
    Say say;
    say.line.id = number();
    say.line.at = tavTime::currentTimeMillis();
    say.line.room = room_.c_str();
    say.line.name = name_.c_str();
    say.line.text = words.c_str();
    Line const line = say.line;
    // Sent again if a connection ends before the gateway has confirmed it: whoever gets it twice knows it by
    // its id.
    within const terms = within(10min).repeatable().on(loop_.executor());
    tav::kit::request<Said>(*keeper_, say, terms, [this, line](result<Said> const & said) {
        if (said) {
            mine_.push_back(line);
            if (mine_.size() > most_of_mine) {
                mine_.pop_front();
            }
        }
        if (!said) {
            note("not said, as " + said.error().message() + ": " + shown(text(line.text)));
        } else if (screen_.echoes()) {
            seen_.insert(line.id);
        } else {
            hear(line);
        }
    });
    if (!up_) {
        note("there is no connection; it will be said when there is one");
    }
}

void Chat::enter(std::string const & room) {
    leave();
    room_ = room;
    showPrompt();
    note("this is " + room);
    if (up_) {
        static_cast<void>(send(*keeper_, presence()));
    }
}

void Chat::rename(std::string const & name) {
    Enter renamed = presence();
    renamed.was = renamed.name;
    renamed.name = name.c_str();
    name_ = name;
    showPrompt();
    if (up_) {
        static_cast<void>(send(*keeper_, renamed));
    }
}

void Chat::leave() {
    if (up_) {
        Leave gone;
        static_cast<Enter &>(gone) = presence();
        // Answered, so that it has gone out even if the program ends now.
        tav::kit::request<Left>(*keeper_, gone, 1s).wait();
    }
}

void Chat::hear(Line const & line) {
    if (text(line.room) != room_ || !seen_.insert(line.id).second) {
        return;
    }
    if (seen_.size() > most_seen) {
        seen_.clear();
    }
    last_[room_] = line.id;
    screen_.print(clock(line.at) + " <" + shown(text(line.name)) + "> " + shown(text(line.text)));
}

/// Several tell what was said: it is put in order when they have had a moment for it.
void Chat::hearPast(Past const & past) {
    if (past_.empty()) {
        loop_.later(past_patience, [this] {
            for (auto const & [at, line] : std::exchange(past_, {})) {
                hear(line);
            }
        });
    }
    for (Line const & line : past.lines) {
        past_.emplace(line.at, line);
    }
}

void Chat::onState(tav::kit::keeper_status const & status) {
    bool const was = std::exchange(up_, status.state == keeper_state::up);
    if (up_) {
        note("connected to " + status.to.host + ":" + status.to.port + ", in " + room_);
    } else if (status.state == keeper_state::waiting) {
        note((was ? "the connection is gone: " : "no connection: ") + status.cause.message() +
             "; trying again");
    }
}

void Chat::repeatFor(Enter const & enter) {
    Past past;
    past.to = enter.who;
    past.room = enter.room;
    for (Line const & line : mine_) {
        bool const wanted = enter.room.empty() || line.room == enter.room;
        if (wanted && line.at + lately_ms > tavTime::currentTimeMillis()) {
            past.lines.push_back(line);
        }
    }
    if (!past.lines.empty()) {
        static_cast<void>(send(*keeper_, past));
    }
}

void Chat::onEnter(Enter const & enter) {
    if (enter.was.empty()) {
        repeatFor(enter);
    }
    if (text(enter.room) != room_ || enter.who == who_) {
        return;
    }
    std::string const name = text(enter.name);
    std::string const was = text(enter.was);
    note(was.empty() ? shown(name) + " is here" : shown(was) + " is called " + shown(name) + " from here on");
    if (name == name_) {
        Here here;
        here.to = enter.who;
        here.room = enter.room;
        here.name = enter.name;
        static_cast<void>(send(*keeper_, here));
    }
}

void Chat::onHere(Here const & here) {
    if (here.to != who_ || text(here.room) != room_) {
        return;
    }
    bool const mine = text(here.name) == name_;
    note(shown(text(here.name)) + (mine ? " is somebody else's name too: /name takes another" : " is here"));
}

void Chat::note(std::string const & words) {
    screen_.print("-- " + words);
}

void Chat::showPrompt() {
    screen_.prompt(shown(name_) + "@" + shown(room_) + "> ");
}

} // namespace chat
