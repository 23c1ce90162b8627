// With a policy to be filled in.
#include <tav/vinta/vinta.h>

#include <fstream>

std::string askTheVault();

void page(tav::tls::tls_policy & policy) {
    using namespace tav::tls;
    BLOCK
}
