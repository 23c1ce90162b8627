#include "formats/xml/xml_text.h"

#include "foundation/views.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_xml_tree.h"

#include <algorithm>

namespace tav {
namespace xml {

using tav::detail::bytesOf;

namespace detail {

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// The value of digits; false without any or with one that is none.
bool readCharacter(std::string_view digits, unsigned radix, unsigned & value) {
    value = 0;
    for (char const c : digits) {
        unsigned const digit = c >= '0' && c <= '9'                  ? static_cast<unsigned>(c - '0')
                               : c >= 'a' && c <= 'f' && radix == 16 ? static_cast<unsigned>(c - 'a') + 10
                                                                     : radix;
        if (digit >= radix) {
            return false;
        }
        value = value * radix + digit;
    }
    return !digits.empty();
}

/// Appends what the entity `name`, in lower case, stands for.
void appendEntity(std::string & out, std::string_view name) {
    static constexpr struct {
        std::string_view name;
        char byte;
    } named[] = {{"amp", '&'}, {"quot", '"'}, {"apos", '\''}, {"lt", '<'}, {"gt", '>'}, {"nbsp", ' '}};
    for (auto const & entity : named) {
        if (entity.name == name) {
            out += entity.byte;
            return;
        }
    }
    unsigned value = 0;
    bool const hexadecimal = name.size() > 1 && name[0] == '#' && name[1] == 'x';
    if (hexadecimal ? readCharacter(name.substr(2), 16, value)
                    : !name.empty() && name[0] == '#' && readCharacter(name.substr(1), 10, value)) {
        value &= 0xffff;
        if (value != 0) {
            tavString text;
            text.write(static_cast<wchar_t>(value));
            out += bytesOf(text);
        }
        return;
    }
    out.append(1, '&').append(name).append(1, ';');
}

} // namespace

void appendEscaped(std::string & out, std::string_view text, bool lineBreaks) {
    char const * at = text.data();
    char const * const end = at + text.size();
    while (true) {
        char const * const found =
            lineBreaks ? findOf(at, end, hasEntityBit | lineBreakBit) : findEntityByte(at, end);
        out.append(at, static_cast<std::size_t>(found - at));
        if (found == end) {
            return;
        }
        out += entityOf(*found);
        at = found + 1;
    }
}

void appendUnescaped(std::string & out, std::string_view text) {
    constexpr std::size_t longest = 7;
    while (!text.empty()) {
        std::size_t const amp = std::min(text.find('&'), text.size());
        out.append(text, 0, amp);
        text.remove_prefix(amp);
        if (text.empty()) {
            return;
        }
        std::size_t const end = text.substr(0, longest + 1).find(';');
        if (end == std::string_view::npos) {
            out += '&';
            text.remove_prefix(1);
            continue;
        }
        char name[longest + 1];
        std::transform(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(end), name, lower);
        appendEntity(out, std::string_view(name, end - 1));
        text.remove_prefix(end + 1);
    }
}

} // namespace detail

using detail::appendEscaped;
using detail::appendUnescaped;
using detail::cdataBegin;
using detail::cdataEnd;
using detail::hasSpecialBytes;
using detail::upToNul;

void escape(std::string & out, char const * text, bool lineBreaks) {
    appendEscaped(out, upToNul(text), lineBreaks);
}

void escapeAttr(std::string & out, char const * text) {
    appendEscaped(out, upToNul(text), false);
}

void unescape(std::string & out, tav_istr text) {
    appendUnescaped(out, bytesOf(text));
}

void encode_cdata(std::string & text) {
    if (!hasSpecialBytes(text)) {
        return;
    }
    std::string encoded;
    if (text.find(cdataEnd) != std::string::npos) {
        appendEscaped(encoded, upToNul(text.c_str()), false);
    } else {
        encoded.reserve(cdataBegin.size() + text.size() + cdataEnd.size());
        encoded.append(cdataBegin).append(text).append(cdataEnd);
    }
    text.swap(encoded);
}

void decode_cdata(std::string & text) {
    std::string_view const whole = text;
    if (whole.size() >= cdataBegin.size() + cdataEnd.size() &&
        whole.substr(0, cdataBegin.size()) == cdataBegin &&
        whole.substr(whole.size() - cdataEnd.size()) == cdataEnd) {
        text.resize(text.size() - cdataEnd.size());
        text.erase(0, cdataBegin.size());
    } else if (text.find('&') != std::string::npos) {
        std::string decoded;
        appendUnescaped(decoded, whole);
        text.swap(decoded);
    }
}

} // namespace xml
} // namespace tav
