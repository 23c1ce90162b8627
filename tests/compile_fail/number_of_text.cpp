// Must not compile: tavNumber<T, D>: T must be a number type or bool
#include "tav/vinta/vinta_object.h"

void walk(tavCodecStream & s) {
    tavNumber<tavString, 0> value;
    ioField(s, 1, "value", value);
}
