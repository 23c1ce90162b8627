#include "bindings/c/fields.h"

#include <tav/kit/failure_name.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace tav {
namespace json_client {

std::string wordsOf(std::exception const & e) {
    std::string_view const all = e.what();
    return std::string(all.substr(0, all.rfind("\n    throw at ")));
}

std::string nameOf(tls::failure v) {
    return kit::failure_name(v);
}

Failure failureOf(tls::failure v, std::string const & text, std::string const & field, long long position) {
    return Failure(static_cast<int>(v), nameOf(v), text.empty() ? make_error_code(v).message() : text, field,
                   position);
}

Fields::Fields(Document const & document, unsigned object) : document_(document), object_(object) {}

unsigned Fields::find(std::string_view name) {
    known_.push_back(name);
    unsigned const i = document_.member(object_, name);
    return i != 0 && document_.node(i).kind == Kind::null ? 0 : i;
}

void Fields::refuse(unsigned i, std::string const & why) const {
    std::string const path = document_.path(i);
    throw failureOf(tls::failure::value_does_not_fit, path + ": " + why, path,
                    static_cast<long long>(document_.node(i).begin));
}

std::string Fields::text(std::string_view name, std::string const & otherwise) {
    unsigned const i = find(name);
    if (i == 0) {
        return otherwise;
    }
    Node const & value = document_.node(i);
    if (value.kind != Kind::string) {
        refuse(i, "this has to be a string");
    }
    if (value.text.find('\0') != std::string_view::npos) {
        refuse(i, "this may not hold a zero character");
    }
    return std::string(value.text);
}

std::string Fields::necessaryText(std::string_view name) {
    std::string const found = text(name);
    if (found.empty()) {
        lack(name);
    }
    return found;
}

void Fields::lack(std::string_view name, char const * why) {
    if (!lacking_) {
        lacking_ = failureOf(tls::failure::field_missing, path(name) + ": " + why, path(name),
                             static_cast<long long>(document_.node(object_).begin));
    }
}

std::string Fields::path(std::string_view name) const {
    return object_ == Document::root ? std::string(name) : document_.path(object_) + "." + std::string(name);
}

bool Fields::flag(std::string_view name, bool otherwise) {
    unsigned const i = find(name);
    if (i != 0 && document_.node(i).kind != Kind::boolean) {
        refuse(i, "this has to be true or false");
    }
    return i != 0 ? document_.node(i).truth : otherwise;
}

long long Fields::number(std::string_view name, long long least, long long most, long long otherwise) {
    unsigned const i = find(name);
    if (i == 0) {
        return otherwise;
    }
    std::string_view const digits = document_.node(i).text;
    long long value = 0;
    auto const read = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    bool const whole = document_.node(i).kind == Kind::number && read.ec == std::errc() &&
                       read.ptr == digits.data() + digits.size();
    if (!whole || value < least || value > most) {
        refuse(i, "this has to be an integer from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return value;
}

std::vector<std::string> Fields::texts(std::string_view name) {
    std::vector<std::string> out;
    unsigned const i = find(name);
    if (i == 0) {
        return out;
    }
    if (document_.node(i).kind != Kind::array) {
        refuse(i, "this has to be an array of strings");
    }
    for (unsigned each = i + 1; each < document_.node(i).next; each = document_.node(each).next) {
        if (document_.node(each).kind != Kind::string) {
            refuse(each, "this has to be a string");
        }
        out.emplace_back(document_.node(each).text);
    }
    return out;
}

int Fields::word(std::string_view name, std::initializer_list<char const *> words, int otherwise) {
    std::string const found = text(name);
    if (!has(name)) {
        return otherwise;
    }
    std::string all;
    int place = 0;
    for (char const * const each : words) {
        if (found == each) {
            return place;
        }
        all += (place++ == 0 ? "\"" : ", \"") + std::string(each) + "\"";
    }
    refuse(find(name), "this has to be one of " + all);
}

unsigned Fields::object(std::string_view name) {
    unsigned const i = find(name);
    if (i != 0 && document_.node(i).kind != Kind::object) {
        refuse(i, "this has to be an object");
    }
    return i;
}

std::vector<unsigned> Fields::objects(std::string_view name) {
    std::vector<unsigned> out;
    unsigned const i = find(name);
    if (i == 0) {
        return out;
    }
    if (document_.node(i).kind != Kind::array) {
        refuse(i, "this has to be an array of objects");
    }
    for (unsigned each = i + 1; each < document_.node(i).next; each = document_.node(each).next) {
        if (document_.node(each).kind != Kind::object) {
            refuse(each, "this has to be an object");
        }
        out.push_back(each);
    }
    return out;
}

std::string Fields::portText(std::string_view name) {
    unsigned const i = find(name);
    bool const number = i != 0 && document_.node(i).kind == Kind::number;
    std::string const found = number ? std::string(document_.node(i).text) : necessaryText(name);
    bool const service = !number && std::any_of(found.begin(), found.end(), [](char c) {
        return (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
    });
    unsigned short port = 0;
    auto const read = std::from_chars(found.data(), found.data() + found.size(), port);
    if (!found.empty() && !service && (read.ec != std::errc() || read.ptr != found.data() + found.size())) {
        throw failureOf(tls::failure::bad_address,
                        path(name) + ": this has to be a number from 0 to 65535 or the name of a service",
                        path(name), static_cast<long long>(document_.node(i).begin));
    }
    return found;
}

void Fields::finish() const {
    unsigned const end = document_.node(object_).next;
    for (unsigned i = object_ + 1; i < end; i = document_.node(i).next) {
        if (std::find(known_.begin(), known_.end(), document_.node(i).name) == known_.end()) {
            std::string const path = document_.path(i);
            throw Failure(code_unknown_field, "unknown_field", path + ": no such member is known here", path,
                          static_cast<long long>(document_.node(i).begin));
        }
    }
    if (lacking_) {
        throw Failure(*lacking_);
    }
}

} // namespace json_client
} // namespace tav
