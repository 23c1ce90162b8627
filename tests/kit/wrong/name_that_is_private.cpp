// Must not compile: tav::kit: type_name and type_code have to be public
#include "tav/kit/message.h"

class Say : public tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream &) override {}
};

Say say;
