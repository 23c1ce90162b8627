// Must not compile: tavEnum<E>: E must be an enum
#include "tav/vinta/vinta_object.h"

void walk(tavCodecStream & s) {
    tavEnum<int> value;
    ioField(s, 1, "value", value);
}
