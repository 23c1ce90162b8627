#ifndef TAV_TESTS_TORTURE_SAMPLE_H
#define TAV_TESTS_TORTURE_SAMPLE_H

#include "tav/vinta/vinta.h"

#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// A message with fields of many kinds, and what it is in each format.
namespace tav_test {
namespace torture {

enum class Mood { good = 0, bad = 1 };

inline tavCodecMeta metaOf(tav::pml::field_type::values type, bool optional = true,
                           char const * spec = nullptr) {
    return tavCodecMeta(type, false, spec, optional);
}

template <class Object>
class Described : public tavMessage {
public:
    tav_istr className() const override { return Object::ownName; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Object; }
    unsigned short msgcode() const override { return 0x2001; }
    void assignFrom(tavObject const & other) override {
        if (auto const * const from = dynamic_cast<Object const *>(&other)) {
            static_cast<Object &>(*this) = *from;
        }
    }
};

class Place : public Described<Place> {
public:
    static constexpr char const * ownName = "im.Place";

    tavString city;
    int floor = 0;

protected:
    void traverse(tavCodecStream & s) override {
        namespace types = tav::pml::field_type;
        ioField(s, 1, "city", city, metaOf(types::string_, false));
        ioField(s, 2, "floor", floor, metaOf(types::int32_, true, "-100..1000"));
    }
};

class Everything : public Described<Everything> {
public:
    static constexpr char const * ownName = "im.Everything";

    bool urgent = false;
    long long at = 0;
    double weight = 0;
    tavString text;
    tavString secret;
    std::string standard;
    tavBytes digest;
    tavEnum<Mood> mood = Mood::good;
    tavOptional<tavString> reply;
    Place place;
    tavSharedPtr<Place> home;
    std::vector<int> numbers;
    std::list<Place> route;
    std::vector<tavSharedPtr<Place>> stops;
    std::vector<std::vector<tavString>> table;
    std::map<tavString, int> votes;
    std::map<int, tavString> names;
    std::map<tavString, Place> rooms;

protected:
    void traverse(tavCodecStream & s) override {
        namespace types = tav::pml::field_type;
        ioField(s, 1, "urgent", urgent, metaOf(types::bool_));
        ioField(s, 2, "at", at, metaOf(types::int64_, false));
        ioField(s, 3, "weight", weight, metaOf(types::double_));
        ioField(s, 5, "text", text, metaOf(types::string_));
        ioField(s, 6, "secret", secret, tavCodecMeta(types::string_, true, "..***..", true));
        ioField(s, 7, "standard", standard, metaOf(types::string_));
        ioField(s, 8, "digest", digest, metaOf(types::bytes_));
        ioField(s, 9, "mood", mood, metaOf(types::enum_));
        ioField(s, 10, "reply", reply, metaOf(types::string_));
        ioField(s, 11, "place", place, metaOf(types::object_));
        ioField(s, 12, "home", home, metaOf(types::ref_));
        ioField(s, 13, "numbers", numbers, metaOf(types::list_));
        ioField(s, 14, "route", route, metaOf(types::list_));
        ioField(s, 15, "stops", stops, metaOf(types::ref_list_));
        ioField(s, 16, "table", table, metaOf(types::list_));
        ioField(s, 17, "votes", votes, metaOf(types::map_));
        ioField(s, 18, "names", names, metaOf(types::map_));
        ioField(s, 19, "rooms", rooms, metaOf(types::map_));
    }
};

/// The same message each time, whose texts are no short ones.
Everything const & sample();
/// The same without the map whose keys are numbers, which are no tags.
Everything const & sampleForXml();

/// What it is in the formats.
struct Written {
    std::string nbr;
    std::string json;
    std::string pml;
    std::string xml;
    std::string line;
};
Written const & written();

/// The class as a template.
extern char const * const sampleTemplate;
tav::pml::MetaFactory const & factory();

inline tav_istr viewOf(std::string_view text) {
    return tav_istr(text.data(), text.size());
}
template <class Text>
std::string_view bytesOf(Text const & text) {
    return std::string_view(reinterpret_cast<char const *>(text.data()), text.size());
}
/// The text, with NULs in it; no allocation.
template <class Text>
bool same(Text const & text, std::string_view expected) {
    return bytesOf(text) == expected;
}

/// Whether a text of a log's form says that memory was too short for the whole of it.
inline bool isCutShort(std::string_view line) {
    std::string_view const end = "... (cut short)";
    return line.size() >= end.size() && line.substr(line.size() - end.size()) == end;
}

} // namespace torture
} // namespace tav_test

#endif
