// Must not compile: ioField: an enum has to be wrapped as tavEnum<E>
#include "tav/vinta/vinta_object.h"

void walk(tavCodecStream & s) {
    enum class Color { red } value;
    ioField(s, 1, "value", value);
}
