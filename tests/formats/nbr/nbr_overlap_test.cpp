#include "tav/vinta/vinta_nbr_unit.h"

#include "support/nbr_bytes.h"
#include "support/repeated.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using tav::nbr::ComplexValue;
using tav::nbr::NbrInputStream;
using tav::nbr::parser;
using tav::nbr::SimpleValue;
using tav::nbr::ValueBase;
using tav_test::bytes;
using tav_test::repeated;

// Values whose sizes lead backward hold all the bytes behind them, so that a small input can hold many large
// texts.

namespace {

class Texts : public tavObject {
public:
    std::vector<tavString> list;

    tav_istr className() const override { return "Texts"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Texts; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "list", list); }
};

/// Two members: a text that leads one byte back, to an FF that is the tag of a null.
std::string const member = bytes("00 F4 FF FF FF FF 00");

std::size_t sizeOf(tavSharedPtr<ValueBase> const & value) {
    if (!value) {
        return 0;
    }
    if (value->simple()) {
        return dynamic_cast<SimpleValue const &>(*value).data().size();
    }
    std::size_t sum = 0;
    for (ComplexValue::Item const & item : dynamic_cast<ComplexValue const &>(*value)) {
        sum += sizeOf(item.second);
    }
    return sum;
}

std::size_t limitFor(std::string const & document) {
    return 6 * document.size() + 64 * 1024;
}

constexpr std::size_t many = 15000;

} // namespace

TEST(NbrOverlap, FewValuesAreAllThere) {
    for (std::size_t const count : {1u, 2u, 50u, 100u}) {
        std::string const document = bytes("FF 01 28 01 FF 01 28") + repeated(member, count) + "x";
        Texts object;
        object.decode(tav_istr(document));
        ASSERT_EQ(2 * count, object.list.size());
        for (std::size_t i = 0; i < count; ++i) {
            std::size_t const at = 7 + 7 * i + 6;
            EXPECT_EQ(document.substr(at), std::string(tav_istr(object.list[2 * i]))) << i;
            EXPECT_EQ(object.list[2 * i + 1], "") << i;
        }
    }
}

TEST(NbrOverlap, ManyValuesInAListAreAFewTimesTheInputAtMost) {
    std::string const document = bytes("FF 01 28 01 FF 01 28") + repeated(member, many);
    Texts object;
    object.decode(tav_istr(document));
    std::size_t sum = 0;
    for (tavString const & text : object.list) {
        sum += text.size();
    }
    EXPECT_LT(document.size(), sum);
    EXPECT_GE(limitFor(document), sum);
}

TEST(NbrOverlap, ManyValuesInATreeAreAFewTimesTheInputAtMost) {
    std::string const document = bytes("FF 01 28 01 FF 01 28") + repeated(member, many);
    tav_istr view(document);
    EXPECT_GE(limitFor(document), sizeOf(parser::from(view)));
    EXPECT_EQ(view.size(), 0u);
}

TEST(NbrOverlap, ManyValuesOfADocumentAreAFewTimesTheInputAtMost) {
    // The last byte of the size is left, an FF that opens nothing.
    std::string const document = repeated(bytes("F4 FF FF FF FF"), many);
    NbrInputStream const s{tav_istr(document)};
    std::size_t sum = 0;
    for (tavSharedPtr<ValueBase> const & value : s) {
        sum += sizeOf(value);
    }
    EXPECT_LT(document.size(), sum);
    EXPECT_GE(limitFor(document), sum);
}

TEST(NbrOverlap, ValuesThatDoNotLeadBackwardHaveNoLimit) {
    std::string const big(30000, 'x');
    std::string const piece = bytes("00 F2 30 75") + big;
    std::string const document =
        bytes("FF 01 28 01 FF 01 28") + repeated(piece, 100) + bytes("FF 01 29 FF 01 29");
    Texts object;
    object.decode(tav_istr(document));
    ASSERT_EQ(object.list.size(), 100u);
    EXPECT_EQ(big, std::string(tav_istr(object.list[99])));
}
