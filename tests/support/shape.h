#ifndef TAV_TESTS_SUPPORT_SHAPE_H
#define TAV_TESTS_SUPPORT_SHAPE_H

#include <cctype>
#include <cstddef>
#include <string>

namespace tav_test {

/// How a time looks, for hasShape.
inline std::string timeShape() {
    return "####-##-##~##:##:##.###&####";
}

/// Whether the whole of `text` looks like `shape`: '#' is a digit, '&' a plus or minus sign, '@' a letter,
/// '$' one or more hexadecimal digits, and any other byte itself.
inline bool hasShape(std::string const & text, std::string const & shape) {
    auto const is = [&text](std::size_t i, int (*test)(int)) {
        return i < text.size() && test(static_cast<unsigned char>(text[i])) != 0;
    };
    std::size_t at = 0;
    for (char const c : shape) {
        bool matches = false;
        if (c == '#') {
            matches = is(at, &std::isdigit);
        } else if (c == '@') {
            matches = is(at, &std::isalpha);
        } else if (c == '$') {
            matches = is(at, &std::isxdigit);
            while (is(at + 1, &std::isxdigit)) {
                ++at;
            }
        } else {
            matches = at < text.size() && (c == '&' ? text[at] == '+' || text[at] == '-' : text[at] == c);
        }
        if (!matches) {
            return false;
        }
        ++at;
    }
    return at == text.size();
}

} // namespace tav_test

#endif
