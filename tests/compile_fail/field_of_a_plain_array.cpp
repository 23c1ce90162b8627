// Must not compile: ioField: no stream carries a value of this type
#include "tav/vinta/vinta_object.h"

void walk(tavCodecStream & s) {
    int value[4];
    ioField(s, 1, "value", value);
}
