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
    EXPECT_EQ(parsed("{}"), "{ }");
    EXPECT_EQ(parsed("[]"), "[ ]");
    EXPECT_EQ(parsed(" \t\r\n{}"), "{ }");
    EXPECT_EQ(parsed(" \t\r\n[]"), "[ ]");
}

TEST(JsonParserTop, AnythingElseFails) {
    for (char const * text : {"", "   ", "123", "\"x\"", "x{}", "}", "]", ",", "null", "\f{}", "\v{}"}) {
        EXPECT_EQ(parsed(text), "! not object or array") << text;
    }
    EXPECT_THROW(JsonParser::from(tav_istr()), std::invalid_argument);
    EXPECT_THROW(JsonParser::from(tav_istr(nullptr, 5)), std::invalid_argument);
}

TEST(JsonParserTop, TheTailIsNotLookedAt) {
    EXPECT_EQ(parsed("{\"a\":1}xyz"), "{ \"a\":1 }");
    EXPECT_EQ(parsed("[1]]}\""), "[ 1 ]");
}

TEST(JsonParserObject, Members) {
    EXPECT_EQ(parsed("{b:[1,2],\"a\":\"x\"}"), "{ \"a\":\"x\", \"b\":[ 1, 2 ] }");
    EXPECT_EQ(parsed(" { \"a\" : 1 , \"b\" : { \"c\" : 2 } } "), "{ \"a\":1, \"b\":{ \"c\":2 } }");
    EXPECT_EQ(parsed("{a:true,b:false,c:null}"), "{ \"a\":true, \"b\":false, \"c\":null }");
}

TEST(JsonParserObject, NullMembersAreKept) {
    EXPECT_EQ(parsed("{\"a\":}"), "{ \"a\":null }");
    EXPECT_EQ(parsed("{\"a\":,b:1}"), "{ \"a\":null, \"b\":1 }");
    EXPECT_EQ(parsed("{a:null}"), "{ \"a\":null }");
}

TEST(JsonParserObject, TheLastValueOfANameStands) {
    EXPECT_EQ(parsed("{\"a\":1,\"a\":2}"), "{ \"a\":2 }");
    EXPECT_EQ(parsed("{\"a\":{x:1},\"a\":{y:2}}"), "{ \"a\":{ \"y\":2 } }");
    EXPECT_EQ(parsed("{\"a\":[1],\"a\":null}"), "{ \"a\":null }");
}

TEST(JsonParserObject, MayEndBehindItsBracketOrAComma) {
    EXPECT_EQ(parsed("{"), "{ }");
    EXPECT_EQ(parsed("{\"a\":1,"), "{ \"a\":1 }");
    EXPECT_EQ(parsed("{\"a\":1 ,"), "{ \"a\":1 }");
    EXPECT_EQ(parsed("{\"a\":1,}"), "{ \"a\":1 }");
    EXPECT_EQ(parsed("{ "), "! no name : ");
    EXPECT_EQ(parsed("{\"a\":1, "), "! no name : ");
}

TEST(JsonParserObject, AnItemNeedsItsEnd) {
    EXPECT_EQ(parsed("{\"a\":1"), "! pair value no end : ");
    EXPECT_EQ(parsed("{\"a\":\"x"), "! pair value no end : ");
    EXPECT_EQ(parsed("{\"a\":"), "! pair value no end : ");
    EXPECT_EQ(parsed("{\"a\":1 ]"), "! pair value no end : ]");
    EXPECT_EQ(parsed("{\"a\":\"b\" x}"), "! pair value no end : x}");
    EXPECT_EQ(parsed("{\"a\":{}:2}"), "! pair value no end : :2}");
    EXPECT_EQ(parsed("{\"a\":{}  "), "! pair value no end : ");
}

TEST(JsonParserObject, UnterminatedInnerTailFailsInTheOuterOne) {
    EXPECT_EQ(parsed("{\"a\":["), "! pair value no end : ");
    EXPECT_EQ(parsed("{\"a\":{"), "! pair value no end : ");
    EXPECT_EQ(parsed("{\"a\":{b:1,"), "! pair value no end : ");
    EXPECT_EQ(parsed("[["), "! array value no end : ");
    EXPECT_EQ(parsed("[{"), "! array value no end : ");
    EXPECT_EQ(parsed("[[1,"), "! array value no end : ");
}

