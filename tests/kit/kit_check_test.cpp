#include "tav/kit/check.h"

#include "tav/kit/message.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Place : tav::kit::object<Place> {
    static constexpr char const * type_name = "Place";
    tavString city;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "city", city); }
};

/// A message whose walk each test gives.
template <int N>
struct Walked : tav::kit::message<Walked<N>> {
    static constexpr char const * type_name = "Walked";
    static constexpr unsigned short type_code = 0x3001;
    static void (*walk)(Walked &, tavCodecStream &);
    int a = 0;
    int b = 0;
    Place place;
    tavSharedPtr<Place> shared;
    std::vector<Place> places;
    std::map<tavString, int> votes;
    wchar_t sign = L'\0';
    void traverse(tavCodecStream & s) override { walk(*this, s); }
};
template <int N>
void (*Walked<N>::walk)(Walked &, tavCodecStream &) = nullptr;

template <int N>
std::string faultsOf(void (*walk)(Walked<N> &, tavCodecStream &)) {
    Walked<N>::walk = walk;
    return tav::kit::check<Walked<N>>();
}

struct BadPlace : tav::kit::object<BadPlace> {
    static constexpr char const * type_name = "BadPlace";
    int city = 0;
    int zip = 0;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "city", city);
        ioField(s, 1, "zip", zip);
    }
};

struct Journey : tav::kit::message<Journey> {
    static constexpr char const * type_name = "Journey";
    static constexpr unsigned short type_code = 0x3002;
    BadPlace from;
    std::vector<BadPlace> stops = std::vector<BadPlace>(1);
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "from", from);
        ioField(s, 2, "stops", stops);
    }
};

/// As one forgets by hand.
struct ByHand : Place {
    tav_istr className() const override { return "ByHand"; }
};

struct HandMessage : tavMessage {
    unsigned short msgcode() const override { return 0xffff; }
    tav_istr className() const override { return "HandMessage"; }
    tav_istr baseName() const override { return ""; }
    tavObject * newInstance() const override { return nullptr; }
    void assignFrom(tavObject const &) override {}
};

struct Nameless : tav::kit::object<Nameless> {
    static constexpr char const * type_name = "";
    void traverse(tavCodecStream &) override {}
};

} // namespace

TEST(KitCheck, SoundClassHasNoFaults) {
    EXPECT_EQ(tav::kit::check<Place>(), "");
    EXPECT_EQ(faultsOf<1>([](Walked<1> & v, tavCodecStream & s) {
                  ioField(s, 1, "a", v.a);
                  ioField(s, 127, "b", v.b, tavCodecMeta(-1, false, nullptr, true));
                  ioField(s, 3, "place", v.place);
                  ioField(s, 4, "shared", v.shared);
                  ioField(s, 5, "places", v.places);
                  ioField(s, 6, "votes", v.votes);
                  ioField(s, 7, "sign", v.sign);
              }),
              "");
    EXPECT_EQ(faultsOf<2>([](Walked<2> &, tavCodecStream &) {}), "");
}

TEST(KitCheck, FindsAnIdThatTwoFieldsShare) {
    EXPECT_EQ(faultsOf<3>([](Walked<3> & v, tavCodecStream & s) {
                  ioField(s, 1, "a", v.a);
                  ioField(s, 1, "b", v.b);
              }),
              "Walked: the id 1 belongs to both \"a\" and \"b\"\n");
}

TEST(KitCheck, FindsAFieldWithoutAName) {
    EXPECT_EQ(faultsOf<4>([](Walked<4> & v, tavCodecStream & s) {
                  ioField(s, 1, "", v.a);
                  ioField(s, 2, nullptr, v.b);
              }),
              "Walked: the field of id 1 has no name\nWalked: the field of id 2 has no name\n");
}

TEST(KitCheck, FindsTwoFieldsOfOneName) {
    EXPECT_EQ(faultsOf<5>([](Walked<5> & v, tavCodecStream & s) {
                  ioField(s, 1, "a", v.a);
                  ioField(s, 2, "a", v.b);
              }),
              "Walked: two fields have the name \"a\"\n");
}

TEST(KitCheck, FindsAnIdOutsideItsRange) {
    EXPECT_EQ(
        faultsOf<6>([](Walked<6> & v, tavCodecStream & s) {
            ioField(s, 0, "a", v.a);
            ioField(s, 128, "b", v.b);
        }),
        "Walked: the id 0 of \"a\" is outside 1 to 127\nWalked: the id 128 of \"b\" is outside 1 to 127\n");
    EXPECT_EQ(faultsOf<7>([](Walked<7> & v, tavCodecStream & s) { ioField(s, -1, "a", v.a); }),
              "Walked: the id -1 of \"a\" is outside 1 to 127\n");
}

TEST(KitCheck, LooksIntoTheObjectsThatItHolds) {
    EXPECT_EQ(tav::kit::check<Journey>(), "Journey.from: the id 1 belongs to both \"city\" and \"zip\"\n"
                                          "Journey.stops[]: the id 1 belongs to both \"city\" and \"zip\"\n");
}

TEST(KitCheck, FindsWhatDoesNotComeBack) {
    EXPECT_EQ(faultsOf<8>([](Walked<8> & v, tavCodecStream & s) {
                  std::vector<int> list = {1};
                  if (s.isOutputStream()) {
                      list[0] = v.a == 0 ? 1 : 2;
                      ioField(s, 1, "list", list);
                  } else {
                      v.a = 1;
                  }
              }),
              "Walked: what it encodes is not what it decodes\n");
}

TEST(KitCheck, TellsWhatTheFieldsRaise) {
    EXPECT_EQ(faultsOf<9>([](Walked<9> &, tavCodecStream &) { throw std::invalid_argument("too deep"); }),
              "Walked: its fields raise: too deep\n");
}

TEST(KitCheck, FindsWhatClassesByHandForget) {
    EXPECT_EQ(tav::kit::check<ByHand>(), "ByHand: newInstance makes no object of this class\n");
    EXPECT_EQ(tav::kit::check<HandMessage>(), "HandMessage: baseName is empty\n"
                                              "HandMessage: newInstance makes no object of this class\n"
                                              "HandMessage: the code 0xffff means no message\n");
    EXPECT_EQ(tav::kit::check<Nameless>(), ": className is empty\n");
}
