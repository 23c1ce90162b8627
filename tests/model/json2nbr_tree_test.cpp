#include "tav/vinta/vinta_json2nbr.h"

#include "support/log_capture.h"
#include "support/meta_rig.h"
#include "tav/vinta/vinta_json_parser.h"
#include "tav/vinta/vinta_nbr_unit.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

using tav::json::JsonUnit;
using tav::nbr::ComplexValue;
using tav::nbr::SimpleValue;
using tav::nbr::ValueBase;
using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav_test::factoryOf;
using tav_test::field;
using tav_test::Kind;
using tav_test::metaClass;
using tav_test::optional;

namespace k = tav::pml::field_type;

namespace {

/// Reads NBR into a tree of JSON values, member by member as they come, and lets the tree write itself: the
/// plain road to the text that `read` gives.
class TreeReader {
public:
    TreeReader(MetaFactory const & factory, bool dump) : factory_(factory), dump_(dump) {}

    std::string read(tav_istr nbr, char const * className) {
        MetaClass const & cls = factory_.classes.at(className);
        tav::nbr::NbrInputStream const in(nbr);
        tav::json::JsonOutputStream out;
        out.child("__class__") << cls.className;
        if (!in.empty() && in.getComplexValue()) {
            for (ComplexValue::Item const & item : in.getComplexValue()->data()) {
                member(item, out.unit(), cls);
            }
        }
        tavString const text = out.dump(dump_);
        return std::string(text.data(), text.size());
    }

    std::vector<std::string> const & told() const { return told_; }

private:
    MetaClass const * findClass(tavString const & name) const { return factory_.findClass(name); }

    MetaField const * findField(MetaClass const & cls, short tag) const {
        MetaField const * const own = cls.findField(tag);
        MetaClass const * const base = own == nullptr ? findClass(cls.superName) : nullptr;
        return base != nullptr ? base->findField(tag) : own;
    }

    void member(ComplexValue::Item const & item, JsonUnit & out, MetaClass const & cls) {
        auto const tag = static_cast<signed char>(item.first);
        if (MetaField const * const found = findField(cls, tag)) {
            value(item.second.get(), out.child(found->idName.toString(dump_)), *found, found->classType.type);
        } else {
            told_.push_back("not found field id [" + std::to_string(tag) + "] in class " +
                            std::string(cls.className.data()));
        }
    }

    template <class T>
    static void number(SimpleValue const * v, JsonUnit & out) {
        T work = T();
        if (v != nullptr) {
            v->read(work);
        }
        out << work;
    }

    template <class T>
    void text(SimpleValue const * v, JsonUnit & out, MetaField const & f, Kind kind) {
        if (!dump_ || !f.isProtected || kind == k::char_ || kind == k::wchar_) {
            number<T>(v, out);
            return;
        }
        tavBytes data;
        if (v != nullptr) {
            v->read(data);
        }
        tavCodecMeta meta(kind, true, nullptr, false);
        meta.spec = f.spec;
        out << tavDumper::protectedValue(data, meta);
    }

    bool simple(SimpleValue const * v, JsonUnit & out, MetaField const & f, Kind kind) {
        switch (kind) {
        case k::bool_: number<bool>(v, out); return true;
        case k::int8_: number<char>(v, out); return true;
        case k::int16_: number<short>(v, out); return true;
        case k::int32_:
        case k::enum_: number<int>(v, out); return true;
        case k::int64_: number<long long>(v, out); return true;
        case k::uint8_: number<unsigned char>(v, out); return true;
        case k::uint16_: number<unsigned short>(v, out); return true;
        case k::uint32_: number<unsigned int>(v, out); return true;
        case k::uint64_: number<unsigned long long>(v, out); return true;
        case k::float_: number<float>(v, out); return true;
        case k::double_: number<double>(v, out); return true;
        case k::time_: number<tavTime>(v, out); return true;
        case k::bytes_: text<tavBytes>(v, out, f, kind); return true;
        case k::char_:
        case k::wchar_:
        case k::string_:
        case k::wstring_:
        case k::u8string_: text<tavString>(v, out, f, kind); return true;
        default: return false;
        }
    }

