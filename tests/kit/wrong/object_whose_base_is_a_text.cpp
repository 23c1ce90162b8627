// Must not compile: tav::kit: the base of a class of objects is tavObject or a class derived from it
#include "tav/kit/message.h"

struct Place : tav::kit::object<Place, tavString> {
    static constexpr char const * type_name = "Place";
    void traverse(tavCodecStream &) override {}
};

Place place;
