#include "tools/json_text.h"

#include <algorithm>

namespace tav {
namespace tool {

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool endsWord(char c) {
    return isBlank(c) || std::string_view("{}[]:,\"'").find(c) != std::string_view::npos;
}

JsonNode::Kind kindOfWord(std::string_view word) {
    bool const digit = word.front() >= '0' && word.front() <= '9';
    return word == "null"                      ? JsonNode::Kind::null
           : word == "true" || word == "false" ? JsonNode::Kind::boolean
           : digit || word.front() == '-'      ? JsonNode::Kind::number
                                               : JsonNode::Kind::string;
}

/// Four hexadecimal digits; -1 if they are not there.
int unitAt(std::string_view text, std::size_t at) {
    int value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        char const c = at + i < text.size() ? text[at + i] : '\0';
        char const lower = static_cast<char>(c | 0x20);
        int const digit = c >= '0' && c <= '9'           ? c - '0'
                          : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10
                                                         : -1;
        if (digit < 0) {
            return -1;
        }
        value = value * 16 + digit;
    }
    return value;
}

void appendUtf8(std::string & to, unsigned c) {
    if (c < 0x80) {
        to += static_cast<char>(c);
        return;
    }
    unsigned const more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    unsigned const front = more == 1 ? 0xC0 : more == 2 ? 0xE0 : 0xF0;
    to += static_cast<char>(front | (c >> (6 * more)));
    for (unsigned i = more; i-- != 0;) {
        to += static_cast<char>(0x80u | ((c >> (6 * i)) & 0x3Fu));
    }
}

/// Takes a \u escape, both halves of a pair, whose backslash stands at `at`; answers what follows it.
std::size_t takeUnit(std::string_view content, std::size_t at, std::string & to) {
    constexpr std::size_t size = 6;
    int const first = unitAt(content, at + 2);
    if (first < 0) {
        throw PlacedFault(at, "four hexadecimal digits follow \\u");
    }
    auto c = static_cast<unsigned>(first);
    if (c < 0xD800 || c > 0xDFFF) {
        appendUtf8(to, c);
        return at + size;
    }
    bool const pair = c < 0xDC00 && content.substr(at + size, 2) == "\\u";
    int const second = pair ? unitAt(content, at + size + 2) : -1;
    if (second < 0xDC00 || second > 0xDFFF) {
        throw PlacedFault(at, "a half of a surrogate pair without the other one");
    }
    appendUtf8(to, 0x10000 + ((c - 0xD800) << 10) + (static_cast<unsigned>(second) - 0xDC00));
    return at + 2 * size;
}

} // namespace

/// Fills a JsonText.
class JsonTextReader {
public:
    explicit JsonTextReader(JsonText & to) : to_(to), text_(to.text_) {}

    void read() {
        skip();
        if (at_ == text_.size() || (text_[at_] != '{' && text_[at_] != '[')) {
            throw PlacedFault(at_, "a message is a JSON object");
        }
        value(std::string_view(), JsonNode::none);
        while (!open_.empty()) {
            step();
        }
    }

private:
    struct Open {
        std::size_t node;
        std::size_t last;
    };

    void skip() {
        while (at_ < text_.size() && isBlank(text_[at_])) {
            ++at_;
        }
    }

    /// A member, an element, or the closing bracket.
    void step() {
        skip();
        bool const object = to_.nodes_[open_.back().node].kind == JsonNode::Kind::object;
        if (at_ == text_.size()) {
            throw PlacedFault(to_.nodes_[open_.back().node].begin, "what begins here does not end");
        }
        char const c = text_[at_];
        if (c == ',') {
            ++at_;
        } else if (c == (object ? '}' : ']')) {
            to_.nodes_[open_.back().node].end = ++at_;
            open_.pop_back();
        } else if (c == '}' || c == ']' || c == ':') {
            throw PlacedFault(at_, std::string("\"") + c + "\" has no place here");
        } else if (object) {
            member();
        } else {
            value(std::string_view(), JsonNode::none);
        }
    }

