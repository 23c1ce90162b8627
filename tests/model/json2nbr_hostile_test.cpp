#include "tav/vinta/vinta_json2nbr.h"

#include "support/log_capture.h"
#include "support/meta_rig.h"
#include "support/repeated.h"
#include "support/small_stack.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav_test::bytes;
using tav_test::factoryOf;
using tav_test::field;
using tav_test::metaClass;
using tav_test::onSmallStack;
using tav_test::optional;
using tav_test::repeated;
using tav_test::wrote;
using tav_test::wroteMembers;

namespace k = tav::pml::field_type;

namespace {

/// A class M with a field of every kind and every shape, some of them of M itself.
MetaFactory everything() {
    std::vector<MetaField> fields;
    short id = 1;
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        MetaField made = field(id, one.name, one.kind, k::int32_, "M");
        made.validValues = {0, 1};
        made.isProtected = id % 2 == 0;
        made.spec = "..***..";
        fields.push_back(optional(made));
        ++id;
    }
    fields.push_back(field(60, "lists", k::list_, k::list_, "M"));
    fields.push_back(field(61, "maps", k::map_, k::map_, "M"));
    fields.push_back(field(62, "objects", k::list_, k::object_, "M"));
    fields.push_back(field(63, "refs", k::map_, k::ref_, "M", k::int64_));
    return factoryOf(
        {metaClass("M", fields, "Base"), metaClass("Base", {optional(field(64, "b", k::int8_))}, "M")});
}

constexpr char sampleJson[] =
    "{\"bool\":true,\"int32\":5,\"int64\":\"77\",\"string\":\"text\",\"bytes\":\"aGk=\",\"list\":[1,2,[3]],"
    "\"map\":"
    "{\"a\":1,\"b\":null},\"object\":{\"int8\":1,\"ref\":{\"b\":2}},\"lists\":[[],[[]]],\"maps\":{\"x\":{"
    "\"y\":{}}},"
    "\"objects\":[{\"double\":1.5},{}],\"refs\":{\"5\":{\"enum\":1}},\"time\":9,\"b\":-1}";

/// Any outcome but a crash and another exception; true if nothing was raised.
bool writesOrFails(MetaFactory const & factory, std::string const & json) {
    tavBytes out(tav_istr("old"));
    unsigned short code = 0xFFFF;
    try {
        tav::json2nbr::write(tav_istr(json), out, code, factory, "M");
        return true;
    } catch (std::invalid_argument const &) {
        EXPECT_EQ(tav_test::hex(out), "6F 6C 64");
        return false;
    }
}

bool readsOrFails(MetaFactory const & factory, std::string const & nbr) {
    bool fine = true;
    for (bool const dump : {false, true}) {
        tavString json("old");
        try {
            tav::json2nbr::read(json, tav_istr(nbr), tavString("M"), factory, dump);
        } catch (std::invalid_argument const &) {
            EXPECT_EQ(json, "old");
            fine = false;
        }
    }
    return fine;
}

constexpr std::size_t levels = 1000000;

/// Writes the text on a small stack, checks the number of bytes, reads these back there, and checks the
/// length of what is read.
void passesDeep(MetaFactory const & factory, std::string const & json, std::size_t size) {
    onSmallStack([&] {
        tavBytes out;
        unsigned short code = 0xFFFF;
        tav::json2nbr::write(tav_istr(json), out, code, factory, "M");
        EXPECT_EQ(size, out.size());
        tavString text;
        tav::json2nbr::read(text, out, tavString("M"), factory, false);
        EXPECT_LT(json.size(), text.size());
        tavString log;
        tav::json2nbr::read(log, out, tavString("M"), factory, true);
        EXPECT_LT(levels, log.size());
    });
}

} // namespace

TEST(Json2NbrHostile, SampleIsWhole) {
    EXPECT_TRUE(writesOrFails(everything(), sampleJson));
    EXPECT_TRUE(readsOrFails(everything(), bytes(wrote(everything(), sampleJson).c_str())));
}

TEST(Json2NbrHostile, TextCutAnywhere) {
    MetaFactory const factory = everything();
    std::string const whole = sampleJson;
    for (std::size_t n = 0; n < whole.size(); ++n) {
        writesOrFails(factory, whole.substr(0, n));
    }
}

