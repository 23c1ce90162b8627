#ifndef TAV_TESTS_SUPPORT_REPEATED_H
#define TAV_TESTS_SUPPORT_REPEATED_H

#include <cstddef>
#include <string>

namespace tav_test {

/// A text so many times behind itself.
inline std::string repeated(std::string const & unit, std::size_t times) {
    std::string text;
    text.reserve(unit.size() * times);
    for (std::size_t i = 0; i < times; ++i) {
        text += unit;
    }
    return text;
}

/// A text behind itself until so many bytes are full, and `end`.
inline std::string filled(std::string const & unit, std::size_t length,
                          std::string const & end = std::string()) {
    return repeated(unit, (length + unit.size() - 1) / unit.size()) + end;
}

} // namespace tav_test

#endif
