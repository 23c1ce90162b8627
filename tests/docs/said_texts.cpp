#include "docs/said_texts.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string_view>

namespace said {
namespace {

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// The end of the raw text that begins at `i`; `i` if none does.
std::size_t endOfRaw(std::string const & source, std::size_t i) {
    if (source.compare(i, 2, "R\"") != 0 ||
        (i > 0 && std::isalnum(static_cast<unsigned char>(source[i - 1])))) {
        return i;
    }
    std::size_t const bracket = source.find('(', i);
    std::string const end = ")" + source.substr(i + 2, bracket - i - 2) + "\"";
    return source.find(end, bracket) + end.size();
}

/// The source with comments, preprocessor lines and characters in single quotes blanked, so that quotes are
/// those of texts alone.
std::string plain(std::string source) {
    bool lineStart = true;
    for (std::size_t i = 0; i < source.size(); ++i) {
        auto const blank = [&](std::size_t to) {
            for (; i < to && i < source.size(); ++i) {
                source[i] = source[i] == '\n' ? '\n' : ' ';
            }
            --i;
        };
        char const c = source[i];
        char const next = i + 1 < source.size() ? source[i + 1] : '\0';
        if (std::size_t const end = endOfRaw(source, i); end != i) {
            i = end - 1;
        } else if ((c == '#' && lineStart) || (c == '/' && next == '/')) {
            blank(source.find('\n', i));
        } else if (c == '/' && next == '*') {
            blank(source.find("*/", i + 2) + 2);
        } else if (c == '\'' && !(i > 0 && std::isdigit(static_cast<unsigned char>(source[i - 1])))) {
            std::size_t end = i + 1;
            while (end < source.size() && source[end] != '\'') {
                end += source[end] == '\\' ? 2 : 1;
            }
            blank(end + 1);
        } else if (c == '"') {
            for (++i; i < source.size() && source[i] != '"'; ++i) {
                i += source[i] == '\\' ? 1 : 0;
            }
        }
        lineStart = c == '\n' || (lineStart && c == ' ');
    }
    return source;
}

/// The end of what is opened at `open`: behind its closing bracket.
std::size_t endOfBrackets(std::string const & code, std::size_t open) {
    int depth = 0;
    for (std::size_t i = open; i < code.size(); ++i) {
        if (code[i] == '"') {
            for (++i; i < code.size() && code[i] != '"'; ++i) {
                i += code[i] == '\\' ? 1 : 0;
            }
        } else if (code[i] == '(' || code[i] == '{') {
            ++depth;
        } else if (code[i] == ')' || code[i] == '}') {
            if (--depth == 0) {
                return i + 1;
            }
        }
    }
    return code.size();
}

std::size_t endOfStatement(std::string const & code, std::size_t from) {
    for (std::size_t i = from; i < code.size(); ++i) {
        if (code[i] == '"') {
            for (++i; i < code.size() && code[i] != '"'; ++i) {
                i += code[i] == '\\' ? 1 : 0;
            }
        } else if (code[i] == ';') {
            return i;
        }
    }
    return code.size();
}

/// The literal at `i`, without escapes; `i` is moved behind it.
std::string literal(std::string const & code, std::size_t & i) {
    std::string out;
    for (++i; i < code.size() && code[i] != '"'; ++i) {
        if (code[i] == '\\') {
            ++i;
            out += code[i] == 'n' ? '\n' : code[i];
        } else {
            out += code[i];
        }
    }
    ++i;
    return out;
}

std::string trimmed(std::string const & text) {
    std::size_t const first = text.find_first_not_of(" \n");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \n") - first + 1);
}

bool saysSomething(std::string const & text) {
    return std::count_if(text.begin(), text.end(),
                         [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }) > 3;
}

/// The code with what its texts hold blanked, to look for words of the language.
std::string withoutTexts(std::string code) {
    for (std::size_t i = 0; i < code.size(); ++i) {
        if (code[i] == '"') {
            for (++i; i < code.size() && code[i] != '"'; ++i) {
                if (code[i] == '\\') {
                    code[i++] = ' ';
                }
                code[i] = ' ';
            }
        }
    }
    return code;
}

class Reader {
public:
    Reader(std::string file, std::string const & source, Levels levels)
        : file_(std::move(file)), code_(plain(source)), words_(withoutTexts(code_)), levels_(levels) {}

