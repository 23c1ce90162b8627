// Must not compile: PmlOutputStream writes no values of this type
#include "tav/vinta/vinta_pml_streams.h"

void write(tav::pml::PmlOutputStream & s) {
    s << L'a';
}
