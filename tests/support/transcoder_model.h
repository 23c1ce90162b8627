#ifndef TAV_TESTS_SUPPORT_TRANSCODER_MODEL_H
#define TAV_TESTS_SUPPORT_TRANSCODER_MODEL_H

#include "support/meta_rig.h"
#include "tav/vinta/vinta_json_streams.h"
#include "tav/vinta/vinta_nbr_unit.h"
#include "tav/vinta/vinta_object.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tav_test {

inline std::string text(tav_istr v) {
    return std::string(v.data(), v.size());
}

/// The text of a failure ahead of its place.
inline std::string messageOf(std::invalid_argument const & e) {
    std::string const all = e.what();
    return all.substr(0, all.find("\n    throw at "));
}

inline std::string nameOf(Kind kind) {
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        if (one.kind == kind) {
            return one.name;
        }
    }
    return std::to_string(static_cast<int>(kind));
}

/// `{ a b }`
template <class Items>
std::string listed(Items const & items) {
    std::ostringstream out;
    out << "{";
    for (auto const & item : items) {
        out << " " << item;
    }
    out << " }";
    return out.str();
}

/// The transcoder in its plainest form, over trees and by recursion: what the real one must agree with.
class TranscoderModel {
public:
    typedef tav::json::JsonUnit JsonUnit;
    typedef tav::nbr::ComplexValue ComplexValue;
    typedef tav::nbr::NbrInputStream NbrInputStream;
    typedef tav::nbr::NbrOutputStream NbrOutputStream;
    typedef tav::nbr::ValueBase ValueBase;
    typedef tav::pml::MetaClass MetaClass;
    typedef tav::pml::MetaFactory MetaFactory;
    typedef tav::pml::MetaField MetaField;

    explicit TranscoderModel(MetaFactory const & factory) : factory_(factory) {}

    /// What was logged: level, function and text.
    std::vector<std::string> lines;

    void write(std::string const & json, tavBytes & out, unsigned short & code, tavString className) {
        JsonUnit tree;
        tree.decode(tav_istr(json));
        JsonUnit const & unit = tree;
        unit["__class__"] >> className;
        unit["__code__"] >> code;
        MetaClass const * const cls =
            code != 0xFFFF ? factory_.findClass(code) : factory_.findClass(className);
        if (cls == nullptr) {
            fail("meta class not found, maybe neither __class__ nor __code__ given");
        }
        if (code == 0xFFFF) {
            code = static_cast<unsigned short>(std::strtoul(text(cls->code).c_str(), nullptr, 16));
        }
        NbrOutputStream work;
        NbrOutputStream::Entry::enter(work);
        std::set<std::string> names;
        for (auto const & member : unit) {
            std::string const name = text(member.first);
            if (name == "__class__") {
                continue;
            }
            writeMember(name, member.second, work, *cls, "write");
            names.insert(name);
        }
        std::vector<std::string> missing;
        for (MetaField const & one : necessary(*cls)) {
            if (names.count(text(one.idName.name)) == 0) {
                missing.push_back(text(one.idName.name));
            }
        }
        if (!missing.empty()) {
            fail("missing necessary field name(s) " + listed(missing) + " in class " + text(cls->className));
        }
        NbrOutputStream::Entry::leave(work);
        work.encode(out);
    }

    void read(tavString & json, std::string const & nbr, tavString const & className, bool dump) {
        NbrInputStream const in{tav_istr(nbr)};
        tav::json::JsonOutputStream out;
        MetaClass const * const cls = factory_.findClass(className);
        if (cls != nullptr) {
            out["__class__"] << cls->className;
            if (!in.empty()) {
                std::set<int> tags;
                if (tavSharedPtr<ComplexValue> const value = in.getComplexValue()) {
                    for (ComplexValue::Item const & item : *value) {
                        readMember(item, out.unit(), *cls, dump, "read");
                        tags.insert(static_cast<signed char>(item.first));
                    }
                }
                std::vector<int> missing;
                for (MetaField const & one : necessary(*cls)) {
                    if (tags.count(one.idName.id) == 0) {
                        missing.push_back(one.idName.id);
                    }
                }
                if (!dump && !missing.empty()) {
                    fail("missing necessary field id(s) " + listed(missing) + " in class " +
                         text(cls->className));
                }
            }
        }
        json = out.dump(dump);
    }

private:
    [[noreturn]] void fail(std::string const & message) {
        throw std::invalid_argument(message + "\n    throw at model");
    }

