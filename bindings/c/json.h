#ifndef TAV_BINDINGS_C_JSON_H
#define TAV_BINDINGS_C_JSON_H

#include <cstddef>
#include <deque>
#include <exception>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

/// JSON as others write it (RFC 8259).  The library's own reader is made for messages: it takes more than
/// JSON, keeps no positions, and gives no character for the escape \u, so requests are read here.
namespace tav {
namespace json_client {

/// Why a request fails: what its error answer says.
class Failure : public std::exception {
public:
    Failure(int code, std::string name, std::string text, std::string field = std::string(),
            long long position = -1);

    char const * what() const noexcept override { return text.c_str(); }

    int code;
    std::string name;
    std::string text;
    /// The path of the member that is to blame, such as "message.tags[2]"; empty if there is none.
    std::string field;
    /// The byte of the request where it was seen; -1 if none.
    long long position;
};

enum class Kind : unsigned char { null, boolean, number, string, array, object };

/// A value of a document.
struct Node {
    Kind kind = Kind::null;
    bool truth = false;
    /// The node that this one is in; the root is in itself.
    unsigned parent = 0;
    /// The first node that is not in this one.
    unsigned next = 0;
    /// Where its text begins and ends.
    std::size_t begin = 0;
    std::size_t end = 0;
    /// Of a member.
    std::string_view name;
    /// A string without quotes and escapes; a number as it stands.
    std::string_view text;
};

/// A JSON text and its values, each ahead of what is in it.  A view: the text must outlive it.
/// Depth costs memory and no stack.
class Document {
public:
    static constexpr unsigned root = 0;

    /// Reads the text; false, with `fault` filled in, if it is no JSON.  What was read by then is there.
    bool read(std::string_view text, Failure & fault);

    std::vector<Node> const & nodes() const { return nodes_; }
    Node const & node(unsigned i) const { return nodes_[i]; }
    /// The member of this name, the last of several; 0 if there is none.
    unsigned member(unsigned object, std::string_view name) const;
    /// The text of a value as it stands.
    std::string_view raw(unsigned i) const;
    /// "message.tags[2]"
    std::string path(unsigned i) const;

private:
    friend class Parser;

    std::string_view text_;
    std::vector<Node> nodes_;
    /// Texts that had escapes.
    std::deque<std::string> unescaped_;
};

/// The first byte that is not UTF-8; npos if there is none.
std::size_t findNoUtf8(std::string_view text) noexcept;

/// Appends a JSON string.  What is not UTF-8 becomes U+FFFD.
void appendString(std::string & out, std::string_view text);

/// Appends what stands between the quotes of a JSON string.
void appendEscaped(std::string & out, std::string_view text);

/// Appends a character as UTF-8.
void appendCharacter(std::string & out, unsigned character);

/// Whether the text is a JSON number.
bool isNumber(std::string_view text) noexcept;

/// An object that is written member by member.
class ObjectText {
public:
    ObjectText() = default;
    /// Begins with "@type" and, unless it is empty, "@extra".
    ObjectText(std::string_view type, std::string_view extra);

    /// A value that is JSON text.
    ObjectText & raw(std::string_view name, std::string_view value);
    ObjectText & text(std::string_view name, std::string_view value);
    ObjectText & flag(std::string_view name, bool value);
    template <class T, class = std::enable_if_t<std::is_integral<T>::value>>
    ObjectText & number(std::string_view name, T value) {
        return raw(name, std::to_string(value));
    }

    std::string take();

private:
    std::string out_ = "{";
};

} // namespace json_client
} // namespace tav

#endif
