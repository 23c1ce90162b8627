// With a client and what a start needs at hand.
#include <tav/vinta/vinta.h>

void page(tav::tls::client & client, tav::tls::connect_option & option) {
    using namespace tav::tls;
    BLOCK
}
