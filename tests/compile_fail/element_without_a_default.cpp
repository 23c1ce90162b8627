// Must not compile: ioField: the elements of a container must be default constructible and movable
#include "tav/vinta/vinta_object.h"

#include <vector>

void walk(tavCodecStream & s) {
    class Sized : public tavCodecInterface {
    public:
        explicit Sized(int) {}
        void io(tavCodecStream &) override {}
    };
    std::vector<Sized> value;
    ioField(s, 1, "value", value);
}
