#include "tav/vinta/vinta_json_parser.h"

#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>

using tav::json::JsonParser;
using tav::json::JsonUnit;
using tav::json::JsonValue;
using tav_test::LogCapture;

namespace {

/// The compact form of what the text reads as, or "! " and the failure up to its position.
std::string parsed(std::string const & text) {
    try {
        tavSharedPtr<JsonValue> const value = JsonParser::from(text);
        return std::string(tav_istr(value->toJson()));
    } catch (std::invalid_argument const & e) {
        std::string const what = e.what();
        return "! " + what.substr(0, what.find("\n    throw at "));
    }
}

/// The position of the failure, with the line taken out.
std::string position(std::string const & text) {
    try {
        JsonParser::from(text);
    } catch (std::invalid_argument const & e) {
        std::string const what = e.what();
        std::string const mark = "\n    throw at ";
        std::size_t const at = what.find(mark);
        if (at == std::string::npos) {
            return "no mark";
        }
        std::string const site = what.substr(at + mark.size());
        std::size_t const colon = site.rfind(':');
        int line = 0;
        char end = 0;
        if (std::sscanf(site.c_str() + colon, ":%d%c", &line, &end) != 2 || line <= 0 || end != ')') {
            return "no line";
        }
        return site.substr(0, colon) + site.substr(site.size() - 1);
    }
    return "no failure";
}

/// The kind and text of a bare word.
std::string simple(std::string const & token) {
    tavSharedPtr<JsonValue> const value = JsonParser::fromSimple(token);
    if (!value) {
        return "null";
    }
    return std::to_string(static_cast<int>(value->type())) + ":" + std::string(tav_istr(value->asString()));
}

/// The kind and text of the only element of an array text.
std::string element(std::string const & text) {
    JsonUnit unit;
    unit.decode(text);
    JsonUnit const & constant = unit;
    if (constant.arrayValue() == nullptr || constant.arrayValue()->size() != 1) {
        return "not one element";
    }
    JsonUnit const & one = constant.arrayValue()->at(0);
    return std::to_string(static_cast<int>(one.type())) + ":" + std::string(tav_istr(one.asString()));
}

} // namespace

TEST(JsonParserTop, ObjectOrArray) {
    EXPECT_EQ("{ }", parsed("{}"));
    EXPECT_EQ("[ ]", parsed("[]"));
    EXPECT_EQ("{ }", parsed(" \t\r\n{}"));
    EXPECT_EQ("[ ]", parsed(" \t\r\n[]"));
}

TEST(JsonParserTop, AnythingElseFails) {
    for (char const * text : {"", "   ", "123", "\"x\"", "x{}", "}", "]", ",", "null", "\f{}", "\v{}"}) {
        EXPECT_EQ("! not object or array", parsed(text)) << text;
    }
    EXPECT_THROW(JsonParser::from(tav_istr()), std::invalid_argument);
    EXPECT_THROW(JsonParser::from(tav_istr(nullptr, 5)), std::invalid_argument);
}

TEST(JsonParserTop, TheTailIsNotLookedAt) {
    EXPECT_EQ("{ \"a\":1 }", parsed("{\"a\":1}xyz"));
    EXPECT_EQ("[ 1 ]", parsed("[1]]}\""));
}

TEST(JsonParserObject, Members) {
    EXPECT_EQ("{ \"a\":\"x\", \"b\":[ 1, 2 ] }", parsed("{b:[1,2],\"a\":\"x\"}"));
    EXPECT_EQ("{ \"a\":1, \"b\":{ \"c\":2 } }", parsed(" { \"a\" : 1 , \"b\" : { \"c\" : 2 } } "));
    EXPECT_EQ("{ \"a\":true, \"b\":false, \"c\":null }", parsed("{a:true,b:false,c:null}"));
}

TEST(JsonParserObject, NullMembersAreKept) {
    EXPECT_EQ("{ \"a\":null }", parsed("{\"a\":}"));
    EXPECT_EQ("{ \"a\":null, \"b\":1 }", parsed("{\"a\":,b:1}"));
    EXPECT_EQ("{ \"a\":null }", parsed("{a:null}"));
}

