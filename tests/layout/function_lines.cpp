#include "layout/function_lines.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <regex>
#include <string_view>

namespace layout {
namespace {

/// Blanks out a part of a text, but for its line feeds.
void blank(std::string & text, std::size_t from, std::size_t to) {
    for (std::size_t at = from; at < std::min(to, text.size()); ++at) {
        text[at] = text[at] == '\n' ? '\n' : ' ';
    }
}

std::size_t behind(std::string const & text, std::string_view what, std::size_t from) {
    std::size_t const at = text.find(what, from);
    return at == std::string::npos ? text.size() : at + what.size();
}

/// The end of the text or character that begins at `from`.
std::size_t endOfQuoted(std::string const & text, std::size_t from) {
    std::size_t at = from + 1;
    while (at < text.size() && text[at] != text[from]) {
        at += text[at] == '\\' ? 2 : 1;
    }
    return at + 1;
}

/// The end of the raw text whose quotation mark is at `from`.
std::size_t endOfRaw(std::string const & text, std::size_t from) {
    std::size_t const open = text.find('(', from);
    return open == std::string::npos
               ? text.size()
               : behind(text, ")" + text.substr(from + 1, open - from - 1) + "\"", open);
}

/// The end of a directive: of its last line.
std::size_t endOfDirective(std::string const & text, std::size_t from) {
    std::size_t at = text.find('\n', from);
    while (at != std::string::npos && text[at - 1] == '\\') {
        at = text.find('\n', at + 1);
    }
    return at == std::string::npos ? text.size() : at;
}

bool isWord(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

/// Whether a quotation mark opens a character: in a number it parts digits.
bool opensCharacter(std::string const & text, std::size_t at) {
    std::size_t word = at;
    while (word != 0 && isWord(text[word - 1])) {
        --word;
    }
    std::string const prefix = text.substr(word, at - word);
    return prefix.empty() || prefix == "L" || prefix == "u" || prefix == "U" || prefix == "u8";
}

/// The source without comments, texts, characters, attributes and directives; its lines stay.
std::string plain(std::string text) {
    bool lineBegins = true;
    for (std::size_t at = 0; at < text.size();) {
        char const c = text[at];
        std::size_t end = at;
        if (c == '/' && text.compare(at, 2, "//") == 0) {
            end = std::min(text.find('\n', at), text.size());
        } else if (c == '/' && text.compare(at, 2, "/*") == 0) {
            end = behind(text, "*/", at + 2);
        } else if (text.compare(at, 2, "[[") == 0) {
            end = behind(text, "]]", at + 2);
        } else if (c == '#' && lineBegins) {
            end = endOfDirective(text, at);
        } else if (c == '"') {
            end = at != 0 && text[at - 1] == 'R' ? endOfRaw(text, at) : endOfQuoted(text, at);
        } else if (c == '\'' && opensCharacter(text, at)) {
            end = endOfQuoted(text, at);
        }
        blank(text, at, end);
        lineBegins = c == '\n' || (lineBegins && std::isspace(static_cast<unsigned char>(c)) != 0);
        at = std::max(end, at + 1);
    }
    return text;
}

/// Whether what stands ahead of a brace makes it one that holds declarations.
bool opensScope(std::string const & head) {
    static std::regex const scope(
        R"((^|[^\w])(namespace|class|struct|union|enum|extern)\b(\s*\[\[[^\]]*\]\])?[^()=]*$)");
    return std::regex_search(head, scope);
}

} // namespace

std::vector<Function> functionsOf(std::string const & source) {
    std::string const text = plain(source);
    std::vector<Function> functions;
    unsigned line = 1;
    /// Braces that are open within the function or list; 0 outside of both.
    unsigned depth = 0;
    unsigned begin = 0;
    bool counts = false;
    std::string head;
    for (char const c : text) {
        line += c == '\n' ? 1 : 0;
        if (depth == 0 && c == '{' && !opensScope(head)) {
            depth = 1;
            begin = line;
            counts = head.find('(') != std::string::npos;
        } else if (depth != 0) {
            depth += c == '{' ? 1 : 0;
            depth -= c == '}' ? 1 : 0;
            if (depth == 0 && counts) {
                functions.push_back({begin, line > begin ? line - begin - 1 : 0});
            }
            continue;
        }
        if (c == '{' || c == '}' || c == ';') {
            head.clear();
        } else {
            head += c == '\n' ? ' ' : c;
        }
    }
    return functions;
}

} // namespace layout
