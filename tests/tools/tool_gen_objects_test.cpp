#include "support/tool.h"
#include "tools/gen/world.h"
#include "tools/templates.h"

#include <tav/kit/check.h>
#include <tav/vinta/vinta_json2nbr.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav::tool::Kind;

namespace kinds = tav::pml::field_type;

std::string textOf(tav_istr text) {
    return std::string(tav::tool::viewOf(text));
}

tav::tool::Template const & world() {
    static tav::tool::Template const all =
        tav::tool::loadTemplate(TAV_SOURCE_DIR "/tests/tools/gen/world.pml");
    return all;
}

typedef std::unique_ptr<tavObject> (*Make)();

template <class T>
std::unique_ptr<tavObject> make() {
    return std::make_unique<T>();
}

/// The generated class of each name.
std::map<std::string, Make> const & classes() {
    static std::map<std::string, Make> const all = {{"gen.Root", make<gen::Root>},
                                                    {"gen.Everything", make<gen::Everything>},
                                                    {"gen.Containers", make<gen::Containers>},
                                                    {"gen.Optional", make<gen::Optional>},
                                                    {"gen.Derived", make<gen::Derived>},
                                                    {"gen.Middle", make<gen::Middle>},
                                                    {"gen.Silent", make<gen::Silent>},
                                                    {"gen.Tree", make<gen::Tree>},
                                                    {"gen.Leaf", make<gen::Leaf>},
                                                    {"gen.place.Place", make<gen::place::Place>},
                                                    {"gen.Empty", make<gen::Empty>},
                                                    {"gen.LongNames", make<gen::LongNames>}};
    return all;
}

/// Objects of a template's classes as JSON, by chance.
class RandomJson {
public:
    RandomJson(MetaFactory const & factory, unsigned seed) : factory_(factory), chance_(seed) {}

    std::string object(MetaClass const & cls, int depth) {
        std::vector<std::string> members;
        for (MetaClass const * const one : tav::tool::chainOf(cls, factory_)) {
            for (MetaField const & field : one->fields) {
                bool const absent = field.classType.optional && (depth > 1 || below(2) == 0);
                if (!absent) {
                    members.push_back("\"" + textOf(field.idName.name) + "\":" + value(cls, field, depth));
                }
            }
        }
        std::shuffle(members.begin(), members.end(), chance_);
        return joined(members, '{', '}');
    }

    unsigned below(unsigned n) { return static_cast<unsigned>(chance_() % n); }

private:
    static std::string joined(std::vector<std::string> const & parts, char open, char close) {
        std::string text(1, open);
        for (std::string const & part : parts) {
            text += (text.size() == 1 ? "" : ",") + part;
        }
        return text + close;
    }

    std::string value(MetaClass const & cls, MetaField const & field, int depth) {
        Kind const kind = field.classType.type;
        if (kind != kinds::list_ && kind != kinds::map_) {
            return single(cls, field, kind, depth);
        }
        std::vector<std::string> parts;
        std::set<std::string> keys;
        Kind const element = field.classType.elementType;
        for (unsigned n = depth > 1 ? 0 : below(4); n != 0; --n) {
            std::string const part = single(cls, field, element, depth);
            if (kind == kinds::list_) {
                parts.push_back(part);
            } else if (std::string const key = keyOf(field.classType.keyType); keys.insert(key).second) {
                parts.push_back(key + ":" + part);
            }
        }
        return kind == kinds::list_ ? joined(parts, '[', ']') : joined(parts, '{', '}');
    }

    /// Numbers of one length: a class has its entries by number, a template by text.
    std::string keyOf(Kind kind) {
        return kind == kinds::int64_ || kind == kinds::uint64_
                   ? "\"" + std::to_string(1000 + below(9000)) + "\""
                   : text(1);
    }

    std::string single(MetaClass const & cls, MetaField const & field, Kind kind, int depth) {
        switch (kind) {
        case kinds::bool_: return below(2) == 0 ? "false" : "true";
        case kinds::int64_:
        case kinds::time_: return std::to_string(static_cast<long long>(chance_()) >> below(64));
        case kinds::uint64_: return "\"" + std::to_string(chance_() >> below(64)) + "\"";
        case kinds::float_: return std::to_string(static_cast<int>(below(100000)) - 50000) + ".125";
        case kinds::double_: return fraction();
        case kinds::string_:
        case kinds::wstring_:
        case kinds::u8string_: return text(0);
        case kinds::bytes_: return block();
        case kinds::enum_: {
            auto at = field.validValues.begin();
            std::advance(at, below(static_cast<unsigned>(field.validValues.size())));
            return std::to_string(*at);
        }
        case kinds::object_:
        case kinds::ref_:
            return object(*tav::tool::findClass(field.classType.name, &cls, factory_), depth + 1);
        default: return integer(field, kind);
        }
    }