    std::vector<Text> read() {
        static std::vector<std::string> const whole = {"client/failures.cpp", "client/trust.cpp",
                                                       "client/pem_text.cpp", "kit/failure.h"};
        if (std::any_of(whole.begin(), whole.end(),
                        [&](std::string const & end) { return endsWith(file_, end); })) {
            take(0, code_.size());
            return found_;
        }
        static std::regex const telling(
            "\\b(log_parts|log_line|log|tell|log_caught|sayCode|raise\\w*|"
            "fail\\w*|refuse\\w*|wholeLine|writeLog|tellBadLevels|on_error|tell_error)\\(|"
            "\\bthrow\\b|\\bdebugger\\(\\) <<|\\btrouble = ");
        for (std::sregex_iterator it(words_.begin(), words_.end(), telling), end; it != end; ++it) {
            auto const at = static_cast<std::size_t>(it->position());
            std::string const name = (*it)[1];
            std::size_t const to =
                name.empty() ? endOfStatement(code_, at)
                             : endOfBrackets(code_, at + static_cast<std::size_t>(it->length()) - 1);
            tellingCall(name, at, to);
        }
        return found_;
    }

private:
    void tellingCall(std::string const & name, std::size_t from, std::size_t to) {
        std::string const call = words_.substr(from, to - from);
        static std::regex const level("tavLogger::[A-Z]+\\b");
        static std::regex const bad("tavLogger::(WARN|ERROR)\\b");
        bool const logs =
            levels_ == Levels::bad && (name.rfind("log", 0) == 0 || name == "tell" || name == "sayCode");
        if (logs && std::regex_search(call, level) && !std::regex_search(call, bad)) {
            return;
        }
        // A function of the file's own that tells at a lower level.
        static std::regex const quiet("void tell\\([^)]*\\)[^{]*\\{[^}]*tavLogger::DEBUG");
        if (logs && name == "tell" && std::regex_search(words_, quiet)) {
            return;
        }
        std::size_t const before = found_.size();
        bool const any = take(from, to);
        // A text that was put together ahead of the call is in the function around it.
        static std::regex const variable("[(,] ?(text|message|wrong|whole|failure)[.),;]");
        bool const raises = name != "on_error" && name != "tell_error" && name != "tell" && code_[to] == ';';
        if (raises && !any && std::regex_search(call, variable)) {
            std::size_t begin = from;
            do {
                begin = code_.rfind("{\n", begin - 1);
            } while (begin != std::string::npos && begin > 0 && !opensFunction(begin));
            if (begin != std::string::npos) {
                found_.resize(before);
                take(begin, to);
            }
        }
    }

    /// Whether the brace ends a line that is indented by four columns at most and has a parameter list.
    bool opensFunction(std::size_t brace) const {
        std::size_t const start = code_.rfind('\n', brace) + 1;
        std::string_view const line(code_.data() + start, brace - start);
        std::size_t const indent = line.find_first_not_of(' ');
        return indent <= 4 && line.find('(') != std::string_view::npos &&
               line.find("if (") == std::string_view::npos && line.find("for (") == std::string_view::npos &&
               line.find("switch (") == std::string_view::npos &&
               line.find("while (") == std::string_view::npos;
    }

    /// Takes the texts between two places; false if there is none.
    bool take(std::size_t from, std::size_t to) {
        bool any = false;
        for (std::size_t i = from; i < to;) {
            // Where something was told is not what was told.
            if (std::isalpha(static_cast<unsigned char>(code_[i])) &&
                (i == 0 || !std::isalnum(static_cast<unsigned char>(code_[i - 1]))) &&
                (code_.compare(i, 5, "here(") == 0 || code_.compare(i, 8, "site_in(") == 0)) {
                i = endOfBrackets(code_, code_.find('(', i));
                continue;
            }
            if (code_[i] != '"') {
                ++i;
                continue;
            }
            std::size_t const at = i;
            std::string text = literal(code_, i);
            for (std::size_t next = code_.find_first_not_of(" \n", i); next < to && code_[next] == '"';
                 next = code_.find_first_not_of(" \n", i)) {
                i = next;
                text += literal(code_, i);
            }
            text = trimmed(text);
            if (saysSomething(text) && text.find("::") == std::string::npos) {
                int const line =
                    1 +
                    static_cast<int>(std::count(code_.begin(), code_.begin() + static_cast<long>(at), '\n'));
                found_.push_back({file_, line, text});
                any = true;
            }
        }
        return any;
    }

