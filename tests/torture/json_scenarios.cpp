#include "torture/sample.h"
#include "torture/scenarios.h"

#include <sstream>
#include <stdexcept>

namespace tav_test {
namespace torture {
namespace {

namespace json = tav::json;

void encoded() {
    tavString const text = sample().encodeJson(true);
    holds(same(text, written().json), "the text is that of the message");
}

void decoded() {
    Everything read;
    read.decodeJson(viewOf(written().json));
    Spared const spared;
    holds(same(read.encodeJson(true), written().json), "what was read is what was written");
}

void encodedByStreams() {
    json::JsonUnit unit;
    tavJsonOutStream out(new json::JsonOutputStream(unit), true);
    const_cast<Everything &>(sample()).io(out);
    Spared const spared;
    holds(unit["text"].asString() == sample().text && unit["rooms"].type() == tav::JsonFieldObject,
          "the members are those of the message");
}

void decodedByStreams() {
    Everything read;
    tavJsonInStream in(viewOf(written().json));
    read.io(in);
    Spared const spared;
    holds(same(read.encodeJson(true), written().json), "what was read is what was written");
}

void fieldsMissing() {
    Everything read;
    try {
        read.decodeJson("{\"urgent\":true, \"place\":{\"floor\":1}}");
        holds(false, "a message without its fields is refused");
    } catch (std::invalid_argument const &) {
        // As it has to be.
    }
}

void parsed() {
    json::JsonUnit unit;
    unit.decode(viewOf(written().json));
    holds(unit["place"]["city"].type() == tav::JsonFieldString, "members are found");
    tavString text;
    unit["text"] >> text;
    holds(text == sample().text, "a text is read");
}

void refusedText() {
    json::JsonUnit unit;
    try {
        unit.decode("{\"a\":[1,2,{\"b\":\"a text that is cut");
        holds(false, "what is no JSON is refused");
    } catch (std::invalid_argument const &) {
        holds(unit.isNull(), "a unit keeps what it has");
    }
}

void built() {
    json::JsonUnit unit;
    unit["a name that is rather long for a member"] << "a text that is rather long, too, for a member";
    unit["list"].newChild() << 5;
    unit["list"].newChild() << 1.25;
    unit["list"].newChild() << 123456789012345ll;
    unit["bytes"] << sample().digest;
    unit["wide"] << std::wstring(L"wide text of some length that is more than a few");
    json::JsonObject const copy(unit.objectValue());
    json::JsonUnit shared = unit;
    shared["list"].setNull();
    holds(copy.get("list") != nullptr && unit["list"].isNull() && unit["bytes"].asString().size() == 64,
          "all members are there");
}

void formatted() {
    static json::JsonUnit const & unit = []() -> json::JsonUnit const & {
        Spared const spared;
        auto * const made = new json::JsonUnit;
        made->decode(viewOf(written().json));
        return *made;
    }();
    tavString const pretty = unit.toString(true);
    tavString const sampled = unit.value()->toFormattedSample();
    tavString const line = unit.value()->toJson();
    holds(pretty.size() > line.size() && sampled.size() > 500 && line.size() > 500, "all forms are whole");
    std::ostringstream out;
    out.exceptions(std::ios::badbit);
    unit.dump(out);
    holds(static_cast<std::size_t>(out.tellp()) == line.size(), "a unit prints as its text");
}

void escaped() {
    tavString const text = json::JsonString::escape(tavOptional<tavString>(sample().text));
    tavOptional<tavString> const plain = json::JsonString::unescape(text);
    holds(plain && *plain == sample().text, "a text comes back");
    auto const value = json::JsonString::from(text);
    holds(value && value->getValue() == sample().text, "a value of it is the same");
}

} // namespace

Scenarios jsonScenarios() {
    return {{"encoded", encoded},
            {"decoded", decoded},
            {"encoded_by_streams", encodedByStreams},
            {"decoded_by_streams", decodedByStreams},
            {"fields_missing", fieldsMissing},
            {"parsed", parsed},
            {"refused", refusedText},
            {"built", built},
            {"formatted", formatted},
            {"escaped", escaped}};
}

} // namespace torture
} // namespace tav_test
