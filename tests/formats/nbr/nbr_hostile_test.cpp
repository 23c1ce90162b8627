#include "tav/vinta/vinta_nbr_unit.h"

#include "support/nbr_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using tav::nbr::ComplexValue;
using tav::nbr::NbrInputStream;
using tav::nbr::parser;
using tav::nbr::SimpleValue;
using tav::nbr::ValueBase;
using tav_test::bytes;
using tav_test::hex;

namespace {

/// The bytes in memory of exactly their size, so that a sanitizer sees each step over an end.
class Exact {
public:
    explicit Exact(std::string const & data) : data_(new char[data.size() + 1]), size_(data.size()) {
        // The bytes end where the block ends.
        data.copy(data_.get() + 1, size_);
    }
    tav_istr view() const { return tav_istr(data_.get() + 1, static_cast<unsigned>(size_)); }

private:
    std::unique_ptr<char[]> data_;
    std::size_t size_;
};

/// The parsing rules written down plainly, with recursion, as a second opinion on shallow input.
class Plain {
public:
    explicit Plain(std::string const & input) : in_(input) {}

    /// All values of a document.
    std::string document() {
        std::string result;
        while (pos_ < in_.size()) {
            std::size_t const start = pos_;
            std::string const value = parse();
            result += value == "null" ? "" : value + " ";
            if (pos_ <= start) {
                pos_ = in_.size();
            }
        }
        return result;
    }

    /// One value.
    std::string parse() {
        if (pos_ == in_.size()) {
            return "null";
        }
        if (in_.compare(pos_, 3, "\xFF\x01(", 3) != 0) {
            return peek();
        }
        pos_ += 3;
        std::string result = "{";
        while (pos_ < in_.size() && in_.compare(pos_, 3, "\xFF\x01)", 3) != 0) {
            std::size_t const start = pos_;
            int const tag = static_cast<signed char>(in_[pos_++]);
            if (pos_ == in_.size()) {
                return result + "}";
            }
            std::string const value = parse();
            result += std::to_string(tag) + ":" + value + ";";
            if (pos_ <= start) {
                pos_ = in_.size();
            }
        }
        if (pos_ < in_.size()) {
            pos_ += 3;
        }
        return result + "}";
    }

    std::size_t position() const { return pos_; }

private:
    std::string peek() {
        unsigned const head = static_cast<unsigned char>(in_[pos_++]);
        if (pos_ == in_.size() || head == 0xFF) {
            return "null";
        }
        if (head >> 4 != 0 && head >> 4 != 0xF) {
            std::ostringstream text;
            text << "high part of lengthOfSize " << std::hex << head;
            throw std::runtime_error(text.str());
        }
        unsigned const length = head & 0xF;
        if (length == 0) {
            return "null";
        }
        if (length > 4) {
            throw std::runtime_error("lengthOfSize " + std::to_string(length));
        }
        if (in_.size() - pos_ < length) {
            return "null";
        }
        unsigned size = 0;
        for (unsigned i = 0; i < length; ++i) {
            size |= static_cast<unsigned>(static_cast<unsigned char>(in_[pos_ + i])) << (8 * i);
        }
        pos_ += length;
        std::string const kind = head >= 0xF0 ? "t" : "b";
        if (size == 0) {
            return kind + "-";
        }
        std::size_t const left = in_.size() - pos_;
        if (left == 0) {
            return "null";
        }
        std::string const value =
            kind + std::to_string(pos_) + "+" + std::to_string(std::min<std::size_t>(size, left));
        long long const next = static_cast<long long>(pos_) + static_cast<int>(size);
        pos_ = next < 0 ? in_.size() : std::min(in_.size(), static_cast<std::size_t>(next));
        return value;
    }