    void log(char const * level, std::string const & line, std::string const & place) {
        lines.push_back(std::string(level) + " " + place + " " + line);
    }

    MetaClass const * findClass(tavString const & name, MetaClass const & current) const {
        for (MetaClass const & nested : current.classes) {
            if (nested.className == name) {
                return &nested;
            }
        }
        return current.className == name ? &current : factory_.findClass(name);
    }

    /// The class and its bases, each once.
    std::vector<MetaClass const *> chain(MetaClass const & cls) const {
        std::vector<MetaClass const *> all;
        for (MetaClass const * one = &cls;
             one != nullptr && std::find(all.begin(), all.end(), one) == all.end();
             one = findClass(one->superName, *one)) {
            all.push_back(one);
        }
        return all;
    }

    template <class Key>
    MetaField const * findField(Key key, MetaClass const & cls) const {
        for (MetaClass const * const one : chain(cls)) {
            if (MetaField const * const found = one->findField(key)) {
                return found;
            }
        }
        return nullptr;
    }

    std::vector<MetaField> necessary(MetaClass const & cls) const {
        std::vector<MetaField> all;
        std::vector<MetaClass const *> const classes = chain(cls);
        for (auto one = classes.rbegin(); one != classes.rend(); ++one) {
            for (MetaField const & each : (*one)->fields) {
                Kind const kind = each.classType.type;
                if (!each.classType.optional && kind != tav::pml::field_type::optional_ &&
                    kind != tav::pml::field_type::list_ && kind != tav::pml::field_type::ref_list_ &&
                    kind != tav::pml::field_type::map_) {
                    all.push_back(each);
                }
            }
        }
        return all;
    }

    void writeMember(std::string const & name, JsonUnit const & value, NbrOutputStream & out,
                     MetaClass const & cls, char const * place) {
        if (MetaField const * const found = findField(tav_istr(name), cls)) {
            out.writeRaw(static_cast<unsigned char>(found->idName.id));
            writeTo(value, out, cls, *found);
        } else if (name.compare(0, 2, "__") != 0) {
            log("INFO", "not found field name [" + name + "] in class " + text(cls.className), place);
        }
    }

    void writeTo(JsonUnit const & value, NbrOutputStream & out, MetaClass const & cls, MetaField const & of) {
        if (value.isNull()) {
            out.writeNull();
            return;
        }
        if (writeToSimple(value, out, of.classType.type, cls, of)) {
            return;
        }
        MetaField element = of;
        element.classType.type = of.classType.elementType;
        NbrOutputStream::Entry::enter(out);
        if (value.arrayValue() != nullptr) {
            for (JsonUnit const & one : *value.arrayValue()) {
                out.writeRaw(static_cast<unsigned char>(0));
                writeTo(one, out, cls, element);
            }
        } else if (of.classType.type == tav::pml::field_type::map_) {
            for (auto const & member : value) {
                out.writeRaw(static_cast<unsigned char>(0));
                NbrOutputStream::Entry::enter(out);
                out.writeRaw(static_cast<unsigned char>(1));
                JsonUnit key;
                key << member.first;
                writeToSimple(key, out, of.classType.keyType, cls, of);
                out.writeRaw(static_cast<unsigned char>(2));
                writeTo(member.second, out, cls, element);
                NbrOutputStream::Entry::leave(out);
            }
        } else {
            for (auto const & member : value) {
                MetaClass const * const inner = findClass(of.classType.name, cls);
                if (inner == nullptr) {
                    log("ERROR", "not found class " + text(of.classType.name), "writeTo");
                } else {
                    writeMember(text(member.first), member.second, out, *inner, "writeTo");
                }
            }
        }
        NbrOutputStream::Entry::leave(out);
    }

