// In a function of a program that talks, with a client, messages and an option at hand.
#include <tav/kit/keeper.h>
#include <tav/kit/kit.h>
#include <tav/vinta/vinta.h>

#include <cassert>
#include <chrono>
#include <functional>
#include <iostream>

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "Say";
    static constexpr unsigned short type_code = 0x3001;
    tavString text;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "text", text); }
};
struct Said : tav::kit::message<Said, Say> {
    static constexpr char const * type_name = "Said";
    static constexpr unsigned short type_code = 0x3002;
};

void page(tav::tls::client & client, tav::tls::connect_option & option, Say & say) {
    using namespace std::chrono_literals;
    BLOCK
}
