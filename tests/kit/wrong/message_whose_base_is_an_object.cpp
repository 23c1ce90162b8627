// Must not compile: tav::kit: the base of a message class is a message class
#include "tav/kit/message.h"

struct Place : tav::kit::object<Place> {
    static constexpr char const * type_name = "Place";
    void traverse(tavCodecStream &) override {}
};

struct Say : tav::kit::message<Say, Place> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream &) override {}
};

Say say;
