// Must not compile: tav::kit: type_code has to be a constant number from 0 to 0xfffe
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0xffff;
    void traverse(tavCodecStream &) override {}
};

Say say;