    std::string const & in_;
    std::size_t pos_ = 0;
};

/// A value in the form of Plain.
std::string described(tavSharedPtr<ValueBase> const & value, char const * begin) {
    if (!value) {
        return "null";
    }
    if (value->simple()) {
        tav_istr const data = dynamic_cast<SimpleValue const &>(*value).data();
        std::ostringstream out;
        value->dump(out, false, 0);
        std::string kind = out.str().find('"') != std::string::npos ? "t" : "b";
        if (data.size() == 0) {
            // The flag of a value without data shows nowhere.
            return data.data() == nullptr ? "-" : "view of nothing";
        }
        return kind + std::to_string(data.data() - begin) + "+" + std::to_string(data.size());
    }
    std::string result = "{";
    for (ComplexValue::Item const & item : dynamic_cast<ComplexValue const &>(*value)) {
        result += std::to_string(static_cast<int>(static_cast<signed char>(item.first))) + ":" +
                  described(item.second, begin) + ";";
    }
    return result + "}";
}

std::string withoutFlagsOfNothing(std::string text) {
    for (std::size_t at = text.find("-"); at != std::string::npos; at = text.find("-", at + 1)) {
        if (at > 0 && (text[at - 1] == 't' || text[at - 1] == 'b')) {
            text.erase(--at, 1);
        }
    }
    return text;
}

/// The place of the first data in a value, null if there are none.
char const * firstData(tavSharedPtr<ValueBase> const & value) {
    if (!value) {
        return nullptr;
    }
    if (value->simple()) {
        return dynamic_cast<SimpleValue const &>(*value).data().data();
    }
    for (ComplexValue::Item const & item : dynamic_cast<ComplexValue const &>(*value)) {
        if (char const * const data = firstData(item.second)) {
            return data;
        }
    }
    return nullptr;
}

/// The same in the form of Plain, which has some: the number ahead of the first "+".
long firstOffset(std::string const & text) {
    std::size_t const end = text.find('+');
    std::size_t begin = end;
    while (begin > 0 && std::isdigit(static_cast<unsigned char>(text[begin - 1]))) {
        --begin;
    }
    return std::stol(text.substr(begin, end - begin));
}

/// Compares what the library makes of the bytes with what the plain rules make of them, in each way in.
void compareWithPlain(std::string const & document) {
    Exact const exact(document);
    std::string expected;
    std::string fault;
    Plain one(document);
    try {
        expected = one.parse();
    } catch (std::runtime_error const & e) {
        fault = e.what();
    }
    tav_istr view = exact.view();
    try {
        tavSharedPtr<ValueBase> const value = parser::from(view);
        ASSERT_EQ(fault, "") << hex(document);
        ASSERT_EQ(withoutFlagsOfNothing(expected), described(value, exact.view().data())) << hex(document);
    } catch (std::invalid_argument const & e) {
        ASSERT_NE(fault, "") << hex(document) << ": " << e.what();
        ASSERT_NE(std::string(e.what()).find(fault + "\n"), std::string::npos) << hex(document);
    }
    ASSERT_EQ(document.size() - one.position(), document.empty() ? 0 : view.size()) << hex(document);

    fault.clear();
    try {
        expected = Plain(document).document();
    } catch (std::runtime_error const & e) {
        fault = e.what();
    }
    try {
        NbrInputStream const s(exact.view());
        ASSERT_EQ(fault, "") << hex(document);
        std::ostringstream lazy;
        s.dump(lazy, true);
        // The copy's own place shows in the first data.
        char const * begin = nullptr;
        for (auto it = s.begin(); it != s.end() && begin == nullptr; ++it) {
            begin = firstData(*it);
        }
        if (begin != nullptr) {
            begin -= firstOffset(expected);
        }
        std::string actual;
        for (tavSharedPtr<ValueBase> const & value : s) {
            ASSERT_TRUE(value);
            actual += described(value, begin) + " ";
        }
        ASSERT_EQ(withoutFlagsOfNothing(expected), actual) << hex(document);
        std::ostringstream made;
        s.dump(made, true);
        ASSERT_EQ(lazy.str(), made.str()) << hex(document);
    } catch (std::invalid_argument const &) {
        ASSERT_NE(fault, "") << hex(document);
    }
}

/// Reads a document in every way that there is; a failure of the parser is fine.
void exercise(std::string const & document) {
    Exact const exact(document);
    for (char tag : {'\x00', '\x01', '\x28', '\xFF'}) {
        try {
            parser::from(exact.view(), tag);
        } catch (std::invalid_argument const &) {
        }
        try {
            NbrInputStream const s(exact.view(), tag);
            int n = 0;
            (void)(s >> n);
        } catch (std::invalid_argument const &) {
        }
    }
    try {
        tavNbrInStream s(exact.view());
        std::vector<tavSharedPtr<tavCodecStream>> children;
        s.getInputChildren(children);
        for (int id = 0; id < 256; ++id) {
            if (tavSharedPtr<tavCodecStream> const c = s.child(id, "")) {
                long long number = 0;
                tavString text;
                c->io(number, tavCodecMeta());
                c->io(text, tavCodecMeta());
                c->getInputChildren(children);
            }
        }
        NbrInputStream const in(exact.view());
        for (int id = 0; id < 256; ++id) {
            tavSharedPtr<tavCodecStream> const flat = s.child(id, "");
            tavSharedPtr<ValueBase> const tree = in.getChild(static_cast<char>(id));
            ASSERT_EQ(static_cast<bool>(tree), static_cast<bool>(flat)) << id << " of " << hex(document);
            if (flat && tree->simple()) {
                tavString a;
                tavString b;
                flat->io(a, tavCodecMeta());
                dynamic_cast<SimpleValue const &>(*tree).read(b);
                ASSERT_EQ(a, b) << id << " of " << hex(document);
            }
        }
    } catch (std::invalid_argument const &) {
    }
}

std::string byteText(unsigned char b) {
    return std::string(1, static_cast<char>(b));
}

} // namespace

