#include "torture/sample.h"
#include "torture/scenarios.h"

#include <sstream>
#include <stdexcept>
#include <utility>

namespace tav_test {
namespace torture {
namespace {

using tav::pml::MetaClass;
using tav::pml::MetaFactory;

void templateLoaded() {
    tav::pml::PmlInputStream in{tav_istr(sampleTemplate)};
    MetaFactory const loaded(in);
    holds(loaded.classes.size() == factory().classes.size() && loaded.findClass("im.Everything") != nullptr &&
              loaded.findClass(0x2001) != nullptr && same(loaded.findClassName(0x2002), "im.Place"),
          "all classes are found");
    holds(loaded.findClass("im.Everything")->findField("rooms") != nullptr, "the fields are found");
}

void templateRefused() {
    try {
        tav::pml::PmlInputStream in{
            tav_istr("Everything:object(__class__(im.Everything) [1]a name that is long:")};
        MetaFactory const loaded(in);
        holds(false, "a template that is no PML is refused");
    } catch (std::invalid_argument const &) {
        // As it has to be.
    }
}

void templateShown() {
    tavPmlOutStream out;
    const_cast<MetaFactory &>(factory()).io(out);
    holds(out.str(false, false).size() > 500, "a template is written");
}

void classesCopiedAndMoved() {
    MetaClass copy(*factory().findClass("im.Everything"));
    MetaClass assigned;
    assigned = copy;
    MetaClass moved(std::move(copy));
    assigned = std::move(moved);
    MetaFactory whole(factory());
    holds(assigned.findField("rooms") != nullptr && whole.findClass("im.Place") != nullptr,
          "copies are whole");
}

void jsonToNbr() {
    tavBytes out;
    unsigned short code = 0xffff;
    tav::json2nbr::write(viewOf(written().json), out, code, factory(), "im.Everything");
    holds(code == 0x2001 && out.size() > 500, "the message is written");
    Spared const spared;
    Everything read;
    read.decode(out);
    holds(read.text == sample().text && read.rooms.size() == 1 && read.stops.size() == 1,
          "what was written is the message");
}

void jsonToNbrRefused() {
    tavBytes out(tav_istr("as it was"));
    unsigned short code = 0xffff;
    for (char const * const wrong : {"{\"at\":5, \"place\":\"no object\"}",
                                     "{\"text\":\"and no necessary field\"}", "{\"at\":[1,2,\"cut"}) {
        try {
            tav::json2nbr::write(wrong, out, code, factory(), "im.Everything");
            holds(false, "a wrong message is refused");
        } catch (std::invalid_argument const &) {
            holds(same(out, "as it was"), "a refusal leaves the output");
        }
    }
}

void jsonToNbrKeepsItsOutput() {
    tavBytes out(tav_istr("as it was"));
    unsigned short code = 0xffff;
    try {
        tav::json2nbr::write(viewOf(written().json), out, code, factory(), "im.Everything");
    } catch (std::bad_alloc const &) {
        holds(same(out, "as it was"), "want of memory leaves the output");
        throw;
    }
}

void nbrToJson() {
    tavString json("as it was");
    try {
        tav::json2nbr::read(json, viewOf(written().nbr), 0x2001, factory(), false);
    } catch (std::bad_alloc const &) {
        holds(same(json, "as it was"), "want of memory leaves the output");
        throw;
    }
    Spared const spared;
    tav::json::JsonUnit unit;
    unit.decode(json);
    holds(unit["text"].asString() == sample().text && unit["rooms"].type() == tav::JsonFieldObject,
          "the message is read");
}

void nbrShown() {
    tavString line;
    tav::json2nbr::read(line, viewOf(written().nbr), "im.Everything", factory(), true);
    holds(bytesOf(line).find("a text of") != std::string_view::npos &&
              bytesOf(line).find("nobody") == std::string_view::npos,
          "the line shows the message and no secret");
}

void objectShown() {
    tavString const line = sample().dump(true, 0);
    bool const whole = same(line, written().line);
    holds(whole || isCutShort(bytesOf(line)),
          "the line is that of the message, or says that it is cut short");
    std::ostringstream out;
    out.exceptions(std::ios::badbit);
    out << static_cast<tavObject const &>(sample());
    Spared const spared;
    holds(same(out.str(), written().line) || isCutShort(out.str()), "an object prints as its line");
}

void objectCloned() {
    std::unique_ptr<tavObject> const copy(sample().clone());
    holds(copy != nullptr && copy->classEqual(sample()), "the copy is of the class");
    Everything assigned;
    assigned.assign(*copy);
    Spared const spared;
    holds(same(assigned.encode(true), written().nbr), "the copy is the message");
}

void fieldsListed() {
    tavCollectMetaStream fields;
    const_cast<Everything &>(sample()).io(fields);
    unsigned n = 0;
    fields.for_each_field([&n](tavFieldMeta const &) { ++n; });
    holds(n == 18 && fields.fields().size() == 18, "all fields are listed");
    tavNullStream nothing;
    const_cast<Everything &>(sample()).io(nothing);
    tavMsgExt ext;
    ext.traceId = tavString("a trace id that is no short one");
    holds(!ext.empty() && tavMsgExt(ext).traceId.value() == ext.traceId.value(), "an extension is copied");
}

} // namespace

Scenarios modelScenarios() {
    return {{"template_loaded", templateLoaded},
            {"template_refused", templateRefused},
            {"template_shown", templateShown},
            {"classes_copied_and_moved", classesCopiedAndMoved},
            {"json_to_nbr", jsonToNbr},
            {"json_to_nbr_refused", jsonToNbrRefused},
            {"json_to_nbr_keeps_its_output", jsonToNbrKeepsItsOutput},
            {"nbr_to_json", nbrToJson},
            {"nbr_shown", nbrShown},
            {"object_shown", objectShown},
            {"object_cloned", objectCloned},
            {"fields_listed", fieldsListed}};
}

} // namespace torture
} // namespace tav_test
