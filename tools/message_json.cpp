#include "tools/message_tree.h"

#include "tools/terminal_text.h"
#include "tools/utf8.h"
#include "tools/value_text.h"

#include <tav/vinta/vinta_nbr_unit.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace tav {
namespace tool {

namespace kinds = pml::field_type;

namespace {

typedef MessageNode::Shape Shape;

template <class T>
T numberOf(std::string_view data) {
    T value = T();
    nbr::SimpleValue(istrOf(data), false).read(value);
    return value;
}

/// The text between quotes, as the library writes it but that controls of 8 bits are escaped too; false if it
/// is no UTF-8.
bool appendQuoted(std::string & to, std::string_view text) {
    constexpr std::string_view letters = "bfnrt";
    constexpr std::string_view meant = "\b\f\n\r\t";
    to += '"';
    while (!text.empty()) {
        char const c = text.front();
        std::size_t const size = utf8Character(text);
        std::size_t const letter = meant.find(c);
        if (size == 0) {
            return false;
        }
        if (letter != std::string_view::npos) {
            to += '\\';
            to += letters[letter];
        } else if (char32_t const number = characterOf(text).number;
                   number < 32 || (number >= 127 && number < 160)) {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(number));
            to += escape;
        } else {
            to += c == '"' || c == '\\' || c == '/' ? "\\" : "";
            to += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    to += '"';
    return true;
}

/// Writes a tree.
class JsonWriter {
public:
    JsonWriter(MessageTree const & tree, bool pretty) : tree_(tree), pretty_(pretty) {}

    std::string write() {
        begin(0);
        while (!open_.empty()) {
            step();
        }
        return std::move(text_);
    }

private:
    struct Member {
        std::string name;
        std::size_t node;
    };
    struct Open {
        std::vector<Member> members;
        std::size_t next = 0;
        bool list = false;
    };

    void begin(std::size_t index);
    void step();
    void simple(MessageNode const & node);
    template <class T>
    void floating(MessageNode const & node);
    void quoted(std::string_view text, MessageNode const & node);
    void lineAt(std::size_t depth) {
        if (pretty_) {
            text_ += '\n';
            text_.append(4 * depth, ' ');
        } else {
            text_ += ' ';
        }
    }
    [[noreturn]] static void fail(MessageNode const & node, std::string const & what) {
        std::string const name =
            node.field == nullptr ? "the message" : "field " + stringOf(node.field->idName.name);
        throw PlacedFault(node.offset, name + " " + what);
    }

    MessageTree const & tree_;
    bool pretty_;
    std::string text_;
    std::vector<Open> open_;
};

/// What is within an object, a list or a map.
void JsonWriter::begin(std::size_t index) {
    MessageNode const & node = tree_.nodes[index];
    Open open;
    open.list = node.shape == Shape::list;
    for (std::size_t i = node.firstChild; i != MessageNode::none; i = tree_.nodes[i].next) {
        MessageNode const & child = tree_.nodes[i];
        bool const member = node.shape == Shape::object;
        open.members.push_back(Member{member ? stringOf(child.field->idName.name) : child.key, i});
        if (!open.list && open.members.back().name.empty()) {
            fail(child, "has an empty key, and no member of JSON has an empty name");
        }
    }
    if (index == 0) {
        open.members.push_back(Member{"__class__", MessageNode::none});
    }
    if (!open.list) {
        std::sort(open.members.begin(), open.members.end(),
                  [](Member const & a, Member const & b) { return a.name < b.name; });
    }
    text_ += open.list ? '[' : '{';
    open_.push_back(std::move(open));
}

void JsonWriter::step() {
    Open & in = open_.back();
    if (in.next == in.members.size()) {
        lineAt(open_.size() - 1);
        text_ += in.list ? ']' : '}';
        open_.pop_back();
        return;
    }
    Member const & member = in.members[in.next];
    text_ += in.next++ == 0 ? "" : ",";
    lineAt(open_.size());
    MessageNode const & node = tree_.nodes[member.node == MessageNode::none ? 0 : member.node];
    if (!in.list) {
        quoted(member.name, node);
        text_ += pretty_ ? " : " : ":";
    }
    if (member.node == MessageNode::none) {
        quoted(viewOf(tav_istr(node.cls->className)), node);
    } else if (node.shape == Shape::null) {
        text_ += "null";
    } else if (node.shape == Shape::simple) {
        simple(node);
    } else {
        begin(member.node);
    }
}

void JsonWriter::quoted(std::string_view text, MessageNode const & node) {
    if (!appendQuoted(text_, text)) {
        fail(node, "has a text that is no UTF-8, which JSON can't carry");
    }
}

template <class T>
void JsonWriter::floating(MessageNode const & node) {
    T const value = numberOf<T>(node.data);
    if (!std::isfinite(value)) {
        fail(node, "is no finite number, and JSON has no other");
    }
    text_ += digitsOf(value);
}

void JsonWriter::simple(MessageNode const & node) {
    switch (node.kind) {
    case kinds::bool_: text_ += numberOf<unsigned char>(node.data) != 0 ? "true" : "false"; break;
    case kinds::int8_:
        text_ += std::to_string(static_cast<int>(static_cast<signed char>(node.data[0])));
        break;
    case kinds::int16_: text_ += std::to_string(numberOf<short>(node.data)); break;
    case kinds::int32_:
    case kinds::enum_: text_ += std::to_string(numberOf<int>(node.data)); break;
    case kinds::uint8_:
    case kinds::uint16_:
    case kinds::uint32_: text_ += std::to_string(numberOf<unsigned>(node.data)); break;
    case kinds::int64_:
    case kinds::time_: text_ += '"' + std::to_string(numberOf<long long>(node.data)) + '"'; break;
    case kinds::uint64_: text_ += '"' + std::to_string(numberOf<unsigned long long>(node.data)) + '"'; break;
    case kinds::float_: floating<float>(node); break;
    case kinds::double_: floating<double>(node); break;
    case kinds::bytes_: {
        tavString base64;
        tavBytes(istrOf(node.data)).toBase64(base64);
        quoted(viewOf(tav_istr(base64)), node);
        break;
    }
    default: quoted(node.data, node);
    }
}

} // namespace

std::string jsonOf(MessageTree const & message, bool pretty) {
    return JsonWriter(message, pretty).write();
}

} // namespace tool
} // namespace tav
