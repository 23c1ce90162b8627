#include "steps.h"

#include <tav/vinta/vinta.h>

#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

// Two clients, ann and bob, talk through a development gateway: a message with fields of every shape,
// replies, pushes that want a receipt, a connection that breaks and comes back.  The gateway passes codes
// from 0x3000 to 0x3fff on to the other clients, answers each with its code + 1, pushes on 0x7001 and hangs
// up on 0x7005.

namespace {

using namespace tav::tls;
using namespace steps;

struct Place : tavObject {
    tavString city;
    double latitude = 0;
    double longitude = 0;

    tav_istr className() const override { return "Place"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Place; }
    void assignFrom(tavObject const & other) override {
        if (auto const * from = dynamic_cast<Place const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "city", city);
        ioField(s, 2, "latitude", latitude);
        ioField(s, 3, "longitude", longitude);
    }
};

/// What one says: a field of each shape.
struct Say : tavMessage {
    tavString text;
    int mood = 0;
    long long at = 0;
    tavOptional<tavString> topic;
    std::vector<tavString> tags;
    std::map<tavString, int> votes;
    Place place;

    unsigned short msgcode() const override { return 0x3001; }
    tav_istr className() const override { return "Say"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Say; }
    void assignFrom(tavObject const & other) override {
        if (auto const * from = dynamic_cast<Say const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "text", text);
        ioField(s, 2, "mood", mood);
        ioField(s, 3, "at", at);
        ioField(s, 4, "topic", topic);
        ioField(s, 5, "tags", tags);
        ioField(s, 6, "votes", votes);
        ioField(s, 7, "place", place);
    }
};

struct Said : Say {
    unsigned short msgcode() const override { return 0x3002; }
    tav_istr className() const override { return "Said"; }
    tav_istr baseName() const override { return "Say"; }
    tavObject * newInstance() const override { return new Said; }
};

/// Asks the gateway to push its text back.
struct PushMe : Say {
    unsigned short msgcode() const override { return 0x7001; }
    tav_istr className() const override { return "PushMe"; }
    tav_istr baseName() const override { return "Say"; }
    tavObject * newInstance() const override { return new PushMe; }
};

struct Pushed : Say {
    unsigned short msgcode() const override { return 0x7003; }
    tav_istr className() const override { return "Pushed"; }
    tav_istr baseName() const override { return "Say"; }
    tavObject * newInstance() const override { return new Pushed; }
};

/// Asks the gateway to hang up.
struct HangUp : Say {
    unsigned short msgcode() const override { return 0x7005; }
    tav_istr className() const override { return "HangUp"; }
    tav_istr baseName() const override { return "Say"; }
    tavObject * newInstance() const override { return new HangUp; }
};

bool same(Say const & a, Say const & b) {
    return a.text == b.text && a.mood == b.mood && a.at == b.at &&
           a.topic.has_value() == b.topic.has_value() && (!a.topic || *a.topic == *b.topic) &&
           a.tags == b.tags && a.votes == b.votes && a.place.city == b.place.city &&
           a.place.latitude == b.place.latitude && a.place.longitude == b.place.longitude;
}

Say greeting(char const * text) {
    Say say;
    say.text = text;
    say.mood = 7;
    say.at = tavTime::currentTimeMillis();
    say.topic = "weather";
    say.tags = {"sun", "wind"};
    say.votes = {{"ann", 2}, {"bob", -1}};
    say.place.city = "Utrecht";
    say.place.latitude = 52.09;
    say.place.longitude = 5.12;
    return say;
}

connect_option optionFor(char ** argv, std::string const & name, Events & events) {
    connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.timedout.wait_ms(limit_ms);
    option.set_on_open([&events, name] { events.happened(name + " opened"); });
    option.set_on_error([&events, name](unsigned long long, unsigned short, int code, char const * text) {
        std::cout << "        " << name << " hears that the connection broke: " << text << " (" << code << ")"
                  << std::endl;
        events.happened(name + " broke");
    });
    return option;
}

void talk(char ** argv, Talk & talk, Events & events) {
    Say const hello = greeting("good morning");
    client & ann = client::instance("ann");
    client & bob = client::instance("bob");

    // bob hears what is said through a callback for its type, and pushes through the one for all the rest.
    bob.register_message(0x3001, [] { return new Say; });
    bob.on_msg(0x3001, [&](unsigned long long sno, tavMessage const & msg) {
        auto const * say = dynamic_cast<Say const *>(&msg);
        talk.step("bob hears #" + std::to_string(sno) + " " + (say ? say->text.data() : "?"),
                  say && (same(*say, hello) || say->text == "I am back"));
        events.happened("bob heard");
    });
    connect_option bobs = optionFor(argv, "bob", events);
    bob.register_message(0x7003, [] { return new Pushed; });
    bobs.set_ptr_msg_callback([&](unsigned long long, tavSharedPtr<tavMessage> msg) {
        auto const * pushed = dynamic_cast<Pushed const *>(msg.get());
        talk.step("bob gets a push, which his side affirms", pushed && pushed->text == "wake me");
        events.happened("bob pushed");
    });

    auto const annStart = ann.start(optionFor(argv, "ann", events));
    auto const bobStart = bob.start(bobs);
    talk.step("ann connects", annStart && annStart->wait() == result_ok && events.wait("ann opened"));
    talk.step("bob connects", bobStart && bobStart->wait() == result_ok && events.wait("bob opened"));

    Said said;
    talk.step("ann says it and gets her reply", ann.send_and_wait(hello, said, limit_ms) == result_ok);
    talk.step("the reply holds every field", same(said, hello));
    talk.step("it has reached bob", events.wait("bob heard"));

    PushMe wake;
    wake.text = "wake me";
    bob.send_msg(wake, send_option());
    talk.step("the gateway pushes to bob", events.wait("bob pushed"));

    ann.send_msg(HangUp(), send_option());
    talk.step("ann's connection is cut", events.wait("ann broke") && !ann.connected());
    auto const again = ann.reconnect(timedout_option(limit_ms));
    talk.step("ann reconnects", again && again->wait() == result_ok && ann.connected());

    Say const back = greeting("I am back");
    talk.step("the talk goes on", ann.send_and_wait(back, said, limit_ms) == result_ok && same(said, back));
    talk.step("bob hears it too", events.wait("bob heard", 2));
}

} // namespace

int main(int argc, char ** argv) {
    if (argc != 4) {
        std::cerr << "usage: chat HOST PORT CA-FILE\n";
        return 2;
    }
    Talk steps;
    Events events;
    talk(argv, steps, events);
    client::finalize();
    steps.step("no thread is left", threads() == 1);
    return steps.failed() ? 1 : 0;
}
