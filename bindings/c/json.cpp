#include "bindings/c/json.h"

#include "tav/vinta/vinta_tls_failure.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tav {
namespace json_client {

Failure::Failure(int number, std::string word, std::string sentence, std::string member, long long at)
    : code(number),
      name(std::move(word)),
      text(std::move(sentence)),
      field(std::move(member)),
      position(at) {}

namespace {

bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

unsigned char byteOf(char c) noexcept {
    return static_cast<unsigned char>(c);
}

/// The bytes of the character at the front of `text`; 0 if that is not UTF-8.
std::size_t characterSize(std::string_view text) noexcept {
    unsigned char const first = byteOf(text[0]);
    if (first < 0x80) {
        return 1;
    }
    std::size_t const size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < size) {
        return 0;
    }
    for (std::size_t i = 1; i < size; ++i) {
        if ((byteOf(text[i]) & 0xc0u) != 0x80u) {
            return 0;
        }
    }
    // What is too long for its character, halves of surrogate pairs, and what lies beyond Unicode.
    unsigned char const second = byteOf(text[1]);
    bool const bad = (first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
                     (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f);
    return bad ? 0 : size;
}

} // namespace

std::size_t findNoUtf8(std::string_view text) noexcept {
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const size = characterSize(text.substr(at));
        if (size == 0) {
            return at;
        }
        at += size;
    }
    return std::string_view::npos;
}

void appendEscaped(std::string & out, std::string_view text) {
    static constexpr char digits[] = "0123456789abcdef";
    while (!text.empty()) {
        char const c = text[0];
        std::size_t size = 1;
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (byteOf(c) < 0x20) {
            out += "\\u00";
            out += digits[byteOf(c) >> 4u];
            out += digits[byteOf(c) & 15u];
        } else {
            size = characterSize(text);
            out.append(size != 0 ? text.substr(0, size) : std::string_view("\xef\xbf\xbd"));
            size = std::max<std::size_t>(size, 1);
        }
        text.remove_prefix(size);
    }
}

void appendString(std::string & out, std::string_view text) {
    out += '"';
    appendEscaped(out, text);
    out += '"';
}

void appendCharacter(std::string & out, unsigned c) {
    auto const put = [&out](unsigned byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (c < 0x80) {
        put(c);
        return;
    }
    if (c < 0x800) {
        put(0xc0u | c >> 6u);
    } else {
        if (c < 0x10000) {
            put(0xe0u | c >> 12u);
        } else {
            put(0xf0u | c >> 18u);
            put(0x80u | (c >> 12u & 0x3fu));
        }
        put(0x80u | (c >> 6u & 0x3fu));
    }
    put(0x80u | (c & 0x3fu));
}

bool isNumber(std::string_view text) noexcept {
    auto const digits = [&text] {
        std::size_t n = 0;
        while (n < text.size() && isDigit(text[n])) {
            ++n;
        }
        text.remove_prefix(n);
        return n != 0;
    };
    if (!text.empty() && text[0] == '-') {
        text.remove_prefix(1);
    }
    bool const zero = !text.empty() && text[0] == '0';
    if (zero && text.size() > 1 && isDigit(text[1])) {
        return false;
    }
    if (!digits()) {
        return false;
    }
    if (!text.empty() && text[0] == '.') {
        text.remove_prefix(1);
        if (!digits()) {
            return false;
        }
    }
    if (!text.empty() && (text[0] == 'e' || text[0] == 'E')) {
        text.remove_prefix(1);
        if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
            text.remove_prefix(1);
        }
        if (!digits()) {
            return false;
        }
    }
    return text.empty();
}

/// Reads one text into a document.  What is open is kept on a stack of its own.
class Parser {
public:
    Parser(Document & to, std::string_view text) : to_(to), text_(text) {}

    void run() {
        // What stands ahead of such a byte is read all the same: it may tell whose answer this is.
        std::size_t const bad = findNoUtf8(text_);
        if (bad == std::string_view::npos) {
            whole();
            return;
        }
        text_ = text_.substr(0, bad);
        try {
            whole();
        } catch (Failure const &) {
            // It ends too early, as it has to.
        }
        at_ = bad;
        fail("this is not UTF-8");
    }

private:
    void whole() {
        value(std::string_view());
        while (!open_.empty()) {
            item();
        }
        skipBlanks();
        if (at_ != text_.size()) {
            fail("nothing may stand behind the value");
        }
    }