TEST(JsonParserObject, TheLastValueOfANameStands) {
    EXPECT_EQ("{ \"a\":2 }", parsed("{\"a\":1,\"a\":2}"));
    EXPECT_EQ("{ \"a\":{ \"y\":2 } }", parsed("{\"a\":{x:1},\"a\":{y:2}}"));
    EXPECT_EQ("{ \"a\":null }", parsed("{\"a\":[1],\"a\":null}"));
}

TEST(JsonParserObject, MayEndBehindItsBracketOrAComma) {
    EXPECT_EQ("{ }", parsed("{"));
    EXPECT_EQ("{ \"a\":1 }", parsed("{\"a\":1,"));
    EXPECT_EQ("{ \"a\":1 }", parsed("{\"a\":1 ,"));
    EXPECT_EQ("{ \"a\":1 }", parsed("{\"a\":1,}"));
    EXPECT_EQ("! no name : ", parsed("{ "));
    EXPECT_EQ("! no name : ", parsed("{\"a\":1, "));
}

TEST(JsonParserObject, AnItemNeedsItsEnd) {
    EXPECT_EQ("! pair value no end : ", parsed("{\"a\":1"));
    EXPECT_EQ("! pair value no end : ", parsed("{\"a\":\"x"));
    EXPECT_EQ("! pair value no end : ", parsed("{\"a\":"));
    EXPECT_EQ("! pair value no end : ]", parsed("{\"a\":1 ]"));
    EXPECT_EQ("! pair value no end : x}", parsed("{\"a\":\"b\" x}"));
    EXPECT_EQ("! pair value no end : :2}", parsed("{\"a\":{}:2}"));
    EXPECT_EQ("! pair value no end : ", parsed("{\"a\":{}  "));
}

TEST(JsonParserObject, UnterminatedInnerTailFailsInTheOuterOne) {
    EXPECT_EQ("! pair value no end : ", parsed("{\"a\":["));
    EXPECT_EQ("! pair value no end : ", parsed("{\"a\":{"));
    EXPECT_EQ("! pair value no end : ", parsed("{\"a\":{b:1,"));
    EXPECT_EQ("! array value no end : ", parsed("[["));
    EXPECT_EQ("! array value no end : ", parsed("[{"));
    EXPECT_EQ("! array value no end : ", parsed("[[1,"));
}

TEST(JsonParserArray, Elements) {
    EXPECT_EQ("[ 1, \"a\", true, { }, [ ] ]", parsed("[1,a,true,{},[]]"));
    EXPECT_EQ("[ 1, 2 ]", parsed(" [ 1 , 2 ] "));
}

TEST(JsonParserArray, NullElementsAreDropped) {
    EXPECT_EQ("[ ]", parsed("[null]"));
    EXPECT_EQ("[ ]", parsed("[,]"));
    EXPECT_EQ("[ ]", parsed("[ ]"));
    EXPECT_EQ("[ 1, 2 ]", parsed("[1,,2]"));
    EXPECT_EQ("[ 1, 2 ]", parsed("[1,null,2]"));
    EXPECT_EQ("[ 1 ]", parsed("[1,]"));
    EXPECT_EQ("[ \"null\" ]", parsed("[\"null\"]"));
}

TEST(JsonParserArray, MayEndBehindItsBracketOrAComma) {
    EXPECT_EQ("[ ]", parsed("["));
    EXPECT_EQ("[ 1 ]", parsed("[1,"));
    EXPECT_EQ("[ ]", parsed("[,"));
    EXPECT_EQ("! array value no end : ", parsed("[ "));
    EXPECT_EQ("! array value no end : ", parsed("[1, "));
}

TEST(JsonParserArray, AnElementNeedsItsEnd) {
    EXPECT_EQ("! array value no end : ", parsed("[1"));
    EXPECT_EQ("! array value no end : ", parsed("['x"));
    EXPECT_EQ("! array value no end : }", parsed("[1}"));
    EXPECT_EQ("! array value no end : x]", parsed("['a' x]"));
    EXPECT_EQ("! array value no end : [2]]", parsed("[[1] [2]]"));
}