TEST(NbrHostile, CutAtEveryByte) {
    std::string const documents[] = {
        bytes("FF 01 28 01 01 01 05 02 F1 02 61 62 03 FF 01 28 00 01 01 07 00 01 02 2C 01 FF 01 29 FF 01 29"),
        bytes("FF 01 28 04 FF 01 28 00 FF 01 28 01 F1 01 6B 02 01 01 09 FF 01 29 FF 01 29 FF 01 29 01 01 05 "
              "00 F0"),
        bytes("04 03 00 00 00 AA BB CC F2 02 00 61 62 01 00 F1 00 FF 01 28 FF 01 29"),
        bytes("FF 01 28 01 04 FC FF FF FF 01 01 02 03 04 FF 01 29"),
    };
    for (std::string const & document : documents) {
        for (std::size_t n = 0; n <= document.size(); ++n) {
            for (std::size_t from = 0; from <= n; ++from) {
                compareWithPlain(document.substr(from, n - from));
                exercise(document.substr(from, n - from));
            }
        }
    }
}

TEST(NbrHostile, EveryShortInput) {
    std::string const open = bytes("FF 01 28");
    std::string const member = bytes("FF 01 28 07");
    for (int a = 0; a < 256; ++a) {
        std::string const one = byteText(static_cast<unsigned char>(a));
        compareWithPlain(one);
        for (int b = 0; b < 256; ++b) {
            compareWithPlain(one + byteText(static_cast<unsigned char>(b)));
            compareWithPlain(open + one + byteText(static_cast<unsigned char>(b)));
            compareWithPlain(member + one + byteText(static_cast<unsigned char>(b)));
        }
    }
}

