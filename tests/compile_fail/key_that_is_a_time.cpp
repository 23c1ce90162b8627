// Must not compile: ioField: the keys of a map are text, integers or tavEnum<E>
#include "tav/vinta/vinta_object.h"

#include <map>

void walk(tavCodecStream & s) {
    std::map<tavTime, int> value;
    ioField(s, 1, "value", value);
}
