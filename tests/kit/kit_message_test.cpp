#include "tav/kit/message.h"

#include "tav/kit/depth.h"
#include "tav/vinta/vinta_pml_streams.h"

#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace {

enum class Mood { good = 1, bad = 2 };

/// A field of each kind, and the walk over them.
template <class Place>
struct EveryField {
    bool yes = false;
    char letter = 0;
    unsigned char byte = 0;
    short small = 0;
    unsigned short word = 0;
    int number = 0;
    unsigned int natural = 0;
    long span = 0;
    unsigned long size = 0;
    long long large = 0;
    unsigned long long largest = 0;
    float real = 0;
    double exact = 0;
    tavString text;
    std::string other_text;
    tavWstring wide;
    wchar_t sign = L' ';
    tavBytes bytes;
    tavTime time;
    tavNumber<int, 5> preset;
    tavEnum<Mood> mood;
    tavOptional<tavString> topic;
    tavOptional<int> left_out;
    tavOptional<tavEnum<Mood>> perhaps;
    Place place;
    tavSharedPtr<Place> shared;
    tavSharedPtr<Place> nothing;
    tavOptional<Place> elsewhere;
    std::vector<tavString> tags;
    std::vector<bool> bits;
    std::list<int> list;
    std::deque<Place> places;
    std::set<int> set;
    std::map<tavString, int> votes;
    std::unordered_map<int, tavOptional<double>> table;
    std::map<tavEnum<Mood>, std::vector<std::vector<int>>> nested;
    tavString secret;

    void walk(tavCodecStream & s) {
        walkNumbers(s);
        walkTexts(s);
        walkContainers(s);
    }

private:
    void walkNumbers(tavCodecStream & s) {
        ioField(s, 1, "yes", yes);
        ioField(s, 2, "letter", letter);
        ioField(s, 3, "byte", byte);
        ioField(s, 4, "small", small);
        ioField(s, 5, "word", word);
        ioField(s, 6, "number", number);
        ioField(s, 7, "natural", natural);
        ioField(s, 8, "span", span);
        ioField(s, 9, "size", size);
        ioField(s, 10, "large", large);
        ioField(s, 11, "largest", largest);
        ioField(s, 12, "real", real);
        ioField(s, 13, "exact", exact);
        ioField(s, 20, "preset", preset);
        ioField(s, 21, "mood", mood);
    }
    void walkTexts(tavCodecStream & s) {
        tavCodecMeta const optional(-1, false, nullptr, true);
        ioField(s, 14, "text", text);
        ioField(s, 15, "other_text", other_text, optional);
        ioField(s, 16, "wide", wide);
        ioField(s, 17, "sign", sign);
        ioField(s, 18, "bytes", bytes);
        ioField(s, 19, "time", time);
        ioField(s, 22, "topic", topic);
        ioField(s, 23, "left_out", left_out, optional);
        ioField(s, 24, "perhaps", perhaps, optional);
        ioField(s, 127, "secret", secret, tavCodecMeta(-1, true, "..***.", false));
    }
    void walkContainers(tavCodecStream & s) {
        ioField(s, 30, "place", place);
        ioField(s, 31, "shared", shared);
        ioField(s, 32, "nothing", nothing);
        ioField(s, 33, "elsewhere", elsewhere);
        ioField(s, 34, "tags", tags);
        ioField(s, 35, "bits", bits);
        ioField(s, 36, "list", list);
        ioField(s, 37, "places", places);
        ioField(s, 38, "set", set);
        ioField(s, 39, "votes", votes);
        ioField(s, 40, "table", table);
        ioField(s, 41, "nested", nested);
    }
};

namespace by_hand {

struct Place : tavObject {
    tavString city;
    double latitude = 0;

