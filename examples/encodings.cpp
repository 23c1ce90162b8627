// One class, fields of every shape, four encodings, there and back: docs/encodings.md.
#include <tav/kit/kit.h>
#include <tav/vinta/vinta.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <vector>

namespace type = tav::pml::field_type; // only reading JSON needs the types

struct Place : tav::kit::object<Place> {
    static constexpr char const * type_name = "Place";
    tavString city;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "city", city, tavCodecMeta(type::string_)); }
};
struct Note : tav::kit::object<Note> {
    static constexpr char const * type_name = "Note";
    tavString text;
    tavOptional<int> mood;
    std::vector<tavString> tags;
    std::map<tavString, int> votes;
    Place place;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "text", text, tavCodecMeta(type::string_));
        ioField(s, 2, "mood", mood, tavCodecMeta(type::int32_, false, nullptr, true));
        ioField(s, 3, "tags", tags, tavCodecMeta(type::string_));
        ioField(s, 4, "votes", votes, tavCodecMeta(type::int32_));
        ioField(s, 5, "place", place, tavCodecMeta(type::object_));
    }
};

int main() {
    Note note;
    note.text = "good morning";
    note.mood = 7;
    note.tags = {"sun", "wind"};
    note.votes = {{"ann", 2}, {"bob", -1}};
    note.place.city = "Utrecht";

    tavBytes const nbr = note.encode(false);
    tavString const json = note.encodeJson(false);
    tavPmlOutStream pml;
    note.io(pml);
    tavXmlOutStream xml("note");
    note.io(xml);
    std::string const pmlText(tav_istr(pml.str(false, true)));
    std::string const xmlText(tav_istr(xml.str(false)));
    std::cout << "NBR  " << nbr.size() << " bytes\nJSON " << json << "\nPML  " << pmlText << "\nXML  "
              << xmlText << "\n";

    Note read[4];
    read[0].decode(tav_istr(nbr));
    read[1].decodeJson(tav_istr(json));
    tavPmlInStream pmlIn{tav_istr(pmlText)};
    read[2].io(pmlIn);
    tavXmlInStream xmlIn{tav_istr(xmlText)};
    read[3].io(xmlIn);
    return std::count(read, read + 4, note) == 4 ? 0 : 1;
}
