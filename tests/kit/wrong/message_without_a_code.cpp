// Must not compile: tav::kit: the class has to state its type_code
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    void traverse(tavCodecStream &) override {}
};

Say say;
