#include "loop.h"
#include "messages.h"

#include <tav/kit/keeper.h>

#include <chrono>
#include <deque>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <string>

// Remembers what is said in the chat's rooms, and tells it to those who come in.  It is a client of the
// gateway as any other: who talks while it is away is heard by those who are there, and not remembered.

namespace {

using namespace chat;

constexpr std::size_t most_lines = 50;
constexpr std::size_t most_rooms = 1000;

class Rooms {
public:
    Rooms(Loop & loop, tav::tls::connect_option const & option) {
        tav::kit::keeper_option how;
        how.where = loop.executor();
        Enter all;
        all.who = who_;
        how.login = tav::kit::login_with<Entered>(all, std::chrono::seconds(5));
        how.on_state = [](tav::kit::keeper_status const & status) {
            bool const why = status.state == tav::kit::keeper_state::waiting;
            std::cout << "rooms: " << status.state << (why ? ", as " + status.cause.message() : "")
                      << std::endl;
        };
        keeper_ = std::make_unique<tav::kit::keeper>(option, how, "rooms");
        tav::kit::on<Say>(
            keeper_->client(), [this](Say const & say) { keep(say.line); }, loop.executor());
        tav::kit::on<Enter>(
            keeper_->client(), [this](Enter const & enter) { tell(enter); }, loop.executor());
        tav::kit::on<Past>(
            keeper_->client(),
            [this](Past const & past) {
                for (Line const & line : past.lines) {
                    if (past.to == who_) {
                        keep(line);
                    }
                }
            },
            loop.executor());
        keeper_->start();
    }
    void stop() { keeper_.reset(); }

private:
    void keep(Line const & line) {
        std::string const room = line.room.data();
        if (rooms_.size() >= most_rooms && rooms_.find(room) == rooms_.end()) {
            return;
        }
        std::deque<Line> & lines = rooms_[room];
        for (Line const & each : lines) {
            if (each.id == line.id) {
                return;
            }
        }
        lines.push_back(line);
        if (lines.size() > most_lines) {
            lines.pop_front();
        }
    }

    /// What was said after the line that somebody saw last; all, if that one is not known any more.
    void tell(Enter const & enter) {
        Past past;
        past.to = enter.who;
        past.room = enter.room;
        auto const found = rooms_.find(enter.room.data());
        if (found != rooms_.end()) {
            for (Line const & line : found->second) {
                past.lines.push_back(line);
                if (line.id == enter.last) {
                    past.lines.clear();
                }
            }
        }
        if (keeper_ && enter.was.empty() && !past.lines.empty()) {
            static_cast<void>(send(*keeper_, past));
        }
    }

    unsigned long long const who_ = std::mt19937_64(std::random_device{}())();
    std::map<std::string, std::deque<Line>> rooms_;
    std::unique_ptr<tav::kit::keeper> keeper_;
};

} // namespace

int main(int argc, char ** argv) {
    if (argc != 4) {
        std::cerr << "usage: chat-rooms HOST PORT CA-FILE\n";
        return 2;
    }
    tav::tls::connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.set_tls_policy(tav::tls::tls_policy::safe());
    try {
        Loop loop;
        Rooms rooms(loop, option);
        loop.wait(-1);
        rooms.stop();
        // What the keeper has told of its end still refers to the rooms.
        loop.run();
    } catch (std::exception const & e) {
        std::cerr << "rooms: " << e.what() << "\n";
        return 1;
    }
    tav::tls::client::finalize();
    return 0;
}
