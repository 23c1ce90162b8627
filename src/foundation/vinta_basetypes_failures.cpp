#include "tav/vinta/vinta_basetypes_failures.h"

#include "foundation/build_stamp.h"
#include "foundation/platform.h"
#include "foundation/report.h"
#include "foundation/views.h"
#include "tav/vinta/vinta_basetypes_util.h"

#include <cctype>
#include <iomanip>
#include <limits>
#include <string_view>

extern "C" {
/// Ties a built library to its sources: the symbol's name carries the build stamp.
TAV_API extern char const TAV_BUILD_MARKER[];
char const TAV_BUILD_MARKER[] = TAV_BUILD_STAMP;
}

namespace {

using tav::detail::bytesOf;

constexpr char upperDigits[] = "0123456789ABCDEF";

std::string copyOf(char const * text) {
    return text != nullptr ? std::string(text) : std::string();
}

void appendView(std::string & out, tav_istr v) {
    out.append(bytesOf(v));
}

std::string shortForm(tavCurrentInfo const & v) {
    std::string out;
    appendView(out, tavUtil::getFuncName(v.func));
    out += '(';
    appendView(out, tavUtil::getFileName(v.file));
    out += ':';
    out += std::to_string(v.line);
    out += ')';
    return out;
}

void appendHexByte(std::string & out, char c) {
    auto const byte = static_cast<unsigned char>(c);
    out += upperDigits[byte >> 4];
    out += upperDigits[byte & 0x0F];
}

void appendHex(std::string & out, std::string_view bytes) {
    tavString const digits = tavHex16::encode(tav_istr(bytes.data(), bytes.size()));
    out.reserve(out.size() + digits.size() + 2);
    out += '[';
    appendView(out, digits);
    out += ']';
}

void appendCountedHex(std::string & out, std::string_view bytes) {
    out += '[';
    out += std::to_string(bytes.size());
    out += ']';
    if (!bytes.empty()) {
        out += "~x";
        appendHex(out, bytes);
    }
}

bool isPrintable(char c) {
    return std::isprint(static_cast<unsigned char>(c)) != 0;
}

/// The end of the run of unprintable bytes that begins at `first`.
std::size_t endOfRun(std::string_view bytes, std::size_t first) {
    std::size_t i = first + 1;
    while (i < bytes.size() && !isPrintable(bytes[i]) && bytes[i] != '\r' && bytes[i] != '\n') {
        ++i;
    }
    return i;
}

constexpr std::size_t dumpWidth = 16;

void appendDumpLine(std::string & out, std::size_t offset, std::string_view bytes) {
    int shift = 12;
    while ((offset >> shift) > 0x0F) {
        shift += 4;
    }
    for (; shift >= 0; shift -= 4) {
        out += upperDigits[(offset >> shift) & 0x0F];
    }
    for (std::size_t i = 0; i < dumpWidth; ++i) {
        out += ' ';
        if (i < bytes.size()) {
            appendHexByte(out, bytes[i]);
        } else {
            out += "  ";
        }
    }
    out += "  ";
    for (std::size_t i = 0; i < dumpWidth; ++i) {
        if (i < bytes.size()) {
            bool const plain = bytes[i] >= 0x20 && bytes[i] <= 0x7E;
            out += plain ? bytes[i] : '.';
        } else {
            out += ' ';
        }
    }
    out += '\n';
}

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// What extracting a number from a stream over `text` leaves: blanks and a sign may stand ahead, what follows
/// the digits is ignored, no digits give 0, and a number that does not fit the nearest one that does.
long long extractNumber(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && isBlank(text[i])) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    auto const largest = static_cast<unsigned long long>(std::numeric_limits<long long>::max());
    unsigned long long const limit = negative ? largest + 1 : largest;
    unsigned long long value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        auto const digit = static_cast<unsigned>(text[i] - '0');
        if (value > (limit - digit) / 10) {
            value = limit;
            break;
        }
        value = value * 10 + digit;
    }
    return static_cast<long long>(negative ? 0 - value : value);
}

} // namespace

tavCurrentInfo::tavCurrentInfo() : file(nullptr), line(0), func(nullptr) {}

tavCurrentInfo::tavCurrentInfo(char const * filePath, unsigned lineNumber, char const * function)
    : file(filePath), line(lineNumber), func(function) {}

void tavCurrentInfo::dump(std::ostream & out) const {
    out << shortForm(*this);
}