    static std::vector<ComplexValue::Item> membersOf(ValueBase const * v) {
        auto const * const complex = dynamic_cast<ComplexValue const *>(v);
        return complex != nullptr ? complex->data() : std::vector<ComplexValue::Item>();
    }

    void value(ValueBase const * v, JsonUnit & out, MetaField const & f, Kind kind) {
        if (v == nullptr) {
            out.setNull();
            return;
        }
        if (simple(dynamic_cast<SimpleValue const *>(v), out, f, kind)) {
            return;
        }
        switch (kind) {
        case k::list_:
        case k::ref_list_:
            out.arrayValue();
            for (ComplexValue::Item const & item : membersOf(v)) {
                value(item.second.get(), out.newChild(), f, f.classType.elementType);
            }
            break;
        case k::map_:
            out.objectValue();
            for (ComplexValue::Item const & item : membersOf(v)) {
                auto const * const entry = dynamic_cast<ComplexValue const *>(item.second.get());
                tavSharedPtr<ValueBase> const key = entry != nullptr ? entry->get(1) : nullptr;
                tavSharedPtr<ValueBase> const held = entry != nullptr ? entry->get(2) : nullptr;
                JsonUnit name;
                simple(dynamic_cast<SimpleValue const *>(key.get()), name, f, f.classType.keyType);
                value(held.get(), out.child(name.stringValue().getValue()), f, f.classType.elementType);
            }
            break;
        case k::object_:
        case k::ref_: {
            out.objectValue();
            MetaClass const * const cls = findClass(f.classType.name);
            if (cls == nullptr) {
                told_.push_back("not found class " + std::string(f.classType.name.data()));
                break;
            }
            for (ComplexValue::Item const & item : membersOf(v)) {
                member(item, out, *cls);
            }
            break;
        }
        default:
            told_.push_back("<ERROR> not yet supported field type: " +
                            std::string(tavEnum<Kind>(kind).name().data()));
        }
    }

    MetaFactory const & factory_;
    bool const dump_;
    std::vector<std::string> told_;
};

/// Two classes of which each has a field of every kind and of every shape, and names that sort every way:
/// ahead of and behind the class's own, twice, and against their tags.
MetaFactory tangle() {
    std::vector<MetaField> fields;
    short id = 1;
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        MetaField made = field(id, one.name, one.kind, id % 4 == 0 ? k::list_ : k::string_, "M");
        made.isProtected = id % 2 == 0;
        made.spec = "..***..";
        fields.push_back(optional(made));
        ++id;
    }
    auto const add = [&](MetaField made) { fields.push_back(optional(std::move(made))); };
    add(field(40, "__class__", k::map_, k::object_, "Sub"));
    add(field(41, "__class__", k::string_));
    add(field(42, "Upper", k::list_, k::object_, "Sub"));
    add(field(43, "Upper", k::object_, k::unknown_, "M"));
    add(field(44, "Upper", k::map_, k::map_, "M"));
    add(field(45, "lost", k::object_, k::unknown_, "Nowhere"));
    add(field(46, "lost", k::list_, k::object_, "Nowhere"));
    add(field(47, "", k::int32_));
    for (Kind const key : {k::int64_, k::uint64_, k::time_, k::bytes_, k::int32_, k::char_, k::list_}) {
        MetaField made = field(static_cast<short>(50 + key), "keyed", k::map_, k::ref_, "Sub", key);
        made.isProtected = key == k::bytes_;
        add(made);
    }
    add(field(-3, "zebra", k::ref_list_, k::int32_));
    return factoryOf({metaClass("M", fields, "Base"),
                      metaClass("Base", {optional(field(90, "a base", k::ref_, k::unknown_, "Sub"))}),
                      metaClass("Sub", {optional(field(2, "x", k::ref_, k::unknown_, "M")),
                                        optional(field(1, "y", k::map_, k::string_)),
                                        optional(field(3, "x", k::list_, k::int32_)),
                                        optional(field(4, "w", k::optional_))})});
}