    template <class T>
    void writeNumber(JsonUnit const & value, NbrOutputStream & out, MetaField const & of,
                     std::string const & head) {
        T number = T();
        value >> number;
        if (!of.range.check(static_cast<long long>(number))) {
            std::ostringstream what;
            what << head << "has invalid number value " << std::to_string(number) << ", valid values "
                 << of.range;
            fail(what.str());
        }
        out << number;
    }

    template <class T>
    void writeUnchecked(JsonUnit const & value, NbrOutputStream & out) {
        T number = T();
        value >> number;
        out << number;
    }

    bool writeToSimple(JsonUnit const & value, NbrOutputStream & out, Kind kind, MetaClass const & cls,
                       MetaField const & of) {
        std::string const head = "field " + text(of.idName.name) + " in class " + text(cls.className) + " ";
        if (value.booleanValue() != nullptr) {
            if (kind > tav::pml::field_type::double_) {
                fail(head + "should not be json boolean type, expected type " + nameOf(kind));
            }
            out << value.booleanValue()->getValue();
            return true;
        }
        if (value.stringValue() != nullptr) {
            tavString const string = value.stringValue()->getValue();
            if (kind == tav::pml::field_type::string_ || kind == tav::pml::field_type::wstring_ ||
                kind == tav::pml::field_type::u8string_) {
                out << string;
                return true;
            }
            if (kind == tav::pml::field_type::bytes_) {
                writeUnchecked<tavBytes>(value, out);
                return true;
            }
            if (kind != tav::pml::field_type::int64_ && kind != tav::pml::field_type::uint64_) {
                fail(head + "should not be json string type, expected type " + nameOf(kind));
            }
            if (text(string).find_first_not_of("0123456789") != std::string::npos) {
                fail(head + "not all digits for large integer " + text(string));
            }
        } else if (value.numberValue() == nullptr) {
            return false;
        }
        if (kind == tav::pml::field_type::enum_) {
            int number = -1;
            std::string const digits = text(value.asString());
            // Only plain decimal numbers come here.
            std::istringstream in(digits);
            int read = 0;
            if (in >> read && in.peek() == std::istringstream::traits_type::eof()) {
                number = read;
            }
            if (of.validValues.count(number) == 0) {
                fail(head + "has invalid enum value " + std::to_string(number) + ", valid values " +
                     listed(of.validValues));
            }
        }
        switch (kind) {
        case tav::pml::field_type::bool_: writeNumber<bool>(value, out, of, head); break;
        case tav::pml::field_type::int8_: writeNumber<char>(value, out, of, head); break;
        case tav::pml::field_type::int16_: writeNumber<short>(value, out, of, head); break;
        case tav::pml::field_type::int32_: writeNumber<int>(value, out, of, head); break;
        case tav::pml::field_type::int64_: writeNumber<long long>(value, out, of, head); break;
        case tav::pml::field_type::uint8_: writeNumber<unsigned char>(value, out, of, head); break;
        case tav::pml::field_type::uint16_: writeNumber<unsigned short>(value, out, of, head); break;
        case tav::pml::field_type::uint32_: writeNumber<unsigned int>(value, out, of, head); break;
        case tav::pml::field_type::uint64_: writeNumber<unsigned long long>(value, out, of, head); break;
        case tav::pml::field_type::float_: writeUnchecked<float>(value, out); break;
        case tav::pml::field_type::double_: writeUnchecked<double>(value, out); break;
        case tav::pml::field_type::time_: writeUnchecked<long long>(value, out); break;
        case tav::pml::field_type::enum_: writeUnchecked<int>(value, out); break;
        default: fail(head + "should not be json number type, expected type " + nameOf(kind));
        }
        return true;
    }

    void readMember(ComplexValue::Item const & item, JsonUnit & out, MetaClass const & cls, bool dump,
                    char const * place) {
        short const tag = static_cast<signed char>(item.first);
        if (MetaField const * const found = findField(tag, cls)) {
            readFrom(item.second, out.child(found->idName.toString(dump)), cls, *found, dump);
        } else {
            log("INFO", "not found field id [" + std::to_string(tag) + "] in class " + text(cls.className),
                place);
        }
    }

