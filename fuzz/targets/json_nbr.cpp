#include "fuzz/model.h"
#include "fuzz/seeds.h"

// JSON to NBR and back by a fixed template: what was written is read, and from then on nothing changes.

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

bool write(std::string_view json, tavBytes & out, unsigned short & code) {
    return failureOf([&] {
               withinHeap(
                   json, [&] { tav::json2nbr::write(viewOf(json), out, code, factory(), "im.Everything"); },
                   jsonTapeHeap);
           })
        .empty();
}

void run(std::string_view input) {
    factory();
    tavBytes body;
    unsigned short code = 0xffff;
    if (!write(input, body, code) || body.empty()) {
        return;
    }
    tavString json;
    tavString line;
    bool const readable =
        failureOf([&] {
            withinHeap(
                textOf(body), [&] { tav::json2nbr::read(json, body, code, factory(), false); }, walkHeap);
        }).empty();
    failureOf([&] { tav::json2nbr::read(line, body, code, factory(), true); });
    tavBytes again;
    unsigned short sameCode = 0xffff;
    if (readable && write(textOf(json), again, sameCode)) {
        require(sameCode == code || code == 0xffff, "a message keeps its code");
        tavString twice;
        failureOf([&] { tav::json2nbr::read(twice, again, sameCode, factory(), false); });
    }
}

void seeds(Seeds & out, Random & random) {
    for (char const * const text :
         {"{\"at\":\"5\",\"mood\":1}", "{\"__class__\":\"im.Bare\",\"note\":\"x\"}",
          "{\"__code__\":\"0x2001\",\"at\":1}", "{\"__code__\":4098,\"note\":null}",
          "{\"at\":1,\"mood\":0,\"votes\":{\"a\":1},\"names\":{\"5\":\"x\"}}",
          "{\"at\":1,\"mood\":0,\"rooms\":{\"a\":{\"city\":\"b\"}},\"route\":[{\"floor\":1}]}",
          "{\"at\":1,\"mood\":0,\"moods\":[0,1],\"inner\":{\"deep\":{\"k\":{\"x\":1}}}}"}) {
        out.push_back(text);
    }
    fillUp(out, random, 240, [&] { return randomJsonMessage(random); });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("{\"at\":1,\"mood\":0,\"tags\":[", part, ",", "\"x\"]}", size);
}

TAV_FUZZ_TARGET(json_nbr, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
