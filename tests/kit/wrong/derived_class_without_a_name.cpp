// Must not compile: tav::kit: the class has to state its type_name
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream &) override {}
};

struct Said : tav::kit::message<Said, Say> {
    static constexpr unsigned short type_code = 0x3002;
};

Said said;
