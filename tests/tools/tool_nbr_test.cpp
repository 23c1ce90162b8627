#include "tools/nbr_reader.h"

#include <tav/vinta/vinta_nbr_unit.h>

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

namespace {

using tav::nbr::ComplexValue;
using tav::nbr::SimpleValue;
using tav::nbr::ValueBase;
using tav::tool::NbrFault;
using tav::tool::NbrValue;

std::string shown(char const * data, std::size_t size, bool text) {
    return (text ? "t'" : "b'") + std::string(data == nullptr ? "" : data, size) + "'";
}

/// The tree in one line, as the tool's reader tells it.
class Teller : public tav::tool::NbrVisitor {
public:
    explicit Teller(std::string const & bytes) : bytes_(bytes) {}

    void simple(NbrValue const & v) override {
        EXPECT_LE(v.data + v.size, bytes_.size());
        EXPECT_EQ(v.head, v.begin + (v.member() ? 1 : 0));
        // What is null outside of objects is no value at all for the library.
        if (!v.null || v.member()) {
            text += tagOf(v) + (v.null ? "null" : shown(bytes_.data() + v.data, v.size, v.text)) + " ";
        }
    }
    void open(NbrValue const & v) override {
        EXPECT_EQ(bytes_.substr(v.head, 3), "\xFF\x01(");
        text += tagOf(v) + "{ ";
    }
    void close(std::size_t at) override {
        EXPECT_EQ(bytes_.substr(at, 3), "\xFF\x01)");
        text += "} ";
    }

    std::string text;

private:
    static std::string tagOf(NbrValue const & v) { return v.member() ? std::to_string(v.tag) + ":" : ""; }

    std::string const & bytes_;
};

void tell(std::string & to, ValueBase const * value, std::string const & tag) {
    to += tag;
    if (value == nullptr) {
        to += "null ";
    } else if (value->simple()) {
        std::string printed;
        auto const & simple = static_cast<SimpleValue const &>(*value);
        bool text = false;
        std::ostringstream out;
        value->dump(out, false, 0);
        text = out.str().find('"') != std::string::npos;
        // A text without data prints as bytes without data do.
        to +=
            simple.data().empty() ? "empty " : shown(simple.data().data(), simple.data().size(), text) + " ";
    } else {
        to += "{ ";
        for (auto const & member : static_cast<ComplexValue const &>(*value)) {
            tell(to, member.second.get(), std::to_string(static_cast<signed char>(member.first)) + ":");
        }
        to += "} ";
    }
}

/// The same by the library; "fails" if it refuses the bytes.
std::string byLibrary(std::string const & bytes) {
    try {
        tav::nbr::NbrInputStream const in{tav_istr(bytes)};
        std::string text;
        for (auto const & value : in) {
            tell(text, value.get(), "");
        }
        return text;
    } catch (std::invalid_argument const &) {
        return "fails";
    }
}

std::string withoutEmpty(std::string text) {
    for (std::string const word : {"t'' ", "b'' "}) {
        for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word)) {
            text.replace(at, word.size(), "empty ");
        }
    }
    return text;
}

void compare(std::string const & bytes, std::size_t & whole) {
    Teller teller(bytes);
    NbrFault fault;
    bool const good = readNbr(bytes, teller, fault);
    std::string const expected = byLibrary(bytes);
    if (good) {
        ++whole;
        ASSERT_EQ(withoutEmpty(teller.text), expected) << testing::PrintToString(bytes);
    } else {
        ASSERT_LE(fault.offset, bytes.size());
        ASSERT_FALSE(fault.text.empty());
    }
    if (expected == "fails") {
        ASSERT_FALSE(good) << testing::PrintToString(bytes);
    }
}

TEST(ToolNbr, ReadsRandomDocumentsAsTheLibraryDoes) {
    std::mt19937 random(7);
    std::string const pieces[] = {"\xFF\x01(",
                                  "\xFF\x01)",
                                  std::string("\x01\x01\x05", 3),
                                  "\xF1\x02hi",
                                  std::string("\x00", 1),
                                  "\x01",
                                  "\x02",
                                  std::string("\x01\x00", 2),
                                  "\xFF",
                                  "\x28",
                                  std::string("\x02\x03\x00xyz", 6),
                                  "\xF0",
                                  "\x05"};
    std::size_t whole = 0;
    for (int i = 0; i < 300000; ++i) {
        std::string bytes;
        std::size_t depth = 0;
        for (auto n = random() % 10; n != 0; --n) {
            std::size_t const piece = random() % (random() % 3 == 0 ? std::size(pieces) : 5);
            // Mostly as a writer would: a tag ahead of what stands in an object.
            bool const closes = piece == 1;
            if (depth != 0 && !closes && random() % 16 != 0) {
                bytes += static_cast<char>(random() % 4);
            }
            depth += piece == 0 ? 1 : 0;
            depth -= closes && depth != 0 ? 1 : 0;
            bytes += pieces[piece];
        }
        for (; depth != 0 && random() % 8 != 0; --depth) {
            bytes += "\xFF\x01)";
        }
        ASSERT_NO_FATAL_FAILURE(compare(bytes, whole));
    }
    EXPECT_GT(whole, 30000u);
}

TEST(ToolNbr, WhatIsBrokenIsToldAtItsByte) {
    struct Case {
        std::string bytes;
        std::size_t offset;
        char const * text;
    };
    for (Case const & one : {
             Case{"\x28", 0, "no value begins with 28"},
             Case{"\x05", 0, "no value begins with 05"},
             Case{"\xFF\x01)", 0, "a close marker where no object is open"},
             Case{"\xFFzz", 0, "FF begins a marker"},
             Case{"\xFF\x01(\x01", 4, "the value of the tag 1 is missing"},
             Case{"\xFF\x01(", 3, "the close marker FF 01 29 of an object is missing"},
             Case{"\x04zz", 3, "the size of the value at byte 0 has 4 bytes"},
             Case{"\xF1\x05hi", 4, "says that it has 5 bytes, and 2 are there"},
         }) {
        Teller teller(one.bytes);
        NbrFault fault;
        EXPECT_FALSE(readNbr(one.bytes, teller, fault)) << one.text;
        EXPECT_EQ(fault.offset, one.offset) << one.text;
        EXPECT_NE(fault.text.find(one.text), std::string::npos) << fault.text;
    }
}

TEST(ToolNbr, DepthCostsNoStack) {
    std::string bytes = "\xFF\x01(";
    constexpr std::size_t levels = 200000;
    for (std::size_t i = 0; i < levels; ++i) {
        bytes += "\x01\xFF\x01(";
    }
    for (std::size_t i = 0; i <= levels; ++i) {
        bytes += "\xFF\x01)";
    }
    Teller teller(bytes);
    NbrFault fault;
    EXPECT_TRUE(readNbr(bytes, teller, fault));
}

} // namespace
