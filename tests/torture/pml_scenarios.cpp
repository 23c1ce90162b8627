#include "torture/sample.h"
#include "torture/scenarios.h"

#include <sstream>
#include <stdexcept>
#include <utility>

namespace tav_test {
namespace torture {
namespace {

using tav::pml::Unit;

void written_() {
    tavPmlOutStream out;
    const_cast<Everything &>(sample()).io(out);
    holds(out.str(false, false) == written().pml, "the text is that of the message");
}

void read() {
    Everything made;
    tavPmlInStream in(viewOf(written().pml));
    made.io(in);
    Spared const spared;
    tavPmlOutStream out;
    made.io(out);
    holds(out.str(false, false) == written().pml, "what was read is what was written");
}

void parsed() {
    Unit unit;
    unit.decode(viewOf(written().pml));
    Unit const & constant = unit;
    holds(constant["text"].value() == std::string_view(sample().text.data(), sample().text.size()),
          "a text is read");
    holds(constant["place"]["city"].asStringValue().size() > 10, "members are found");
    holds(constant["numbers"].size() == 4, "elements are found");
}

void refused() {
    Unit unit;
    try {
        unit.decode("a name of some length(that(begins) and(has(no(end");
        holds(false, "what is no PML is refused");
    } catch (std::invalid_argument const &) {
        // As it has to be.
    }
}

Unit const & tree() {
    static Unit const * const made = [] {
        Spared const spared;
        auto * const unit = new Unit;
        unit->decode(viewOf(written().pml));
        return unit;
    }();
    return *made;
}

void printed() {
    Unit const & unit = tree();
    holds(unit.toCompacted(false, true).size() > 500 && unit.toPml().size() > 500,
          "both short forms are whole");
    holds(unit.toFormatted().size() > 500 && unit.toFullFormatted().size() > 500,
          "both long forms are whole");
    std::string out;
    unit.encode(out, true, false, 1, true, true);
    std::ostringstream stream;
    stream.exceptions(std::ios::badbit);
    stream << unit;
    holds(!out.empty() &&
              static_cast<std::size_t>(stream.tellp()) == unit.toString(false, false, true).size(),
          "a unit prints as its text");
}

void built() {
    Unit top("a top with a name that is no short one");
    top.child("a child with a name that is no short one").value("and a value that is no short one");
    top["second"]["third"]["fourth"].type("a type of some length, for once");
    top.child("name", "an alternative that is no short one", 5);
    top.append(tree());
    for (int i = 0; i < 9; ++i) {
        top.newChild().next(Unit::byValue("a follower that is no short one"));
    }
    top.addChild(tavSharedPtr<Unit>(new Unit("shared", "among two")));
    holds(top.hasChild("shared") && top.find("second") && top.children().size() == 14 &&
              top.children("second").size() == 1,
          "all children are found");
    top.createNext()->setValue(top);
    holds(top.next() && top.next()->size() == 14, "children are shared");
    top.clear();
    holds(top.empty() && !top.hasChild("shared"), "a cleared unit is empty");
}

void copiedAndMoved() {
    Unit copy(tree());
    Unit assigned("a name");
    assigned = copy;
    Unit moved(std::move(copy));
    holds(copy.empty() && moved.size() == tree().size(), "a move takes all");
    copy = std::move(moved);
    holds(copy.hasChild("place") && assigned.hasChild("place") && moved.empty(), "a unit is moved back");
}

void streamed() {
    tav::pml::PmlOutputStream out("a name that is no short one");
    out["numbers"].newChild().value("5");
    out << 5 << 1.5 << true << sample().text << sample().digest << tavTime::seconds(1600000000)
        << std::wstring(30, L'w');
    tav::pml::PmlInputStream const in(tav_istr("a(QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVo=)"));
    tavBytes bytes;
    std::wstring wide;
    in >> bytes >> wide;
    holds(same(bytes, "ABCDEFGHIJKLMNOPQRSTUVWXYZ") && wide.size() == 36, "values are read");
    holds(in.str().size() > 30 && out.str(true, false).size() > 200, "values are written");
}

void escaped() {
    std::string text;
    tav::pml::escape(text, viewOf(written().pml));
    std::string plain;
    tav::pml::unescape(plain, viewOf(text));
    holds(plain == written().pml, "a text comes back");
}

} // namespace

Scenarios pmlScenarios() {
    return {{"written", written_},
            {"read", read},
            {"parsed", parsed},
            {"refused", refused},
            {"printed", printed},
            {"built", built},
            {"copied_and_moved", copiedAndMoved},
            {"streamed", streamed},
            {"escaped", escaped}};
}

} // namespace torture
} // namespace tav_test
