// Must not compile: ioField: an enum has to be wrapped as tavEnum<E>
#include "tav/vinta/vinta_object.h"

#include <map>

void walk(tavCodecStream & s) {
    enum Color { red };
    std::map<int, tavOptional<Color>> value;
    ioField(s, 1, "value", value);
}
