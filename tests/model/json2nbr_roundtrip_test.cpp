#include "tav/vinta/vinta_json2nbr.h"

#include "support/meta_rig.h"
#include "tav/vinta/vinta_json_parser.h"
#include "tav/vinta/vinta_nbr_unit.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

using tav::nbr::ComplexValue;
using tav::nbr::NbrInputStream;
using tav::nbr::ValueBase;
using tav::pml::MetaFactory;
using tav_test::bytes;
using tav_test::hex;

namespace {

enum Color { red = 0, green = 1, blue = 5 };

class Part : public tavObject {
public:
    int x = 0;
    tavString label;

    tav_istr className() const override { return "im.Part"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Part; }
    void assignFrom(tavObject const & other) override {
        if (auto const * const from = dynamic_cast<Part const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "x", x);
        ioField(s, 2, "label", label);
    }
};

/// One field of each kind that a class and a template can both have.
class All : public tavObject {
public:
    bool flag = false;
    char tiny = 0;
    short small = 0;
    int plain = 0;
    long long large = 0;
    unsigned char utiny = 0;
    unsigned short usmall = 0;
    unsigned int uplain = 0;
    unsigned long long ularge = 0;
    float single = 0;
    double twice = 0;
    tavString text;
    tavBytes raw;
    tavTime when;
    tavEnum<Color> color = red;
    std::vector<int> numbers;
    std::vector<tavString> words;
    std::map<tavString, int> counts;
    std::map<tavString, Part> named;
    std::vector<Part> parts;
    Part part;

