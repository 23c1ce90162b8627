#include "fuzz/model.h"
#include "fuzz/seeds.h"

// Template and message both from the input: the first two bytes are the size of the template, the next one
// says what the rest is.

namespace tav_fuzz {
namespace {

void run(std::string_view bytes) {
    Input input(bytes);
    std::size_t const size = input.pair();
    std::string_view const text = input.bytes(size);
    bool const isJson = (input.byte() & 1) == 0;
    std::string_view const message = input.rest();
    failureOf([&] {
        tav::pml::PmlInputStream in(viewOf(text));
        tav::pml::MetaFactory const factory(in);
        for (auto const & each : factory.classes) {
            tavBytes body;
            unsigned short code = 0xffff;
            tavString json;
            failureOf([&] {
                withinHeap(
                    bytes,
                    [&] {
                        if (isJson) {
                            tav::json2nbr::write(viewOf(message), body, code, factory, each.first);
                        } else {
                            body = viewOf(message);
                        }
                        tav::json2nbr::read(json, body, each.first, factory, false);
                    },
                    jsonTapeHeap);
            });
            failureOf([&] { tav::json2nbr::read(json, body, each.first, factory, true); });
        }
    });
}

std::string joined(std::string const & text, bool isJson, std::string const & message) {
    return std::string{static_cast<char>(text.size() >> 8), static_cast<char>(text.size())} + text +
           (isJson ? '\0' : '\1') + message;
}

void seeds(Seeds & out, Random & random) {
    out.push_back(joined(fixedTemplate(), true, "{\"at\":\"5\",\"mood\":1}"));
    fillUp(out, random, 240, [&] {
        bool const isJson = below(random, 2) == 0;
        std::string json = "{";
        for (int i = 0; i < 9; ++i) {
            json += (i > 0 ? ",\"f" : "\"f") + std::to_string(i) + "\":" + randomJson(random, 2);
        }
        return joined(randomTemplate(random), isJson, isJson ? json + "}" : randomNbr(random, 3));
    });
}

TAV_FUZZ_TARGET(template_message, run, seeds, nullptr);

} // namespace
} // namespace tav_fuzz
