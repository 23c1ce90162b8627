#include "tools/value_text.h"

#include "tools/output.h"
#include "tools/terminal_text.h"
#include "tools/utf8.h"

#include <tav/vinta/vinta_nbr_unit.h>
#include <tav/vinta/vinta_object.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace tav {
namespace tool {

namespace kinds = pml::field_type;

namespace {

template <class T>
T numberOf(std::string_view data) {
    T value = T();
    nbr::SimpleValue(istrOf(data), false).read(value);
    return value;
}

template <class T>
std::string integerText(std::string_view data) {
    return std::to_string(numberOf<T>(data));
}

template <class T>
std::string floatText(std::string_view data, int digits) {
    char text[40];
    std::snprintf(text, sizeof(text), "%.*g", digits, static_cast<double>(numberOf<T>(data)));
    return text;
}

/// The fewest digits that give the number back.
template <class T>
std::string fewestDigits(T value) {
    constexpr int least = 6;
    constexpr int most = sizeof(T) == sizeof(float) ? 9 : 17;
    char text[40];
    for (int digits = least;; ++digits) {
        std::snprintf(text, sizeof(text), "%.*g", digits, static_cast<double>(value));
        if (digits == most || static_cast<T>(std::strtod(text, nullptr)) == value) {
            return text;
        }
    }
}

pml::Unit const * memberOf(std::string const & number, pml::MetaEnum const & names) {
    for (tavSharedPtr<pml::Unit> const & member : names.values) {
        bool const directive = member->name().compare(0, 2, "__") == 0;
        if (!directive && std::to_string(member->asInt64Value()) == number) {
            return member.get();
        }
    }
    return nullptr;
}

std::string enumText(std::string_view data, pml::MetaEnum const * names) {
    std::string const number = integerText<int>(data);
    pml::Unit const * const member = names == nullptr ? nullptr : memberOf(number, *names);
    return member == nullptr ? number : number + " (" + member->name() + ")";
}

} // namespace

std::size_t widthOf(Kind kind) {
    switch (kind) {
    case kinds::bool_:
    case kinds::int8_:
    case kinds::uint8_: return 1;
    case kinds::int16_:
    case kinds::uint16_: return 2;
    case kinds::int32_:
    case kinds::uint32_:
    case kinds::float_:
    case kinds::enum_: return 4;
    case kinds::int64_:
    case kinds::uint64_:
    case kinds::double_:
    case kinds::time_: return 8;
    default: return 0;
    }
}

std::string byteCount(unsigned long long size) {
    return std::to_string(size) + (size == 1 ? " byte" : " bytes");
}

std::string thereAre(unsigned long long count) {
    return std::to_string(count) + (count == 1 ? " is there" : " are there");
}

std::string bytesValue(std::string_view data, std::size_t limit) {
    std::size_t const shown = limit == 0 ? data.size() : std::min<std::size_t>(data.size(), 16);
    std::string text = hexText(data.substr(0, shown));
    if (shown < data.size()) {
        text += " ... (" + std::to_string(data.size()) + " bytes)";
    }
    return text.empty() ? "(empty)" : text;
}

std::string digitsOf(float value) {
    return fewestDigits(value);
}

std::string digitsOf(double value) {
    return fewestDigits(value);
}

std::string textValue(std::string_view text, std::size_t limit) {
    std::string result = "\"";
    std::string_view rest = text;
    while (!rest.empty() && (limit == 0 || text.size() - rest.size() < limit)) {
        char const c = rest.front();
        std::size_t const size = std::max<std::size_t>(utf8Character(rest), 1);
        result += c == '\n'               ? "\\n"
                  : c == '\t'             ? "\\t"
                  : c == '"' || c == '\\' ? std::string("\\") + c
                                          : forTerminal(rest.substr(0, size));
        rest.remove_prefix(size);
    }
    result += '"';
    return rest.empty() ? result : result + "... (" + std::to_string(text.size()) + " bytes)";
}

std::string plainValue(std::string_view data, bool text, std::size_t limit) {
    if (text) {
        return textValue(data, limit);
    }
    if (data.empty() || data.size() > 8) {
        return bytesValue(data, limit);
    }
    std::string const number = integerText<unsigned long long>(data);
    bool const negative = (static_cast<unsigned char>(data.back()) & 0x80u) != 0;
    if (negative && data.size() == 4) {
        return number + " or " + integerText<int>(data);
    }
    return negative && data.size() == 8 ? number + " or " + integerText<long long>(data) : number;
}

std::string typedValue(std::string_view data, Kind kind, pml::MetaEnum const * names, std::size_t limit) {
    switch (kind) {
    case kinds::bool_: return numberOf<bool>(data) ? "true" : "false";
    case kinds::int8_:
        return std::to_string(static_cast<int>(static_cast<signed char>(numberOf<char>(data))));
    case kinds::int16_: return integerText<short>(data);
    case kinds::int32_: return integerText<int>(data);
    case kinds::int64_: return integerText<long long>(data);
    case kinds::uint8_: return std::to_string(static_cast<unsigned>(numberOf<unsigned char>(data)));
    case kinds::uint16_: return integerText<unsigned short>(data);
    case kinds::uint32_: return integerText<unsigned>(data);
    case kinds::uint64_: return integerText<unsigned long long>(data);
    case kinds::float_: return floatText<float>(data, 9);
    case kinds::double_: return floatText<double>(data, 17);
    case kinds::enum_: return enumText(data, names);
    case kinds::bytes_: return bytesValue(data, limit);
    case kinds::time_: {
        long long const value = numberOf<long long>(data);
        std::string const text = timeText(value);
        return std::to_string(value) + (text.empty() ? "" : " (" + text + ")");
    }
    default: return textValue(data, limit);
    }
}

std::string oddness(std::string_view data, bool text, Kind kind) {
    std::size_t const width = widthOf(kind);
    if (text && width != 0) {
        return "text where the template has " + kindName(kind);
    }
    // The library writes a negative int8 with the byte of its sign.
    bool const signOfInt8 = kind == kinds::int8_ && data.size() == 2 && data[1] == '\xFF';
    if (width != 0 && data.size() > width && !signOfInt8) {
        return byteCount(data.size()) + " where " + kindName(kind) + " has " + std::to_string(width);
    }
    bool const isText = kind == kinds::string_ || kind == kinds::wstring_ || kind == kinds::u8string_;
    return isText && !text ? "bytes where the template has " + kindName(kind) : "";
}

bool isMember(std::string_view data, pml::MetaEnum const & names) {
    return memberOf(integerText<int>(data), names) != nullptr;
}

std::string maskedValue(std::string_view data, pml::MetaField const & field) {
    std::string const mask = stringOf(field.spec);
    tavCodecMeta const meta(field.classType.type, true, mask.c_str(), field.classType.optional);
    return stringOf(tavDumper::protectedValue(istrOf(data), meta));
}

std::string timeText(long long milliseconds) {
    long long const seconds = milliseconds / 1000 - (milliseconds % 1000 < 0 ? 1 : 0);
    int const rest = static_cast<int>(milliseconds - seconds * 1000);
    std::tm parts{};
    std::time_t const time = static_cast<std::time_t>(seconds);
    if (::gmtime_r(&time, &parts) == nullptr || parts.tm_year < -1900 || parts.tm_year > 8099) {
        return {};
    }
    char text[80];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, rest);
    return text;
}

} // namespace tool
} // namespace tav