    std::string const file_;
    std::string const code_;
    std::string const words_;
    Levels const levels_;
    std::vector<Text> found_;
};

} // namespace

std::vector<Text> textsIn(std::string const & file, std::string const & source, Levels levels) {
    return Reader(file, source, levels).read();
}

std::string literalsIn(std::string const & source) {
    std::string const code = plain(source);
    std::string out;
    for (std::size_t i = 0; i < code.size();) {
        std::size_t const behind = endOfRaw(code, i);
        if (behind != i) {
            std::size_t const bracket = code.find('(', i);
            std::size_t const end = code.rfind(')', behind - 1);
            out.append(code, bracket + 1, end - bracket - 1);
            i = behind;
        } else if (code[i] == '"') {
            out += literal(code, i);
        } else {
            ++i;
            continue;
        }
        i = std::min(code.find_first_not_of(" \n", i), code.size());
        out += code[i] == '"' || endOfRaw(code, i) != i ? "" : "\n\n";
    }
    return out;
}

std::vector<Text> textsInPython(std::string const & file, std::string const & source) {
    static std::regex const told(
        R"re(\b(raise \w+|_log\.\w+|warnings\.warn)\(|"name": "\w+", "text": (?=f?"))re");
    static std::regex const place(R"(\{[^}]*\})");
    std::vector<Text> found;
    for (std::sregex_iterator at(source.begin(), source.end(), told), none; at != none; ++at) {
        auto const begin = static_cast<std::size_t>(at->position() + at->length());
        bool const call = source[begin - 1] == '(';
        std::size_t const end = call ? endOfBrackets(source, begin - 1) : source.find('\n', begin);
        std::size_t i = source.find('"', begin);
        if (i >= end) {
            continue;
        }
        auto const lines = std::count(source.begin(), source.begin() + static_cast<long>(i), '\n');
        std::string const text = literal(source, i);
        for (std::sregex_token_iterator piece(text.begin(), text.end(), place, -1), last; piece != last;
             ++piece) {
            if (saysSomething(*piece)) {
                found.push_back({file, 1 + static_cast<int>(lines), trimmed(*piece)});
            }
        }
    }
    return found;
}

std::vector<Text> textsOf(std::string const & project, Levels levels) {
    return textsUnder(project, {"src", "include", "bindings"}, levels);
}

std::vector<Text> textsUnder(std::string const & project, std::vector<std::string> const & folders,
                             Levels levels) {
    namespace fs = std::filesystem;
    std::vector<Text> all;
    for (std::string const & top : folders) {
        for (auto const & entry : fs::recursive_directory_iterator(fs::path(project) / top)) {
            std::string const extension = entry.path().extension().string();
            std::string const file = fs::relative(entry.path(), project).generic_string();
            bool const python = extension == ".py" && file.rfind("bindings/python/tav_im/", 0) == 0;
            if (extension == ".cpp" || extension == ".h" || python) {
                std::ifstream in(entry.path(), std::ios::binary);
                std::string const source((std::istreambuf_iterator<char>(in)),
                                         std::istreambuf_iterator<char>());
                auto const more = python ? textsInPython(file, source) : textsIn(file, source, levels);
                all.insert(all.end(), more.begin(), more.end());
            }
        }
    }
    return all;
}

std::string moduleOf(std::string const & file) {
    if (file.rfind("include/tav/kit/", 0) == 0) {
        return "kit";
    }
    if (file.rfind("bindings/", 0) == 0) {
        return file.substr(0, file.find('/', std::string_view("bindings/").size()));
    }
    return file.rfind("src/", 0) == 0 ? file.substr(4, file.rfind('/') - 4) : std::string();
}

} // namespace said