TEST(NbrHostile, RandomPieces) {
    std::vector<std::string> const pieces = {
        bytes("FF 01 28"),
        bytes("FF 01 28"),
        bytes("FF 01 29"),
        bytes("FF 01"),
        bytes("FF"),
        bytes("00"),
        bytes("F0"),
        bytes("01 00"),
        bytes("01 01 05"),
        bytes("F1 02 61 62"),
        bytes("02 03 00"),
        bytes("01 7F"),
        bytes("01"),
        bytes("02"),
        bytes("80"),
        bytes("28"),
        bytes("05"),
        bytes("F4 FF FF"),
        bytes("04 FB FF FF FF"),
        bytes("04 F6 FF FF FF"),
        bytes("04 FF FF FF FF"),
        bytes("F4 00 00 00 80"),
        bytes("04 FF FF FF 7F"),
        bytes("01 05 AA"),
    };
    std::mt19937 random(20240601);
    for (int i = 0; i < 30000; ++i) {
        std::string document = i % 3 == 0 ? std::string() : bytes("FF 01 28");
        std::size_t const count = random() % 12;
        for (std::size_t n = 0; n < count; ++n) {
            document += pieces[random() % pieces.size()];
        }
        compareWithPlain(document);
        if (HasFatalFailure()) {
            return;
        }
        if (i % 8 == 0) {
            exercise(document);
        }
    }
}

TEST(NbrHostile, RandomDamageToAGoodDocument) {
    std::string const good =
        bytes("FF 01 28 01 01 01 05 02 F1 02 61 62 03 FF 01 28 00 01 01 07 00 01 02 2C 01 FF 01 29 "
              "04 FF 01 28 00 FF 01 28 01 F1 01 6B 02 01 01 09 FF 01 29 FF 01 29 FF 01 29");
    std::mt19937 random(42);
    for (int i = 0; i < 20000; ++i) {
        std::string document = good;
        for (auto n = random() % 3 + 1; n > 0; --n) {
            document[random() % document.size()] = static_cast<char>(random());
        }
        compareWithPlain(document);
        if (HasFatalFailure()) {
            return;
        }
    }
}

TEST(NbrHostileBackward, OneValueMovesLiterallyBackToItsFirstByte) {
    for (unsigned back = 1; back <= 5; ++back) {
        std::string const document =
            bytes("04") + byteText(static_cast<unsigned char>(0x100 - back)) + bytes("FF FF FF AA BB CC");
        Exact const exact(document);
        tav_istr view = exact.view();
        tavSharedPtr<ValueBase> const value = parser::from(view);
        EXPECT_EQ(hex(dynamic_cast<SimpleValue const &>(*value).data()), "AA BB CC");
        EXPECT_EQ(exact.view().data() + 5 - back, view.data()) << back;
        EXPECT_EQ(3 + back, view.size()) << back;
    }
}

TEST(NbrHostileBackward, AheadOfTheFirstByteUsesTheInputUp) {
    for (char const * size : {"FA FF FF FF", "F0 FF FF FF", "00 00 00 FF", "01 00 00 80", "00 00 00 80"}) {
        std::string const document = bytes("04") + bytes(size) + bytes("AA BB CC");
        Exact const exact(document);
        tav_istr view = exact.view();
        tavSharedPtr<ValueBase> const value = parser::from(view);
        EXPECT_EQ(hex(dynamic_cast<SimpleValue const &>(*value).data()), "AA BB CC") << size;
        EXPECT_EQ(view.size(), 0u) << size;
    }
}

TEST(NbrHostileBackward, LargestForwardSizeIsNotBackward) {
    std::string const document = bytes("04 FF FF FF 7F AA BB CC");
    tav_istr view(document);
    EXPECT_TRUE(parser::from(view));
    EXPECT_EQ(view.size(), 0u);
    EXPECT_EQ(document.data() + document.size(), view.data());
}

TEST(NbrHostileBackward, InsideAViewTheFirstByteIsThatOfTheView) {
    std::string const document = bytes("01 01 05 04 FA FF FF FF AA");
    tav_istr view(document);
    parser::from(view);
    EXPECT_EQ(view.size(), 6u);
    parser::from(view);
    EXPECT_EQ(view.size(), 0u);
}

TEST(NbrHostileBackward, WithoutDataBehindTheSizeThereIsNoValue) {
    std::string const document = bytes("04 FF FF FF FF");
    tav_istr view(document);
    EXPECT_FALSE(parser::from(view));
    EXPECT_EQ(view.size(), 0u);
}

