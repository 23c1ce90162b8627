// Must not compile: tav::kit: the class needs a public default constructor, to make new instances
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    explicit Say(int v) : mood(v) {}
    int mood;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "mood", mood); }
};

Say say(7);