    tav_istr className() const override { return "Place"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Place; }
    void assignFrom(tavObject const & other) override {
        if (auto const * const from = dynamic_cast<Place const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "city", city);
        ioField(s, 2, "latitude", latitude);
    }
};

struct Every : tavMessage, EveryField<Place> {
    unsigned short msgcode() const override { return 0x3001; }
    tav_istr className() const override { return "Every"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Every; }
    void assignFrom(tavObject const & other) override {
        if (auto const * const from = dynamic_cast<Every const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override { walk(s); }
};

struct More : Every {
    int more = 0;

    unsigned short msgcode() const override { return 0x3002; }
    tav_istr className() const override { return "More"; }
    tav_istr baseName() const override { return "Every"; }
    tavObject * newInstance() const override { return new More; }
    void assignFrom(tavObject const & other) override {
        if (auto const * const from = dynamic_cast<More const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        Every::traverse(s);
        ioField(s, 100, "more", more);
    }
};

} // namespace by_hand

namespace by_kit {

struct Place : tav::kit::object<Place> {
    static constexpr char const * type_name = "Place";
    tavString city;
    double latitude = 0;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "city", city);
        ioField(s, 2, "latitude", latitude);
    }
};

struct Every : tav::kit::message<Every>, EveryField<Place> {
    static constexpr char const * type_name = "Every";
    static constexpr unsigned short type_code = 0x3001;
    void traverse(tavCodecStream & s) override { walk(s); }
};

struct More : tav::kit::message<More, Every> {
    static constexpr char const * type_name = "More";
    static constexpr unsigned short type_code = 0x3002;
    int more = 0;
    void traverse(tavCodecStream & s) override {
        Every::traverse(s);
        ioField(s, 100, "more", more);
    }
};

/// Adds nothing to a class that was written by hand.
struct OnHand : tav::kit::message<OnHand, by_hand::Every> {
    static constexpr char const * type_name = "OnHand";
    static constexpr unsigned short type_code = 0x3003;
};

/// States its code by an enum, and keeps its fields to itself.
enum class Code { private_note = 0x3004 };
class PrivateNote : public tav::kit::message<PrivateNote> {
public:
    static constexpr char type_name[] = "PrivateNote";
    static constexpr Code type_code = Code::private_note;
    int uninitialised;

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "uninitialised", uninitialised); }
};

/// Its fields have the names that one would give to parameters.
struct Note : tav::kit::message<Note> {
    static constexpr char const * type_name = "Note";
    static constexpr unsigned short type_code = 0x3005;
    tavString text;
    tavString other;
    tavString from;
    tavString name;
    int mood = 0;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "text", text, tavCodecMeta(13));
        ioField(s, 2, "mood", mood, tavCodecMeta(3));
    }
};

struct NoteOfNote : tav::kit::message<NoteOfNote, Note> {
    static constexpr char const * type_name = "NoteOfNote";
    static constexpr unsigned short type_code = 0x3006;
};

} // namespace by_kit

template <class Place>
Place placeAt(char const * city, double latitude) {
    Place place;
    place.city = city;
    place.latitude = latitude;
    return place;
}

template <class Place>
void fill(EveryField<Place> & v) {
    v.yes = true;
    v.letter = 'x';
    v.byte = 200;
    v.small = -3;
    v.word = 40000;
    v.number = -70000;
    v.natural = 4000000000u;
    v.span = -5;
    v.size = 6;
    v.large = -1234567890123;
    v.largest = ~0ull;
    v.real = 1.5f;
    v.exact = -0.1;
    v.text = "text";
    v.other_text = "other";
    v.wide = tavWstring(L"w\u00e4");
    v.sign = L'\u00e4';
    v.bytes = tavBytes(tav_istr("\0\1", 2));
    v.time = tavTime::milliseconds(1654052969007);
    v.preset = 9;
    v.mood = Mood::bad;
    v.topic = tavString("topic");
    v.perhaps = tavEnum<Mood>(Mood::good);
    v.place = placeAt<Place>("Utrecht", 52.09);
    v.shared = tavSharedPtr<Place>(new Place(placeAt<Place>("Delft", 52.01)));
    v.elsewhere = placeAt<Place>("Gent", 51.05);
    v.tags = {tavString("a"), tavString("b")};
    v.bits = {true, false, true};
    v.list = {1, -2};
    v.places.push_back(placeAt<Place>("Brugge", 51.2));
    v.set = {3, 1};
    v.votes = {{tavString("ann"), 2}, {tavString("bob"), -1}};
    v.table = {{7, tavOptional<double>(0.5)}};
    v.nested[tavEnum<Mood>(Mood::good)] = {{1}, {}, {2, 3}};
    v.secret = "password";
}

template <class T>
T filled() {
    T v;
    fill(v);
    return v;
}

std::string pmlOf(tavObject const & v, bool skipEmpty) {
    tavPmlOutStream out;
    const_cast<tavObject &>(v).io(out);
    return out.str(true, skipEmpty);
}

std::string printed(tavObject const & v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

/// All that an encoding makes of an object.
void expectSame(tavObject const & expected, tavObject const & actual) {
    for (bool const flag : {false, true}) {
        EXPECT_EQ(std::string(tav_istr(expected.encode(flag))), std::string(tav_istr(actual.encode(flag))));
        EXPECT_EQ(std::string(tav_istr(expected.encodeJson(flag))),
                  std::string(tav_istr(actual.encodeJson(flag))));
        EXPECT_EQ(std::string(tav_istr(expected.dump(flag, 1))), std::string(tav_istr(actual.dump(flag, 1))));
        EXPECT_EQ(pmlOf(expected, flag), pmlOf(actual, flag));
    }
    EXPECT_EQ(printed(expected), printed(actual));
    EXPECT_EQ(expected.className(), actual.className());
    EXPECT_EQ(expected.baseName(), actual.baseName());
    EXPECT_EQ(expected.empty(), actual.empty());
}

} // namespace

