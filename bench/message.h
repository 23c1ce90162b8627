#ifndef TAV_BENCH_MESSAGE_H
#define TAV_BENCH_MESSAGE_H

#include "tav/vinta/vinta.h"

#include <vector>

/// The message that the benchmarks send about: twelve fields, of which three short texts, one of 90 bytes,
/// numbers, a list of three texts, an object of three fields and 32 bytes.
namespace tav_bench_own {

namespace types = tav::pml::field_type;

struct Place : tavObject {
    tavString city;
    int floor = 0;
    double height = 0;

    tav_istr className() const override { return tav_istr("Place", 5); }
    tav_istr baseName() const override { return tav_istr("tavObject", 9); }
    tavObject * newInstance() const override { return new Place; }
    void assignFrom(tavObject const & other) override {
        if (auto const * from = dynamic_cast<Place const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, tav_istr("city", 4), city, tavCodecMeta(types::string_));
        ioField(s, 2, tav_istr("floor", 5), floor, tavCodecMeta(types::int32_));
        ioField(s, 3, tav_istr("height", 6), height, tavCodecMeta(types::double_));
    }
};

struct Note : tavMessage {
    tavString from;
    tavString to;
    tavString topic;
    tavString text;
    int mood = 0;
    unsigned flags = 0;
    long long at = 0;
    bool urgent = false;
    double weight = 0;
    std::vector<tavString> tags;
    Place place;
    tavBytes digest;

    unsigned short msgcode() const override { return 0x2001; }
    tav_istr className() const override { return tav_istr("Note", 4); }
    tav_istr baseName() const override { return tav_istr("tavMessage", 10); }
    tavObject * newInstance() const override { return new Note; }
    void assignFrom(tavObject const & other) override {
        if (auto const * o = dynamic_cast<Note const *>(&other)) {
            *this = *o;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, tav_istr("from", 4), from, tavCodecMeta(types::string_));
        ioField(s, 2, tav_istr("to", 2), to, tavCodecMeta(types::string_));
        ioField(s, 3, tav_istr("topic", 5), topic, tavCodecMeta(types::string_));
        ioField(s, 4, tav_istr("text", 4), text, tavCodecMeta(types::string_));
        ioField(s, 5, tav_istr("mood", 4), mood, tavCodecMeta(types::int32_));
        ioField(s, 6, tav_istr("flags", 5), flags, tavCodecMeta(types::uint32_));
        ioField(s, 7, tav_istr("at", 2), at, tavCodecMeta(types::int64_));
        ioField(s, 8, tav_istr("urgent", 6), urgent, tavCodecMeta(types::bool_));
        ioField(s, 9, tav_istr("weight", 6), weight, tavCodecMeta(types::double_));
        ioField(s, 10, tav_istr("tags", 4), tags, tavCodecMeta(types::list_));
        ioField(s, 11, tav_istr("place", 5), place, tavCodecMeta(types::object_));
        ioField(s, 12, tav_istr("digest", 6), digest, tavCodecMeta(types::bytes_));
    }
};

inline Note sample() {
    Note note;
    note.from = "ann";
    note.to = "bob";
    note.topic = "weather";
    note.text = std::string(90, 'x');
    note.mood = 300;
    note.flags = 0x8001;
    note.at = 1700000000123;
    note.urgent = true;
    note.weight = 1.5;
    note.tags = {tavString("sun"), tavString("wind"), tavString("rain")};
    note.place.city = "Utrecht";
    note.place.floor = 3;
    note.place.height = 12.25;
    note.digest = tav_istr(std::string(32, '\x5a'));
    return note;
}

} // namespace tav_bench_own

#endif
