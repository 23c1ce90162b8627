// Must not compile: tavOptional<T>: T must be a plain value type, no reference, array or const type
#include "tav/vinta/vinta_object.h"

void walk(tavCodecStream & s) {
    tavOptional<int const> value;
    ioField(s, 1, "value", value);
}