TEST(JsonParserName, QuotesAreNotNeeded) {
    EXPECT_EQ("{ \"a\":1 }", parsed("{a:1}"));
    EXPECT_EQ("{ \"some name\":1 }", parsed("{ some name : 1 }"));
    EXPECT_EQ("{ \"a\":1 }", parsed("{'a':1}"));
    EXPECT_EQ("{ \" a \":1 }", parsed("{\" a \" :1}"));
    EXPECT_EQ("{ \"1\":1 }", parsed("{1:1}"));
}

TEST(JsonParserName, WithoutAColonThereIsNoMember) {
    EXPECT_EQ("{ }", parsed("{\"a\"}"));
    EXPECT_EQ("{ }", parsed("{a}"));
    EXPECT_EQ("{ }", parsed("{ \"a\" }"));
    EXPECT_EQ("{ }", parsed("{ }"));
    EXPECT_EQ("{ \"a\":1 }", parsed("{a:1,b}"));
}

TEST(JsonParserName, NeedsItsEnd) {
    EXPECT_EQ("! no name : ", parsed("{a"));
    EXPECT_EQ("! no name : ", parsed("{\"a\""));
    EXPECT_EQ("! no name : ", parsed("{\"a"));
    EXPECT_EQ("! no name : ", parsed("{\"a\"  "));
    EXPECT_EQ("! no name : ,b:1}", parsed("{a,b:1}"));
    EXPECT_EQ("! no name : ,}", parsed("{,}"));
    EXPECT_EQ("! no name : b:1}", parsed("{\"a\" b:1}"));
    EXPECT_EQ("! no name : \"b\":1}", parsed("{a\"b\":1}"));
    EXPECT_EQ("! no name : [1]}", parsed("{[1]}"));
    EXPECT_EQ("! no name : {}}", parsed("{{}}"));
    EXPECT_EQ("! no name : ]", parsed("{]"));
}

TEST(JsonParserName, EmptyOneIsLost) {
    EXPECT_EQ("! pair value no end : 1}", parsed("{\"\":1}"));
    EXPECT_EQ("! pair value no end : 1}", parsed("{'':1}"));
    EXPECT_EQ("! pair value no end : 1}", parsed("{:1}"));
    EXPECT_EQ("! pair value no end : 1}", parsed("{null:1}"));
    EXPECT_EQ("{ \"null\":1 }", parsed("{\"null\":1}"));
    EXPECT_EQ("{ }", parsed("{\"\":}"));
    EXPECT_EQ("{ \"a\":1 }", parsed("{\"\":,a:1}"));
    EXPECT_EQ("! pair value no end : ", parsed("{\"\":"));
}

TEST(JsonParserName, IsUnescapedAlsoWithoutQuotes) {
    EXPECT_EQ("{ \"a\tb\":1 }", parsed("{a\\tb:1}"));
    EXPECT_EQ("{ \"a\tb\":1 }", parsed("{\"a\\tb\":1}"));
    EXPECT_EQ("{ \"65\":1 }", parsed("{\"\\u0041\":1}"));
    EXPECT_EQ("{ \"\"\":1 }", parsed("{\"\\\"\":1}"));
    EXPECT_EQ("{ \"\\\":1 }", parsed("{\\:1}"));
    EXPECT_EQ("{ \"\\\":1 }", parsed("{\"\\\\\":1}"));
    EXPECT_EQ("{ \"a\tb\":1, \"c\nd\":2 }", parsed("{a\\tb:1,c\\nd:2}"));
    EXPECT_EQ("{ \"a\tb\":{ \"c\nd\":2 } }", parsed("{a\\tb:{c\\nd:2}}"));
}

