// Must not compile: ioField: the value is const, and input streams assign it
#include "tav/vinta/vinta_object.h"

void walk(tavCodecStream & s) {
    int const value = 0;
    ioField(s, 1, "value", value);
}