std::ostream & operator<<(std::ostream & out, tavCurrentInfo const & v) {
    v.dump(out);
    return out;
}

tavInvalidEnumValue::tavInvalidEnumValue(char const * message, int value)
    : message_(copyOf(message)), value_(value) {}

tavInvalidEnumValue::tavInvalidEnumValue(std::string const & message, int value)
    : message_(message), value_(value) {}

tavInvalidEnumValue::~tavInvalidEnumValue() = default;

int tavInvalidEnumValue::value() const {
    return value_;
}

char const * tavInvalidEnumValue::what() const noexcept {
    return message_.c_str();
}

tavNotSupported::tavNotSupported(char const * message) : message_(copyOf(message)) {}

tavNotSupported::tavNotSupported(std::string const & message) : message_(message) {}

tavNotSupported::~tavNotSupported() = default;

char const * tavNotSupported::what() const noexcept {
    return message_.c_str();
}

tavEnumBase::~tavEnumBase() = default;

void tavEnumBase::toString_i(std::map<int, std::string> const & names, std::string & out) {
    std::string text;
    for (auto const & entry : names) {
        if (!text.empty()) {
            text += ',';
        }
        text += entry.second;
        text += '=';
        text += std::to_string(entry.first);
    }
    out.swap(text);
}

void tavEnumBase::fromString_i(std::map<int, std::string> &, std::map<std::string, int> const &) {}

std::ostream & operator<<(std::ostream & out, tav_config_t const &) {
#if defined(__x86_64__)
    constexpr char const * processor = "x86-64";
#elif defined(__aarch64__)
    constexpr char const * processor = "AArch64";
#else
    constexpr char const * processor = "unknown";
#endif
#if defined(__clang__)
    constexpr char const * compiler = "Clang " __clang_version__;
#else
    constexpr char const * compiler = "GCC " __VERSION__;
#endif
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    constexpr char const * byteOrder = "Little";
#else
    constexpr char const * byteOrder = "Big";
#endif
    std::string text = "(OS: ";
    text += tav::platform::systemName();
    text += ")(Bits: ";
    text += std::to_string(sizeof(void *) * std::numeric_limits<unsigned char>::digits);
    text += ")(Release)(Endian: ";
    text += byteOrder;
    text += ")(CPU: ";
    text += processor;
    text += ")(Compiler: ";
    text += compiler;
    text += ')';
    return out << text;
}