TEST(JsonParserValue, BareWordNeedsItsEnd) {
    EXPECT_EQ("! no value end : \"x\"]", parsed("[1\"x\"]"));
    EXPECT_EQ("! no value end : 'x']", parsed("[a'x']"));
    EXPECT_EQ("! no value end : :2}", parsed("{a:b:2}"));
    EXPECT_EQ("! no value end : {}]", parsed("[x{}]"));
    EXPECT_EQ("! no value end : [1]]", parsed("[x[1]]"));
    EXPECT_EQ("! no value end : :1]", parsed("[:1]"));
    // A bracket of the wrong kind ends the word, and then not the container.
    EXPECT_EQ("! array value no end : }", parsed("[x}"));
    EXPECT_EQ("! pair value no end : ]", parsed("{a:x]"));
}

TEST(JsonParserValue, Kinds) {
    EXPECT_EQ("3:x", element("['x']"));
    EXPECT_EQ("3:x y", element("[x y]"));
    EXPECT_EQ("3:x y", element("[ x y \t\r\n]"));
    EXPECT_EQ("3:-", element("[-]"));
    EXPECT_EQ("2:-1", element("[-1]"));
    EXPECT_EQ("3:TRUE", element("[TRUE]"));
    EXPECT_EQ("1:true", element("[true]"));
    EXPECT_EQ("2:1 2", element("[1 2]"));
    EXPECT_EQ("3:true x", element("[true x]"));
    EXPECT_EQ("3:\f1\v", element("[\f1\v]"));
    EXPECT_EQ("3:12", element("['12']"));
}

TEST(JsonParserValue, QuotedTextIsUnescapedAndABareOneIsNot) {
    EXPECT_EQ("3:a\tb", element("[\"a\\tb\"]"));
    EXPECT_EQ("3:a\\tb", element("[a\\tb]"));
    EXPECT_EQ("3:65", element("['\\u0041']"));
    EXPECT_EQ("3:", element("['']"));
    EXPECT_EQ("3:'", element("[\"'\"]"));
    EXPECT_EQ("3:\"", element("['\"']"));
    EXPECT_EQ("3:a\"b", element("[\"a\\\"b\"]"));
    EXPECT_EQ("3:a\\", element("[\"a\\\\\"]"));
    EXPECT_EQ("3:{}[]:,", element("['{}[]:,']"));
    EXPECT_EQ("3:\n", element("['\n']"));
}

TEST(JsonParserValue, NulBelongsToTheWord) {
    EXPECT_EQ(std::string("3:a\0b", 5), element(std::string("[a\0b]", 5)));
    EXPECT_EQ(std::string("3:\0", 3), element(std::string("[\0]", 3)));
    EXPECT_EQ(std::string("3:a\0", 4), element(std::string("['a\0']", 6)));
    EXPECT_EQ("! array value no end : ", parsed(std::string("[a\0", 3)));
}

TEST(JsonParserValue, QuoteAtEachPlaceIsFound) {
    for (unsigned n = 0; n < 40; ++n) {
        std::string const text(n, 'a');
        EXPECT_EQ("3:" + text, element("[\"" + text + "\"]"));
        EXPECT_EQ("3:" + text, element("['" + text + "']"));
        EXPECT_EQ("3:" + text + "'b\"", element("['" + text + "\\'b\\\"']"));
        EXPECT_EQ("3:'" + text, element("[\"'" + text + "\"]"));
        EXPECT_EQ("3:\x80\xFF" + text + "\xA2\xA7\xDC", element("[\"\x80\xFF" + text + "\xA2\xA7\xDC\"]"));
    }
}

TEST(JsonParserValue, UnterminatedStringRunsToTheEnd) {
    EXPECT_EQ("! array value no end : ", parsed("[\"a]"));
    EXPECT_EQ("! array value no end : ", parsed("[\"a\\"));
    EXPECT_EQ("! array value no end : ", parsed("[\"a\\\""));
    EXPECT_EQ("! array value no end : ", parsed("[\""));
    EXPECT_EQ("! no name : ", parsed("{\""));
}

