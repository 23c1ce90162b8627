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
    EXPECT_EQ(root->getRefCount(), 1u);
    JsonUnit const unit(root);
    EXPECT_EQ(root->getRefCount(), 2u);
    EXPECT_EQ(unit["a"].value()->getRefCount(), 1u);
    EXPECT_EQ(unit["c"].value()->getRefCount(), 1u);
    ASSERT_EQ(unit["a"]["b"].arrayValue()->size(), 3u);
    for (JsonUnit const & element : unit["a"]["b"].arrayValue()->elements()) {
        EXPECT_EQ(element.value()->getRefCount(), 1u);
    }
}

TEST(JsonCounts, ABareWordAndACoercedValueHaveOneReference) {
    EXPECT_EQ(JsonParser::fromSimple("17")->getRefCount(), 1u);
    EXPECT_EQ(JsonString::from("'a'")->getRefCount(), 1u);
    JsonUnit unit;
    unit["a"] << 5;
    EXPECT_EQ(unit.value()->getRefCount(), 1u);
    EXPECT_EQ(unit["a"].value()->getRefCount(), 1u);
    JsonUnit const copy(unit);
    EXPECT_EQ(unit.value()->getRefCount(), 2u);
}

TEST(JsonCounts, ACopyAndAValueOfTheCallerStartAtZero) {
    Ptr const root = JsonParser::from("['x']");
    JsonString const copy(*static_cast<JsonArray const &>(*root).at(0).stringValue());
    EXPECT_EQ(copy.getRefCount(), 0u);
    JsonString const own;
    EXPECT_EQ(own.getRefCount(), 0u);
}

TEST(JsonCounts, TheReferenceThatEndsTheCountMayComeAgain) {
    Ptr root = JsonParser::from("[1]");
    root->incRefCount();
    root->decRefCount();
    EXPECT_EQ(root->getRefCount(), 1u);
    Ptr moved(std::move(root));
    EXPECT_EQ(moved->getRefCount(), 1u);
}

TEST(JsonCounts, CountersMadeBetweenValuesAreTheirOwn) {
    Ptr const first = JsonParser::from("[1]");
    tavAtomicInt plain;
    EXPECT_EQ(plain.get(), 0u);
    EXPECT_EQ(++plain, 1u);
    EXPECT_EQ(++plain, 2u);
    Ptr const other = JsonParser::from("[2]");
    EXPECT_EQ(plain.get(), 2u);
    EXPECT_EQ(first->getRefCount(), 1u);
    EXPECT_EQ(other->getRefCount(), 1u);
}

TEST(JsonCounts, ALaterMemberOfANameReplacesTheOneBefore) {
    Ptr const root = JsonParser::from("{b:1,a:2,b:{c:3},a:4,c:5,b:[6]}");
    EXPECT_EQ(root->toJson(), "{ \"a\":4, \"b\":[ 6 ], \"c\":5 }");
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
    EXPECT_EQ(mixed.arrayValue().size(), 1400u);
    EXPECT_EQ(mixed.arrayValue().at(1399).toString(false), "[ \"v699\", 699 ]");
    EXPECT_EQ(kept.value()->getRefCount(), 2u);
    mixed.setNull();
    EXPECT_EQ(kept.value()->getRefCount(), 1u);
    EXPECT_EQ(kept.toString(false), "[ \"v650\", 650 ]");
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
    ASSERT_EQ(units.size(), static_cast<std::size_t>(members));
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

TEST(JsonCounts, AValueThatWasNeverGivenOnTakesPartInAnExchangeOfCounts) {
    Ptr const root = JsonParser::from("[1]");
    JsonString other;
    root->swap(other);
    EXPECT_EQ(root->getRefCount(), 0u);
    EXPECT_EQ(other.getRefCount(), 1u);
    root->swap(other);
    EXPECT_EQ(root->getRefCount(), 1u);
    Ptr const copy(root);
    EXPECT_EQ(root->getRefCount(), 2u);
}

TEST(JsonCounts, ManyThreadsMayGiveOnAValueThatHadOneReference) {
    for (int round = 0; round < 100; ++round) {
        Ptr root = JsonParser::from("[[1],{a:2}]");
        JsonArray const & array = static_cast<JsonArray const &>(*root);
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&array] {
                for (unsigned i = 0; i < array.size(); ++i) {
                    tav::json::JsonUnit const copy(array.at(i));
                    EXPECT_GE(copy.value()->getRefCount(), 2u);
                }
            });
        }
        for (std::thread & thread : threads) {
            thread.join();
        }
        EXPECT_EQ(array.at(0).value()->getRefCount(), 1u);
        tav::json::JsonUnit const kept(array.at(1));
        root.reset();
        EXPECT_EQ(kept.value()->getRefCount(), 1u);
        EXPECT_EQ(kept.value()->toJson(), "{ \"a\":2 }");
    }
}
