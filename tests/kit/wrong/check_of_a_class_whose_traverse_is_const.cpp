// Must not compile: tav::kit::check<T>: T has to override traverse(tavCodecStream &), which is not const
#include "tav/kit/check.h"
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream &) const {}
};

std::string const faults = tav::kit::check<Say>();
