// Must not compile: tav::kit: a time limit has a unit, such as 5s
#include "tav/kit/message.h"
#include "tav/kit/talk.h"

struct Said : tav::kit::message<Said> {
    static constexpr char const * type_name = "Said";
    static constexpr unsigned short type_code = 0x3002;
    void traverse(tavCodecStream &) override {}
};

void ask(tav::tls::client & client, tavMessage const & msg) {
    tav::kit::request<Said>(client, msg, 5);
}
