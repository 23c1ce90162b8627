#include "fuzz/model.h"
#include "fuzz/seeds.h"

// NBR to JSON by a fixed template, for the application and for the log, whatever the bytes are; and the JSON
// to NBR again.

namespace tav_fuzz {
namespace {

using tav::pml::MetaFactory;

MetaFactory const & factory() {
    static MetaFactory const * const made = [] {
        static tav::pml::PmlInputStream * const in = new tav::pml::PmlInputStream(viewOf(fixedTemplate()));
        return new MetaFactory(*in);
    }();
    return *made;
}

void run(std::string_view input) {
    factory();
    tavString json;
    bool const readable =
        failureOf([&] {
            withinHeap(
                input, [&] { tav::json2nbr::read(json, viewOf(input), 0x2001, factory(), false); }, walkHeap);
        }).empty();
    tavString line;
    failureOf([&] {
        withinHeap(
            input, [&] { tav::json2nbr::read(line, viewOf(input), "im.Everything", factory(), true); },
            walkHeap);
    });
    tavString none;
    failureOf([&] { tav::json2nbr::read(none, viewOf(input), 0x7777, factory(), false); });
    if (readable && !json.empty()) {
        tavBytes body;
        unsigned short code = 0xffff;
        failureOf([&] { tav::json2nbr::write(json, body, code, factory(), tav_istr()); });
    }
}

void seeds(Seeds & out, Random & random) {
    out.push_back(unhex("FF0128 0A010105 14F1026162 20FF0128 00010107 0001022C01 FF0129 FF0129"));
    fillUp(out, random, 240, [&] { return randomNbrMessage(random); });
}

std::string swell(std::string_view part, std::size_t size) {
    std::string const list =
        unhex("FF0128 0A010105") +
        repeated(unhex("25FF0128"), std::string(1, '\0') + std::string(part), "", unhex("FF0129"), size);
    return list + unhex("FF0129");
}

TAV_FUZZ_TARGET(nbr_json, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