TEST(JsonParserValue, NumbersKeepEveryDigit) {
    EXPECT_EQ("[ 1.50, -0, 1e5, 007 ]", parsed("[1.50,-0,1e5,007]"));
    EXPECT_EQ("[ \"12345678901234567890\" ]", parsed("[12345678901234567890]"));
    EXPECT_EQ("2:\"12345678901234567890\"", element("[12345678901234567890]"));
}

TEST(JsonParserSimple, Words) {
    EXPECT_EQ("null", simple(""));
    EXPECT_EQ("null", simple("null"));
    EXPECT_EQ("1:true", simple("true"));
    EXPECT_EQ("1:false", simple("false"));
    EXPECT_EQ("2:1abc", simple("1abc"));
    EXPECT_EQ("2:-1", simple("-1"));
    EXPECT_EQ("2:-0x", simple("-0x"));
    EXPECT_EQ("2:0", simple("0"));
    EXPECT_EQ("3:-", simple("-"));
    EXPECT_EQ("3:-a", simple("-a"));
    EXPECT_EQ("3:--1", simple("--1"));
    EXPECT_EQ("3:+1", simple("+1"));
    EXPECT_EQ("3:.5", simple(".5"));
    EXPECT_EQ("3:NULL", simple("NULL"));
    EXPECT_EQ("3:True", simple("True"));
    EXPECT_EQ("3: null", simple(" null"));
    EXPECT_EQ("3:a\\n", simple("a\\n"));
    EXPECT_EQ("3:'x'", simple("'x'"));
    EXPECT_FALSE(static_cast<bool>(JsonParser::fromSimple(tav_istr())));
}

TEST(JsonParserResult, ValuesAreOwnedOnce) {
    std::string text = "{a:[1,'x',{}]}";
    tavSharedPtr<JsonValue> const root = JsonParser::from(text);
    text.assign(text.size(), '#');
    EXPECT_EQ(1u, root->getRefCount());
    JsonUnit const unit(root);
    JsonUnit const & array = unit.child("a");
    EXPECT_EQ(1u, array.value()->getRefCount());
    for (JsonUnit const & one : *array.arrayValue()) {
        EXPECT_EQ(1u, one.value()->getRefCount());
    }
    EXPECT_EQ("{ \"a\":[ 1, \"x\", { } ] }", unit.toString(false));
}

TEST(JsonParserFailure, PositionNamesTheFunction) {
    EXPECT_EQ("JsonParser::from(vinta_json_parser.cpp)", position("x"));
    EXPECT_EQ("JsonParser::parseObject(vinta_json_parser.cpp)", position("{a:1"));
    EXPECT_EQ("JsonParser::parseArray(vinta_json_parser.cpp)", position("[1"));
    EXPECT_EQ("JsonParser::parseValue(vinta_json_parser.cpp)", position("[1:"));
    EXPECT_EQ("JsonParser::parseName(vinta_json_parser.cpp)", position("{a"));
}

TEST(JsonParserFailure, IsLoggedUnderTheDefaultTag) {
    LogCapture log("default(ERROR)");
    EXPECT_THROW(JsonParser::from("[1 x{y"), std::invalid_argument);
    tavLogger::flush();
    LogCapture::Record const record = log.find("<EXCEPTION> ");
    EXPECT_EQ(static_cast<int>(tavLogger::ERROR), record.level);
    EXPECT_NE(std::string::npos, record.text.find("<EXCEPTION> no value end : {y\n")) << record.text;
    EXPECT_NE(std::string::npos, record.text.find("JsonParser::parseValue")) << record.text;
    EXPECT_EQ(1u, log.count("<EXCEPTION> "));
}

TEST(JsonParserFailure, IsSilentBelowError) {
    LogCapture log("default(ASSERT)");
    EXPECT_THROW(JsonParser::from("[1"), std::invalid_argument);
    tavLogger::flush();
    EXPECT_TRUE(log.records().empty());
}

TEST(JsonParserFailure, CarriesTheWholeRest) {
    std::string const tail(100000, 'z');
    EXPECT_EQ("! pair value no end : " + tail, parsed("{a:'1' " + tail));
}
