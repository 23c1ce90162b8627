#ifndef TAV_KIT_TEMPLATE_OF_H
#define TAV_KIT_TEMPLATE_OF_H

#include "tav/vinta/vinta_object.h"
#include "tav/vinta/vinta_pml_field_types.h"

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace tav {
namespace kit {
namespace detail {

/// What is found of a value by walking over it.
struct value_shape {
    std::string type;
    std::string class_name;
    std::string base_name;
    /// The number or text that a new object has; empty if it is the usual one.
    std::string preset;
    std::set<int> const * values = nullptr;
    int number = 0;
    struct field;
    std::deque<field> fields;
    /// Of a list or map.
    std::deque<value_shape> element;
    std::string key;
};

struct value_shape::field {
    int id = 0;
    std::string name;
    int kind = -1;
    bool optional = false;
    bool is_protected = false;
    std::string spec;
    value_shape value;
};

/// An input stream that has a value for whatever it is asked for, one element for each list and map, so that
/// each class shows what it is made of.  Of a class that was seen before it has none.
class shape_reader : public tavCodecStream {
public:
    using tavCodecStream::io;

    shape_reader(value_shape & shape, std::set<std::string> & seen) : shape_(shape), seen_(seen) {}

    bool isOutputStream() const override { return false; }
    bool isMapEntryCombined() const override {
        is_map_ = true;
        return false;
    }
    void on_each_field_meta(int id, tav_istr name, std::set<int> const & values,
                            tavCodecMeta const & meta) override {
        if (known_) {
            return;
        }
        shape_.fields.emplace_back();
        value_shape::field & made = shape_.fields.back();
        made.id = id;
        made.name = std::string(name);
        made.kind = meta.type;
        made.optional = meta.optional;
        made.is_protected = meta.isProtected;
        made.spec = std::string(meta.spec);
        made.value.values = values.empty() ? nullptr : &values;
    }
    tavSharedPtr<tavCodecStream> child(int id, tav_istr) override {
        if (entry_) {
            return new shape_reader(id == 1 ? key_ : shape_, seen_);
        }
        return known_ ? nullptr : new shape_reader(shape_.fields.back().value, seen_);
    }
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override {
        shape_.type = is_map_ ? "map" : "list";
        shape_.element.emplace_back();
        tavSharedPtr<shape_reader> const element = new shape_reader(shape_.element.back(), seen_);
        element->entry_ = is_map_;
        element->map_ = is_map_ ? &shape_ : nullptr;
        children.push_back(element);
    }
    tavSharedPtr<tavCodecStream> getOutputChild() override { return nullptr; }
    void getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> &) override {}
    void enter(tav_istr className, tav_istr baseName) override {
        shape_.type = "object";
        shape_.class_name = std::string(className);
        shape_.base_name = std::string(baseName);
        known_ = !seen_.insert(shape_.class_name).second;
    }
    void leave() override {}
    ~shape_reader() override {
        if (map_ != nullptr) {
            map_->key = key_.type;
        }
    }

    void io(tavTime &, tavCodecMeta const &) override { shape_.type = "time"; }
    void io(tavBytes &, tavCodecMeta const &) override { shape_.type = "bytes"; }
    void io(tavString &, tavCodecMeta const &) override { shape_.type = "string"; }
    void io(double & v, tavCodecMeta const &) override { fraction("double", v); }
    void io(float & v, tavCodecMeta const &) override { fraction("float", static_cast<double>(v)); }
    void io(unsigned long long & v, tavCodecMeta const &) override { integer("uint64", v); }
    void io(long long & v, tavCodecMeta const &) override { integer("int64", v); }
    void io(unsigned long & v, tavCodecMeta const &) override {
        integer(sizeof(v) == 8 ? "uint64" : "uint32", v);
    }
    void io(long & v, tavCodecMeta const &) override { integer(sizeof(v) == 8 ? "int64" : "int32", v); }
    void io(unsigned int & v, tavCodecMeta const &) override { integer("uint32", v); }
    void io(int & v, tavCodecMeta const &) override {
        integer("int32", v);
        shape_.number = v;
    }
    void io(unsigned short & v, tavCodecMeta const &) override { integer("uint16", v); }
    void io(short & v, tavCodecMeta const &) override { integer("int16", v); }
    void io(unsigned char & v, tavCodecMeta const &) override { integer("uint8", v); }
    void io(char & v, tavCodecMeta const &) override { integer("int8", v); }
    void io(bool & v, tavCodecMeta const &) override {
        shape_.type = "bool";
        shape_.preset = v ? "true" : "";
    }

private:
    template <class T>
    void integer(char const * type, T v) {
        shape_.type = type;
        shape_.preset = v == 0 ? std::string() : std::to_string(v);
    }
    void fraction(char const * type, double v) {
        shape_.type = type;
        char text[40] = "";
        for (int n = 1; v != 0 && n <= 17 && (n == 1 || std::strtod(text, nullptr) != v); ++n) {
            std::snprintf(text, sizeof(text), "%.*g", n, v);
        }
        shape_.preset = text;
    }

    value_shape & shape_;
    std::set<std::string> & seen_;
    bool known_ = false;
    mutable bool is_map_ = false;
    bool entry_ = false;
    value_shape key_;
    value_shape * map_ = nullptr;
};

/// The texts of a new object, by the ids of their fields.
class text_reader : public tavNullStream {
public:
    using tavNullStream::io;

    text_reader(std::map<int, std::string> & texts, int id) : texts_(texts), id_(id) {}

    tavSharedPtr<tavCodecStream> child(int id, tav_istr) override {
        return id_ == 0 ? new text_reader(texts_, id) : nullptr;
    }
    void io(tavString & v, tavCodecMeta const &) override { texts_[id_] = std::string(tav_istr(v)); }

private:
    std::map<int, std::string> & texts_;
    int id_;
};

struct described_class {
    unsigned short code = 0xffff;
    value_shape shape;
};

struct described_enum {
    std::string name;
    std::map<tavString, int> numbers;
};

/// The last part of a type's name as the compiler has it, where each part stands behind its length: the Mood
/// of "N2im4MoodE".
inline std::string last_name(std::string const & whole) {
    std::string last = whole;
    for (std::size_t at = 0; at < whole.size();) {
        std::size_t size = 0;
        for (; at < whole.size() && whole[at] >= '0' && whole[at] <= '9'; ++at) {
            size = size * 10 + static_cast<std::size_t>(whole[at] - '0');
        }
        if (size != 0 && size <= whole.size() - at) {
            last = whole.substr(at, size);
        }
        at += size == 0 ? 1 : size;
    }
    return last;
}

/// What is gathered of all classes and enums, and the text of it.
class template_writer {
public:
    template <class T>
    void add() {
        if constexpr (std::is_enum<T>::value) {
            enums_[&tav::detail::FieldAccess::valuesOf<T>()] =
                described_enum{last_name(typeid(T).name()), tavEnum<T>::numbers()};
        } else {
            static_assert(std::is_base_of<tavObject, T>::value && std::is_default_constructible<T>::value,
                          "tav::kit::template_of: classes of objects, and enums");
            T made;
            auto const * const message =
                dynamic_cast<tavMessage const *>(static_cast<tavObject const *>(&made));
            add(made, message == nullptr ? static_cast<unsigned short>(0xffff) : message->msgcode());
        }
    }

    std::string text() const {
        std::string out;
        for (described_class const & one : classes_) {
            out += class_text(one);
        }
        return out;
    }

private:
    void add(tavObject & made, unsigned short code) {
        std::map<int, std::string> texts;
        text_reader reader(texts, 0);
        made.io(reader);
        std::set<std::string> seen;
        classes_.emplace_back();
        classes_.back().code = code;
        shape_reader shape(classes_.back().shape, seen);
        made.io(shape);
        for (value_shape::field & field : classes_.back().shape.fields) {
            if (field.value.type == "string") {
                field.value.preset = plain(texts[field.id]);
            }
        }
    }

    /// A text that means itself in a template; empty if it does not.
    static std::string plain(std::string const & text) {
        bool const means =
            text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_. -") ==
            std::string::npos;
        bool const edges = !text.empty() && text.front() != ' ' && text.back() != ' ';
        return means && edges && text != "true" && text != "false" && text != "null" ? text : std::string();
    }

    described_class const * find(std::string const & name) const {
        for (described_class const & one : classes_) {
            if (one.shape.class_name == name) {
                return &one;
            }
        }
        return nullptr;
    }

    static std::string type_name(value_shape const & value) {
        return value.type == "object" ? value.class_name : value.type;
    }

    /// The members of an enum, and the one that a new object has, if that is not 0 or the first.
    std::string enum_text(value_shape const & value, std::string & name) const {
        auto const known = enums_.find(value.values);
        std::string members;
        std::string preset;
        for (int const number : *value.values) {
            std::string member = "value_" + std::to_string(number);
            if (known != enums_.end()) {
                for (auto const & entry : known->second.numbers) {
                    member = entry.second == number ? std::string(tav_istr(entry.first)) : member;
                }
            }
            members += member + "(" + std::to_string(number) + ") ";
            preset = number == value.number && number != 0 ? "__default__(" + member + ") " : preset;
        }
        name = known == enums_.end() ? name : known->second.name;
        return preset + members;
    }

    std::string field_text(value_shape::field const & field) const {
        value_shape const & value = field.value;
        std::string const front = "    [" + std::to_string(field.id) + "]" + field.name + ":";
        std::string const end = field.optional ? "?(" : "(";
        std::string const preset = field.optional ? std::string() : value.preset;
        if (value.values != nullptr) {
            std::string name = "enum_of_" + field.name;
            std::string const members = enum_text(value, name);
            return front + "enum{" + name + "}" + end + members + ")\n";
        }
        std::string type = type_name(value);
        if (!value.element.empty()) {
            std::string const inner = type_name(value.element.front());
            type += "{" + (value.type == "map" ? value.key + "," : std::string()) + inner + "}";
        } else if (field.kind == tav::pml::field_type::wstring_ ||
                   field.kind == tav::pml::field_type::u8string_) {
            type = field.kind == tav::pml::field_type::wstring_ ? "wstring" : "u8string";
        }
        if (field.is_protected) {
            return front + type + end + "{" + (field.spec.empty() ? "***" : field.spec) + "})\n";
        }
        return front + type + end + preset + (field.spec.empty() ? "" : "{" + field.spec + "}") + ")\n";
    }

    std::string class_text(described_class const & one) const {
        value_shape const & shape = one.shape;
        std::string name = shape.class_name;
        for (char & c : name) {
            c = c == '.' ? '_' : c;
        }
        std::string out = name + ":object(\n    __class__(" + shape.class_name + ")\n";
        if (one.code != 0xffff) {
            char code[8];
            std::snprintf(code, sizeof(code), "%04X", static_cast<unsigned>(one.code));
            out += std::string("    __code__(") + code + ")\n";
        }
        described_class const * const base = find(shape.base_name);
        std::set<int> inherited;
        if (base != nullptr) {
            out += "    __super__(" + shape.base_name + ")\n";
            for (value_shape::field const & field : base->shape.fields) {
                inherited.insert(field.id);
            }
        }
        std::map<int, std::string> own;
        for (value_shape::field const & field : shape.fields) {
            if (inherited.count(field.id) == 0) {
                own[field.id] += field_text(field);
            }
        }
        for (auto const & field : own) {
            out += field.second;
        }
        return out + ")\n";
    }

    std::deque<described_class> classes_;
    std::map<std::set<int> const *, described_enum> enums_;
};

} // namespace detail

/// The template of these classes, with the names of these enums, in the order of the classes:
///
///     std::cout << tav::kit::template_of<im::Hello, im::Line, im::Place, im::Mood>();
///
/// All classes that they hold or derive from have to be among them.  A class whose base is among them has its
/// own fields alone.  What C++ does not tell: comments, the default of an optional field, the kind of a text
/// within a list or map, and an enum there, which is written as `int32`; an enum that is not among them has
/// made-up names; a default text of other than letters, digits, blanks, `_`, `.` and `-` is left out.
template <class... Types>
std::string template_of() {
    detail::template_writer writer;
    (writer.add<Types>(), ...);
    return writer.text();
}

} // namespace kit
} // namespace tav

#endif