    [[noreturn]] void fail(std::string const & what) const {
        std::string_view const front = text_.substr(0, at_);
        auto const line = 1 + std::count(front.begin(), front.end(), '\n');
        std::size_t const feed = front.rfind('\n');
        std::size_t const column = at_ - (feed == std::string_view::npos ? 0 : feed + 1) + 1;
        throw Failure(static_cast<int>(tls::failure::bad_json), "bad_json",
                      what + ", at byte " + std::to_string(at_) + " (line " + std::to_string(line) +
                          ", column " + std::to_string(column) + ")",
                      std::string(), static_cast<long long>(at_));
    }

    char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

    void skipBlanks() {
        while (at_ < text_.size() && std::strchr(" \t\r\n", text_[at_]) != nullptr && text_[at_] != '\0') {
            ++at_;
        }
    }

    void expect(char c) {
        if (peek() != c) {
            fail(std::string("expected '") + c + "'");
        }
        ++at_;
    }

    /// The next member or element of the innermost container, or its end.
    void item() {
        unsigned const container = open_.back();
        bool const object = to_.nodes_[container].kind == Kind::object;
        skipBlanks();
        if (peek() == (object ? '}' : ']')) {
            ++at_;
            close();
            return;
        }
        if (to_.nodes_.size() != container + 1u) {
            expect(',');
            skipBlanks();
        }
        std::string_view name;
        if (object) {
            if (peek() != '"') {
                fail("expected the name of a member");
            }
            name = string();
            skipBlanks();
            expect(':');
        }
        value(name);
    }

    void value(std::string_view name) {
        skipBlanks();
        Node node;
        node.parent = open_.empty() ? 0 : open_.back();
        node.begin = at_;
        node.name = name;
        auto const index = static_cast<unsigned>(to_.nodes_.size());
        char const c = peek();
        if (c == '{' || c == '[') {
            ++at_;
            node.kind = c == '{' ? Kind::object : Kind::array;
            to_.nodes_.push_back(node);
            open_.push_back(index);
            return;
        }
        if (c == '"') {
            node.kind = Kind::string;
            node.text = string();
        } else {
            literal(node);
        }
        node.end = at_;
        node.next = index + 1;
        to_.nodes_.push_back(node);
    }

    void close() {
        Node & node = to_.nodes_[open_.back()];
        node.end = at_;
        node.next = static_cast<unsigned>(to_.nodes_.size());
        open_.pop_back();
    }

    void literal(Node & node) {
        std::size_t end = at_;
        while (end < text_.size() && std::strchr(" \t\r\n,]}:[{\"", text_[end]) == nullptr) {
            ++end;
        }
        std::string_view const word = text_.substr(at_, end - at_);
        if (word == "true" || word == "false") {
            node.kind = Kind::boolean;
            node.truth = word == "true";
        } else if (isNumber(word)) {
            node.kind = Kind::number;
            node.text = word;
        } else if (word != "null") {
            fail(word.empty() ? "expected a value" : "this is no value");
        }
        at_ = end;
    }

    std::string_view string() {
        ++at_;
        std::size_t const first = at_;
        std::string * plain = nullptr;
        for (;;) {
            std::size_t const run = at_;
            while (at_ < text_.size() && text_[at_] != '"' && text_[at_] != '\\' &&
                   byteOf(text_[at_]) >= 0x20) {
                ++at_;
            }
            if (plain != nullptr) {
                plain->append(text_.substr(run, at_ - run));
            }
            if (at_ >= text_.size() || byteOf(text_[at_]) < 0x20) {
                fail(at_ >= text_.size() ? "a string has no end" : "a control character in a string");
            }
            if (text_[at_] == '"') {
                break;
            }
            if (plain == nullptr) {
                to_.unescaped_.emplace_back(text_.substr(first, at_ - first));
                plain = &to_.unescaped_.back();
            }
            escape(*plain);
        }
        std::string_view const found =
            plain != nullptr ? std::string_view(*plain) : text_.substr(first, at_ - first);
        ++at_;
        return found;
    }

