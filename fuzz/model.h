#ifndef TAV_FUZZ_MODEL_H
#define TAV_FUZZ_MODEL_H

#include "fuzz/fuzz.h"
#include "tav/vinta/vinta.h"

#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace tav_fuzz {

enum class Mood { good = 0, bad = 1, distant = 300 };

/// The names of the moods, for every format.
inline void nameMoods() {
    static bool const named = [] {
        tavEnum<Mood>::add(Mood::good, "good");
        tavEnum<Mood>::add(Mood::bad, "bad");
        tavEnum<Mood>::add(Mood::distant, "distant");
        return true;
    }();
    require(named, "moods have names");
}

inline tavCodecMeta metaOf(tav::pml::field_type::values type, bool optional = false,
                           char const * spec = nullptr) {
    return tavCodecMeta(type, false, spec, optional);
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
        namespace types = tav::pml::field_type;
        ioField(s, 1, "city", city, metaOf(types::string_));
        ioField(s, 2, "floor", floor, metaOf(types::int32_, true, "-100..1000"));
    }
};

/// A message with a field of every kind, and checks where a meta can ask for one.
struct Everything : tavMessage {
    static constexpr unsigned short code = 0x2001;

    bool urgent = false;
    char tiny = 0;
    unsigned char byte = 0;
    short level = 0;
    unsigned short port = 0;
    int plain = 0;
    unsigned flags = 0;
    long wide = 0;
    unsigned long large = 0;
    long long at = 0;
    unsigned long long size = 0;
    float ratio = 0;
    double weight = 0;
    tavTime when;
    tavString text;
    tavString secret;
    std::string standard;
    tavBytes digest;
    tavEnum<Mood> mood = Mood::good;
    tavNumber<int, 5> retries;
    tavOptional<tavString> reply;
    tavOptional<int> absent;
    Place place;
    tavSharedPtr<Place> home;
    std::vector<int> numbers;
    std::vector<tavString> tags;
    std::vector<bool> marks;
    std::vector<double> weights;
    std::vector<tavEnum<Mood>> moods;
    std::list<Place> route;
    std::vector<tavSharedPtr<Place>> stops;
    std::vector<std::vector<tavString>> table;
    std::map<tavString, int> votes;
    std::map<int, tavString> names;
    std::map<tavString, Place> rooms;
    std::map<std::string, std::vector<int>> series;
    /// Without an order of its own: what it is written as depends on its history.
    std::unordered_map<std::string, int> loose;

    unsigned short msgcode() const override { return code; }
    tav_istr className() const override { return "Everything"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Everything; }
    void assignFrom(tavObject const & other) override {
        if (auto const * from = dynamic_cast<Everything const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        numberFields(s);
        textFields(s);
        containerFields(s);
    }

private:
    void numberFields(tavCodecStream & s) {
        namespace types = tav::pml::field_type;
        ioField(s, 1, "urgent", urgent, metaOf(types::bool_, true));
        ioField(s, 2, "tiny", tiny, metaOf(types::int8_, true));
        ioField(s, 3, "byte", byte, metaOf(types::uint8_, true));
        ioField(s, 4, "level", level, metaOf(types::int16_, true, "-500..500,1000"));
        ioField(s, 5, "port", port, metaOf(types::uint16_, true));
        ioField(s, 6, "plain", plain, metaOf(types::int32_, true));
        ioField(s, 7, "flags", flags, metaOf(types::uint32_, true));
        ioField(s, 8, "wide", wide, metaOf(types::int64_, true));
        ioField(s, 9, "large", large, metaOf(types::uint64_, true));
        ioField(s, 10, "at", at, metaOf(types::int64_));
        ioField(s, 11, "size", size, metaOf(types::uint64_, true, "0..1000000"));
        ioField(s, 12, "ratio", ratio, metaOf(types::float_, true));
        ioField(s, 13, "weight", weight, metaOf(types::double_, true, "-1000..1000"));
        ioField(s, 14, "when", when, metaOf(types::time_, true));
        ioField(s, 15, "mood", mood, metaOf(types::enum_, true));
        ioField(s, 16, "retries", retries, metaOf(types::int32_, true));
    }

    void textFields(tavCodecStream & s) {
        namespace types = tav::pml::field_type;
        ioField(s, 20, "text", text, metaOf(types::string_, true));
        ioField(s, 21, "secret", secret, tavCodecMeta(types::string_, true, "..***..", true));
        ioField(s, 22, "standard", standard, metaOf(types::string_, true));
        ioField(s, 23, "digest", digest, metaOf(types::bytes_, true));
        ioField(s, 24, "reply", reply, metaOf(types::string_, true));
        ioField(s, 25, "absent", absent, metaOf(types::int32_, true));
    }

    void containerFields(tavCodecStream & s) {
        namespace types = tav::pml::field_type;
        ioField(s, 30, "place", place, metaOf(types::object_, true));
        ioField(s, 31, "home", home, metaOf(types::ref_, true));
        ioField(s, 32, "numbers", numbers, metaOf(types::list_));
        ioField(s, 33, "tags", tags, metaOf(types::list_));
        ioField(s, 34, "marks", marks, metaOf(types::list_));
        ioField(s, 35, "weights", weights, metaOf(types::list_));
        ioField(s, 36, "moods", moods, metaOf(types::list_));
        ioField(s, 37, "route", route, metaOf(types::list_));
        ioField(s, 38, "stops", stops, metaOf(types::ref_list_));
        ioField(s, 39, "table", table, metaOf(types::list_));
        ioField(s, 40, "votes", votes, metaOf(types::map_));
        ioField(s, 41, "names", names, metaOf(types::map_));
        ioField(s, 42, "rooms", rooms, metaOf(types::map_));
        ioField(s, 43, "series", series, metaOf(types::map_));
        ioField(s, 44, "loose", loose, metaOf(types::map_));
    }
};

/// A random object; its texts are of `alphabet`.
void fill(Everything & out, Random & random, std::string_view alphabet);

/// The same class as a template, for messages without a class.
std::string const & fixedTemplate();

} // namespace tav_fuzz

#endif
