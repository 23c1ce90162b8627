#include "tools/failure.h"

#include "tools/terminal_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <system_error>

namespace tav {
namespace tool {

namespace {

/// The bytes of a line that are shown ahead of the caret and behind it.
constexpr std::size_t shownAhead = 60;
constexpr std::size_t shownBehind = 40;

bool continues(char c) {
    return (static_cast<unsigned char>(c) & 0xC0u) == 0x80;
}

/// The characters of a piece of UTF-8.
std::size_t charactersOf(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return !continues(c); }));
}

/// A piece of a line as a terminal can show it, and the cells that it takes there.
struct Shown {
    std::string text;
    std::size_t cells = 0;
};

Shown shown(std::string_view text) {
    Shown result;
    while (!text.empty()) {
        Character const c = characterOf(text);
        bool const blank = c.size == 0 || isControl(c.number);
        result.text += blank ? std::string_view(" ") : text.substr(0, c.size);
        result.cells += blank ? 1 : c.cells;
        text.remove_prefix(std::max<std::size_t>(c.size, 1));
    }
    return result;
}

std::string hexOf(unsigned char byte) {
    constexpr char digits[] = "0123456789ABCDEF";
    return {digits[byte >> 4], digits[byte & 15]};
}

} // namespace

Failure systemFailure(std::string const & name, std::string const & text, int error) {
    return Failure(exitUse, name + ": " + text + ": " + std::generic_category().message(error));
}

TextPlace placeOf(std::string_view text, std::size_t offset) {
    std::string_view const before = text.substr(0, offset);
    std::size_t const lineEnd = before.rfind('\n');
    std::size_t const begin = lineEnd == std::string_view::npos ? 0 : lineEnd + 1;
    TextPlace place;
    place.line += static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    place.column += charactersOf(before.substr(begin));
    return place;
}

std::string caretAt(std::string_view text, std::size_t offset) {
    offset = std::min(offset, text.size());
    std::string_view const before = text.substr(0, offset);
    std::size_t const lineEnd = before.rfind('\n');
    std::size_t begin = lineEnd == std::string_view::npos ? 0 : lineEnd + 1;
    std::size_t end = std::min(text.find('\n', offset), text.size());
    bool const cutAhead = offset - begin > shownAhead;
    if (cutAhead) {
        begin = offset - shownAhead;
        while (begin != offset && continues(text[begin])) {
            ++begin;
        }
    }
    bool const cutBehind = end - offset > shownBehind;
    if (cutBehind) {
        end = offset + shownBehind;
        while (end != offset && continues(text[end])) {
            --end;
        }
    }
    std::string_view const dots = "...";
    std::string result = "    ";
    result += cutAhead ? dots : std::string_view();
    Shown const ahead = shown(text.substr(begin, offset - begin));
    result += ahead.text + shown(text.substr(offset, end - offset)).text;
    result += cutBehind ? dots : std::string_view();
    result += "\n    ";
    result.append((cutAhead ? dots.size() : 0) + ahead.cells, ' ');
    return result + "^\n";
}

std::string toldInText(std::string const & name, std::string_view text, std::size_t offset,
                       std::string const & kind, std::string const & what) {
    TextPlace const place = placeOf(text, offset);
    return name + ":" + std::to_string(place.line) + ":" + std::to_string(place.column) + ": " + kind + ": " +
           what + "\n" + caretAt(text, offset);
}

std::string toldInBytes(std::string const & name, std::string_view bytes, unsigned long long base,
                        std::size_t at, std::string const & kind, std::string const & what,
                        std::vector<HiddenBytes> const & hidden) {
    at = std::min(at, bytes.size());
    unsigned long long const offset = base + at;
    std::array<char, 24> hex{};
    std::snprintf(hex.data(), hex.size(), "0x%llx", offset);
    std::string result =
        name + ": byte " + std::to_string(offset) + " (" + hex.data() + "): " + kind + ": " + what + "\n    ";
    constexpr std::size_t around = 8;
    std::size_t const first = at - std::min(at, around);
    std::size_t const end = std::min(bytes.size(), at + around);
    std::string caret = "    ";
    for (std::size_t i = first; i < end; ++i) {
        bool const isHidden = std::any_of(hidden.begin(), hidden.end(), [i](HiddenBytes const & range) {
            return i >= range.begin && i < range.end;
        });
        result += (i == first ? "" : " ") + (isHidden ? "**" : hexOf(static_cast<unsigned char>(bytes[i])));
        caret += i < at ? "   " : "";
    }
    // Behind the last byte the caret stands where the next one is missing.
    return result + "\n" + caret + "^\n";
}

std::string reasonOf(std::exception const & e) {
    std::string text = e.what();
    std::size_t const place = text.find("\n    throw at ");
    return text.substr(0, place);
}

} // namespace tool
} // namespace tav
