#ifndef TAV_FORMATS_JSON_JSON_TEXT_H
#define TAV_FORMATS_JSON_JSON_TEXT_H

#include <charconv>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

/// Quotes and escapes of JSON text.  Internal.
namespace tav {
namespace detail {

/// The order of names in a JSON object.
inline bool isNameLess(std::string_view a, std::string_view b) noexcept {
    if (!a.empty() && !b.empty() && a[0] != b[0]) {
        return static_cast<unsigned char>(a[0]) < static_cast<unsigned char>(b[0]);
    }
    return a < b;
}

inline bool isQuote(char c) noexcept {
    return c == '"' || c == '\'';
}

/// Whether `text` begins and ends with the same quote, which are two bytes.
inline bool betweenQuotes(std::string_view text) noexcept {
    return text.size() >= 2 && isQuote(text.front()) && text.front() == text.back();
}

/// The first `quote` or backslash, or `end`.
char const * findQuote(char const * at, char const * end, char quote) noexcept;

/// Appends `text` between double quotes, with its escapes.
void appendEscaped(std::string & out, std::string_view text);

/// Appends `text` without its quotes, if it stands between the same ones, and without its escapes.
void appendUnescaped(std::string & out, std::string_view text);

/// A growing text for those who write it piece by piece.
class JsonText {
public:
    /// With room for about this many bytes.
    explicit JsonText(std::size_t size) {
        text_.reserve(size);
        at_ = end_ = text_.data();
    }
    JsonText(JsonText const &) = delete;
    JsonText & operator=(JsonText const &) = delete;

    void put(std::string_view text) {
        char * const to = room(text.size());
        if (!text.empty()) {
            std::memcpy(to, text.data(), text.size());
        }
        at_ = to + text.size();
    }

    /// What stands ahead of a member or an element.
    void putSeparator(bool first) {
        char * const to = room(2);
        to[0] = first ? ' ' : ',';
        to[1] = ' ';
        at_ = to + (first ? 1 : 2);
    }

    /// The end of an object or a list.
    void putEnd(char bracket) {
        char * const to = room(2);
        to[0] = ' ';
        to[1] = bracket;
        at_ = to + 2;
    }

    /// A name and its colon.  What needs an escape stands as it is.
    void putName(std::string_view name, bool quoted) {
        char * to = room(name.size() + 3);
        *to = '"';
        to += quoted ? 1 : 0;
        if (!name.empty()) {
            std::memcpy(to, name.data(), name.size());
        }
        to += name.size();
        *to = '"';
        to += quoted ? 1 : 0;
        *to = ':';
        at_ = to + 1;
    }

    /// Between double quotes, with its escapes.
    void putEscaped(std::string_view text);

    template <class T, class = std::enable_if_t<std::is_integral<T>::value>>
    void putNumber(T v) {
        char * const to = room(numberSize);
        if constexpr (sizeof(T) < sizeof(int)) {
            at_ = std::to_chars(to, to + numberSize, static_cast<int>(v)).ptr;
        } else {
            at_ = std::to_chars(to, to + numberSize, v).ptr;
        }
    }

    /// Six significant digits.
    void putNumber(double v);

    /// Forgets all that has been put.
    void drop() noexcept { at_ = text_.data(); }

    /// All that has been put; there must be no more.
    std::string take() {
        text_.resize(static_cast<std::size_t>(at_ - text_.data()));
        return std::move(text_);
    }

private:
    static constexpr std::size_t numberSize = 24;

    /// Where at least `size` bytes can be written.
    char * room(std::size_t size) {
        if (static_cast<std::size_t>(end_ - at_) < size) {
            grow(size);
        }
        return at_;
    }

    void grow(std::size_t size);

    std::string text_;
    char * at_ = text_.data();
    char * end_ = at_;
};

} // namespace detail
} // namespace tav

#endif
