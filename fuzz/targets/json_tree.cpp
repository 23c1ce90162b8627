#include "formats/json/json_tape.h"
#include "fuzz/seeds.h"
#include "tav/vinta/vinta_json_parser.h"

#include <algorithm>
#include <memory>

// JSON as a tree and as a tape, which must be one; and printed and read again.

namespace tav_fuzz {
namespace {

using tav::detail::JsonTape;
using tav::json::JsonParser;
using tav::json::JsonUnit;

constexpr std::ptrdiff_t deepest = 300;

bool isDeep(std::string_view text) {
    return std::count(text.begin(), text.end(), '[') + std::count(text.begin(), text.end(), '{') > deepest;
}

/// Every value with its type, so that a number and a string of one text differ.
std::string shown(JsonUnit const & unit) {
    std::string all = std::to_string(unit.type()) + ":";
    if (unit.arrayValue() != nullptr) {
        for (JsonUnit const & element : *unit.arrayValue()) {
            all += "[" + shown(element) + "]";
        }
        return all;
    }
    if (unit.objectValue() != nullptr) {
        for (auto const & member : *unit.objectValue()) {
            all += "{" + std::string(textOf(member.first)) + "=" + shown(member.second) + "}";
        }
        return all;
    }
    return all + std::string(textOf(unit.toString(false)));
}

/// The tree that a tape stands for.
JsonUnit treeOf(JsonTape const & tape, unsigned i) {
    JsonTape::Node const & node = tape.node(i);
    JsonUnit unit;
    switch (node.type) {
    case tav::JsonFieldNull: break;
    case tav::JsonFieldBoolean: unit << node.truth; break;
    case tav::JsonFieldNumber: unit.numberValue().setValue(viewOf(node.text)); break;
    case tav::JsonFieldString: unit << viewOf(node.text); break;
    case tav::JsonFieldArray:
        unit.arrayValue();
        for (unsigned k = i + 1; k < node.next; k = tape.node(k).next) {
            unit.arrayValue().add(treeOf(tape, k));
        }
        break;
    case tav::JsonFieldObject:
        unit.objectValue();
        for (unsigned k = i + 1; k < node.next; k = tape.node(k).next) {
            unit.objectValue().put(viewOf(tape.node(k).name), treeOf(tape, k));
        }
        break;
    }
    return unit;
}

/// Whether a text comes back as it is: without what is escaped by a number, and in a name without escapes.
bool isPlain(std::string_view text, bool name) {
    return std::none_of(text.begin(), text.end(), [name](char c) {
        auto const byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7f || (name && (c == '"' || c == '\\' || c == '\''));
    });
}

bool isPlain(JsonUnit const & unit) {
    if (unit.arrayValue() != nullptr) {
        auto const & all = unit.arrayValue()->elements();
        return std::all_of(all.begin(), all.end(), [](JsonUnit const & each) { return isPlain(each); });
    }
    if (unit.objectValue() != nullptr) {
        for (auto const & member : *unit.objectValue()) {
            std::string_view const name = textOf(member.first);
            bool const blanks = !name.empty() && (name.front() == ' ' || name.back() == ' ');
            if (blanks || !isPlain(name, true) || !isPlain(member.second)) {
                return false;
            }
        }
        return true;
    }
    if (unit.numberValue() != nullptr) {
        // A long one stands in quotes as it is, where an escape is read as one.
        return isPlain(textOf(unit.numberValue()->getValue()), true);
    }
    tavString text;
    unit >> text;
    return isPlain(textOf(text), false);
}

struct Outcome {
    std::string failed;
    std::string shown;
    std::string log;
};

/// The text of a failure but for the line of its place.
std::string placeless(std::string const & text) {
    return text.substr(0, text.rfind(':'));
}

Outcome byParser(std::string_view input) {
    LogLines lines;
    Outcome out;
    JsonUnit unit;
    out.failed = placeless(failureOf([&] {
        withinHeap(
            input, [&] { unit.decode(viewOf(input)); }, jsonTreeHeap);
    }));
    out.log = lines.take();
    if (out.failed.empty() && !input.empty() && !isDeep(input)) {
        out.shown = shown(unit);
    }
    return out;
}

Outcome byTape(std::string_view input) {
    LogLines lines;
    Outcome out;
    out.failed = placeless(failureOf([&] {
        std::unique_ptr<JsonTape> made;
        withinHeap(
            input, [&] { made = std::make_unique<JsonTape>(viewOf(input)); }, jsonTapeHeap);
        JsonTape const & tape = *made;
        if (!isDeep(input)) {
            out.shown = shown(treeOf(tape, 0));
        }
    }));
    out.log = lines.take();
    return out;
}

std::string printed(std::string_view input) {
    JsonUnit unit;
    unit.decode(viewOf(input));
    return std::string(textOf(unit.toString(false)));
}

void checkPrint(std::string_view input) {
    JsonUnit unit;
    unit.decode(viewOf(input));
    std::string const once = withinHeap(
        input, [&] { return std::string(textOf(unit.toString(false))); }, walkHeap);
    if (isDeep(input)) {
        return;
    }
    if (input.size() <= 512) {
        unit.toString(true);
    }
    if (isPlain(unit)) {
        requireSame(printed(once), once, "what was printed is read the same");
    }
}

void run(std::string_view input) {
    Outcome const parser = byParser(input);
    if (!input.empty()) {
        Outcome const tape = byTape(input);
        requireSame(tape.failed, parser.failed, "tape and parser fail alike");
        requireSame(tape.shown, parser.shown, "tape and parser read alike");
        requireSame(tape.log, parser.log, "tape and parser log alike");
    }
    if (parser.failed.empty() && !input.empty()) {
        checkPrint(input);
    }
}

void seeds(Seeds & out, Random & random) {
    for (char const * const text : {"{a:1}",
                                    "{'a':1}",
                                    "{ some name : 1 }",
                                    "[x y]",
                                    "[1abc,-1,1 2]",
                                    "{\"a\":1,",
                                    "[1,",
                                    "{",
                                    "[",
                                    "[1,null,2]",
                                    "[1,,2]",
                                    "{\"a\":1,\"a\":2}",
                                    "{\"a\"}",
                                    "{\"\":1}",
                                    "{null:1}",
                                    "{\"a\":1}xyz",
                                    "[\"\\u0041\"]",
                                    "{ \"a\":\"x\", \"b\":[ 1, 2 ] }",
                                    "[1234567890123456789]",
                                    "[[[[]]]]",
                                    "{\"a\":{\"b\":{}}}"}) {
        out.push_back(text);
    }
    fillUp(out, random, 240, [&] {
        return below(random, 3) == 0 ? randomJsonMessage(random) : "[" + randomJson(random, 4) + "]";
    });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("[", part, ",", "1]", size);
}

TAV_FUZZ_TARGET(json_tree, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