TEST(Json2NbrHostile, TextWithEachByteReplaced) {
    MetaFactory const factory = everything();
    std::string const whole = sampleJson;
    for (std::size_t n = 0; n < whole.size(); ++n) {
        for (char const c : {'{', '}', '[', ']', ',', ':', '"', '\\', '0', '-', '\0', '\xFF'}) {
            std::string text = whole;
            text[n] = c;
            writesOrFails(factory, text);
        }
    }
}

TEST(Json2NbrHostile, RandomTexts) {
    MetaFactory const factory = everything();
    std::vector<std::string> const words = {"{",
                                            "}",
                                            "[",
                                            "]",
                                            ":",
                                            ",",
                                            "'",
                                            "\"",
                                            "\\",
                                            "bool",
                                            "list",
                                            "map",
                                            "object",
                                            "objects",
                                            "maps",
                                            "refs",
                                            "\"5\"",
                                            "1",
                                            "-1",
                                            "1e9",
                                            "null",
                                            "true",
                                            "string",
                                            "bytes",
                                            "__class__",
                                            "__code__",
                                            "M",
                                            " ",
                                            "{list:",
                                            "{maps:{",
                                            "{refs:{'5':{",
                                            "{objects:[{"};
    std::mt19937 random(7);
    for (int i = 0; i < 5000; ++i) {
        std::string text = "{";
        for (auto n = random() % 30; n > 0; --n) {
            text += words[random() % words.size()];
        }
        writesOrFails(factory, text);
    }
}

TEST(Json2NbrHostile, BytesCutAnywhere) {
    MetaFactory const factory = everything();
    std::string const whole = bytes(wrote(factory, sampleJson).c_str());
    for (std::size_t n = 0; n < whole.size(); ++n) {
        EXPECT_TRUE(readsOrFails(factory, whole.substr(0, n))) << n;
    }
}

TEST(Json2NbrHostile, BytesWithEachByteReplaced) {
    MetaFactory const factory = everything();
    std::string const whole = bytes(wrote(factory, sampleJson).c_str());
    for (std::size_t n = 0; n < whole.size(); ++n) {
        for (int c = 0; c < 256; c += 3) {
            std::string data = whole;
            data[n] = static_cast<char>(c);
            readsOrFails(factory, data);
        }
    }
}

TEST(Json2NbrHostile, RandomBytes) {
    MetaFactory const factory = everything();
    std::vector<std::string> const words = {std::string("\xFF\x01\x28", 3), std::string("\xFF\x01\x29", 3),
                                            std::string("\x01\x01", 2), std::string("\xF1\x02", 2),
                                            std::string("\x04\xFF\xFF\xFF\xFF", 5)};
    std::mt19937 random(11);
    for (int i = 0; i < 5000; ++i) {
        std::string data = words[0];
        for (auto n = random() % 40; n > 0; --n) {
            auto const pick = random() % 12;
            data += pick < words.size() ? words[pick] : std::string(1, static_cast<char>(random() % 70));
        }
        readsOrFails(factory, data);
    }
}

TEST(Json2NbrHostile, DeepLists) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::list_, k::list_)})});
    passesDeep(factory, "{f:" + repeated("[", levels) + repeated("]", levels) + "}", levels * 7 + 6);
}

TEST(Json2NbrHostile, DeepMaps) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::map_, k::map_)})});
    std::size_t const n = levels / 2;
    passesDeep(factory, "{f:" + repeated("{k:", n) + "{}" + repeated("}", n) + "}", n * 18 + 6 + 7);
}

TEST(Json2NbrHostile, DeepObjectsOfTheirOwnClass) {
    MetaFactory const factory =
        factoryOf({metaClass("M", {optional(field(1, "f", k::ref_, k::unknown_, "M"))}, "Base")});
    std::size_t const n = levels / 2;
    passesDeep(factory, repeated("{f:", n) + "{}" + repeated("}", n), n * 7 + 6);
}

TEST(Json2NbrHostile, DeepTextThatNoFieldTakes) {
    MetaFactory const factory = factoryOf({metaClass("M", {optional(field(1, "f", k::int32_))})});
    onSmallStack([&] {
        std::size_t const n = levels / 2;
        std::string const objects = repeated("{x:", n) + "{}" + repeated("}", n);
        EXPECT_EQ(wrote(factory, objects), "FF 01 28 FF 01 29");
        std::string const arrays = "{f:" + repeated("[", n) + "x" + repeated("]", n) + "}";
        EXPECT_EQ(wrote(factory, arrays),
                  "field f in class M should not be json string type, expected type unknown");
    });
}

