#include "fuzz/model.h"
#include "fuzz/seeds.h"

// PML into a class with every kind of field.

namespace tav_fuzz {
namespace {

void run(std::string_view input) {
    nameMoods();
    Everything read;
    std::string const failed = failureOf([&] {
        withinHeap(
            input,
            [&] {
                tavPmlInStream in(viewOf(input));
                read.io(in);
            },
            pmlObjectHeap);
    });
    failureOf([&] { read.dump(true, 0); });
    std::string text;
    bool const written = failureOf([&] {
                             tavPmlOutStream out;
                             read.io(out);
                             text = textOf(out.str(false, false));
                         }).empty();
    if (!failed.empty() || !written) {
        return;
    }
    failureOf([&] {
        Everything again;
        tavPmlInStream in(viewOf(text));
        again.io(in);
    });
}

void seeds(Seeds & out, Random & random) {
    out.push_back("Everything(urgent(true) level(5) text(\"a b\") numbers((1)(2)) place(city(Oslo)))");
    fillUp(out, random, 220, [&] { return randomPmlMessage(random); });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("m(tags(", part, " ", "))", size);
}

TAV_FUZZ_TARGET(pml_object, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
