// Must not compile: tav::kit: the class has to be copyable: no member may be const, a reference or unique
#include "tav/kit/message.h"

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    std::unique_ptr<int> own;
    void traverse(tavCodecStream &) override {}
};

Say say;
