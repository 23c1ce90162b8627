// Must not compile: tav::kit::request<Reply>: Reply has to override traverse(tavCodecStream &)
#include "tav/kit/message.h"
#include "tav/kit/talk.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream &) const {}
};

void ask(tav::tls::client & client, tavMessage const & msg) {
    tav::kit::request<Say>(client, msg, std::chrono::seconds(5));
}
