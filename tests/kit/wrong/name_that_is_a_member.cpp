// Must not compile: tav::kit: type_name has to be a text
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream &) override {}
};

Say say;
