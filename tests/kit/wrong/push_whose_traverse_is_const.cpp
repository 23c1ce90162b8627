// Must not compile: tav::kit::on<T>: T has to override traverse(tavCodecStream &), which is not const
#include "tav/kit/message.h"
#include "tav/kit/talk.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream &) const {}
};

void listen(tav::tls::client & client) {
    tav::kit::on<Say>(client, [](Say const &) {});
}
