// Must not compile: ioField: no stream carries a value of this type
#include "tav/vinta/vinta_object.h"

#include <list>
#include <vector>

void walk(tavCodecStream & s) {
    std::vector<std::list<long double>> value;
    ioField(s, 1, "value", value);
}