TEST(NbrHostileBackward, MemberThatEndsBehindItsTagGoesOn) {
    // Back by 1: the last byte of the size is the next tag.
    std::string const document = bytes("FF 01 28 07 04 FF FF FF FF 01 01 FF 01 29");
    Exact const exact(document);
    tav_istr view = exact.view();
    EXPECT_EQ(
        [&] {
            tavSharedPtr<ValueBase> const value = parser::from(view);
            return described(value, exact.view().data());
        }(),
        "{7:b9+5;-1:b11+1;1:null;}");
    compareWithPlain(document);
}

TEST(NbrHostileBackward, MemberThatEndsAtItsTagEndsAll) {
    // Back by 6 is the tag itself, by 7 the byte ahead of it.
    for (char const * size : {"FA FF FF FF", "F9 FF FF FF", "F8 FF FF FF", "F0 FF FF FF", "00 00 00 80"}) {
        std::string const document =
            bytes("FF 01 28 01 01 01 05 02 FF 01 28 07 04") + bytes(size) + bytes("AA FF 01 29 FF 01 29");
        Exact const exact(document);
        tav_istr view = exact.view();
        tavSharedPtr<ValueBase> const value = parser::from(view);
        EXPECT_EQ(described(value, exact.view().data()), "{1:b6+1;2:{7:b17+7;};}") << size;
        EXPECT_EQ(view.size(), 0u) << size;
    }
}

TEST(NbrHostileBackward, DocumentEndsAtAValueThatGoesBack) {
    for (char const * size : {"FB FF FF FF", "FA FF FF FF", "F8 FF FF FF", "00 00 00 80"}) {
        NbrInputStream const s(bytes("01 01 05 04") + bytes(size) + bytes("AA 01 01 06"));
        ASSERT_EQ(std::distance(s.begin(), s.end()), 2) << size;
        EXPECT_EQ(hex(dynamic_cast<SimpleValue const &>(**std::next(s.begin())).data()), "AA 01 01 06")
            << size;
    }
}

TEST(NbrHostileBackward, DocumentGoesOnBehindAValueThatEndsBehindItsFirstByte) {
    // Back by 1: the FF at the end of the size opens nothing, 01 01 06 behind it is a value.
    NbrInputStream const s(bytes("04 FF FF FF FF 01 01 06"));
    EXPECT_EQ(std::distance(s.begin(), s.end()), 2);
    compareWithPlain(bytes("04 FF FF FF FF 01 01 06"));
}

TEST(NbrHostileBackward, FindEndsToo) {
    for (unsigned back = 1; back < 20; ++back) {
        std::string const document = bytes("FF 01 28 07 04") +
                                     byteText(static_cast<unsigned char>(0x100 - back)) +
                                     bytes("FF FF FF 01 01 05 FF 01 29");
        Exact const exact(document);
        if (back >= 6) {
            EXPECT_FALSE(parser::from(exact.view(), char(9))) << back;
        } else {
            exercise(document);
        }
        tavSharedPtr<SimpleValue> const sought = parser::from(exact.view(), char(7));
        EXPECT_EQ(hex(sought->data()), "01 01 05 FF 01 29") << back;
    }
}

TEST(NbrHostileBackward, EverySizeInEveryPlaceEnds) {
    for (unsigned back = 1; back <= 40; ++back) {
        std::string const value =
            bytes("04") + byteText(static_cast<unsigned char>(0x100 - back)) + bytes("FF FF FF");
        for (char const * head : {"", "01 01 05", "FF 01 28 01", "FF 01 28 01 01 01 05 02 FF 01 28 03"}) {
            for (char const * tail : {"00", "01 01 06", "01 01 06 FF 01 29", "00 00 00 00 00 00"}) {
                compareWithPlain(bytes(head) + value + bytes(tail));
                exercise(bytes(head) + value + bytes(tail));
            }
        }
    }
}
