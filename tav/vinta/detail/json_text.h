#ifndef TAV_VINTA_DETAIL_JSON_TEXT_H
#define TAV_VINTA_DETAIL_JSON_TEXT_H

#include <string>
#include <string_view>

/// Quotes and escapes of JSON text.  Internal.
namespace tav {
namespace detail {

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

} // namespace detail
} // namespace tav

#endif