TEST(JsonParserArray, Elements) {
    EXPECT_EQ(parsed("[1,a,true,{},[]]"), "[ 1, \"a\", true, { }, [ ] ]");
    EXPECT_EQ(parsed(" [ 1 , 2 ] "), "[ 1, 2 ]");
}

TEST(JsonParserArray, NullElementsAreDropped) {
    EXPECT_EQ(parsed("[null]"), "[ ]");
    EXPECT_EQ(parsed("[,]"), "[ ]");
    EXPECT_EQ(parsed("[ ]"), "[ ]");
    EXPECT_EQ(parsed("[1,,2]"), "[ 1, 2 ]");
    EXPECT_EQ(parsed("[1,null,2]"), "[ 1, 2 ]");
    EXPECT_EQ(parsed("[1,]"), "[ 1 ]");
    EXPECT_EQ(parsed("[\"null\"]"), "[ \"null\" ]");
}

TEST(JsonParserArray, MayEndBehindItsBracketOrAComma) {
    EXPECT_EQ(parsed("["), "[ ]");
    EXPECT_EQ(parsed("[1,"), "[ 1 ]");
    EXPECT_EQ(parsed("[,"), "[ ]");
    EXPECT_EQ(parsed("[ "), "! array value no end : ");
    EXPECT_EQ(parsed("[1, "), "! array value no end : ");
}

TEST(JsonParserArray, AnElementNeedsItsEnd) {
    EXPECT_EQ(parsed("[1"), "! array value no end : ");
    EXPECT_EQ(parsed("['x"), "! array value no end : ");
    EXPECT_EQ(parsed("[1}"), "! array value no end : }");
    EXPECT_EQ(parsed("['a' x]"), "! array value no end : x]");
    EXPECT_EQ(parsed("[[1] [2]]"), "! array value no end : [2]]");
}

TEST(JsonParserName, QuotesAreNotNeeded) {
    EXPECT_EQ(parsed("{a:1}"), "{ \"a\":1 }");
    EXPECT_EQ(parsed("{ some name : 1 }"), "{ \"some name\":1 }");
    EXPECT_EQ(parsed("{'a':1}"), "{ \"a\":1 }");
    EXPECT_EQ(parsed("{\" a \" :1}"), "{ \" a \":1 }");
    EXPECT_EQ(parsed("{1:1}"), "{ \"1\":1 }");
}

TEST(JsonParserName, WithoutAColonThereIsNoMember) {
    EXPECT_EQ(parsed("{\"a\"}"), "{ }");
    EXPECT_EQ(parsed("{a}"), "{ }");
    EXPECT_EQ(parsed("{ \"a\" }"), "{ }");
    EXPECT_EQ(parsed("{ }"), "{ }");
    EXPECT_EQ(parsed("{a:1,b}"), "{ \"a\":1 }");
}

TEST(JsonParserName, NeedsItsEnd) {
    EXPECT_EQ(parsed("{a"), "! no name : ");
    EXPECT_EQ(parsed("{\"a\""), "! no name : ");
    EXPECT_EQ(parsed("{\"a"), "! no name : ");
    EXPECT_EQ(parsed("{\"a\"  "), "! no name : ");
    EXPECT_EQ(parsed("{a,b:1}"), "! no name : ,b:1}");
    EXPECT_EQ(parsed("{,}"), "! no name : ,}");
    EXPECT_EQ(parsed("{\"a\" b:1}"), "! no name : b:1}");
    EXPECT_EQ(parsed("{a\"b\":1}"), "! no name : \"b\":1}");
    EXPECT_EQ(parsed("{[1]}"), "! no name : [1]}");
    EXPECT_EQ(parsed("{{}}"), "! no name : {}}");
    EXPECT_EQ(parsed("{]"), "! no name : ]");
}