    void member() {
        std::size_t const begin = at_;
        if (text_[at_] == '{' || text_[at_] == '[') {
            throw PlacedFault(at_, "a member needs a name");
        }
        std::string_view name;
        if (text_[at_] == '"' || text_[at_] == '\'') {
            at_ = endOfString();
            name = text_.substr(begin + 1, at_ - begin - 2);
            skip();
        } else {
            std::size_t const colon = text_.find_first_of(":,{}[]\"'", at_);
            at_ = std::min(colon, text_.size());
            name = text_.substr(begin, at_ - begin);
            while (!name.empty() && isBlank(name.back())) {
                name.remove_suffix(1);
            }
        }
        if (at_ == text_.size() || text_[at_] != ':') {
            throw PlacedFault(begin, "this name has no value: a colon is missing");
        }
        if (name.empty()) {
            throw PlacedFault(begin, "a member needs a name");
        }
        ++at_;
        skip();
        if (at_ == text_.size() || text_[at_] == ',' || text_[at_] == '}' || text_[at_] == ']' ||
            text_[at_] == ':') {
            throw PlacedFault(begin, "the member " + std::string(name) + " has no value");
        }
        value(name, begin);
    }

    /// The end of the string that begins here.
    std::size_t endOfString() const {
        char const quote = text_[at_];
        std::size_t end = at_ + 1;
        while (end < text_.size() && text_[end] != quote) {
            end += text_[end] == '\\' ? 2 : 1;
        }
        if (end >= text_.size()) {
            throw PlacedFault(at_, "the string that begins here does not end");
        }
        return end + 1;
    }

    void value(std::string_view name, std::size_t nameAt) {
        JsonNode node;
        node.name = name;
        node.nameAt = nameAt;
        node.begin = at_;
        char const c = text_[at_];
        std::size_t const index = to_.nodes_.size();
        bool const holds = c == '{' || c == '[';
        if (holds) {
            node.kind = c == '{' ? JsonNode::Kind::object : JsonNode::Kind::array;
            ++at_;
        } else if (c == '"' || c == '\'') {
            node.kind = JsonNode::Kind::string;
            node.quoted = true;
            at_ = endOfString();
        } else {
            while (at_ < text_.size() && !endsWord(text_[at_])) {
                ++at_;
            }
            node.kind = kindOfWord(text_.substr(node.begin, at_ - node.begin));
        }
        node.end = at_;
        to_.nodes_.push_back(node);
        if (!open_.empty()) {
            Open & in = open_.back();
            (in.last == JsonNode::none ? to_.nodes_[in.node].firstChild : to_.nodes_[in.last].next) = index;
            in.last = index;
        }
        if (holds) {
            open_.push_back(Open{index, JsonNode::none});
        }
    }

    JsonText & to_;
    std::string_view text_;
    std::size_t at_ = 0;
    std::vector<Open> open_;
};

JsonText::JsonText(std::string_view text) : text_(text) {
    JsonTextReader(*this).read();
}

JsonNode const * JsonText::member(JsonNode const & of, std::string_view name) const {
    JsonNode const * found = nullptr;
    for (JsonNode const * at = node(of.firstChild); at != nullptr; at = node(at->next)) {
        found = at->name == name ? at : found;
    }
    return found;
}

std::string_view JsonText::content(JsonNode const & node) const {
    std::size_t const quote = node.quoted ? 1 : 0;
    return text_.substr(node.begin + quote, node.end - node.begin - 2 * quote);
}

std::string unescaped(std::string_view content) {
    constexpr std::string_view letters = "bfnrt";
    constexpr std::string_view meant = "\b\f\n\r\t";
    std::string text;
    std::size_t at = 0;
    while (at < content.size()) {
        if (content[at] != '\\') {
            text += content[at++];
            continue;
        }
        char const c = at + 1 < content.size() ? content[at + 1] : '\0';
        std::size_t const letter = letters.find(c);
        if (c == 'u') {
            at = takeUnit(content, at, text);
        } else if (letter != std::string_view::npos ||
                   std::string_view("\"\\/'").find(c) != std::string_view::npos) {
            text += letter != std::string_view::npos ? meant[letter] : c;
            at += 2;
        } else {
            throw PlacedFault(at, "a backslash stands ahead of one of \"\\/bfnrtu");
        }
    }
    return text;
}

} // namespace tool
} // namespace tav
