#include "tav/vinta/vinta.h"

#include <gtest/gtest.h>

#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

namespace types = tav::pml::field_type;

enum class Mood { good = 0, bad = 1 };

tavCodecMeta of(types::values type, bool optional = false) {
    return tavCodecMeta(type, false, nullptr, optional);
}

struct Place : tavObject {
    tavString city;
    int floor = 0;

    tav_istr className() const override { return "Place"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Place; }
    void assignFrom(tavObject const & other) override {
        if (auto const * from = dynamic_cast<Place const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "city", city, of(types::string_));
        ioField(s, 2, "floor", floor, of(types::int32_));
    }
};

/// A message of every shape that all encodings carry.
struct Note : tavMessage {
    bool urgent = false;
    short level = 0;
    unsigned flags = 0;
    long long at = 0;
    unsigned long long size = 0;
    double weight = 0;
    float ratio = 0;
    tavString text;
    std::string standard;
    tavBytes digest;
    tavEnum<Mood> mood = Mood::good;
    tavNumber<int, 5> retries;
    tavOptional<tavString> reply;
    tavOptional<int> absent;
    Place place;
    tavSharedPtr<Place> home;
    tavSharedPtr<Place> nowhere;
    std::vector<int> numbers;
    std::vector<tavString> tags;
    std::vector<bool> marks;
    std::list<Place> route;
    std::vector<tavSharedPtr<Place>> stops;
    std::vector<std::vector<tavString>> table;
    std::map<tavString, int> votes;
    std::map<tavString, Place> rooms;
    std::unordered_map<std::string, std::vector<int>> series;

    unsigned short msgcode() const override { return 0x2001; }
    tav_istr className() const override { return "Note"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Note; }
    void assignFrom(tavObject const & other) override {
        if (auto const * from = dynamic_cast<Note const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "urgent", urgent, of(types::bool_));
        ioField(s, 2, "level", level, of(types::int16_));
        ioField(s, 3, "flags", flags, of(types::uint32_));
        ioField(s, 4, "at", at, of(types::int64_));
        ioField(s, 5, "size", size, of(types::uint64_));
        ioField(s, 6, "weight", weight, of(types::double_));
        ioField(s, 7, "ratio", ratio, of(types::float_));
        ioField(s, 8, "text", text, of(types::string_));
        ioField(s, 9, "standard", standard, of(types::string_));
        ioField(s, 10, "digest", digest, of(types::bytes_));
        ioField(s, 11, "mood", mood, of(types::enum_));
        ioField(s, 12, "retries", retries, of(types::int32_));
        ioField(s, 13, "reply", reply, of(types::string_, true));
        ioField(s, 14, "absent", absent, of(types::int32_, true));
        ioField(s, 15, "place", place, of(types::object_));
        ioField(s, 16, "home", home, of(types::ref_, true));
        ioField(s, 17, "nowhere", nowhere, of(types::ref_, true));
        ioField(s, 18, "numbers", numbers, of(types::list_));
        ioField(s, 19, "tags", tags, of(types::list_));
        ioField(s, 20, "marks", marks, of(types::list_));
        ioField(s, 21, "route", route, of(types::list_));
        ioField(s, 22, "stops", stops, of(types::ref_list_));
        ioField(s, 23, "table", table, of(types::list_));
        ioField(s, 24, "votes", votes, of(types::map_));
        ioField(s, 25, "rooms", rooms, of(types::map_));
        ioField(s, 26, "series", series, of(types::map_));
    }
};

Place place(char const * city, int floor) {
    Place made;
    made.city = city;
    made.floor = floor;
    return made;
}

