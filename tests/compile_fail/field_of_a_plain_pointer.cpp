// Must not compile: ioField: an object is held by value or by tavSharedPtr, not by a plain pointer
#include "tav/vinta/vinta_object.h"

void walk(tavCodecStream & s) {
    tavMsgExt * value;
    ioField(s, 1, "value", value);
}
