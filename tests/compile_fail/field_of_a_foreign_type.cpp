// Must not compile: ioField: no stream carries a value of this type
#include "tav/vinta/vinta_object.h"

#include <utility>

void walk(tavCodecStream & s) {
    std::pair<int, int> value;
    ioField(s, 1, "value", value);
}
