#include "tools/input.h"

#include "tools/failure.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t pieceSize = 64 * 1024;
constexpr std::size_t guessedFrom = 4 * 1024;

std::function<void(int)> & waiting() {
    static std::function<void(int)> call;
    return call;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    char const lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

int base64Digit(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

std::string quoted(char c) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte > 32 && byte < 127) {
        return std::string("'") + c + "'";
    }
    constexpr char digits[] = "0123456789ABCDEF";
    return std::string("the byte ") + digits[byte >> 4] + digits[byte & 15];
}

} // namespace

std::map<std::string, Form> const & formNames() {
    static std::map<std::string, Form> const names = {
        {"auto", Form::automatic}, {"raw", Form::raw}, {"hex", Form::hex}, {"base64", Form::base64}};
    return names;
}

InputFile::InputFile(std::string const & path) : name_(path) {
    if (path == "-") {
        name_ = "<stdin>";
        fd_ = STDIN_FILENO;
    } else {
        fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ < 0) {
            throw systemFailure(name_, "can't open", errno);
        }
    }
    struct stat about {};
    if (::fstat(fd_, &about) == 0 && S_ISREG(about.st_mode)) {
        size_ = static_cast<unsigned long long>(about.st_size);
    }
}

InputFile::InputFile(std::string name, std::string text)
    : name_(std::move(name)), text_(std::move(text)), size_(text_.size()) {}

InputFile::~InputFile() {
    if (fd_ > STDIN_FILENO) {
        ::close(fd_);
    }
}

void InputFile::whenWaiting(std::function<void(int)> call) {
    waiting() = std::move(call);
}

std::size_t InputFile::read(char * to, std::size_t n) {
    if (fd_ < 0) {
        std::size_t const size = text_.copy(to, n, at_);
        at_ += size;
        return size;
    }
    pollfd ready{fd_, POLLIN, 0};
    if (waiting() && ::poll(&ready, 1, 0) == 0) {
        waiting()(fd_);
    }
    for (;;) {
        ssize_t const got = ::read(fd_, to, n);
        if (got >= 0) {
            return static_cast<std::size_t>(got);
        }
        if (errno != EINTR) {
            throw systemFailure(name_, "can't read", errno);
        }
    }
}

std::string readWhole(std::string const & path, std::string & name, std::size_t limit) {
    InputFile file(path);
    name = file.name();
    std::string text;
    for (;;) {
        std::size_t const before = text.size();
        text.resize(before + pieceSize);
        std::size_t const got = file.read(&text[before], pieceSize);
        text.resize(before + got);
        if (text.size() > limit) {
            throw Failure(exitUse, name + ": is larger than " + std::to_string(limit) + " bytes");
        }
        if (got == 0) {
            return text;
        }
    }
}

ByteReader::ByteReader(std::string const & path, Form form)
    : file_(std::make_unique<InputFile>(path)), form_(form) {
    name_ = file_->name();
}

ByteReader::ByteReader(std::string const & name, std::string const & text, Form form)
    : name_(name), form_(form), text_(text) {}

/// Makes the piece in hand hold a byte; false at the end.
bool ByteReader::fill() {
    if (at_ < text_.size()) {
        return true;
    }
    if (ended_ || file_ == nullptr) {
        return false;
    }
    text_.resize(pieceSize);
    text_.resize(file_->read(&text_[0], pieceSize));
    at_ = 0;
    ended_ = text_.empty();
    return !ended_;
}

void ByteReader::guessForm() {
    std::string_view const text = std::string_view(text_).substr(0, guessedFrom);
    std::size_t hex = 0;
    std::size_t base64 = 0;
    std::size_t others = 0;
    for (char const c : text) {
        if (hexDigit(c) >= 0) {
            ++hex;
        } else if (base64Digit(c) >= 0 || c == '=') {
            ++base64;
        } else if (!isBlank(c)) {
            ++others;
        }
    }
    bool const whole = text.size() < guessedFrom;
    if (others != 0 || hex + base64 == 0) {
        form_ = Form::raw;
    } else if (base64 == 0 && (!whole || hex % 2 == 0)) {
        form_ = Form::hex;
    } else {
        form_ = !whole || (hex + base64) % 4 == 0 ? Form::base64 : Form::raw;
    }
}