/// Documents of few tags and few names, so that many of them meet.
class Documents {
public:
    explicit Documents(unsigned seed) : random_(seed) {}

    std::string next() {
        static std::vector<int> const tags = {1,  4,  14, 17, 18, 20, 22, 23, 27, 28, 29, 31, 40, 41, 42,
                                              43, 44, 45, 46, 47, 54, 58, 66, 67, 53, 90, 61, 76, -3, 99};
        used_.clear();
        for (unsigned n = 1 + pick(5); n > 0; --n) {
            used_.push_back(static_cast<char>(tags[pick(static_cast<unsigned>(tags.size()))]));
        }
        return complex(0);
    }

private:
    unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }

    std::string complex(unsigned depth) {
        std::string out("\xFF\x01\x28", 3);
        unsigned const shape = pick(3);
        for (unsigned n = pick(6); n > 0; --n) {
            if (shape == 0) {
                // An entry of a map.
                out += std::string("\0\xFF\x01\x28\1", 5) + simple() + '\2' + value(depth + 1) +
                       std::string("\xFF\x01\x29", 3);
            } else {
                bool const low = pick(3) == 0;
                out += low ? static_cast<char>(pick(5)) : used_[pick(static_cast<unsigned>(used_.size()))];
                out += value(depth + 1);
            }
        }
        return out + std::string("\xFF\x01\x29", 3);
    }

    std::string value(unsigned depth) {
        unsigned const what = pick(8);
        if (what == 0) {
            return std::string(1, '\0');
        }
        return what < 5 && depth < 7 ? complex(depth) : simple();
    }

    std::string simple() {
        static std::vector<std::string> const texts = {"",
                                                       "a",
                                                       "b",
                                                       "__class__",
                                                       "_",
                                                       "zebra",
                                                       "A",
                                                       "\x80",
                                                       "a\"/\\b",
                                                       "a\nb\x1F",
                                                       "long enough to be more than eight"};
        std::string const text = texts[pick(static_cast<unsigned>(texts.size()))];
        return std::string(1, pick(2) == 0 ? '\x01' : '\xF1') + static_cast<char>(text.size()) + text;
    }

    std::mt19937 random_;
    std::vector<char> used_;
};

/// What is told of fields and classes, without what the log puts ahead of it.
std::vector<std::string> toldTo(tav_test::LogCapture const & log) {
    tavLogger::flush();
    std::vector<std::string> lines;
    for (tav_test::LogCapture::Record const & record : log.records()) {
        for (char const * head : {"not found field id", "not found class", "<ERROR> not yet"}) {
            std::size_t const at = record.text.find(head);
            if (at != std::string::npos) {
                std::string line = record.text.substr(at);
                line.erase(line.find('\n'));
                lines.push_back(line);
                break;
            }
        }
    }
    return lines;
}

} // namespace

TEST(Json2NbrTree, TextAndLogAreThoseOfTheTree) {
    MetaFactory const factory = tangle();
    Documents documents(5);
    tav_test::LogCapture log("clear(INFO)");
    std::size_t lists = 0;
    std::size_t lines = 0;
    for (int i = 0; i < 8000; ++i) {
        std::string const nbr = documents.next();
        for (bool const dump : {false, true}) {
            TreeReader tree(factory, dump);
            std::string const expected = tree.read(tav_istr(nbr), "M");
            log.clear();
            tavString json;
            tav::json2nbr::read(json, tav_istr(nbr), tavString("M"), factory, dump);
            ASSERT_EQ(std::string(json.data(), json.size()), expected) << i << " " << tav_test::hex(nbr);
            ASSERT_EQ(tree.told(), toldTo(log)) << i << " " << tav_test::hex(nbr);
            lists += expected.find("], ") != std::string::npos ? 1u : 0u;
            lines += tree.told().size();
        }
    }
    // The documents are worth reading.
    EXPECT_LT(500u, lists);
    EXPECT_LT(5000u, lines);
}