    void escape(std::string & out) {
        static constexpr std::string_view letters = "\"\\/bfnrt";
        static constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
        std::size_t const start = at_++;
        char const c = peek();
        if (c == 'u') {
            ++at_;
            unsigned character = hex(start);
            if (character >= 0xdc00 && character < 0xe000) {
                at_ = start;
                fail("half of a surrogate pair");
            }
            if (character >= 0xd800 && character < 0xdc00) {
                bool const more = text_.substr(at_, 2) == "\\u";
                at_ += more ? 2 : 0;
                unsigned const low = more ? hex(start) : 0;
                if (low < 0xdc00 || low >= 0xe000) {
                    at_ = start;
                    fail("half of a surrogate pair");
                }
                character = 0x10000 + (character - 0xd800) * 0x400 + (low - 0xdc00);
            }
            appendCharacter(out, character);
            return;
        }
        std::size_t const which = at_ < text_.size() ? letters.find(c) : std::string_view::npos;
        if (which == std::string_view::npos) {
            at_ = start;
            fail("no escape of JSON");
        }
        out += meanings[which];
        ++at_;
    }

    unsigned hex(std::size_t start) {
        unsigned value = 0;
        for (int i = 0; i < 4; ++i, ++at_) {
            char const c = peek();
            bool const letter = (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
            if (!isDigit(c) && !letter) {
                at_ = start;
                fail("no escape of JSON");
            }
            value = value * 16 + static_cast<unsigned>(isDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10);
        }
        return value;
    }

    Document & to_;
    std::string_view text_;
    std::size_t at_ = 0;
    std::vector<unsigned> open_;
};

bool Document::read(std::string_view text, Failure & fault) {
    text_ = text;
    try {
        Parser(*this, text).run();
        return true;
    } catch (Failure const & e) {
        fault = e;
        return false;
    }
}

unsigned Document::member(unsigned object, std::string_view name) const {
    unsigned found = 0;
    if (object < nodes_.size() && nodes_[object].kind == Kind::object) {
        // A text that broke off has containers without an end.
        unsigned const end = nodes_[object].next != 0 ? nodes_[object].next : unsigned(nodes_.size());
        for (unsigned i = object + 1; i < end && nodes_[i].next != 0; i = nodes_[i].next) {
            found = nodes_[i].name == name ? i : found;
        }
    }
    return found;
}

std::string_view Document::raw(unsigned i) const {
    return text_.substr(nodes_[i].begin, nodes_[i].end - nodes_[i].begin);
}

std::string Document::path(unsigned i) const {
    std::vector<std::string> steps;
    for (; i != root; i = nodes_[i].parent) {
        unsigned const parent = nodes_[i].parent;
        if (nodes_[parent].kind == Kind::object) {
            steps.push_back((parent == root ? "" : ".") + std::string(nodes_[i].name));
        } else {
            std::size_t place = 0;
            for (unsigned each = parent + 1; each != i; each = nodes_[each].next) {
                ++place;
            }
            steps.push_back("[" + std::to_string(place) + "]");
        }
    }
    std::string out;
    for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
        out += *step;
    }
    return out;
}

ObjectText::ObjectText(std::string_view type, std::string_view extra) {
    text("@type", type);
    if (!extra.empty()) {
        raw("@extra", extra);
    }
}

ObjectText & ObjectText::raw(std::string_view name, std::string_view value) {
    if (out_.size() > 1) {
        out_ += ',';
    }
    appendString(out_, name);
    out_ += ':';
    out_.append(value);
    return *this;
}

ObjectText & ObjectText::text(std::string_view name, std::string_view value) {
    std::string quoted;
    appendString(quoted, value);
    return raw(name, quoted);
}

ObjectText & ObjectText::flag(std::string_view name, bool value) {
    return raw(name, value ? "true" : "false");
}

std::string ObjectText::take() {
    out_ += '}';
    return std::move(out_);
}

} // namespace json_client
} // namespace tav