std::size_t ByteReader::read(char * to, std::size_t n) {
    if (!fill()) {
        if (form_ == Form::automatic) {
            form_ = Form::raw;
        }
    } else if (form_ == Form::automatic) {
        guessForm();
    }
    std::size_t got = 0;
    if (form_ == Form::raw) {
        while (got < n && fill()) {
            std::size_t const some = std::min(n - got, text_.size() - at_);
            std::memcpy(to + got, text_.data() + at_, some);
            at_ += some;
            got += some;
            consumed_ += some;
        }
        return got;
    }
    while (got < n && nextByte(to[got])) {
        ++got;
    }
    return got;
}

int ByteReader::nextDigit() {
    constexpr std::size_t keptOfLine = 4 * 1024;
    while (fill()) {
        char const c = text_[at_++];
        ++consumed_;
        if (c == '\n') {
            ++lines_;
            line_.clear();
            cut_ = 0;
            continue;
        }
        if (line_.size() >= 2 * keptOfLine) {
            line_.erase(0, keptOfLine);
            cut_ += keptOfLine;
        }
        line_ += c;
        if (!isBlank(c)) {
            return static_cast<unsigned char>(c);
        }
    }
    return -1;
}

bool ByteReader::nextByte(char & to) {
    return form_ == Form::hex ? nextHex(to) : nextBase64(to);
}

bool ByteReader::nextHex(char & to) {
    int value = 0;
    for (int i = 0; i < 2; ++i) {
        int const c = nextDigit();
        if (c < 0) {
            if (i == 0) {
                return false;
            }
            line_ += ' ';
            refuse("a byte has two hexadecimal digits, and the input ends behind the first");
        }
        int const digit = hexDigit(static_cast<char>(c));
        if (digit < 0) {
            refuse(quoted(static_cast<char>(c)) + " is no hexadecimal digit");
        }
        value = value * 16 + digit;
    }
    to = static_cast<char>(value);
    return true;
}

bool ByteReader::nextBase64(char & to) {
    for (;;) {
        int const c = nextDigit();
        if (c < 0) {
            // The padding at the end may be left out.
            if (count_ % 4 == 1) {
                line_ += ' ';
                refuse("the input ends behind the first character of a group of base64");
            }
            return false;
        }
        if (c == '=') {
            if (count_ % 4 < 2 && !padded_) {
                refuse("'=' ends a group of base64 that has two or three characters");
            }
            padded_ = true;
            continue;
        }
        int const digit = base64Digit(static_cast<char>(c));
        if (digit < 0 || padded_) {
            refuse(quoted(static_cast<char>(c)) +
                   (digit < 0 ? " is no base64" : " stands behind the padding"));
        }
        bits_ = (bits_ << 6 | static_cast<unsigned>(digit)) & 0xFFFFFFu;
        unsigned const place = count_++ % 4;
        if (place != 0) {
            to = static_cast<char>(bits_ >> (6 - 2 * place) & 0xFFu);
            return true;
        }
    }
}

void ByteReader::refuse(std::string const & what) {
    // The line as far as it was read, and what of it stands in the same piece.
    std::size_t const at = line_.size() - 1;
    std::size_t const end = std::min(text_.find('\n', at_), text_.size());
    std::string const line =
        line_ + (at_ < end ? text_.substr(at_, std::min<std::size_t>(end - at_, 200)) : "");
    throw Failure(exitFound, name_ + ":" + std::to_string(lines_ + 1) + ":" + std::to_string(cut_ + at + 1) +
                                 ": error: " + what + "\n" + caretAt(line, at));
}

std::string readRest(ByteReader & in, std::size_t limit) {
    std::string bytes;
    for (;;) {
        std::size_t const before = bytes.size();
        bytes.resize(before + pieceSize);
        std::size_t const got = in.read(&bytes[before], pieceSize);
        bytes.resize(before + got);
        if (bytes.size() > limit) {
            throw Failure(exitUse, in.name() + ": is larger than " + std::to_string(limit) + " bytes");
        }
        if (got < pieceSize) {
            return bytes;
        }
    }
}

} // namespace tool
} // namespace tav
