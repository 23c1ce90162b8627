#include "tav/vinta/vinta_pml_unit.h"

#include "support/heap_meter.h"
#include "support/repeated.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using tav::pml::Unit;
using tav_test::filled;
using tav_test::HeapMeter;

// What a text that must fail may cost, and that a good one may cost more.

namespace {

constexpr std::size_t size = 16 * 1024 * 1024;

struct Hopeless {
    char const * name;
    /// Made where it is wanted alone: all of them at once are much.
    std::string (*text)();
    char const * words;
};

std::ostream & operator<<(std::ostream & out, Hopeless const & v) {
    return out << v.name;
}

class PmlMemory : public testing::TestWithParam<Hopeless> {};

} // namespace

TEST_P(PmlMemory, TextThatFailsKeepsTwentyFourTimesItsSizeAtMost) {
    Hopeless const & hopeless = GetParam();
    std::string const text = hopeless.text();
    HeapMeter const meter;
    std::string words;
    Unit unit;
    try {
        unit.decode(tav_istr(text));
    } catch (std::invalid_argument const & e) {
        words = e.what();
    }
    EXPECT_LE(meter.peak(), 24 * static_cast<long long>(size));
    EXPECT_EQ(words.substr(0, words.find('\n')), hopeless.words);
}

INSTANTIATE_TEST_SUITE_P(
    All, PmlMemory,
    testing::Values(
        Hopeless{"OpenUnits", [] { return std::string(size, '('); }, "no pml value end tag"},
        Hopeless{"OpenNamedUnits", [] { return filled("ab(", size); }, "no pml value end tag"},
        Hopeless{"OpenTypedUnits", [] { return filled("a:b(", size); }, "no pml value end tag"},
        Hopeless{"Children", [] { return filled("b()", size).insert(0, "a("); }, "no pml value end tag"},
        Hopeless{"ChildrenWithValues", [] { return filled("b(1)", size).insert(0, "a("); },
                 "no pml value end tag"},
        Hopeless{"LongNames", [] { return filled("a long name of a unit(", size); }, "no pml value end tag"},
        Hopeless{"Sequence", [] { return filled("a()", size, "a"); }, "empty after pml name"},
        Hopeless{"ClosersInQuotes",
                 [] { return std::string(size / 2, '(') + '"' + std::string(size / 2, ')'); },
                 "no pml value end tag"}),
    [](auto const & each) { return std::string(each.param.name); });

TEST(PmlMemoryGood, DenseTextsAreReadWhole) {
    constexpr unsigned count = 200000;
    std::string wide = "a(";
    std::string deep;
    std::string sequence;
    for (unsigned i = 0; i < count; ++i) {
        wide += "b()";
        deep += '(';
        sequence += "a()";
    }
    wide += ')';
    deep.append(count, ')');
    Unit unit;
    unit.decode(tav_istr(wide));
    EXPECT_EQ(unit.size(), count);
    EXPECT_EQ(unit.at(count - 1).name(), "b");
    Unit nested;
    nested.decode(tav_istr(deep));
    EXPECT_EQ(nested.toPml().size(), 2 * count);
    Unit first;
    first.decode(tav_istr(sequence));
    unsigned units = 1;
    for (tavSharedPtr<Unit> at = first.next(); at; at = at->next()) {
        ++units;
    }
    EXPECT_EQ(units, count);
}

TEST(PmlMemoryGood, FailureKeepsWhatWasReadByThen) {
    Unit unit;
    EXPECT_THROW(unit.decode("a(b(1)c(2)"), std::invalid_argument);
    EXPECT_EQ(unit.name(), "a");
    EXPECT_EQ(unit.size(), 2u);
}