TEST(Json2NbrTree, LongTextsGrowTheOutput) {
    MetaFactory const factory =
        tav_test::message({field(1, "f", k::string_), optional(field(2, "g", k::bytes_))});
    for (std::size_t size = 0; size < 300; ++size) {
        for (char const filler : {'a', '/', '\x01'}) {
            std::string const text(size, filler);
            std::string const length(1, static_cast<char>(size % 256));
            std::string const head = size < 256 ? std::string("\x01\xF1", 2) + length
                                                : std::string("\x01\xF2", 2) + length + '\x01';
            std::string const nbr =
                std::string("\xFF\x01\x28", 3) + head + text + std::string("\xFF\x01\x29", 3);
            TreeReader tree(factory, false);
            tavString json;
            tav::json2nbr::read(json, tav_istr(nbr), tavString("M"), factory, false);
            ASSERT_EQ(tree.read(tav_istr(nbr), "M"), std::string(json.data(), json.size())) << size;
        }
    }
}

TEST(Json2NbrTree, ClassOfAMapIsShownAheadOfIt) {
    MetaFactory const factory = tav_test::message({field(1, "f", k::map_, k::map_)});
    char const * const inner =
        "00 FF 01 28 01 F1 09 5F 5F 63 6C 61 73 73 5F 5F 02 FF 01 28 00 FF 01 28 01 F1 01 61 "
        "02 00 FF 01 29 FF 01 29 FF 01 29";
    std::string const members = std::string("01 FF 01 28 ") + inner + " FF 01 29";
    EXPECT_EQ(tav_test::readMembers(factory, members, true), "@M{ [1]f:@{ \"a\":null }{ } }");
    EXPECT_EQ(tav_test::readMembers(factory, members),
              "{ \"__class__\":\"M\", \"f\":{ \"__class__\":{ \"a\":null } } }");
}

TEST(Json2NbrTree, FieldsOfOneNameAreOneMember) {
    MetaFactory const factory =
        tav_test::message({field(1, "f", k::list_, k::int32_), optional(field(2, "f", k::list_, k::string_)),
                           optional(field(3, "f", k::int32_)), optional(field(4, "__class__", k::int32_))});
    std::string const lists = "01 FF 01 28 00 01 01 01 FF 01 29 02 FF 01 28 00 F1 01 61 FF 01 29";
    EXPECT_EQ(tav_test::readMembers(factory, lists), "{ \"__class__\":\"M\", \"f\":[ 1, \"a\" ] }");
    EXPECT_EQ(tav_test::readMembers(factory, lists + " 03 01 01 05 04 01 01 07"),
              "{ \"__class__\":7, \"f\":5 }");
    EXPECT_EQ(tav_test::readMembers(factory, lists + " 04 01 01 07", true),
              "@M{ [1]f:[ 1 ], [2]f:[ \"a\" ], [4]__class__:7 }");
}

TEST(Json2NbrTree, LastOfManyEntriesOfOneKeyStands) {
    MetaFactory const factory = tav_test::message({field(1, "f", k::map_, k::int32_)});
    std::string entries;
    for (char i = 0; i < 120; ++i) {
        char const key = i % 2 == 0 ? 'b' : 'a';
        entries += std::string("\0\xFF\x01\x28\x01\xF1\x01", 7) + key + std::string("\x02\x01\x01", 3) + i +
                   std::string("\xFF\x01\x29", 3);
    }
    EXPECT_EQ(tav_test::readMembers(factory, "01 FF 01 28 " + tav_test::hex(tav_istr(entries)) + " FF 01 29"),
              "{ \"__class__\":\"M\", \"f\":{ \"a\":119, \"b\":118 } }");
}