TEST(Json2NbrHostile, DeepTextThatIsNotClosed) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::list_, k::list_)})});
    onSmallStack([&] {
        EXPECT_EQ(wrote(factory, "{f:" + repeated("[", levels)), "array value no end : ");
        EXPECT_EQ(wrote(factory, repeated("{f:", levels / 2) + "1"), "pair value no end : ");
    });
}

TEST(Json2NbrHostile, DeepBytesThatNoFieldTakes) {
    MetaFactory const factory = factoryOf({metaClass("M", {optional(field(1, "f", k::int32_))})});
    onSmallStack([&] {
        std::string const opens = repeated(std::string("\xFF\x01\x28\x01", 4), levels);
        EXPECT_TRUE(readsOrFails(factory, opens));
        std::string const unknown = repeated(std::string("\xFF\x01\x28\x02", 4), levels);
        EXPECT_TRUE(readsOrFails(factory, unknown));
    });
}

TEST(Json2NbrHostile, ClassThatIsItsOwnBase) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::int32_)}, "M")});
    EXPECT_EQ(wroteMembers(factory, "{f:5,g:1}"), "01 01 01 05");
    EXPECT_EQ(wrote(factory, "{g:1}"), "missing necessary field name(s) { f } in class M");
    EXPECT_EQ(tav_test::readMembers(factory, "09 01 01 05"),
              "missing necessary field id(s) { 1 } in class M");
}

TEST(Json2NbrHostile, BasesThatGoRoundInACircle) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "m", k::int32_)}, "A"),
                                           metaClass("A", {field(2, "a", k::int32_)}, "B"),
                                           metaClass("B", {field(3, "b", k::int32_)}, "A")});
    EXPECT_EQ(wroteMembers(factory, "{m:1,a:2,b:3,x:4}"), "02 01 01 02 03 01 01 03 01 01 01 01");
    EXPECT_EQ(wrote(factory, "{x:1}"), "missing necessary field name(s) { b a m } in class M");
    EXPECT_EQ(tav_test::readMembers(factory, "09 01 01 05"),
              "missing necessary field id(s) { 3 2 1 } in class M");
}

TEST(Json2NbrHostile, LongLineOfBases) {
    std::vector<MetaClass> classes;
    unsigned const n = 20000;
    for (unsigned i = 0; i < n; ++i) {
        classes.push_back(metaClass(("C" + std::to_string(i)).c_str(), {optional(field(1, "f", k::int32_))},
                                    ("C" + std::to_string(i + 1)).c_str()));
    }
    classes.push_back(metaClass(("C" + std::to_string(n)).c_str(), {field(7, "last", k::int32_)}));
    MetaFactory const factory = factoryOf(std::move(classes));
    onSmallStack([&] {
        EXPECT_EQ(wroteMembers(factory, "{last:5}", "C0"), "07 01 01 05");
        EXPECT_EQ(wrote(factory, "{}", "C0"), "missing necessary field name(s) { last } in class C0");
    });
}

TEST(Json2NbrHostile, WideMessages) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::list_, k::int32_)})});
    std::size_t const n = 200000;
    std::string const json = "{f:[" + repeated("1,", n) + "]}";
    tavBytes out;
    unsigned short code = 0xFFFF;
    tav::json2nbr::write(tav_istr(json), out, code, factory, "M");
    EXPECT_EQ(n * 4 + 6 + 7, out.size());
    tavString text;
    tav::json2nbr::read(text, out, tavString("M"), factory, false);
    EXPECT_EQ(n * 3 + std::string("{ \"__class__\":\"M\", \"f\":[ ] }").size() - 1, text.size());
}

TEST(Json2NbrHostile, ManyUnknownMembersTakeLittleTime) {
    MetaFactory const factory = factoryOf({metaClass("M", {optional(field(1, "f", k::int32_))}, "Base")});
    std::string json = "{";
    for (unsigned i = 0; i < 50000; ++i) {
        json += "m" + std::to_string(i) + ":1,";
    }
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(wrote(factory, json), "FF 01 28 FF 01 29");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}
