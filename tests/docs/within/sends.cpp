// With a client and what a send wants at hand.
#include <tav/vinta/vinta.h>

void page(tav::tls::client & client, tav::tls::send_option const & option) {
    tav::tls::client & ann = client;
    using namespace tav::tls;
    BLOCK
}
