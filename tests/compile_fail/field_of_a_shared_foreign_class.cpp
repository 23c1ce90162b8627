// Must not compile: ioField: the class of a tavSharedPtr must be a default constructible tavCodecInterface
#include "tav/vinta/vinta_object.h"

void walk(tavCodecStream & s) {
    class Plain : public tavSharedObject {};
    tavSharedPtr<Plain> value;
    ioField(s, 1, "value", value);
}
