#include "screen.h"

#include <iostream>

#include <unistd.h>

namespace chat {
namespace {

class PlainScreen final : public Screen {
public:
    explicit PlainScreen(Loop & loop) : loop_(loop) {}

    bool read(std::string & line) override {
        std::size_t end = 0;
        while ((end = held_.find('\n')) == std::string::npos) {
            char bytes[1024];
            if (!loop_.wait(STDIN_FILENO)) {
                return false;
            }
            ssize_t const size = ::read(STDIN_FILENO, bytes, sizeof bytes);
            if (size <= 0) {
                return false;
            }
            held_.append(bytes, static_cast<std::size_t>(size));
        }
        line = held_.substr(0, end);
        held_.erase(0, end + 1);
        return true;
    }
    void print(std::string const & line) override { std::cout << line << std::endl; }
    void prompt(std::string const &) override {}
    bool echoes() const override { return false; }

private:
    Loop & loop_;
    std::string held_;
};

} // namespace

std::unique_ptr<Screen> plainScreen(Loop & loop) {
    return std::make_unique<PlainScreen>(loop);
}

#ifndef TAV_CHAT_EDITS
std::unique_ptr<Screen> editedScreen(Loop &) {
    return nullptr;
}
#endif

} // namespace chat
