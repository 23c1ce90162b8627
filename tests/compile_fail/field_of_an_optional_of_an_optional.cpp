// Must not compile: ioField: an optional of an optional has no null of its own
#include "tav/vinta/vinta_object.h"

void walk(tavCodecStream & s) {
    tavOptional<tavOptional<int>> value;
    ioField(s, 1, "value", value);
}
