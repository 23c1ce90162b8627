#include "tav/vinta/vinta_json_parser.h"

#include "formats/json/json_tape.h"
#include "support/heap_meter.h"
#include "support/repeated.h"

#include <gtest/gtest.h>

#include <iterator>
#include <stdexcept>
#include <string>

using tav_test::filled;
using tav_test::HeapMeter;

// What a text that must fail may cost, and that a good one may cost more.

namespace {

constexpr std::size_t size = 16 * 1024 * 1024;

struct Hopeless {
    char const * name;
    /// Made where it is wanted alone: all of them at once are much.
    std::string (*text)();
    /// The front of its failure.
    std::string words;
};

std::ostream & operator<<(std::ostream & out, Hopeless const & v) {
    return out << v.name;
}

class JsonMemory : public testing::TestWithParam<Hopeless> {
protected:
    /// Reads the text, which fails, and gives the most that this took as a multiple of the text.
    template <class Read>
    static double costOf(Read read) {
        Hopeless const & hopeless = GetParam();
        std::string const text = hopeless.text();
        HeapMeter const meter;
        std::string words;
        try {
            read(tav_istr(text));
        } catch (std::invalid_argument const & e) {
            words.assign(e.what(), hopeless.words.size());
        }
        double const cost = static_cast<double>(meter.peak()) / static_cast<double>(text.size());
        EXPECT_EQ(words, hopeless.words);
        return cost;
    }
};

std::string const arrayEnd =
    "array value no end : \n    throw at JsonParser::parseArray(vinta_json_parser.cpp:";
std::string const objectEnd =
    "pair value no end : \n    throw at JsonParser::parseObject(vinta_json_parser.cpp:";

} // namespace

TEST_P(JsonMemory, TextThatFailsKeepsTwentyFourTimesItsSizeAtMost) {
    EXPECT_LE(costOf([](tav_istr text) { tav::json::JsonParser::from(text); }), 24);
}

TEST_P(JsonMemory, TapeOfATextThatFailsKeepsTwentyFourTimesItsSizeAtMost) {
    EXPECT_LE(costOf([](tav_istr text) { tav::detail::JsonTape tape(text); }), 24);
}

INSTANTIATE_TEST_SUITE_P(
    All, JsonMemory,
    testing::Values(
        Hopeless{"OpenArrays", [] { return std::string(size, '['); }, arrayEnd},
        Hopeless{"OpenObjects", [] { return filled("{a:", size); }, objectEnd},
        Hopeless{"ArraysThatEndInAString",
                 [] { return filled("[", size / 2, "\"" + std::string(size / 2, ']')); }, arrayEnd},
        Hopeless{"Numbers", [] { return filled("1,", size, "1").insert(0, "["); }, arrayEnd},
        Hopeless{"EmptyStrings", [] { return filled("'',", size, "''").insert(0, "["); }, arrayEnd},
        Hopeless{"EscapedStrings", [] { return filled("'\\n',", size, "''").insert(0, "["); }, arrayEnd},
        Hopeless{"Members", [] { return filled("a:1,", size, "a:1").insert(0, "{"); }, objectEnd},
        Hopeless{"EmptyArrays", [] { return filled("[],", size, "[]").insert(0, "["); }, arrayEnd},
        Hopeless{"EmptyObjects", [] { return filled("{},", size, "{}").insert(0, "["); }, arrayEnd},
        Hopeless{"NoValueEnd", [] { return filled("1,", size, "1[").insert(0, "["); }, "no value end : [\n"}),
    [](auto const & each) { return std::string(each.param.name); });

TEST(JsonMemoryGood, DenseTextsAreReadWhole) {
    constexpr unsigned count = 300000;
    std::string numbers = "[";
    std::string deep;
    for (unsigned i = 0; i < count; ++i) {
        numbers += "1,";
        deep += '[';
    }
    numbers += "1]";
    deep.append(count, ']');
    EXPECT_EQ(
        static_cast<tav::json::JsonArray const &>(*tav::json::JsonParser::from(tav_istr(numbers))).size(),
        count + 1);
    tav::detail::JsonTape const tape{tav_istr(numbers)};
    EXPECT_EQ(tape.node(0).next, count + 2);
    tav::detail::JsonTape const nested{tav_istr(deep)};
    EXPECT_EQ(nested.node(count - 1).next, count);
    tavSharedPtr<tav::json::JsonValue> value = tav::json::JsonParser::from(tav_istr(deep));
    EXPECT_EQ(std::string(value->toJson().data()).size(), 4 * count - 1);
}

TEST(JsonMemoryGood, ObjectsOfManyMembersAreReadWhole) {
    constexpr unsigned count = 50000;
    std::string text = "{";
    for (unsigned i = 0; i < count; ++i) {
        text += "'" + std::to_string(i) + "':{},";
    }
    tavSharedPtr<tav::json::JsonValue> const value = tav::json::JsonParser::from(tav_istr(text));
    auto const & object = static_cast<tav::json::JsonObject const &>(*value);
    EXPECT_EQ(static_cast<unsigned>(std::distance(object.begin(), object.end())), count);
}
