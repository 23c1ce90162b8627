#include <tav/vinta/vinta.h>

int main() {
    tav::nbr::NbrOutputStream out;
    out << 300 << tav_istr("text");
    tav_istr bytes = out.str();
    int number = 0;
    bool const read = tav::nbr::NbrInputStream(bytes) >> number;
    tav::tls::client & client = tav::tls::client::instance("consumer");
    bool const idle = !client.connected();
    tav::tls::client::finalize();
    return read && number == 300 && idle ? 0 : 1;
}
