#include "fuzz/model.h"
#include "fuzz/seeds.h"

#include <set>

// A template from the input: loaded, looked up and written out.

namespace tav_fuzz {
namespace {

using tav::pml::MetaFactory;

void run(std::string_view input) {
    failureOf([&] {
        withinHeap(
            input,
            [&] {
                tav::pml::PmlInputStream in(viewOf(input));
                MetaFactory const factory(in);
            },
            pmlTreeHeap);
        tav::pml::PmlInputStream in(viewOf(input));
        MetaFactory factory(in);
        for (auto const & each : factory.classes) {
            require(factory.findClass(each.first) == &each.second, "a class is found by its name");
            for (auto const & field : each.second.fields) {
                require(each.second.findField(field.idName.name) != nullptr, "a field is found by its name");
                require(each.second.findField(field.idName.id) != nullptr, "a field is found by its tag");
                field.range.check(5);
            }
        }
        for (auto const & each : factory.code2class) {
            require(textOf(factory.findClassName(each.first)) == textOf(each.second),
                    "a class is found by its code");
        }
        MetaFactory const copy(factory);
        tavPmlOutStream out;
        factory.io(out);
        std::string const text(textOf(out.str(false, false)));
        tavPmlOutStream again;
        const_cast<MetaFactory &>(copy).io(again);
        requireSame(textOf(again.str(false, false)), text, "a copy is written the same");
    });
}

void seeds(Seeds & out, Random & random) {
    out.push_back(fixedTemplate());
    out.push_back("Hello:object(\n__class__(im.Hello)\n__code__(1F01)\n[1]user:string()\n[2]seq:int64()\n"
                  "[3]tags:list{string}()\n[4]mood:enum{Mood}(\n__default__(good)\ngood(0)\nbad(1)\n)\n"
                  "[5]secret:string?({***})\n)\n");
    out.push_back(
        "__global__(x(y))Hello:Base(__super__(null) [7]place:object(__class__(im.Place) [1]city:string()))");
    fillUp(out, random, 240, [&] { return randomTemplate(random); });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("", part, "\n", "", size);
}

TAV_FUZZ_TARGET(template_load, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