TEST(KitMessage, DefaultObjectEncodesAsOneByHand) {
    expectSame(by_hand::Every(), by_kit::Every());
    expectSame(by_hand::Place(), by_kit::Place());
}

TEST(KitMessage, FilledObjectEncodesAsOneByHand) {
    expectSame(filled<by_hand::Every>(), filled<by_kit::Every>());
    EXPECT_GT(filled<by_kit::Every>().encode(true).size(), 200u);
}

TEST(KitMessage, DerivedClassEncodesAsOneByHand) {
    auto hand = filled<by_hand::More>();
    auto kit = filled<by_kit::More>();
    hand.more = kit.more = 11;
    expectSame(hand, kit);
    EXPECT_EQ(kit.msgcode(), 0x3002);
    EXPECT_EQ(kit.baseName(), tav_istr("Every"));
}

TEST(KitMessage, ReadsWhatOneByHandWrote) {
    auto const hand = filled<by_hand::Every>();
    by_kit::Every kit;
    kit.decode(tav_istr(hand.encode(false)));
    expectSame(hand, kit);
    EXPECT_EQ(kit, filled<by_kit::Every>());
}

TEST(KitMessage, BaseByHandLendsItsFieldsAndItsName) {
    by_kit::OnHand const v = filled<by_kit::OnHand>();
    EXPECT_EQ(v.className(), tav_istr("OnHand"));
    EXPECT_EQ(v.baseName(), tav_istr("Every"));
    EXPECT_EQ(v.msgcode(), 0x3003);
    EXPECT_EQ(std::string(tav_istr(v.encode(true))),
              std::string(tav_istr(filled<by_hand::Every>().encode(true))));
}

TEST(KitMessage, CodeMayBeAnEnumAndNameAnArray) {
    by_kit::PrivateNote const note = by_kit::PrivateNote();
    EXPECT_EQ(note.msgcode(), 0x3004);
    EXPECT_EQ(note.className(), tav_istr("PrivateNote"));
}

TEST(KitMessage, NewInstanceIsOfTheSameClassAndZeroed) {
    std::unique_ptr<tavObject> const made(by_kit::More().newInstance());
    EXPECT_NE(dynamic_cast<by_kit::More *>(made.get()), nullptr);
    std::unique_ptr<tavObject> const note(by_kit::PrivateNote().newInstance());
    EXPECT_EQ(dynamic_cast<by_kit::PrivateNote &>(*note).uninitialised, 0);
}

TEST(KitMessage, AssignFromTakesItsOwnClassOnly) {
    by_kit::Every to;
    to.assignFrom(filled<by_kit::Every>());
    EXPECT_EQ(to, filled<by_kit::Every>());

    by_kit::More more;
    more.assignFrom(filled<by_kit::Every>());
    EXPECT_EQ(more, by_kit::More());
    more.assignFrom(by_kit::Place());
    EXPECT_EQ(more, by_kit::More());
}

TEST(KitMessage, CloneIsTypedAndOfTheRealClass) {
    auto more = filled<by_kit::More>();
    more.more = 5;
    more.sno = 77;
    more.ext.traceId = tavString("t");
    by_kit::Every const & base = more;
    std::unique_ptr<by_kit::Every> const copy = base.clone();
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->className(), tav_istr("More"));
    EXPECT_EQ(dynamic_cast<by_kit::More &>(*copy), more);
    EXPECT_EQ(copy->sno, 77u);
    EXPECT_EQ(copy->ext.traceId.value(), tavString("t"));
    static_assert(std::is_same<decltype(more.clone()), std::unique_ptr<by_kit::More>>::value, "typed");
}