    /// One of up to 32 bits, from the ends of its type too.
    std::string integer(MetaField const & field, Kind kind) {
        bool const isSigned = kind <= kinds::int32_;
        unsigned const bits = 8u << (isSigned ? kind - kinds::int8_ : kind - kinds::uint8_);
        long long const low = isSigned ? -(1LL << (bits - 1)) : 0;
        long long const high = (1LL << (isSigned ? bits - 1 : bits)) - 1;
        for (;;) {
            unsigned const form = below(4);
            long long const number =
                form == 0   ? low
                : form == 1 ? high
                : form == 2 ? static_cast<long long>(below(256))
                            : low + static_cast<long long>(chance_() %
                                                           (static_cast<unsigned long long>(high - low) + 1));
            if (number >= low && number <= high && field.range.check(number)) {
                return std::to_string(number);
            }
        }
    }

    std::string fraction() {
        double const value = std::ldexp(static_cast<double>(static_cast<long long>(chance_())),
                                        static_cast<int>(below(200)) - 150);
        std::array<char, 40> digits{};
        std::snprintf(digits.data(), digits.size(), "%.17g", value);
        return digits.data();
    }

    std::string text(unsigned least) {
        static char const * const pieces[] = {
            "a",   "Z", "0",  " ",  "\\\"", "\\\\", "\xC3\xA9", "\xE2\x82\xAC",
            "\\/", ":", "()", "{}", "null", "_",    "^",        "'"};
        std::string result = "\"";
        for (unsigned n = least + below(6); n != 0; --n) {
            result += pieces[below(16)];
        }
        return result + "\"";
    }

    std::string block() {
        tavBytes bytes;
        for (unsigned n = below(9); n != 0; --n) {
            bytes.writeByte(static_cast<unsigned char>(below(256)));
        }
        tavString text;
        bytes.toBase64(text);
        return "\"" + textOf(text) + "\"";
    }

    MetaFactory const & factory_;
    std::mt19937_64 chance_;
};

unsigned objectsToTry() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 5000;
#else
    return 100000;
#endif
}

TEST(ToolGenObjects, HundredThousandAreTheSameBytesByClassAndByTemplate) {
    MetaFactory const & factory = *world().factory;
    RandomJson random(factory, 20011);
    std::vector<std::string> names;
    for (auto const & entry : classes()) {
        names.push_back(entry.first);
    }
    std::size_t bytesInAll = 0;
    for (unsigned i = 0; i < objectsToTry(); ++i) {
        std::string const & name = names[i % names.size()];
        MetaClass const & meta = *factory.findClass(tav_istr(name));
        std::string const json = random.object(meta, 0);
        tavBytes byTemplate;
        unsigned short code = 0xFFFF;
        tav::json2nbr::write(tav_istr(json), byTemplate, code, factory, tav_istr(name));
        std::unique_ptr<tavObject> const object = classes().at(name)();
        object->decode(byTemplate);
        tavBytes const byClass = object->encode(true);
        ASSERT_EQ(tav::tool::viewOf(byClass), tav::tool::viewOf(byTemplate)) << name << " " << json;
        auto const * const message = dynamic_cast<tavMessage const *>(object.get());
        ASSERT_EQ(meta.code.empty() ? 0 : message->msgcode(), code) << name;

        // And back, into another object and into the same JSON.
        std::unique_ptr<tavObject> const again(object->newInstance());
        again->decode(byClass);
        ASSERT_EQ(tav::tool::viewOf(again->encode(true)), tav::tool::viewOf(byTemplate)) << json;
        bytesInAll += byClass.size();
    }
    EXPECT_GT(bytesInAll, objectsToTry() * 20u);
}

TEST(ToolGenObjects, ValuesOfTheClassAreReadByNameThroughTheTemplate) {
    gen::Derived derived;
    derived.id = "one";
    derived.at = tavTime::milliseconds(1700000000000LL);
    derived.between.emplace_back();
    derived.between.back().room = "hall";
    derived.between.back().seats = -3;
    derived.extra = "more";
    derived.a_first = -7;
    tavString json;
    tav::json2nbr::read(json, derived.encode(true), "gen.Derived", *world().factory, false);
    EXPECT_EQ(textOf(json), "{ \"__class__\":\"gen.Derived\", \"a_first\":\"-7\", \"at\":\"1700000000000\", "
                            "\"between\":[ { \"room\":\"hall\", \"seats\":-3 } ], "
                            "\"extra\":\"more\", \"id\":\"one\" }");
}

