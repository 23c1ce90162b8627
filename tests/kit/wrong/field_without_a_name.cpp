// Must not compile: ioField: a field has an id, a name and a value
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    tavString text;
    void traverse(tavCodecStream & s) override { ioField(s, 1, text); }
};
