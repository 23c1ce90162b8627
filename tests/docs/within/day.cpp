// In a function of a program that talks, with a client at hand.
#include <../docs/tool/talk.h>
#include <tav/kit/failure_name.h>
#include <tav/kit/kit.h>

#include <chrono>
#include <iostream>

void page(tav::tls::client & client) {
    using namespace std::chrono_literals;
    BLOCK
}
