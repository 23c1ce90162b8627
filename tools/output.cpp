#include "tools/output.h"

#include "tools/failure.h"
#include "tools/interrupts.h"
#include "tools/terminal_text.h"
#include "tools/utf8.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t flushedAt = 64 * 1024;

std::string inColour(char colour, std::string_view text) {
    char const * const code = colour == 'r'   ? "31"
                              : colour == 'g' ? "32"
                              : colour == 'y' ? "33"
                              : colour == 'c' ? "36"
                              : colour == 'd' ? "2"
                                              : "1";
    return std::string("\x1b[") + code + "m" + std::string(text) + "\x1b[0m";
}

/// The word that says how bad it is, in its colour.
void colourKind(std::string & text) {
    std::string_view const first = std::string_view(text).substr(0, text.find('\n'));
    for (std::string_view const kind : {": error: ", ": warning: "}) {
        std::size_t const at = first.find(kind);
        if (at != std::string_view::npos) {
            std::string_view const word = kind.substr(2, kind.size() - 4);
            text.replace(at + 2, word.size(), inColour(word == "error" ? 'r' : 'y', word));
            return;
        }
    }
}

} // namespace

std::map<std::string, Colours> const & colourNames() {
    static std::map<std::string, Colours> const names = {
        {"auto", Colours::automatic}, {"always", Colours::always}, {"never", Colours::never}};
    return names;
}

void Output::colours(Colours choice) {
    char const * const without = std::getenv("NO_COLOR"); // NOLINT(concurrency-mt-unsafe): nothing sets one.
    char const * const terminal = std::getenv("TERM");    // NOLINT(concurrency-mt-unsafe)
    bool const wanted = (without == nullptr || *without == '\0') &&
                        (terminal == nullptr || std::string_view(terminal) != "dumb");
    auto const isColoured = [choice, wanted](int fd) {
        return choice == Colours::always || (choice == Colours::automatic && wanted && ::isatty(fd) == 1);
    };
    coloured_ = isColoured(STDOUT_FILENO);
    tellsInColour_ = isColoured(STDERR_FILENO);
}

void Output::endsBy(Interrupts const * interrupts) {
    interrupts_ = interrupts;
    end_ = Clock::time_point::max();
}

/// Waits until a piece can be written without waiting.
void Output::waitForReader(int fd) {
    constexpr std::chrono::milliseconds grace(500);
    for (;;) {
        bool const came = interrupts_->signal() != 0;
        int left = -1;
        if (came) {
            end_ = std::min(end_, Clock::now() + grace);
            left = static_cast<int>(
                std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now()).count());
            if (left <= 0) {
                throw Interrupted{interrupts_->signal()};
            }
        }
        pollfd what[] = {{fd, POLLOUT, 0}, {interrupts_->fd(), POLLIN, 0}};
        if (::poll(what, came ? 1 : 2, left) > 0 && what[0].revents != 0) {
            return;
        }
    }
}

void Output::writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        std::string_view piece = text;
        if (interrupts_ != nullptr) {
            waitForReader(fd);
            // So much a pipe takes without waiting once it takes anything.
            piece = piece.substr(0, PIPE_BUF);
        }
        ssize_t const n = ::write(fd, piece.data(), piece.size());
        if (n >= 0) {
            text.remove_prefix(static_cast<std::size_t>(n));
        } else if (errno != EINTR) {
            throw systemFailure(fd == STDOUT_FILENO ? "<stdout>" : "<stderr>", "can't write", errno);
        }
    }
}

void Output::write(std::string_view text) {
    if (text_ != nullptr) {
        *text_ += text;
        return;
    }
    buffer_ += text;
    if (buffer_.size() >= flushedAt) {
        flush();
    }
}

void Output::flush() {
    std::string const text = std::move(buffer_);
    buffer_.clear();
    writeAll(STDOUT_FILENO, text);
}

std::string Output::in(char colour, std::string_view text) const {
    return coloured_ ? inColour(colour, text) : std::string(text);
}

void Output::tell(std::string_view text) {
    if (text_ != nullptr) {
        return;
    }
    flush();
    std::string shown = forTerminal(text);
    if (tellsInColour_) {
        colourKind(shown);
    }
    try {
        writeAll(STDERR_FILENO, shown);
    } catch (Failure const &) {
        // There is nobody to be told.
    }
}

std::string jsonText(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        auto const c = static_cast<unsigned char>(text.front());
        std::size_t const size = utf8Character(text);
        if (size == 0) {
            result += "\xEF\xBF\xBD";
        } else if (c == '"' || c == '\\') {
            result += '\\';
            result += static_cast<char>(c);
        } else if (c == '\n') {
            result += "\\n";
        } else if (c == '\t') {
            result += "\\t";
        } else if (isControl(characterOf(text).number)) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x",
                          static_cast<unsigned>(characterOf(text).number));
            result += escape.data();
        } else {
            result += text.substr(0, size);
        }
        text.remove_prefix(size == 0 ? 1 : size);
    }
    return result + "\"";
}

std::string hexText(std::string_view bytes) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        result += result.empty() ? "" : " ";
        result += digits[byte >> 4];
        result += digits[byte & 15];
    }
    return result;
}

} // namespace tool
} // namespace tav