/// The fields that a class lists of itself.
class Listed : public tavNullStream {
public:
    void on_each_field_meta(int id, tav_istr name, std::set<int> const & values,
                            tavCodecMeta const & meta) override {
        fields.emplace_back(id, name, values, meta);
    }
    std::vector<tavFieldMeta> fields;
};

TEST(ToolGenObjects, FieldsAreThoseOfTheTemplateWithAllThatItSays) {
    MetaFactory const & factory = *world().factory;
    for (auto const & entry : classes()) {
        MetaClass const & meta = *factory.findClass(tav_istr(entry.first));
        std::unique_ptr<tavObject> const object = entry.second();
        EXPECT_EQ(textOf(object->className()), entry.first);
        Listed listed;
        object->io(listed);
        std::size_t count = 0;
        for (MetaClass const * const one : tav::tool::chainOf(meta, factory)) {
            count += one->fields.size();
        }
        EXPECT_EQ(listed.fields.size(), count) << entry.first;
        for (tavFieldMeta const & field : listed.fields) {
            MetaField const * const declared = tav::tool::findField(field.name, meta, factory);
            ASSERT_NE(declared, nullptr) << entry.first << " " << field.name;
            EXPECT_EQ(field.id, declared->idName.id) << field.name;
            EXPECT_EQ(field.meta.type, declared->classType.type.value()) << field.name;
            EXPECT_EQ(field.meta.optional, declared->classType.optional) << field.name;
            EXPECT_EQ(field.meta.isProtected, declared->isProtected) << field.name;
            if (declared->classType.type == kinds::enum_) {
                EXPECT_EQ(field.values, declared->validValues) << field.name;
            }
            for (long long const number : {-10, -1, 0, 9, 150, 151, 250, 251}) {
                EXPECT_EQ(declared->isProtected || field.meta.checkRange(number),
                          declared->isProtected || declared->range.check(number))
                    << field.name << " " << number;
            }
        }
    }
}

TEST(ToolGenObjects, NewOnesHaveTheDefaultsOfTheTemplate) {
    gen::Everything const made;
    EXPECT_EQ(made.i32, 18);
    EXPECT_EQ(made.i64, -5);
    EXPECT_EQ(made.u8, 200);
    EXPECT_EQ(made.u32, 4000000000u);
    EXPECT_EQ(made.u64, 18446744073709551615ull);
    EXPECT_EQ(made.single, 1.5f);
    EXPECT_EQ(made.fraction, -0.25);
    EXPECT_EQ(made.text, "said so");
    EXPECT_EQ(made.mood.value(), -1);
    EXPECT_TRUE(made.alignas_);
    EXPECT_FALSE(gen::Optional().number.has_value());
    EXPECT_EQ(textOf(made.mood.name()), "bad");
    EXPECT_EQ(tavEnum<gen::Colour>::values(), (std::set<int>{1, 2}));
}

TEST(ToolGenObjects, EmptyTextIsReadAsEmptyWhereTheDefaultIsNot) {
    gen::Everything sent;
    sent.text = "";
    gen::Everything read;
    read.decode(sent.encode(true));
    EXPECT_EQ(read.text, "");
}

TEST(ToolGenObjects, KitFindsNothingWrongWithThem) {
    EXPECT_EQ(tav::kit::check<gen::Everything>(), "");
    EXPECT_EQ(tav::kit::check<gen::Containers>(), "");
    EXPECT_EQ(tav::kit::check<gen::Optional>(), "");
    EXPECT_EQ(tav::kit::check<gen::Derived>(), "");
    EXPECT_EQ(tav::kit::check<gen::Tree>(), "");
    EXPECT_EQ(tav::kit::check<gen::Leaf>(), "");
}

TEST(ToolGenObjects, DataThatHoldsItselfTooDeeplyIsRefused) {
    gen::Tree tree;
    gen::Tree * at = &tree;
    for (int i = 1; i < 64; ++i) {
        at->children.emplace_back();
        at = &at->children.back();
    }
    tavBytes const deepest = tree.encode(true);
    gen::Tree read;
    read.decode(deepest);
    EXPECT_EQ(tav::tool::viewOf(read.encode(true)), tav::tool::viewOf(deepest));
    at->children.emplace_back();
    EXPECT_THROW(tree.encode(true), std::invalid_argument);
}

} // namespace