    template <class T>
    static void readNumber(NbrInputStream const & in, JsonUnit & out) {
        T work = T();
        in >> work;
        out << work;
    }

    bool readSimple(NbrInputStream const & in, JsonUnit & out, Kind kind, MetaField const & of, bool dump) {
        switch (kind) {
        case tav::pml::field_type::bool_: readNumber<bool>(in, out); return true;
        case tav::pml::field_type::int8_: readNumber<char>(in, out); return true;
        case tav::pml::field_type::int16_: readNumber<short>(in, out); return true;
        case tav::pml::field_type::int32_:
        case tav::pml::field_type::enum_: readNumber<int>(in, out); return true;
        case tav::pml::field_type::int64_: readNumber<long long>(in, out); return true;
        case tav::pml::field_type::uint8_: readNumber<unsigned char>(in, out); return true;
        case tav::pml::field_type::uint16_: readNumber<unsigned short>(in, out); return true;
        case tav::pml::field_type::uint32_: readNumber<unsigned int>(in, out); return true;
        case tav::pml::field_type::uint64_: readNumber<unsigned long long>(in, out); return true;
        case tav::pml::field_type::float_: readNumber<float>(in, out); return true;
        case tav::pml::field_type::double_: readNumber<double>(in, out); return true;
        case tav::pml::field_type::time_: readNumber<tavTime>(in, out); return true;
        case tav::pml::field_type::bytes_:
        case tav::pml::field_type::string_:
        case tav::pml::field_type::wstring_:
        case tav::pml::field_type::u8string_:
            if (dump && of.isProtected) {
                tavString work;
                in >> work;
                tavCodecMeta meta(kind, true, nullptr, of.classType.optional);
                meta.spec = of.spec;
                out << tavDumper::protectedValue(work, meta);
            } else if (kind == tav::pml::field_type::bytes_) {
                readNumber<tavBytes>(in, out);
            } else {
                readNumber<tavString>(in, out);
            }
            return true;
        case tav::pml::field_type::char_:
        case tav::pml::field_type::wchar_: readNumber<tavString>(in, out); return true;
        default: return false;
        }
    }

    void readFrom(tavSharedPtr<ValueBase> const & value, JsonUnit & out, MetaClass const & cls,
                  MetaField const & of, bool dump) {
        if (!value) {
            out.setNull();
            return;
        }
        NbrInputStream const in(value);
        Kind const kind = of.classType.type;
        if (readSimple(in, out, kind, of, dump)) {
            return;
        }
        tavSharedPtr<ComplexValue> const complex = in.getComplexValue();
        std::vector<ComplexValue::Item> const items =
            complex ? complex->data() : std::vector<ComplexValue::Item>();
        MetaField element = of;
        element.classType.type = of.classType.elementType;
        if (kind == tav::pml::field_type::list_ || kind == tav::pml::field_type::ref_list_) {
            out.arrayValue();
            for (ComplexValue::Item const & item : items) {
                readFrom(item.second, out.newChild(), cls, element, dump);
            }
        } else if (kind == tav::pml::field_type::map_) {
            out.objectValue();
            for (ComplexValue::Item const & item : items) {
                NbrInputStream const entry(item.second);
                NbrInputStream const key(entry.getChild(1));
                JsonUnit name;
                readSimple(key, name, of.classType.keyType, of, dump);
                readFrom(entry.getChild(2), out.child(name.stringValue().getValue()), cls, element, dump);
            }
        } else if (kind == tav::pml::field_type::object_ || kind == tav::pml::field_type::ref_) {
            out.objectValue();
            MetaClass const * const inner = findClass(of.classType.name, cls);
            if (inner == nullptr) {
                log("ERROR", "not found class " + text(of.classType.name), "readFrom");
                return;
            }
            for (ComplexValue::Item const & item : items) {
                readMember(item, out, *inner, dump, "readFrom");
            }
        } else {
            log("ERROR", "<ERROR> not yet supported field type: " + nameOf(kind), "readFrom");
        }
    }

    MetaFactory const & factory_;
};

} // namespace tav_test

#endif
