#include <tav/vinta/vinta.h>

#include <iostream>

// The internal headers are no part of what a consumer sees.
#if __has_include("foundation/report.h")
#error "internal headers are in reach"
#endif

int main() {
    tav::nbr::NbrOutputStream out;
    out << 300 << tav_istr("text");
    tav_istr bytes = out.str();
    int number = 0;
    bool const read = tav::nbr::NbrInputStream(bytes) >> number;
    tav::tls::client & client = tav::tls::client::instance("consumer");
    bool const idle = !client.connected();
    tav::tls::client::finalize();
    std::cout << tav::version_t::release() << ' ' << tav::version_t() << '\n';
    return read && number == 300 && idle ? 0 : 1;
}
