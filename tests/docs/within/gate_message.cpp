// With a body to send and a carrier for it.
#include <tav/vinta/vinta.h>

void send(tavGateMessage const & message);

void page(tavBytes const & bytes) {
    BLOCK
}
