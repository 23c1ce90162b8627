#ifndef TAV_TESTS_SUPPORT_TALK_RIG_H
#define TAV_TESTS_SUPPORT_TALK_RIG_H

#include "support/client_rig.h"
#include "tav/kit/message.h"
#include "tav/kit/result.h"

#include <memory>
#include <stdexcept>
#include <string>

/// What tests of the kit share: messages, and a client that talks to a gateway.
namespace tav_test {

namespace kit = tav::kit;

struct Say : kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x1234;
    int number = 0;
    tavString text;

    Say() = default;
    explicit Say(int v) : number(v) {}
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number);
        ioField(s, 2, "text", text);
    }
};

struct Said : kit::message<Said, Say> {
    static constexpr char const * type_name = "Said";
    static constexpr unsigned short type_code = 0x1235;
};

template <class T>
std::string textOfResult(kit::result<T> const & v) {
    return v ? "ok" : v.error().message();
}

/// A client that talks to a gateway.
class TalkRig {
public:
    explicit TalkRig(tav::gateway::Options const & options = tav::gateway::Options())
        : gateway(options), client(std::make_unique<tls::client>("kit")) {
        auto const info = client->start(gateway.option());
        // The gateway may know of the client a moment later than that one does.
        if (resultOf(info) != tls::result_ok ||
            !gateway.gateway.wait([](tav::gateway::Stats const & stats) { return stats.open == 1; })) {
            throw std::runtime_error("the client did not connect");
        }
    }

    GatewayRig gateway;
    std::unique_ptr<tls::client> client;
};

/// Of a gateway that reads and never answers.
inline tav::gateway::Options neverAnswering() {
    tav::gateway::Options options;
    options.faults.silence = true;
    return options;
}

} // namespace tav_test

#endif