TEST(KitMessage, EveryFieldCountsForEquality) {
    auto const whole = filled<by_kit::Every>();
    EXPECT_EQ(whole, filled<by_kit::Every>());
    std::vector<void (*)(by_kit::Every &)> const changes = {
        [](by_kit::Every & v) { v.yes = false; },
        [](by_kit::Every & v) { v.letter = 'y'; },
        [](by_kit::Every & v) { v.byte = 1; },
        [](by_kit::Every & v) { v.small = 1; },
        [](by_kit::Every & v) { v.word = 1; },
        [](by_kit::Every & v) { v.number = 1; },
        [](by_kit::Every & v) { v.natural = 1; },
        [](by_kit::Every & v) { v.span = 1; },
        [](by_kit::Every & v) { v.size = 1; },
        [](by_kit::Every & v) { v.large = 1; },
        [](by_kit::Every & v) { v.largest = 1; },
        [](by_kit::Every & v) { v.real = std::nextafter(1.5f, 2.0f); },
        [](by_kit::Every & v) { v.exact = std::nextafter(-0.1, 0.0); },
        [](by_kit::Every & v) { v.text = "texu"; },
        [](by_kit::Every & v) { v.other_text.clear(); },
        [](by_kit::Every & v) { v.wide = tavWstring(L"w"); },
        [](by_kit::Every & v) { v.sign = L'a'; },
        [](by_kit::Every & v) { v.bytes = tavBytes(tav_istr("\0\2", 2)); },
        [](by_kit::Every & v) { v.time = tavTime::milliseconds(1654052969008); },
        [](by_kit::Every & v) { v.preset = 5; },
        [](by_kit::Every & v) { v.mood = Mood::good; },
        [](by_kit::Every & v) { v.topic.reset(); },
        [](by_kit::Every & v) { v.left_out = 0; },
        [](by_kit::Every & v) { v.perhaps.reset(); },
        [](by_kit::Every & v) { v.place.latitude = 0; },
        [](by_kit::Every & v) { v.shared.reset(); },
        [](by_kit::Every & v) { v.nothing = tavSharedPtr<by_kit::Place>(new by_kit::Place); },
        [](by_kit::Every & v) { v.elsewhere.value().city = "x"; },
        [](by_kit::Every & v) { v.tags = {tavString("ab")}; },
        [](by_kit::Every & v) { v.bits[1] = true; },
        [](by_kit::Every & v) { v.list.reverse(); },
        [](by_kit::Every & v) { v.places.clear(); },
        [](by_kit::Every & v) { v.set.erase(3); },
        [](by_kit::Every & v) { v.votes[tavString("ann")] = 3; },
        [](by_kit::Every & v) { v.table[7].reset(); },
        [](by_kit::Every & v) { v.nested.begin()->second.pop_back(); },
        [](by_kit::Every & v) { v.secret = "passwort"; },
    };
    for (std::size_t i = 0; i < changes.size(); ++i) {
        auto changed = filled<by_kit::Every>();
        changed.shared = tavSharedPtr<by_kit::Place>(whole.shared->clone().release());
        EXPECT_EQ(changed, whole) << i;
        changes[i](changed);
        EXPECT_NE(changed, whole) << i;
    }
}

TEST(KitMessage, EqualityIsOfValuesAndNotOfTheirOrderOrSequence) {
    by_kit::Every a;
    by_kit::Every b;
    for (int i = 0; i < 100; ++i) {
        a.table[i] = i * 0.5;
        b.table[99 - i] = (99 - i) * 0.5;
    }
    a.exact = 0.0;
    b.exact = -0.0;
    a.real = b.real = std::numeric_limits<float>::quiet_NaN();
    a.sno = 4;
    b.ext.traceId = tavString("t");
    EXPECT_EQ(a, b);
    EXPECT_FALSE(a != b);
    b.table[3].reset();
    EXPECT_NE(a, b);
}

TEST(KitMessage, PrintsAsItsDump) {
    by_kit::Place const place = placeAt<by_kit::Place>("Utrecht", 52.5);
    EXPECT_EQ(printed(place), "@Place{ [1]city='Utrecht' [2]latitude=52.5 }");
    EXPECT_EQ(printed(filled<by_kit::Every>()).find("password"), std::string::npos);
}

TEST(KitMessage, ReadsJsonLikeOneByHand) {
    by_kit::NoteOfNote note;
    note.text = "hi";
    note.mood = 7;
    by_kit::NoteOfNote back;
    back.decodeJson(tav_istr(note.encodeJson(false)));
    EXPECT_EQ(back, note);
}

TEST(KitMessage, ObjectsLieAsDeepAsTheirLimitAllowsAndNoDeeper) {
    {
        tav::kit::depth_limit const outer(2);
        tav::kit::depth_limit const inner(2);
        try {
            tav::kit::depth_limit const third(2);
            FAIL() << "a third one was allowed";
        } catch (std::invalid_argument const & e) {
            EXPECT_STREQ(e.what(), "objects lie deeper than their class permits");
        }
    }
    EXPECT_NO_THROW(tav::kit::depth_limit(1)) << "what has gone counts no more";
}
