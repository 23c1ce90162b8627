#include "tools/pml_text.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

namespace {

using tav::pml::Unit;
using tav::tool::PmlFault;
using tav::tool::PmlText;

/// What the library makes of a text: the units, or the failure's words.
std::string byLibrary(std::string const & text) {
    Unit unit;
    try {
        unit.decode(text);
    } catch (std::invalid_argument const & e) {
        std::string const what = e.what();
        return "fails: " + what.substr(0, what.find('\n'));
    }
    return unit.encode(true, false, 0, true, true);
}

std::string byTool(std::string const & text) {
    try {
        return PmlText(text).first()->encode(true, false, 0, true, true);
    } catch (PmlFault const & fault) {
        EXPECT_LE(fault.offset(), text.size());
        return std::string("fails: ") + fault.what();
    }
}

TEST(ToolPml, ReadsWhatTheLibraryReadsAndFailsWhereItFails) {
    std::mt19937 random(20220601);
    char const * const pieces[] = {"a",  "b c", "(", ")",       ":",   " ",   "\n", "(*x*)",
                                   "(*", "\"",  "'", "^",       "[1]", "()",  "a(", "b:int(",
                                   "))", "1",   "*", "\"x:(\"", "  ",  "q'y'"};
    std::size_t whole = 0;
    for (int i = 0; i < 200000; ++i) {
        std::string text;
        for (auto n = random() % 14; n != 0; --n) {
            text += pieces[random() % std::size(pieces)];
        }
        std::string const expected = byLibrary(text);
        ASSERT_EQ(byTool(text), expected) << text;
        whole += expected.compare(0, 6, "fails:") == 0 ? 0 : 1;
    }
    EXPECT_GT(whole, 5000u);
}

TEST(ToolPml, PlacesAreThoseOfTheText) {
    std::string const text = "M:object(\n  [1]a b : int32 (5)\n  (*c*)[2]c(x))\nN()";
    PmlText const units(text);
    Unit const & m = *units.first();
    EXPECT_EQ(text.substr(units.place(m).name, 2), "M:");
    EXPECT_EQ(text.substr(units.place(m).type, 6), "object");
    EXPECT_EQ(text.substr(units.place(m).end), ")\nN()");
    Unit const & a = m.at(0);
    EXPECT_EQ(text.substr(units.place(a).name, 4), "[1]a");
    EXPECT_EQ(text.substr(units.place(a).type, 5), "int32");
    EXPECT_EQ(text.substr(units.place(a).value, 2), "5)");
    EXPECT_EQ(text.substr(units.place(m.at(1)).name, 4), "[2]c");
    EXPECT_EQ(text.substr(units.place(*m.next()).name), "N()");
}

TEST(ToolPml, WhatIsNotClosedFailsAtItsBracket) {
    try {
        PmlText const units("a(\n b(1)\n c(2\n");
        FAIL() << "an open bracket was taken";
    } catch (PmlFault const & fault) {
        EXPECT_STREQ(fault.what(), "no pml value end tag");
        EXPECT_EQ(fault.offset(), 11u);
    }
}

} // namespace
