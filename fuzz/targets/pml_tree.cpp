#include "fuzz/seeds.h"
#include "tav/vinta/vinta_pml_tree.h"

#include <algorithm>
#include <sstream>

// PML as a tree: read, and written in all forms, the compact ones of which are read as the same tree.

namespace tav_fuzz {
namespace {

using tav::pml::Unit;

std::string compact(Unit const & unit) {
    return unit.toCompacted(false, true);
}

std::string reread(std::string_view text) {
    Unit unit;
    unit.decode(viewOf(text));
    return compact(unit);
}

void look(Unit const & unit) {
    for (auto const & child : unit) {
        require(unit.find(viewOf(child->name())) || child->name().empty(), "a child is found by its name");
        child->asInt64Value();
        child->asDoubleValue();
        child->asBoolValue();
    }
    require(unit.at(unit.size()).isNull(), "behind the last child is the null unit");
}

void run(std::string_view input) {
    Unit unit;
    std::string const failed = failureOf([&] {
        withinHeap(
            input, [&] { unit.decode(viewOf(input)); }, pmlTreeHeap);
    });
    look(unit);
    std::string once;
    withinHeap(input, [&] { once = compact(unit); });
    std::ostringstream line;
    line << unit;
    requireSame(line.str(), unit.toString(false, false, true), "a unit prints as one line with its types");
    unit.toPml();
    unit.toCompacted(true, false);
    if (input.size() <= 512) {
        unit.toFormatted();
        unit.toFullFormatted();
    }
    std::string escaped;
    tav::pml::escape(escaped, viewOf(input));
    std::string plain;
    tav::pml::unescape(plain, viewOf(escaped));
    if (!failed.empty()) {
        return;
    }
    std::string twice;
    std::string thrice;
    if (failureOf([&] { twice = reread(once); }).empty() &&
        failureOf([&] { thrice = reread(twice); }).empty()) {
        requireSame(reread(thrice), thrice, "what was written is read the same");
    }
}

void seeds(Seeds & out, Random & random) {
    for (char const * const text : {"person(name:string(Ann) age:int32(30) addr(city(Oslo)))",
                                    "(default(INFO)net(DEBUG))", "a(\"^\"^^\")", "a('b')", "a:b(c)d(e)", "a",
                                    "a()", "a(b c)", "a*(c*)", "[1]a:list{string}()", "{* comment *}a(b)"}) {
        out.push_back(text);
    }
    fillUp(out, random, 240, [&] {
        switch (below(random, 3)) {
        case 0: return randomPmlMessage(random);
        case 1: return randomTemplate(random);
        default: return randomPml(random, 4) + " " + randomPml(random, 1);
        }
    });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("a(", part, " ", ")", size);
}

TAV_FUZZ_TARGET(pml_tree, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
