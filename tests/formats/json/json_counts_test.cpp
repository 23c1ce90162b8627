#include "tav/vinta/vinta_json_parser.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

using tav::json::JsonArray;
using tav::json::JsonParser;
using tav::json::JsonString;
using tav::json::JsonUnit;
using tav::json::JsonValue;

namespace {

using Ptr = tavSharedPtr<JsonValue>;

/// {"n0":["v0",0],"n1":["v1",1],...}
std::string manyMembers(int count) {
    std::string text = "{";
    for (int i = 0; i < count; ++i) {
        std::string const number = std::to_string(i);
        text.append("\"n").append(number).append("\":[\"v").append(number).append("\",").append(number);
        text += "],";
    }
    text.back() = '}';
    return text;
}

} // namespace

TEST(JsonCounts, EachValueOfATextHasOneReference) {
    Ptr const root = JsonParser::from(R"({"a":{"b":[1,true,"x"]},"c":"y"})");
    EXPECT_EQ(1u, root->getRefCount());
    JsonUnit const unit(root);
    EXPECT_EQ(2u, root->getRefCount());
    EXPECT_EQ(1u, unit["a"].value()->getRefCount());
    EXPECT_EQ(1u, unit["c"].value()->getRefCount());
    ASSERT_EQ(3u, unit["a"]["b"].arrayValue()->size());
    for (JsonUnit const & element : unit["a"]["b"].arrayValue()->elements()) {
        EXPECT_EQ(1u, element.value()->getRefCount());
    }
}

TEST(JsonCounts, ABareWordAndACoercedValueHaveOneReference) {
    EXPECT_EQ(1u, JsonParser::fromSimple("17")->getRefCount());
    EXPECT_EQ(1u, JsonString::from("'a'")->getRefCount());
    JsonUnit unit;
    unit["a"] << 5;
    EXPECT_EQ(1u, unit.value()->getRefCount());
    EXPECT_EQ(1u, unit["a"].value()->getRefCount());
    JsonUnit const copy(unit);
    EXPECT_EQ(2u, unit.value()->getRefCount());
}

TEST(JsonCounts, ACopyAndAValueOfTheCallerStartAtZero) {
    Ptr const root = JsonParser::from("['x']");
    JsonString const copy(*static_cast<JsonArray const &>(*root).at(0).stringValue());
    EXPECT_EQ(0u, copy.getRefCount());
    JsonString const own;
    EXPECT_EQ(0u, own.getRefCount());
}

TEST(JsonCounts, TheReferenceThatEndsTheCountMayComeAgain) {
    Ptr root = JsonParser::from("[1]");
    root->incRefCount();
    root->decRefCount();
    EXPECT_EQ(1u, root->getRefCount());
    Ptr moved(std::move(root));
    EXPECT_EQ(1u, moved->getRefCount());
}

TEST(JsonCounts, CountersMadeBetweenValuesAreTheirOwn) {
    Ptr const first = JsonParser::from("[1]");
    tavAtomicInt plain;
    EXPECT_EQ(0u, plain.get());
    EXPECT_EQ(1u, ++plain);
    EXPECT_EQ(2u, ++plain);
    Ptr const other = JsonParser::from("[2]");
    EXPECT_EQ(2u, plain.get());
    EXPECT_EQ(1u, first->getRefCount());
    EXPECT_EQ(1u, other->getRefCount());
}

TEST(JsonCounts, ALaterMemberOfANameReplacesTheOneBefore) {
    Ptr const root = JsonParser::from("{b:1,a:2,b:{c:3},a:4,c:5,b:[6]}");
    EXPECT_EQ("{ \"a\":4, \"b\":[ 6 ], \"c\":5 }", root->toJson());
}

TEST(JsonCounts, TreesWithValuesOfOtherTextsAreFreedInAnyOrder) {
    JsonUnit mixed;
    JsonUnit kept;
    {
        JsonUnit a(JsonParser::from(tav_istr(manyMembers(700))));
        JsonUnit b(JsonParser::from(tav_istr(manyMembers(700))));
        for (int i = 0; i < 700; ++i) {
            std::string const name = "n" + std::to_string(i);
            mixed.newChild() = a[tav_istr(name)];
            mixed.newChild() = b[tav_istr(name)];
        }
        kept = b["n650"];
    }
    EXPECT_EQ(1400u, mixed.arrayValue().size());
    EXPECT_EQ("[ \"v699\", 699 ]", mixed.arrayValue().at(1399).toString(false));
    EXPECT_EQ(2u, kept.value()->getRefCount());
    mixed.setNull();
    EXPECT_EQ(1u, kept.value()->getRefCount());
    EXPECT_EQ("[ \"v650\", 650 ]", kept.toString(false));
}

TEST(JsonCounts, HandlesToOneTextEndOnManyThreads) {
    constexpr int members = 400;
    std::vector<JsonUnit> units;
    {
        JsonUnit const root(JsonParser::from(tav_istr(manyMembers(members))));
        for (auto const & member : root) {
            units.push_back(member.second);
        }
    }
    ASSERT_EQ(static_cast<std::size_t>(members), units.size());
    std::vector<std::thread> threads;
    std::vector<std::size_t> sizes(4, 0);
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        threads.emplace_back([copies = units, &size = sizes[i]]() mutable {
            for (JsonUnit & unit : copies) {
                size += unit.toString(false).size();
                unit.setNull();
            }
        });
    }
    units.clear();
    for (std::thread & thread : threads) {
        thread.join();
    }
    for (std::size_t const size : sizes) {
        EXPECT_EQ(sizes[0], size);
        EXPECT_LT(0u, size);
    }
}
