#include "tools/input.h"

#include "tools/failure.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
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

/// What the bytes of a text are, each in one count.
struct Letters {
    std::size_t hex = 0;
    std::size_t base64 = 0;
    /// What stands between bytes in hexadecimal: colons and commas, and the x of 0x, which base64 has too.
    std::size_t signs = 0;
    std::size_t prefixes = 0;
    std::size_t others = 0;
    /// What no text has.
    std::size_t raw = 0;
    /// Whether there are blanks between letters of a line.
    bool blank = false;
};

Letters lettersOf(std::string_view text) {
    Letters all;
    char before = ' ';
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        if (hexDigit(c) >= 0) {
            ++all.hex;
        } else if (c == ',' || c == ':') {
            ++all.signs;
        } else if ((c == 'x' || c == 'X') && before == '0') {
            ++all.prefixes;
        } else if (base64Digit(c) >= 0 || c == '=') {
            ++all.base64;
        } else if (isBlank(c)) {
            all.blank = all.blank || c == ' ' || c == '\t';
        } else {
            ++(byte < 32 || byte >= 127 ? all.raw : all.others);
        }
        before = c;
    }
    all.others += all.raw;
    return all;
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
        static std::atomic<bool> taken{false};
        name_ = "<stdin>";
        if (taken.exchange(true)) {
            throw Failure(exitUse, name_ + ": can be read once, and is named twice");
        }
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

bool InputFile::isReady() const {
    pollfd ready{fd_, POLLIN, 0};
    return fd_ < 0 || ::poll(&ready, 1, 0) != 0;
}

std::size_t InputFile::read(char * to, std::size_t n) {
    if (fd_ < 0) {
        std::size_t const size = text_.copy(to, n, at_);
        at_ += size;
        return size;
    }
    if (waiting() && !isReady()) {
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
    Letters const all = lettersOf(text);
    bool const whole = text.size() < guessedFrom;
    bool const digits = all.hex != 0 && all.base64 == 0 && all.others == 0;
    bool const base64 = all.others == 0 && all.hex + all.base64 != 0 && all.signs == 0 &&
                        (!whole || (all.hex + all.base64 + all.prefixes) % 4 == 0);
    // Nothing that is dumped begins as a text does, so that a text with a wrong letter is told with its
    // place.
    constexpr std::size_t mostly = 10;
    bool const typo = all.raw == 0 && all.hex > mostly * (all.base64 + all.others);
    guessed_ = true;
    form_ = digits ? Form::hex : base64 && !(typo && all.blank) ? Form::base64 : typo ? Form::hex : Form::raw;
}

bool ByteReader::isReady() const {
    // A byte has two letters, if it has any.
    std::string_view const here = std::string_view(text_).substr(at_);
    if (form_ == Form::raw ? !here.empty() : std::count_if(here.begin(), here.end(), [](char c) {
                                                 return !isBlank(c);
                                             }) > 1) {
        return true;
    }
    return file_ == nullptr || ended_ || file_->isReady();
}

std::size_t ByteReader::readSome(char * to, std::size_t n) {
    if (form_ == Form::automatic && fill()) {
        guessForm();
    }
    if (form_ == Form::raw && fill()) {
        return read(to, std::min(n, text_.size() - at_));
    }
    std::size_t got = 0;
    // A byte is taken as long as both its digits may be in hand.
    constexpr std::size_t atOnce = 4;
    while (got < n && (got == 0 || text_.size() - at_ >= atOnce) && nextByte(to[got])) {
        ++got;
    }
    return got;
}

std::size_t ByteReader::read(char * to, std::size_t n) {
    if (form_ == Form::automatic && fill()) {
        guessForm();
    }
    std::size_t got = 0;
    if (form_ == Form::raw || form_ == Form::automatic) {
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
        if (i == 0 && (c == ',' || c == ':')) {
            --i;
            continue;
        }
        if (i == 1 && value == 0 && (c == 'x' || c == 'X') && fill() && hexDigit(text_[at_]) >= 0) {
            i = -1;
            continue;
        }
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

std::string readRest(ByteReader & in, std::size_t limit, std::function<void()> const & each) {
    std::string bytes;
    for (;;) {
        if (each) {
            each();
        }
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
