// Must not compile: tavDumper::write takes the simple types of tavCodecStream and objects
#include "tav/vinta/vinta_object.h"

#include <string>

void print(tavDumper & s) {
    s.write(std::string("text"), tavCodecMeta());
}
