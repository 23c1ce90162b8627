#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

/// Ends a test program one of whose tests does not end: no wait of a test takes longer than ten seconds, so
/// something of the library hangs.  Linked into every test program.
namespace {

constexpr unsigned limit_seconds = 100;
char running[256] = "";

void print(char const * text) {
    if (::write(STDERR_FILENO, text, std::strlen(text)) < 0) {
        std::abort();
    }
}

extern "C" void onLimit(int) {
    print("the test hangs: ");
    print(running);
    print("\n");
    std::abort();
}

class Limit : public ::testing::EmptyTestEventListener {
    void OnTestStart(::testing::TestInfo const & info) override {
        std::strncpy(running, info.test_suite_name(), sizeof running - 1);
        std::strncat(running, ".", sizeof running - 1 - std::strlen(running));
        std::strncat(running, info.name(), sizeof running - 1 - std::strlen(running));
        ::alarm(limit_seconds);
    }
    void OnTestEnd(::testing::TestInfo const &) override { ::alarm(0); }
};

bool const installed = [] {
    std::signal(SIGALRM, &onLimit);
    ::testing::UnitTest::GetInstance()->listeners().Append(new Limit);
    return true;
}();

} // namespace
