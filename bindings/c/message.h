#ifndef TAV_BINDINGS_C_MESSAGE_H
#define TAV_BINDINGS_C_MESSAGE_H

#include "bindings/c/json.h"

#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_pml_meta.h"

#include <string>
#include <string_view>

/// Messages as JSON, by a template.
namespace tav {
namespace json_client {

constexpr unsigned short no_code = 0xffff;

/// Whether the text is whole base64, with its pads.
bool isBase64(std::string_view text);

struct Encoded {
    tavBytes body;
    unsigned short code = no_code;
    std::string class_name;
};

/// The classes of a template.  Read-only once made: any number of threads may use it.
class Template {
public:
    /// Throws Failure "bad_template"; `member` is the one that has the text.
    explicit Template(std::string text, std::string const & member = "template");

    std::string const & text() const { return text_; }
    /// Empty if the code is unknown.
    std::string classOf(unsigned short code) const;
    /// no_code if the class is unknown or has none.
    unsigned short codeOf(std::string_view class_name) const;

    /// The object at `node` as a message of the class.  Throws Failure, which names the member.
    Encoded encode(Document const & document, unsigned node, std::string const & class_name) const;

    /// Fails as `encode` if a name or a value does not fit the class.
    void checkValues(Document const & document, unsigned node, std::string const & class_name) const;

    /// The members of the message as JSON.  The code has to be known.  Throws Failure "bad_reply".
    std::string decode(tav_istr body, unsigned short code) const;

private:
    /// Fails if a message of this code may not be empty.
    void checkEmpty(unsigned short code) const;
    /// Fails if no message of the class can be made.
    pml::MetaClass const & sendable(std::string const & class_name) const;

    std::string const text_;
    pml::MetaFactory const given_;
    /// The same classes, whose maps have keys that the transcoder takes.
    pml::MetaFactory to_write_;
    /// The same classes, whose fields have marked names, and bits in place of real numbers.
    pml::MetaFactory to_read_;
};

} // namespace json_client
} // namespace tav

#endif
