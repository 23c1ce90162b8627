// Must not compile: tav::kit: a class whose base is a message is declared by message<Self, Base>
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream &) override {}
};

struct Said : tav::kit::object<Said, Say> {
    static constexpr char const * type_name = "Said";
};

Said said;