    tav_istr className() const override { return "im.All"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new All; }
    void assignFrom(tavObject const & other) override {
        if (auto const * const from = dynamic_cast<All const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "flag", flag);
        ioField(s, 2, "tiny", tiny);
        ioField(s, 3, "small", small);
        ioField(s, 4, "plain", plain);
        ioField(s, 5, "large", large);
        ioField(s, 6, "utiny", utiny);
        ioField(s, 7, "usmall", usmall);
        ioField(s, 8, "uplain", uplain);
        ioField(s, 9, "ularge", ularge);
        ioField(s, 10, "single", single);
        ioField(s, 11, "twice", twice);
        ioField(s, 12, "text", text);
        ioField(s, 13, "raw", raw);
        ioField(s, 14, "when", when);
        ioField(s, 15, "color", color);
        ioField(s, 16, "numbers", numbers);
        ioField(s, 17, "words", words);
        ioField(s, 18, "counts", counts);
        ioField(s, 19, "named", named);
        ioField(s, 20, "parts", parts);
        ioField(s, 21, "part", part);
    }
};

constexpr char allTemplate[] = "All:object(\n"
                               "    __class__(im.All)\n"
                               "    __code__(0A11)\n"
                               "    [1]flag:bool()\n"
                               "    [2]tiny:int8()\n"
                               "    [3]small:int16()\n"
                               "    [4]plain:int32()\n"
                               "    [5]large:int64()\n"
                               "    [6]utiny:uint8()\n"
                               "    [7]usmall:uint16()\n"
                               "    [8]uplain:uint32()\n"
                               "    [9]ularge:uint64()\n"
                               "    [10]single:float()\n"
                               "    [11]twice:double()\n"
                               "    [12]text:string()\n"
                               "    [13]raw:bytes()\n"
                               "    [14]when:time()\n"
                               "    [15]color:enum{Color}(red(0) green(1) blue(5))\n"
                               "    [16]numbers:list{int32}()\n"
                               "    [17]words:list{string}()\n"
                               "    [18]counts:map{string,int32}()\n"
                               "    [19]named:map{string,im.Part}()\n"
                               "    [20]parts:list{im.Part}()\n"
                               "    [21]part:im.Part()\n"
                               ")\n"
                               "Part:object(\n"
                               "    __class__(im.Part)\n"
                               "    [1]x:int32()\n"
                               "    [2]label:string()\n"
                               ")\n";

constexpr char allJson[] =
    "{\"flag\":true,\"tiny\":-5,\"small\":-300,\"plain\":70000,\"large\":\"1099511627776\",\"utiny\":200,"
    "\"usmall\":65535,\"uplain\":4294967295,\"ularge\":\"18446744073709551615\",\"single\":0.5,\"twice\":-2."
    "25,"
    "\"text\":\"h\xC3\xA4llo\",\"raw\":\"AAEC/"
    "w==\",\"when\":1600000000000,\"color\":5,\"numbers\":[1,-1,300],"
    "\"words\":[\"a\",\"\"],\"counts\":{\"one\":1,\"two\":2},\"named\":{\"p\":{\"x\":7,\"label\":\"seven\"}},"
    "\"parts\":[{\"x\":1,\"label\":\"u\"},{\"label\":\"v\",\"x\":2}],\"part\":{\"x\":9,\"label\":\"nine\"}}";

constexpr char allText[] =
    "{ \"__class__\":\"im.All\", \"color\":5, \"counts\":{ \"one\":1, \"two\":2 }, \"flag\":true, "
    "\"large\":\"1099511627776\", \"named\":{ \"p\":{ \"label\":\"seven\", \"x\":7 } }, \"numbers\":[ 1, -1, "
    "300 ], "
    "\"part\":{ \"label\":\"nine\", \"x\":9 }, \"parts\":[ { \"label\":\"u\", \"x\":1 }, { \"label\":\"v\", "
    "\"x\":2 } "
    "], \"plain\":70000, \"raw\":\"AAEC\\/w==\", \"single\":0.5, \"small\":-300, \"text\":\"h\xC3\xA4llo\", "
    "\"tiny\":-5, \"twice\":-2.25, \"ularge\":\"18446744073709551615\", \"uplain\":4294967295, "
    "\"usmall\":65535, "
    "\"utiny\":200, \"when\":\"1600000000000\", \"words\":[ \"a\", \"\" ] }";

All sample() {
    Part seven;
    seven.x = 7;
    seven.label = "seven";
    Part u;
    u.x = 1;
    u.label = "u";
    Part v;
    v.x = 2;
    v.label = "v";
    All all;
    all.flag = true;
    all.tiny = -5;
    all.small = -300;
    all.plain = 70000;
    all.large = 1099511627776;
    all.utiny = 200;
    all.usmall = 65535;
    all.uplain = 4294967295u;
    all.ularge = 18446744073709551615ull;
    all.single = 0.5f;
    all.twice = -2.25;
    all.text = "h\xC3\xA4llo";
    all.raw = tav_istr("\x00\x01\x02\xFF", 4u);
    all.when = tavTime::milliseconds(1600000000000);
    all.color = blue;
    all.numbers = {1, -1, 300};
    all.words = {tavString("a"), tavString()};
    all.counts[tavString("one")] = 1;
    all.counts[tavString("two")] = 2;
    all.named[tavString("p")] = seven;
    all.parts = {u, v};
    all.part.x = 9;
    all.part.label = "nine";
    return all;
}

/// The tree of a value as a text in which the members of an object come in the order of their tags.
std::string treeOf(tavSharedPtr<ValueBase> const & value) {
    if (!value) {
        return "null";
    }
    if (value->simple()) {
        tav_istr const data = static_cast<tav::nbr::SimpleValue const &>(*value).data();
        return "<" + hex(data) + ">";
    }
    std::vector<ComplexValue::Item> items = static_cast<ComplexValue const &>(*value).data();
    std::stable_sort(
        items.begin(), items.end(),
        [](ComplexValue::Item const & a, ComplexValue::Item const & b) { return a.first < b.first; });
    std::string text = "{";
    for (ComplexValue::Item const & item : items) {
        text += " " + std::to_string(item.first) + treeOf(item.second);
    }
    return text + " }";
}

std::string treeOf(tavBytes const & document) {
    NbrInputStream in{tav_istr(document)};
    return in.empty() ? "nothing" : treeOf(*in.begin());
}

tavBytes transcoded(MetaFactory const & factory, std::string const & json,
                    char const * className = "im.All") {
    tavBytes out;
    unsigned short code = 0xFFFF;
    tav::json2nbr::write(tav_istr(json), out, code, factory, className);
    return out;
}

std::string textOf(MetaFactory const & factory, tav_istr nbr, char const * className = "im.All") {
    tavString json;
    tav::json2nbr::read(json, nbr, tavString(className), factory, false);
    return std::string(json.data(), json.size());
}

constexpr char looseTemplate[] = "Node:object(\n"
                                 "    __class__(Node)\n"
                                 "    [1]id:int32?()\n"
                                 "    [2]big:int64?()\n"
                                 "    [3]text:string?()\n"
                                 "    [4]raw:bytes?()\n"
                                 "    [5]flag:bool?()\n"
                                 "    [6]list:list{uint16}()\n"
                                 "    [7]kids:list{Node}()\n"
                                 "    [8]map:map{string,string}()\n"
                                 "    [9]deep:map{string,Node}()\n"
                                 "    [10]next:Node?()\n"
                                 ")\n";

/// A random object of the class of looseTemplate.
class Generator {
public:
    explicit Generator(unsigned seed) : random_(seed) {}

    std::string object(int depth) {
        std::string text = "{";
        maybe(text, "id", [&] { return std::to_string(static_cast<int>(random_())); });
        maybe(text, "big", [&] { return "\"" + std::to_string(random_() * 77777ull) + "\""; });
        maybe(text, "text", [&] { return word(); });
        maybe(text, "raw", [&] { return std::string("\"QUJD\""); });
        maybe(text, "flag", [&] { return std::string(random_() % 2 != 0 ? "true" : "false"); });
        maybe(text, "list", [&] { return "[" + std::to_string(random_() % 65536) + ",5]"; });
        maybe(text, "map", [&] { return "{" + word() + ":" + word() + "," + word() + ":null}"; });
        if (depth > 0) {
            maybe(text, "kids", [&] { return "[" + object(depth - 1) + "," + object(depth - 1) + "]"; });
            maybe(text, "deep", [&] { return "{" + word() + ":" + object(depth - 1) + "}"; });
            maybe(text, "next", [&] { return object(depth - 1); });
        }
        return text + "}";
    }

private:
    template <class Value>
    void maybe(std::string & text, char const * name, Value && value) {
        if (random_() % 2 != 0) {
            text += (text.size() > 1 ? "," : "") + std::string("\"") + name + "\":" + value();
        }
    }

