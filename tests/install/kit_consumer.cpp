#include <tav/kit/kit.h>

#include <chrono>
#include <iostream>

namespace {

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    tavString text;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "text", text); }
};

} // namespace

int main() {
    std::string const faults = tav::kit::check<Say>();
    tav::tls::client client("consumer");
    auto const reply = tav::kit::request<Say>(client, Say(), std::chrono::seconds(5)).get();
    std::cout << faults << reply.error().message() << '\n';
    return faults.empty() && reply.error() == tav::kit::failure::not_connected ? 0 : 1;
}
