// Must not compile: tav::kit: a completion token is use_future, use_awaitable or a function that takes result<Reply>
#include "tav/kit/message.h"
#include "tav/kit/talk.h"

struct Said : tav::kit::message<Said> {
    static constexpr char const * type_name = "Said";
    static constexpr unsigned short type_code = 0x3002;
    void traverse(tavCodecStream &) override {}
};

void ask(tav::tls::client & client, tavMessage const & msg) {
    tav::kit::request<Said>(client, msg, std::chrono::seconds(5), [](Said const &) {});
}