    std::string word() {
        std::string text = "\"w";
        for (auto n = random_() % 20; n > 0; --n) {
            text += static_cast<char>('a' + random_() % 26);
        }
        return text + "\"";
    }

    std::mt19937 random_;
};

} // namespace

TEST(Json2NbrRoundTrip, TranscoderWritesTheTreeThatTheClassWrites) {
    MetaFactory const factory = tav_test::fromTemplate(allTemplate);
    EXPECT_EQ(treeOf(sample().encode(false)), treeOf(transcoded(factory, allJson)));
}

TEST(Json2NbrRoundTrip, ClassReadsWhatTheTranscoderWrites) {
    MetaFactory const factory = tav_test::fromTemplate(allTemplate);
    All got;
    got.decode(transcoded(factory, allJson));
    EXPECT_EQ(hex(sample().encode(false)), hex(got.encode(false)));
    EXPECT_EQ(got.tiny, -5);
    EXPECT_EQ(got.ularge, 18446744073709551615ull);
    EXPECT_EQ(blue, got.color);
    ASSERT_EQ(got.parts.size(), 2u);
    EXPECT_EQ(got.parts[1].label, "v");
}

TEST(Json2NbrRoundTrip, TranscoderReadsWhatTheClassWrites) {
    MetaFactory const factory = tav_test::fromTemplate(allTemplate);
    EXPECT_EQ(allText, textOf(factory, sample().encode(false)));
    EXPECT_EQ(allText, textOf(factory, transcoded(factory, allJson)));
}

TEST(Json2NbrRoundTrip, TextOfTheClassItselfIsTaken) {
    // The class's own JSON but for its time, which the class writes as a text.
    MetaFactory const factory = tav_test::fromTemplate(allTemplate);
    All all = sample();
    tavJsonOutStream out;
    all.io(out);
    tav::json::JsonUnit unit;
    unit.decode(out.str(false, false));
    tavString const when = unit["when"].asString();
    unit["when"].setNull();
    unit["when"].numberValue().setValue(when);
    tavString const text = unit.toString(false);
    EXPECT_EQ(treeOf(all.encode(false)), treeOf(transcoded(factory, std::string(text.data(), text.size()))));
}

TEST(Json2NbrRoundTrip, RandomMessagesComeBackWhole) {
    MetaFactory const factory = tav_test::fromTemplate(looseTemplate);
    Generator generate(20240);
    for (int i = 0; i < 300; ++i) {
        std::string const json = generate.object(3);
        SCOPED_TRACE(json);
        tavBytes const first = transcoded(factory, json, "Node");
        std::string const text = textOf(factory, first, "Node");
        tav::json::JsonUnit given;
        given.decode(tav_istr(json));
        given["__class__"] << "Node";
        tavString const expected = given.toString(false);
        ASSERT_EQ(std::string(expected.data(), expected.size()), text);
        ASSERT_EQ(hex(first), hex(transcoded(factory, text, "")));
    }
}

TEST(Json2NbrRoundTrip, TimeAndNegativeLargeIntegersReadAsTextsThatWriteRefuses) {
    MetaFactory const factory =
        tav_test::message({tav_test::optional(tav_test::field(1, "when", tav::pml::field_type::time_)),
                           tav_test::optional(tav_test::field(2, "large", tav::pml::field_type::int64_))});
    std::string const text = textOf(factory, transcoded(factory, "{when:5}", "M"), "M");
    EXPECT_EQ(text, "{ \"__class__\":\"M\", \"when\":\"5\" }");
    EXPECT_EQ(tav_test::wrote(factory, text),
              "field when in class M should not be json string type, expected type time");
    std::string const negative = textOf(factory, transcoded(factory, "{large:-5}", "M"), "M");
    EXPECT_EQ(negative, "{ \"__class__\":\"M\", \"large\":\"-5\" }");
    EXPECT_EQ(tav_test::wrote(factory, negative),
              "field large in class M not all digits for large integer -5");
}

TEST(Json2NbrRoundTrip, ManyThreadsShareAFactory) {
    MetaFactory const factory = tav_test::fromTemplate(allTemplate);
    std::vector<std::string> results(4);
    std::vector<std::thread> threads;
    for (std::string & result : results) {
        threads.emplace_back([&factory, &result] {
            for (int i = 0; i < 50; ++i) {
                result = textOf(factory, transcoded(factory, allJson));
            }
        });
    }
    for (std::thread & one : threads) {
        one.join();
    }
    for (std::string const & result : results) {
        EXPECT_EQ(allText, result);
    }
}