namespace tav {

Exception::Exception(char const * file, unsigned line, char const * func, tav_istr message)
    : info_(file, line, func),
      message_(bytesOf(message)),
      text_("(tav::Exception) " + detail::shownText(message_) + "\n    throw at " + shortForm(info_)) {}

Exception::~Exception() = default;

char const * Exception::what() const noexcept {
    return text_.c_str();
}

std::string const & Exception::message() const {
    return message_;
}

tavCurrentInfo const & Exception::position_info() const {
    return info_;
}

DecodeException::DecodeException(char const * file, unsigned line, char const * func, tav_istr message)
    : Exception(file, line, func, message), position_(0) {}

DecodeException::DecodeException(char const * file, unsigned line, char const * func, tav_istr message,
                                 int position)
    : Exception(file, line, func, std::string(bytesOf(message)) + "(" + std::to_string(position) + ")"),
      position_(position) {}

DecodeException::~DecodeException() = default;

int DecodeException::position() const {
    return position_;
}

asHex::asHex(long long number, int fieldWidth, bool upperCase)
    : value(number), width(fieldWidth), upper(upperCase) {}

std::ostream & operator<<(std::ostream & out, asHex const & v) {
    out << std::hex;
    if (v.upper) {
        out << std::uppercase;
    }
    out << std::setfill('0');
    if (v.width != 0) {
        out << std::setw(v.width);
    }
    return out << v.value << std::setfill(' ') << std::dec;
}

printAsHex::printAsHex(tav_istr v) : view(v) {}

printAsHex::printAsHex(char const * first, char const * last) : view(first, last) {}

std::ostream & operator<<(std::ostream & out, printAsHex const & v) {
    std::string text;
    appendHex(text, bytesOf(v.view));
    return out << text;
}

printHexChar::printHexChar(char c) : value(c) {}

std::ostream & operator<<(std::ostream & out, printHexChar const & v) {
    std::string text;
    appendHexByte(text, v.value);
    return out << text;
}

_Print::_Print(tav_istr v) : view(v) {}

std::ostream & operator<<(std::ostream & out, _Print const & v) {
    std::string_view const bytes = bytesOf(v.view);
    std::string text;
    text.reserve(bytes.size());
    std::size_t i = 0;
    while (i < bytes.size()) {
        char const c = bytes[i];
        if (c == '\t' || c == '\r' || c == '\n') {
            text += '~';
            text += c == '\t' ? 't' : c == '\r' ? 'r' : 'n';
            ++i;
        } else if (c == '~') {
            text += "~~";
            ++i;
        } else if (isPrintable(c)) {
            text += c;
            ++i;
        } else {
            std::size_t const end = endOfRun(bytes, i);
            appendCountedHex(text, bytes.substr(i, end - i));
            i = end;
        }
    }
    return out << text;
}

_PrintHex::_PrintHex(tav_istr v) : view(v) {}

std::ostream & operator<<(std::ostream & out, _PrintHex const & v) {
    std::string text;
    appendCountedHex(text, bytesOf(v.view));
    return out << text;
}

HexDump::HexDump(tav_istr v) : bytes(v) {}

std::ostream & operator<<(std::ostream & out, HexDump const & v) {
    std::string_view const bytes = bytesOf(v.bytes);
    std::string text = "\n"
                       "     00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f  0123456789abcdef\n"
                       "---- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --  ----------------\n";
    out.width(0);
    for (std::size_t offset = 0; offset < bytes.size(); offset += dumpWidth) {
        appendDumpLine(text, offset, bytes.substr(offset, dumpWidth));
        out << text;
        text.clear();
    }
    return out << text;
}

std::string version_t::str() {
    return TAV_BUILD_STAMP;
}

#define TAV_TEXT_OF(number) #number
#define TAV_DOTTED(major, minor, patch) TAV_TEXT_OF(major) "." TAV_TEXT_OF(minor) "." TAV_TEXT_OF(patch)

char const * version_t::release() noexcept {
    return TAV_DOTTED(TAV_VERSION_MAJOR, TAV_VERSION_MINOR, TAV_VERSION_PATCH);
}

std::ostream & operator<<(std::ostream & out, version_t const &) {
    return out << TAV_BUILD_STAMP;
}

stringger::stringger() = default;

stringger::stringger(stringger && other) = default;

stringger & stringger::operator=(stringger && other) = default;

stringger::~stringger() = default;

stringger & stringger::operator<<(std::ostream & (*manipulator)(std::ostream &)) {
    out_ << manipulator;
    return *this;
}

stringger & stringger::operator<<(std::ios & (*manipulator)(std::ios &)) {
    out_ << manipulator;
    return *this;
}

stringger & stringger::operator<<(std::ios_base & (*manipulator)(std::ios_base &)) {
    out_ << manipulator;
    return *this;
}

std::string stringger::str() const {
    return detail::printedText(out_);
}

Range::Range(tav_istr pattern) {
    setup(pattern);
}

bool Range::setup(tav_istr pattern) {
    std::string_view rest = bytesOf(pattern);
    auto const next = [&rest](std::size_t end) {
        std::string_view const text = rest.substr(0, end);
        rest.remove_prefix(text.size());
        return text;
    };
    while (!rest.empty()) {
        std::size_t const separator = rest.find_first_of(",.");
        if (separator == 0) {
            return true;
        }
        long long const first = extractNumber(next(separator));
        long long last = first;
        if (!rest.empty() && rest.front() == '.') {
            if (rest.substr(0, 2) != "..") {
                detail::log(tavLogger::DEFAULT_TAG(), tavLogger::ERROR, detail::here("tav::Range::setup"),
                            [&](std::ostream & out) { out << "invalid pattern: " << bytesOf(pattern); });
                return false;
            }
            rest.remove_prefix(2);
            last = extractNumber(next(rest.find(',')));
        }
        intervals_[first] = last;
        if (!rest.empty()) {
            rest.remove_prefix(1);
        }
    }
    return true;
}

std::ostream & operator<<(std::ostream & out, Range const & v) {
    std::string text = "{";
    for (auto const & interval : v.intervals_) {
        text += ' ';
        text += std::to_string(interval.first);
        text += ':';
        text += std::to_string(interval.second);
    }
    text += " }";
    return out << text;
}

} // namespace tav
