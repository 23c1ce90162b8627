#include "formats/json/json_tape.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

using tav::detail::JsonTape;
using tav::json::JsonParser;
using tav::json::JsonUnit;

namespace {

/// Every value with its type, so that a number and a string of one text differ.
std::string shown(JsonUnit const & unit) {
    tavString const text = unit.toString(false);
    std::string all = std::to_string(unit.type()) + ":";
    if (unit.arrayValue() != nullptr) {
        for (JsonUnit const & element : *unit.arrayValue()) {
            all += "[" + shown(element) + "]";
        }
        return all;
    }
    if (unit.objectValue() != nullptr) {
        for (auto const & member : *unit.objectValue()) {
            all += "{" + std::string(member.first.data(), member.first.size()) + "=" + shown(member.second) +
                   "}";
        }
        return all;
    }
    return all + std::string(text.data(), text.size());
}

/// The tree that a tape stands for.
JsonUnit treeOf(JsonTape const & tape, unsigned i) {
    JsonTape::Node const & node = tape.node(i);
    tav_istr const text(node.text.data(), node.text.size());
    JsonUnit unit;
    switch (node.type) {
    case tav::JsonFieldNull: break;
    case tav::JsonFieldBoolean: unit << node.truth; break;
    case tav::JsonFieldNumber: unit.numberValue().setValue(text); break;
    case tav::JsonFieldString: unit << text; break;
    case tav::JsonFieldArray:
        unit.arrayValue();
        for (unsigned k = i + 1; k < node.next; k = tape.node(k).next) {
            unit.arrayValue().add(treeOf(tape, k));
        }
        break;
    case tav::JsonFieldObject:
        unit.objectValue();
        for (unsigned k = i + 1; k < node.next; k = tape.node(k).next) {
            std::string_view const name = tape.node(k).name;
            unit.objectValue().put(tav_istr(name.data(), name.size()), treeOf(tape, k));
        }
        break;
    }
    return unit;
}

/// The text of a failure, with its place but for the line.
std::string failureOf(std::invalid_argument const & e) {
    std::string const text = e.what();
    return text.substr(0, text.rfind(':'));
}

std::string byTape(std::string const & text) {
    try {
        JsonTape const tape{tav_istr(text)};
        return shown(treeOf(tape, 0));
    } catch (std::invalid_argument const & e) {
        return failureOf(e);
    }
}

std::string byParser(std::string const & text) {
    try {
        return shown(JsonUnit(JsonParser::from(tav_istr(text))));
    } catch (std::invalid_argument const & e) {
        return failureOf(e);
    }
}

std::vector<std::string> const & texts() {
    static std::vector<std::string> const all = {
        "",
        " ",
        "123",
        "\"x\"",
        "{",
        "[",
        "{ ",
        "[ ",
        "{}",
        "[]",
        "[,]",
        "[,",
        "{\"a\":1",
        "{\"a\":1,",
        "{\"a\":}",
        "{a:1}xyz",
        "{ some name : 1 2 }",
        "{\"a\"}",
        "{a}",
        "{a",
        "{:1}",
        "{\"\":1}",
        "{\"\":}",
        "{null:1}",
        "{null:}",
        "{\"null\":null}",
        "{null}",
        "{a\\tb:1}",
        "{\\:1}",
        "{\"\\u0041\":\"\\u4e2d\\n\\/\\q\\\\\"}",
        "['x',\"y'\",'a\\'b']",
        "['unterminated",
        "{'unterminated",
        "{a:'unterminated\\",
        "{\"a\\",
        "['",
        "[\"",
        "[null,1,null,,-,-1,1abc,TRUE,true,false,nullx,x y ,\t]",
        "{b:2,a:1,b:3,a:null,c:[{},[],{x:[1,{y:2}]}]}",
        "{\"long name of more than sixteen\":\"a value \\\" with escapes that is long enough for the heap\"}",
        "[1:2]",
        "[1}",
        "{a:1]",
        "{a:{b:1}",
        "[[1]",
        "[1 'x']",
        "{a 'b':1}",
        "{\"a\" b:1}",
        std::string("[1\0,2]", 7),
        std::string("{a\0b:\"\0\"}", 9),
        "\v{}",
        "[\f]",
        "{\"__class__\":\"im.Hello\",\"user\":\"ann\",\"seq\":\"5\",\"tags\":[\"a\"],\"mood\":1}"};
    return all;
}

} // namespace

TEST(JsonTape, AgreesWithTheParser) {
    for (std::string const & text : texts()) {
        EXPECT_EQ(byParser(text), byTape(text)) << text;
    }
}

TEST(JsonTape, AgreesWithTheParserOnCutTexts) {
    for (std::string const & text : texts()) {
        for (std::size_t n = 0; n < text.size(); ++n) {
            EXPECT_EQ(byParser(text.substr(0, n)), byTape(text.substr(0, n))) << text.substr(0, n);
        }
    }
}

TEST(JsonTape, AgreesWithTheParserOnRandomTexts) {
    static char const bytes[] = "{{{}}}[[]]::,,,\"\"''\\\\ntu01-ab null";
    std::mt19937 random(99);
    for (int i = 0; i < 20000; ++i) {
        std::string text = random() % 4 != 0 ? "{" : "[";
        for (auto n = random() % 16; n > 0; --n) {
            text += bytes[random() % (sizeof(bytes) - 1)];
        }
        ASSERT_EQ(byParser(text), byTape(text)) << text;
    }
}

TEST(JsonTape, AgreesWithTheParserOnChangedTexts) {
    std::mt19937 random(98);
    for (std::string const & text : texts()) {
        for (int i = 0; i < 100 && !text.empty(); ++i) {
            std::string changed = text;
            changed[random() % changed.size()] = "{}[]:,\"'\\ n"[random() % 11];
            ASSERT_EQ(byParser(changed), byTape(changed)) << changed;
        }
    }
}

TEST(JsonTape, KeepsMembersOfOneNameInTheirOrder) {
    JsonTape const tape("{a:1,b:[2],a:3}");
    EXPECT_EQ(tav::JsonFieldObject, tape.node(0).type);
    EXPECT_EQ(tape.node(0).next, 5u);
    EXPECT_EQ(tape.node(1).name, "a");
    EXPECT_EQ(tape.node(1).text, "1");
    EXPECT_EQ(tape.node(2).name, "b");
    EXPECT_EQ(tape.node(2).next, 4u);
    EXPECT_EQ(tape.node(3).name, "");
    EXPECT_EQ(tape.node(4).name, "a");
    EXPECT_EQ(tape.node(4).text, "3");
}