TEST(JsonParserName, EmptyOneIsLost) {
    EXPECT_EQ(parsed("{\"\":1}"), "! pair value no end : 1}");
    EXPECT_EQ(parsed("{'':1}"), "! pair value no end : 1}");
    EXPECT_EQ(parsed("{:1}"), "! pair value no end : 1}");
    EXPECT_EQ(parsed("{null:1}"), "! pair value no end : 1}");
    EXPECT_EQ(parsed("{\"null\":1}"), "{ \"null\":1 }");
    EXPECT_EQ(parsed("{\"\":}"), "{ }");
    EXPECT_EQ(parsed("{\"\":,a:1}"), "{ \"a\":1 }");
    EXPECT_EQ(parsed("{\"\":"), "! pair value no end : ");
}

TEST(JsonParserName, IsUnescapedAlsoWithoutQuotes) {
    EXPECT_EQ(parsed("{a\\tb:1}"), "{ \"a\tb\":1 }");
    EXPECT_EQ(parsed("{\"a\\tb\":1}"), "{ \"a\tb\":1 }");
    EXPECT_EQ(parsed("{\"\\u0041\":1}"), "{ \"65\":1 }");
    EXPECT_EQ(parsed("{\"\\\"\":1}"), "{ \"\"\":1 }");
    EXPECT_EQ(parsed("{\\:1}"), "{ \"\\\":1 }");
    EXPECT_EQ(parsed("{\"\\\\\":1}"), "{ \"\\\":1 }");
    EXPECT_EQ(parsed("{a\\tb:1,c\\nd:2}"), "{ \"a\tb\":1, \"c\nd\":2 }");
    EXPECT_EQ(parsed("{a\\tb:{c\\nd:2}}"), "{ \"a\tb\":{ \"c\nd\":2 } }");
}

TEST(JsonParserValue, BareWordNeedsItsEnd) {
    EXPECT_EQ(parsed("[1\"x\"]"), "! no value end : \"x\"]");
    EXPECT_EQ(parsed("[a'x']"), "! no value end : 'x']");
    EXPECT_EQ(parsed("{a:b:2}"), "! no value end : :2}");
    EXPECT_EQ(parsed("[x{}]"), "! no value end : {}]");
    EXPECT_EQ(parsed("[x[1]]"), "! no value end : [1]]");
    EXPECT_EQ(parsed("[:1]"), "! no value end : :1]");
    // A bracket of the wrong kind ends the word, and then not the container.
    EXPECT_EQ(parsed("[x}"), "! array value no end : }");
    EXPECT_EQ(parsed("{a:x]"), "! pair value no end : ]");
}

TEST(JsonParserValue, Kinds) {
    EXPECT_EQ(element("['x']"), "3:x");
    EXPECT_EQ(element("[x y]"), "3:x y");
    EXPECT_EQ(element("[ x y \t\r\n]"), "3:x y");
    EXPECT_EQ(element("[-]"), "3:-");
    EXPECT_EQ(element("[-1]"), "2:-1");
    EXPECT_EQ(element("[TRUE]"), "3:TRUE");
    EXPECT_EQ(element("[true]"), "1:true");
    EXPECT_EQ(element("[1 2]"), "2:1 2");
    EXPECT_EQ(element("[true x]"), "3:true x");
    EXPECT_EQ(element("[\f1\v]"), "3:\f1\v");
    EXPECT_EQ(element("['12']"), "3:12");
}

TEST(JsonParserValue, QuotedTextIsUnescapedAndABareOneIsNot) {
    EXPECT_EQ(element("[\"a\\tb\"]"), "3:a\tb");
    EXPECT_EQ(element("[a\\tb]"), "3:a\\tb");
    EXPECT_EQ(element("['\\u0041']"), "3:65");
    EXPECT_EQ(element("['']"), "3:");
    EXPECT_EQ(element("[\"'\"]"), "3:'");
    EXPECT_EQ(element("['\"']"), "3:\"");
    EXPECT_EQ(element("[\"a\\\"b\"]"), "3:a\"b");
    EXPECT_EQ(element("[\"a\\\\\"]"), "3:a\\");
    EXPECT_EQ(element("['{}[]:,']"), "3:{}[]:,");
    EXPECT_EQ(element("['\n']"), "3:\n");
}

