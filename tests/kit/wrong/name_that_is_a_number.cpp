// Must not compile: tav::kit: type_name has to be a text
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    static constexpr int type_name = 7;
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream &) override {}
};

Say say;
