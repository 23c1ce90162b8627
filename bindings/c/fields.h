#ifndef TAV_BINDINGS_C_FIELDS_H
#define TAV_BINDINGS_C_FIELDS_H

#include "bindings/c/json.h"

#include "tav/vinta/vinta_tls_failure.h"

#include <exception>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The members of a request: each is asked for by name and type, and what nobody asked for is an error.
namespace tav {
namespace json_client {

constexpr int code_unknown_field = 100;
constexpr int code_unknown_type = 101;
constexpr int code_bad_reply = 102;
constexpr int code_dropped = 103;
constexpr int code_outbox_full = 104;
constexpr int code_stopped = 105;
constexpr int code_login_refused = 106;

/// What an exception of the library says, without the place in its sources.
std::string wordsOf(std::exception const & e);
/// "timed_out" of failure::timed_out.
std::string nameOf(tls::failure v);
Failure failureOf(tls::failure v, std::string const & text = std::string(),
                  std::string const & field = std::string(), long long position = -1);

/// The members of one object.  All operations throw a Failure that names the member.
///
/// A necessary member that is missing is told by `finish`, behind those that nobody knows: one of these may
/// be the one that is missed, misspelt.  What was read of it until then is empty.
class Fields {
public:
    Fields(Document const & document, unsigned object);

    Document const & document() const { return document_; }
    unsigned object() const { return object_; }
    /// The member, 0 if there is none or it is null.
    unsigned find(std::string_view name);
    bool has(std::string_view name) { return find(name) != 0; }

    std::string text(std::string_view name, std::string const & otherwise = std::string());
    std::string necessaryText(std::string_view name);
    bool flag(std::string_view name, bool otherwise);
    long long number(std::string_view name, long long least, long long most, long long otherwise);
    std::vector<std::string> texts(std::string_view name);
    /// The place of the text among the words.
    int word(std::string_view name, std::initializer_list<char const *> words, int otherwise);
    /// A member that is an object, 0 if there is none.
    unsigned object(std::string_view name);
    /// The objects of a member that is an array of them.
    std::vector<unsigned> objects(std::string_view name);
    /// A port: a number from 0 to 65535, or the name of a service.
    std::string portText(std::string_view name);
    /// Has no meaning here, but belongs to the request.
    void pass(std::string_view name) { find(name); }

    std::string path(std::string_view name) const;
    /// The names that were asked for.
    std::vector<std::string_view> const & known() const { return known_; }

    /// A necessary member is missing.
    void lack(std::string_view name, char const * why = "this is necessary");

    /// Fails if there is a member that nobody has asked for, or one is missing.
    void finish() const;

    [[noreturn]] void refuse(unsigned i, std::string const & why) const;

private:
    Document const & document_;
    unsigned const object_;
    std::vector<std::string_view> known_;
    std::optional<Failure> lacking_;
};

} // namespace json_client
} // namespace tav

#endif
