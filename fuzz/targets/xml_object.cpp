#include "fuzz/model.h"
#include "fuzz/seeds.h"

// XML into a class with every kind of field.

namespace tav_fuzz {
namespace {

void run(std::string_view input) {
    nameMoods();
    Everything read;
    std::string const failed = failureOf([&] {
        withinHeap(
            input,
            [&] {
                tavXmlInStream in(viewOf(input));
                read.io(in);
            },
            xmlObjectHeap);
    });
    failureOf([&] { read.dump(true, 0); });
    std::string text;
    bool const written = failureOf([&] {
                             tavXmlOutStream out("message");
                             read.io(out);
                             text = textOf(out.str(false));
                         }).empty();
    if (!failed.empty() || !written) {
        return;
    }
    failureOf([&] {
        Everything again;
        tavXmlInStream in(viewOf(text));
        again.io(in);
    });
}

void seeds(Seeds & out, Random & random) {
    out.push_back("<m><urgent>true</urgent><level>5</level><numbers><any>1</any><any>2</any></numbers></m>");
    fillUp(out, random, 220, [&] { return randomXmlMessage(random); });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("<m><tags>", "<any>" + std::string(part) + "</any>", "", "</tags></m>", size);
}

TAV_FUZZ_TARGET(xml_object, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
