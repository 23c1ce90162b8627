#ifndef TAV_KIT_CHECK_H
#define TAV_KIT_CHECK_H

#include "tav/kit/equal.h"
#include "tav/vinta/vinta_object.h"

#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace tav {
namespace kit {

namespace detail {

/// Gathers what is wrong with the fields of an object and of those that it holds by value.
class field_inspector : public tavNullStream {
public:
    field_inspector(std::string path, std::string & faults) : path_(std::move(path)), faults_(faults) {}

    void on_each_field_meta(int id, tav_istr name, std::set<int> const &, tavCodecMeta const &) override {
        std::string const text(name);
        std::string const number = std::to_string(id);
        if (text.empty()) {
            tell("the field of id " + number + " has no name");
        }
        if (id < 1 || id > 127) {
            tell("the id " + number + " of \"" + text + "\" is outside 1 to 127");
        }
        for (auto const & [other_id, other_text] : seen_) {
            if (other_id == id) {
                tell("the id " + number + " belongs to both \"" + other_text + "\" and \"" + text + "\"");
            }
            if (other_text == text && !text.empty()) {
                tell("two fields have the name \"" + text + "\"");
            }
        }
        seen_.emplace_back(id, text);
    }
    tavSharedPtr<tavCodecStream> child(int, tav_istr name) override {
        return new field_inspector(path_ + "." + std::string(name), faults_);
    }
    tavSharedPtr<tavCodecStream> getOutputChild() override {
        return new field_inspector(path_ + "[]", faults_);
    }

private:
    void tell(std::string const & fault) { faults_ += path_ + ": " + fault + "\n"; }

    std::string const path_;
    std::string & faults_;
    std::vector<std::pair<int, std::string>> seen_;
};

/// What is wrong with an object of which `made` is a new instance, `type` being the class that was meant.
inline std::string faults_of(tavObject & v, tavObject & again, std::type_info const & type) {
    std::string faults;
    std::string const name(v.className());
    auto const tell = [&](std::string const & fault) { faults += name + ": " + fault + "\n"; };
    if (name.empty()) {
        tell("className is empty");
    }
    if (v.baseName().empty()) {
        tell("baseName is empty");
    }
    std::unique_ptr<tavObject> const made(v.newInstance());
    tavObject const * const instance = made.get();
    if (instance == nullptr || typeid(*instance) != type) {
        tell("newInstance makes no object of this class");
    }
    auto const * const message = dynamic_cast<tavMessage const *>(&v);
    if (message != nullptr && message->msgcode() == 0xffff) {
        tell("the code 0xffff means no message");
    }
    try {
        field_inspector inspector(name, faults);
        v.io(inspector);
        if (faults.empty()) {
            again.decode(v.encode(false));
            if (!equal_fields(v, again)) {
                tell("what it encodes is not what it decodes");
            }
        }
    } catch (std::exception const & e) {
        tell(std::string("its fields raise: ") + e.what());
    }
    return faults;
}

} // namespace detail

/// What is wrong with a class of objects or messages, in a line for each fault; empty if nothing is.  Made to
/// be one line of a test:
///
///     EXPECT_EQ(tav::kit::check<Say>(), "");
///
/// It finds an id that two fields share or that lies outside 1 to 127, a field without a name or with the
/// name of another, a newInstance that makes another class, and fields that do not come back as they went.
/// It looks at a default object and at the objects that this one holds; the class of an element of an empty
/// container, or of an object that is not there, needs a check of its own.
template <class T>
std::string check() {
    static_assert(std::is_base_of<tavObject, T>::value, "tav::kit::check<T>: T is a class of objects");
    static_assert(!std::is_abstract<T>::value,
                  "tav::kit::check<T>: T has to override traverse(tavCodecStream &), which is not const, and "
                  "all else that is pure");
    if constexpr (std::is_base_of<tavObject, T>::value && !std::is_abstract<T>::value) {
        T first;
        T again;
        return detail::faults_of(first, again, typeid(T));
    } else {
        return std::string();
    }
}

} // namespace kit
} // namespace tav

#endif