Note full() {
    Note note;
    note.urgent = true;
    note.level = -300;
    note.flags = 0xffffffff;
    note.at = 1234567890123;
    note.size = 18446744073709551615ull;
    note.weight = 1.5;
    note.ratio = -0.25f;
    note.text = "a<b> & \"c\" 'd' (e) \\ f/g ]]> ^ \xc3\xa4";
    note.standard = "plain";
    note.digest = tav_istr("\0\1\xff", 3u);
    note.mood = Mood::bad;
    note.retries = -7;
    note.reply = tavString("yes");
    note.place = place("Utrecht", 3);
    note.home = new Place(place("Delft", -1));
    note.numbers = {1, -2, 0};
    note.tags = {tavString("sun"), tavString("rain")};
    note.marks = {true, false};
    note.route = {place("A", 1), place("B", 2)};
    note.stops = {new Place(place("C", 3)), new Place(place("D", 4))};
    note.table = {{tavString("x"), tavString("y")}, {tavString("z")}};
    note.votes[tavString("ann")] = 1;
    note.votes[tavString("bob")] = -2;
    note.rooms[tavString("north")] = place("N", 9);
    note.series["s"] = {4, 5};
    return note;
}

void viaNbr(Note const & from, Note & to) {
    to.decode(tav_istr(from.encode(false)));
}

void viaJson(Note const & from, Note & to) {
    to.decodeJson(tav_istr(from.encodeJson(false)));
}

void viaCompactPml(Note const & from, Note & to) {
    tavPmlOutStream out;
    const_cast<Note &>(from).io(out);
    tavPmlInStream in{tav_istr(out.str(false, true))};
    to.io(in);
}

/// Formatted for a reader, but without the ids, which belong to the names when they are read again.
void viaFormattedPml(Note const & from, Note & to) {
    tav::pml::PmlOutputStream plain;
    tavPmlOutStream out(&plain, false);
    const_cast<Note &>(from).io(out);
    tavPmlInStream in{tav_istr(plain.encode(true, true, 0, true, false))};
    to.io(in);
}

void viaXml(Note const & from, Note & to) {
    tavXmlOutStream out("note");
    const_cast<Note &>(from).io(out);
    tavXmlInStream in{tav_istr(out.str(false))};
    to.io(in);
}

void viaPrettyXml(Note const & from, Note & to) {
    tav::xml::XmlOutputStream plain("note");
    tavXmlOutStream out(&plain, false);
    const_cast<Note &>(from).io(out);
    tavXmlInStream in{tav_istr(plain.encode(true, true, 1))};
    to.io(in);
}

struct Encoding {
    char const * name;
    void (*carry)(Note const & from, Note & to);
};

class Encodings : public testing::TestWithParam<Encoding> {
protected:
    static void SetUpTestSuite() {
        tavEnum<Mood>::add(Mood::good, "good");
        tavEnum<Mood>::add(Mood::bad, "bad");
    }
};

} // namespace

TEST_P(Encodings, CarryAMessageOfEveryShape) {
    Note const from = full();
    Note to;
    GetParam().carry(from, to);
    EXPECT_EQ(from.dump(false, 0), to.dump(false, 0));
    EXPECT_EQ(from.encode(false), to.encode(false));
    EXPECT_FALSE(to.absent.has_value());
    EXPECT_FALSE(to.nowhere);
}

TEST_P(Encodings, CarryAMessageOfNothing) {
    Note const from;
    Note to;
    to.reply.reset();
    GetParam().carry(from, to);
    EXPECT_EQ(from.text, to.text);
    EXPECT_EQ(from.at, to.at);
    EXPECT_EQ(to.retries, 5);
    EXPECT_TRUE(to.numbers.empty());
    EXPECT_TRUE(to.votes.empty());
    EXPECT_FALSE(to.absent.has_value());
}

TEST_P(Encodings, ReplaceWhatWasThere) {
    Note const from = full();
    Note to = full();
    to.numbers = {9, 9, 9, 9};
    to.votes[tavString("eve")] = 5;
    to.text = "other";
    GetParam().carry(from, to);
    EXPECT_EQ(from.encode(false), to.encode(false));
}

INSTANTIATE_TEST_SUITE_P(All, Encodings,
                         testing::Values(Encoding{"Nbr", viaNbr}, Encoding{"Json", viaJson},
                                         Encoding{"CompactPml", viaCompactPml},
                                         Encoding{"FormattedPml", viaFormattedPml}, Encoding{"Xml", viaXml},
                                         Encoding{"PrettyXml", viaPrettyXml}),
                         [](auto const & each) { return std::string(each.param.name); });