TEST(JsonParserValue, NulBelongsToTheWord) {
    EXPECT_EQ(element(std::string("[a\0b]", 5)), std::string("3:a\0b", 5));
    EXPECT_EQ(element(std::string("[\0]", 3)), std::string("3:\0", 3));
    EXPECT_EQ(element(std::string("['a\0']", 6)), std::string("3:a\0", 4));
    EXPECT_EQ(parsed(std::string("[a\0", 3)), "! array value no end : ");
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
    EXPECT_EQ(parsed("[\"a]"), "! array value no end : ");
    EXPECT_EQ(parsed("[\"a\\"), "! array value no end : ");
    EXPECT_EQ(parsed("[\"a\\\""), "! array value no end : ");
    EXPECT_EQ(parsed("[\""), "! array value no end : ");
    EXPECT_EQ(parsed("{\""), "! no name : ");
}

TEST(JsonParserValue, NumbersKeepEveryDigit) {
    EXPECT_EQ(parsed("[1.50,-0,1e5,007]"), "[ 1.50, -0, 1e5, 007 ]");
    EXPECT_EQ(parsed("[12345678901234567890]"), "[ \"12345678901234567890\" ]");
    EXPECT_EQ(element("[12345678901234567890]"), "2:\"12345678901234567890\"");
}

TEST(JsonParserSimple, Words) {
    EXPECT_EQ(simple(""), "null");
    EXPECT_EQ(simple("null"), "null");
    EXPECT_EQ(simple("true"), "1:true");
    EXPECT_EQ(simple("false"), "1:false");
    EXPECT_EQ(simple("1abc"), "2:1abc");
    EXPECT_EQ(simple("-1"), "2:-1");
    EXPECT_EQ(simple("-0x"), "2:-0x");
    EXPECT_EQ(simple("0"), "2:0");
    EXPECT_EQ(simple("-"), "3:-");
    EXPECT_EQ(simple("-a"), "3:-a");
    EXPECT_EQ(simple("--1"), "3:--1");
    EXPECT_EQ(simple("+1"), "3:+1");
    EXPECT_EQ(simple(".5"), "3:.5");
    EXPECT_EQ(simple("NULL"), "3:NULL");
    EXPECT_EQ(simple("True"), "3:True");
    EXPECT_EQ(simple(" null"), "3: null");
    EXPECT_EQ(simple("a\\n"), "3:a\\n");
    EXPECT_EQ(simple("'x'"), "3:'x'");
    EXPECT_FALSE(static_cast<bool>(JsonParser::fromSimple(tav_istr())));
}

TEST(JsonParserResult, ValuesAreOwnedOnce) {
    std::string text = "{a:[1,'x',{}]}";
    tavSharedPtr<JsonValue> const root = JsonParser::from(text);
    text.assign(text.size(), '#');
    EXPECT_EQ(root->getRefCount(), 1u);
    JsonUnit const unit(root);
    JsonUnit const & array = unit.child("a");
    EXPECT_EQ(array.value()->getRefCount(), 1u);
    for (JsonUnit const & one : *array.arrayValue()) {
        EXPECT_EQ(one.value()->getRefCount(), 1u);
    }
    EXPECT_EQ(unit.toString(false), "{ \"a\":[ 1, \"x\", { } ] }");
}

TEST(JsonParserFailure, PositionNamesTheFunction) {
    EXPECT_EQ(position("x"), "JsonParser::from(vinta_json_parser.cpp)");
    EXPECT_EQ(position("{a:1"), "JsonParser::parseObject(vinta_json_parser.cpp)");
    EXPECT_EQ(position("[1"), "JsonParser::parseArray(vinta_json_parser.cpp)");
    EXPECT_EQ(position("[1:"), "JsonParser::parseValue(vinta_json_parser.cpp)");
    EXPECT_EQ(position("{a"), "JsonParser::parseName(vinta_json_parser.cpp)");
}

TEST(JsonParserFailure, IsLoggedUnderTheDefaultTag) {
    LogCapture log("default(ERROR)");
    EXPECT_THROW(JsonParser::from("[1 x{y"), std::invalid_argument);
    tavLogger::flush();
    LogCapture::Record const record = log.find("<EXCEPTION> ");
    EXPECT_EQ(static_cast<int>(tavLogger::ERROR), record.level);
    EXPECT_NE(record.text.find("<EXCEPTION> no value end : {y\n"), std::string::npos) << record.text;
    EXPECT_NE(record.text.find("JsonParser::parseValue"), std::string::npos) << record.text;
    EXPECT_EQ(log.count("<EXCEPTION> "), 1u);
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
