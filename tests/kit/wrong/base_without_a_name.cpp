// Must not compile: tav::kit: the base class has to state its type_name, or to have a default constructor
#include "tav/kit/message.h"

struct Envelope : tavMessage {
    tavString from;

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "from", from); }
};

struct Say : tav::kit::message<Say, Envelope> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
};

Say say;
