// Must not compile: Said
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream &) override {}
};

struct Said : tav::kit::message<Say> {
    static constexpr char const * type_name = "Said";
    static constexpr unsigned short type_code = 0x3002;
    void traverse(tavCodecStream &) override {}
};

Said said;
