#include "tav/vinta/vinta_json_parser.h"

#include "support/printed.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

using tav::json::JsonArray;
using tav::json::JsonBoolean;
using tav::json::JsonFormatter;
using tav::json::JsonNumber;
using tav::json::JsonObject;
using tav::json::JsonParser;
using tav::json::JsonString;
using tav::json::JsonUnit;
using tav::json::JsonValue;

namespace {

/// A value of another class, as a program may add it.
class OtherValue : public JsonValue {
public:
    tavString toString() const override { return "other"; }
    bool simple() const override { return true; }
};

/// A boolean that tells of its end.
class Told : public JsonBoolean {
public:
    explicit Told(int & ended) : ended_(ended) {}
    ~Told() override { ++ended_; }

private:
    int & ended_;
};

/// A string and a number that a program writes in a way of its own.
class Shouted : public JsonString {
public:
    using JsonString::JsonString;
    tavString toString() const override { return "'" + std::string(tav_istr(getValue())) + "!'"; }
};
class Rounded : public JsonNumber {
public:
    using JsonNumber::JsonNumber;
    tavString toString() const override { return "0"; }
};

JsonUnit decoded(char const * text) {
    JsonUnit unit;
    unit.decode(text);
    return unit;
}

tavString escaped(std::string const & text) {
    return JsonString::escape(tavString(text));
}

tavString unescaped(std::string const & text) {
    tavOptional<tavString> const plain = JsonString::unescape(text);
    return plain ? *plain : tavString("<absent>");
}

/// The number read into a target that held 7.
int asChar(char const * text) {
    tavNumber<char, 0> v(7);
    JsonNumber(text).getValue(v);
    return v;
}

int asUnsignedChar(char const * text) {
    tavNumber<unsigned char, 0> v(7);
    JsonNumber(text).getValue(v);
    return v;
}

} // namespace

static_assert(std::is_base_of<tavRefCountObject, JsonValue>::value, "");
static_assert(std::is_abstract<JsonValue>::value, "");
static_assert(std::is_same<JsonUnit::const_iterator, std::map<tavString, JsonUnit>::const_iterator>::value,
              "");
static_assert(std::is_same<JsonObject::const_iterator, JsonUnit::const_iterator>::value, "");
static_assert(std::is_same<JsonArray::const_iterator, std::vector<JsonUnit>::const_iterator>::value, "");
static_assert(std::is_convertible<std::nullptr_t, JsonUnit>::value, "");
static_assert(std::is_constructible<JsonUnit, tavSharedPtr<JsonString>>::value, "");
static_assert(!std::is_convertible<tav_istr, JsonString>::value &&
                  !std::is_convertible<bool, JsonBoolean>::value,
              "");
static_assert(std::is_nothrow_move_constructible<JsonUnit>::value, "growing arrays move their units");

TEST(JsonValues, TypeCodes) {
    EXPECT_EQ(0, tav::JsonFieldNull);
    EXPECT_EQ(1, tav::JsonFieldBoolean);
    EXPECT_EQ(2, tav::JsonFieldNumber);
    EXPECT_EQ(3, tav::JsonFieldString);
    EXPECT_EQ(4, tav::JsonFieldArray);
    EXPECT_EQ(5, tav::JsonFieldObject);
    EXPECT_EQ(tav::JsonFieldBoolean, JsonBoolean().type());
    EXPECT_EQ(tav::JsonFieldNumber, JsonNumber().type());
    EXPECT_EQ(tav::JsonFieldString, JsonString().type());
    EXPECT_EQ(tav::JsonFieldArray, JsonArray().type());
    EXPECT_EQ(tav::JsonFieldObject, JsonObject().type());
    EXPECT_EQ(-1, static_cast<int>(OtherValue().type()));
}

TEST(JsonValues, SimpleIsWhateverHoldsNoOthers) {
    EXPECT_TRUE(JsonBoolean().simple());
    EXPECT_TRUE(JsonNumber().simple());
    EXPECT_TRUE(JsonString().simple());
    EXPECT_FALSE(JsonArray().simple());
    EXPECT_FALSE(JsonObject().simple());
}

TEST(JsonValues, AsStringIsToStringBesidesStrings) {
    EXPECT_EQ("true", JsonBoolean(true).asString());
    EXPECT_EQ("12", JsonNumber("12").asString());
    EXPECT_EQ("\"1234567890123456\"", JsonNumber("1234567890123456").asString());
    EXPECT_EQ("a/\"b", JsonString("a/\"b").asString());
    EXPECT_EQ("[ ]", JsonArray().asString());
    EXPECT_EQ("{ }", JsonObject().asString());
    EXPECT_EQ("other", OtherValue().asString());
}

TEST(JsonBooleanValue, TextAndValue) {
    EXPECT_FALSE(JsonBoolean().getValue());
    EXPECT_EQ("false", JsonBoolean().toString());
    JsonBoolean v(true);
    EXPECT_TRUE(v.getValue());
    EXPECT_EQ("true", v.toString());
    v.setValue(false);
    EXPECT_FALSE(v.getValue());
}

TEST(JsonBooleanValue, OnlyTheTextFalseIsFalse) {
    JsonBoolean v(true);
    v.fromString("false");
    EXPECT_FALSE(v.getValue());
    for (char const * text : {"", "FALSE", "true", "0", "false "}) {
        v.setValue(false);
        v.fromString(text);
        EXPECT_TRUE(v.getValue()) << text;
    }
}

TEST(JsonNumberValue, KeepsItsText) {
    EXPECT_EQ("", JsonNumber().getValue());
    EXPECT_EQ("1abc", JsonNumber("1abc").getValue());
    EXPECT_EQ("\"5\"", JsonNumber("\"5\"").getValue());
    JsonNumber v;
    v.setValue(" 7 ");
    EXPECT_EQ(" 7 ", v.getValue());
}

TEST(JsonNumberValue, FromStringTakesOnePairOfQuotesOff) {
    JsonNumber v;
    v.fromString("\"12\"");
    EXPECT_EQ("12", v.getValue());
    v.fromString("'12'");
    EXPECT_EQ("12", v.getValue());
    v.fromString("''12''");
    EXPECT_EQ("'12'", v.getValue());
    v.fromString("\"\"");
    EXPECT_EQ("", v.getValue());
    for (char const * text : {"12", "\"", "\"12'", "'12", "12'", ""}) {
        v.fromString(text);
        EXPECT_EQ(text, v.getValue());
    }
    v.fromString(nullptr);
    EXPECT_EQ("", v.getValue());
}

TEST(JsonNumberValue, SixteenBytesAreWrittenInQuotes) {
    EXPECT_EQ("123456789012345", JsonNumber("123456789012345").toString());
    EXPECT_EQ("\"1234567890123456\"", JsonNumber("1234567890123456").toString());
    EXPECT_EQ("\"-123456789012345\"", JsonNumber("-123456789012345").toString());
    EXPECT_EQ("\"1234567890123/\\x\"", JsonNumber("1234567890123/\\x").toString());
    EXPECT_EQ("", JsonNumber().toString());
}

TEST(JsonNumberValue, ReadsBytesThroughSixteenBits) {
    EXPECT_EQ(65, asChar("65"));
    EXPECT_EQ(-1, asChar("-1"));
    EXPECT_EQ(44, asChar("300"));
    EXPECT_EQ(-1, asChar("255"));
    EXPECT_EQ(0, asChar("256"));
    EXPECT_EQ(0, asChar("-32768"));
    EXPECT_EQ(255, asUnsignedChar("255"));
    EXPECT_EQ(255, asUnsignedChar("-1"));
    EXPECT_EQ(255, asUnsignedChar("65535"));
    EXPECT_EQ(16, asChar("0x10"));
    EXPECT_EQ(8, asUnsignedChar("010"));
    EXPECT_EQ(5, asUnsignedChar("0b101"));
    EXPECT_EQ(0x45, asUnsignedChar("0x12345"));
}

TEST(JsonNumberValue, TextThatIsNoNumberLeavesTheTargetAlone) {
    for (char const * text : {"", "x", "1.5", "1 2", "-32769", "99999", "0x", "9 "}) {
        EXPECT_EQ(7, asChar(text)) << text;
        EXPECT_EQ(text == std::string("-32769") ? 255 : 7, asUnsignedChar(text)) << text;
    }
    EXPECT_EQ(7, asChar("32768"));
    EXPECT_EQ(7, asUnsignedChar("65536"));
    EXPECT_EQ(7, asUnsignedChar("-65536"));
}

TEST(JsonNumberValue, WritesBytesAsNumbers) {
    JsonNumber v;
    v.setValue(tavNumber<char, 0>(static_cast<char>(-1)));
    EXPECT_EQ("-1", v.getValue());
    v.setValue(tavNumber<char, 0>('A'));
    EXPECT_EQ("65", v.getValue());
    v.setValue(tavNumber<unsigned char, 0>(static_cast<unsigned char>(255)));
    EXPECT_EQ("255", v.getValue());
}

TEST(JsonStringValue, HoldsThePlainText) {
    EXPECT_EQ("", JsonString().getValue());
    JsonString v("\"a\\n\"");
    EXPECT_EQ("\"a\\n\"", v.getValue());
    EXPECT_EQ("\"\\\"a\\\\n\\\"\"", v.toString());
    v.setValue("'x'");
    EXPECT_EQ("'x'", v.getValue());
    v.fromString("'x\\ty'");
    EXPECT_EQ("x\ty", v.getValue());
    v.fromString("null");
    EXPECT_EQ("", v.getValue());
    EXPECT_EQ("\"\"", v.toString());
}

TEST(JsonStringValue, FromMakesAStringOrNothing) {
    tavSharedPtr<JsonString> const made = JsonString::from("\"a\\/b\"");
    ASSERT_TRUE(static_cast<bool>(made));
    EXPECT_EQ("a/b", made->getValue());
    EXPECT_EQ(1u, made->getRefCount());
    EXPECT_FALSE(static_cast<bool>(JsonString::from("null")));
    EXPECT_EQ("null", JsonString::from("\"null\"")->getValue());
    EXPECT_EQ("", JsonString::from("")->getValue());
}

TEST(JsonStringEscape, AbsentIsNullWithoutQuotes) {
    EXPECT_EQ("null", JsonString::escape(tavOptional<tavString>()));
    EXPECT_EQ("\"null\"", escaped("null"));
    EXPECT_EQ("\"\"", escaped(""));
}

TEST(JsonStringEscape, TheNamedBytes) {
    EXPECT_EQ("\"a\\/b\"", escaped("a/b"));
    EXPECT_EQ("\"\\\\\\\"'\"", escaped("\\\"'"));
    EXPECT_EQ("\"\\b\\f\\n\\r\\t\"", escaped("\b\f\n\r\t"));
    EXPECT_EQ("\"\\n\\u001F\"", escaped("\n\x1F"));
    EXPECT_EQ("\"\\u0001\\u000B\\u000E\\u0010\"", escaped("\x01\x0B\x0E\x10"));
}

TEST(JsonStringEscape, AllOtherBytesStand) {
    std::string const bytes("\0\x7F\x80\xE4\xB8\xAD\xFF", 7);
    EXPECT_EQ(tavString("\"" + bytes + "\""), escaped(bytes));
}

TEST(JsonStringEscape, EachByteAtEachPlaceOfARun) {
    for (int c = 0; c < 256; ++c) {
        std::string const one(1, static_cast<char>(c));
        std::string const alone(escaped(one).data() + 1, escaped(one).size() - 2);
        for (unsigned before = 0; before < 18; ++before) {
            std::string const left(before, 'x');
            EXPECT_EQ(tavString("\"" + left + alone + "yyyyyyyyyy\""), escaped(left + one + "yyyyyyyyyy"))
                << c;
            EXPECT_EQ(tavString("\"" + left + alone + "\""), escaped(left + one)) << c;
        }
    }
}

TEST(JsonStringUnescape, NullWithoutQuotesIsAbsent) {
    EXPECT_FALSE(JsonString::unescape("null").has_value());
    EXPECT_TRUE(JsonString::unescape("\"null\"").has_value());
    EXPECT_EQ("null", unescaped("\"null\""));
    EXPECT_EQ("nul", unescaped("nul"));
    EXPECT_TRUE(JsonString::unescape("").has_value());
    EXPECT_EQ("", unescaped(""));
    EXPECT_TRUE(JsonString::unescape(tav_istr()).has_value());
}

TEST(JsonStringUnescape, OneByteStands) {
    EXPECT_EQ("\"", unescaped("\""));
    EXPECT_EQ("\\", unescaped("\\"));
}

TEST(JsonStringUnescape, OnePairOfQuotesComesOff) {
    EXPECT_EQ("a", unescaped("\"a\""));
    EXPECT_EQ("a", unescaped("'a'"));
    EXPECT_EQ("", unescaped("''"));
    EXPECT_EQ("'a'", unescaped("\"'a'\""));
    EXPECT_EQ("\"a'", unescaped("\"a'"));
    EXPECT_EQ("\"a", unescaped("\"a"));
}

TEST(JsonStringUnescape, TheEscapes) {
    EXPECT_EQ("\"'/\\", unescaped("\\\"\\'\\/\\\\"));
    EXPECT_EQ("\b\f\n\r\t", unescaped("\\b\\f\\n\\r\\t"));
    EXPECT_EQ("aqx", unescaped("a\\q\\x"));
    EXPECT_EQ(tavString(std::string("ab\0", 3)), unescaped("ab\\"));
    EXPECT_EQ(tavString(std::string("\0", 1)), unescaped("\"\\\""));
}

TEST(JsonStringUnescape, UGivesDecimalDigits) {
    EXPECT_EQ("65", unescaped("\\u0041"));
    EXPECT_EQ("20013", unescaped("\\u4e2d"));
    EXPECT_EQ("20013", unescaped("\"\\u4E2D\""));
    EXPECT_EQ("65535", unescaped("\\uffff"));
    EXPECT_EQ("6541", unescaped("\\u004141"));
    EXPECT_EQ("65", unescaped("\\u0x41"));
    EXPECT_EQ("31", unescaped("\\u001F"));
}

TEST(JsonStringUnescape, UTakesFewerDigitsAtTheEnd) {
    EXPECT_EQ("0", unescaped("\\u"));
    EXPECT_EQ("4", unescaped("\\u4"));
    EXPECT_EQ("18", unescaped("'\\u12'"));
    EXPECT_EQ("0", unescaped("\\u0x"));
}

TEST(JsonStringUnescape, StrayDigitOfUCountsAsMinusOne) {
    EXPECT_EQ("65535", unescaped("\\u000g"));
    EXPECT_EQ("15", unescaped("\\u001g"));
    // The quote is a digit like any other byte.
    EXPECT_EQ("319", unescaped("\\u014\""));
}

TEST(JsonArrayValue, HoldsHandlesInOrder) {
    JsonArray array;
    EXPECT_EQ(0u, array.size());
    EXPECT_TRUE(array.begin() == array.end());
    JsonUnit shared(tavSharedPtr<JsonValue>(new JsonNumber("1")));
    array.add(shared);
    array.add(nullptr);
    array.add(tavSharedPtr<JsonValue>(new JsonString("x")));
    EXPECT_EQ(3u, array.size());
    EXPECT_EQ(shared.value(), array.at(0).value());
    EXPECT_TRUE(array.at(1).isNull());
    EXPECT_EQ("x", array.at(2).asString());
    EXPECT_EQ(3u, array.elements().size());
    EXPECT_EQ(3, array.end() - array.begin());
    EXPECT_EQ("[ 1, null, \"x\" ]", array.toString());
}

TEST(JsonArrayValue, NewChildAppendsNull) {
    JsonArray array;
    JsonUnit & child = array.newChild();
    EXPECT_TRUE(child.isNull());
    EXPECT_EQ(1u, array.size());
    child.stringValue().setValue("a");
    EXPECT_EQ("[ \"a\" ]", array.toString());
}

TEST(JsonArrayValue, AddOfAnOwnElementIsSafe) {
    JsonArray array;
    array.add(tavSharedPtr<JsonValue>(new JsonNumber("1")));
    for (int i = 0; i < 20; ++i) {
        array.add(array.at(0));
    }
    EXPECT_EQ(21u, array.size());
    EXPECT_EQ(21u, array.at(20).value()->getRefCount());
}

TEST(JsonObjectValue, OrdersNamesByBytes) {
    JsonObject object;
    for (char const * name : {"b", "\xE4", "a", "ab", "B", "", "b"}) {
        object.put(name, tavSharedPtr<JsonValue>(new JsonString(name)));
    }
    std::vector<std::string> names;
    for (auto const & member : object) {
        names.push_back(std::string(tav_istr(member.first)));
        EXPECT_EQ(member.first, member.second.asString());
    }
    EXPECT_EQ((std::vector<std::string>{"", "B", "a", "ab", "b", "\xE4"}), names);
}

TEST(JsonObjectValue, GetInsertsAndConstGetDoesNot) {
    JsonObject object;
    JsonObject const & constant = object;
    EXPECT_EQ(nullptr, constant.get("a"));
    EXPECT_TRUE(constant.begin() == constant.end());
    EXPECT_TRUE(object.get("a").isNull());
    ASSERT_NE(nullptr, constant.get("a"));
    EXPECT_TRUE(constant.get("a")->isNull());
    object["b"].numberValue().setValue("2");
    EXPECT_EQ(&object["b"], constant.get("b"));
    EXPECT_EQ(&object.get("b"), &object["b"]);
    EXPECT_EQ("{ \"a\":null, \"b\":2 }", object.toString());
}

TEST(JsonObjectValue, PutReplacesAndShares) {
    JsonObject object;
    JsonUnit first(tavSharedPtr<JsonValue>(new JsonNumber("1")));
    object.put("a", first);
    EXPECT_EQ(first.value(), object.get("a").value());
    EXPECT_EQ(2u, first.value()->getRefCount());
    object.put("a", tavSharedPtr<JsonValue>(new JsonNumber("2")));
    EXPECT_EQ("{ \"a\":2 }", object.toString());
    EXPECT_EQ(1u, first.value()->getRefCount());
    object.put("a", nullptr);
    EXPECT_TRUE(object.get("a").isNull());
    EXPECT_EQ(1, std::distance(object.begin(), object.end()));
}

TEST(JsonObjectValue, PutOfAnOwnMemberIsSafe) {
    JsonObject object;
    object["a"]["b"].numberValue().setValue("1");
    object.put("a", object.get("a").child("b"));
    EXPECT_EQ("{ \"a\":1 }", object.toString());
}

TEST(JsonUnitHandle, NullUnit) {
    JsonUnit const unit;
    JsonUnit const other(nullptr);
    EXPECT_TRUE(unit.isNull());
    EXPECT_TRUE(other.isNull());
    EXPECT_EQ(tav::JsonFieldNull, unit.type());
    EXPECT_TRUE(unit.simple());
    EXPECT_FALSE(static_cast<bool>(unit.value()));
    EXPECT_EQ("", unit.asString());
    EXPECT_EQ("null", unit.toString(false));
    EXPECT_EQ("null", unit.toString(true));
    EXPECT_EQ(nullptr, unit.arrayValue());
    EXPECT_EQ(nullptr, unit.booleanValue());
    EXPECT_EQ(nullptr, unit.numberValue());
    EXPECT_EQ(nullptr, unit.objectValue());
    EXPECT_EQ(nullptr, unit.stringValue());
    std::ostringstream out;
    unit.dump(out);
    EXPECT_EQ("null", out.str());
}

TEST(JsonUnitHandle, TextsOfAValue) {
    JsonUnit const unit = decoded("{a:1,b:null}");
    EXPECT_EQ("{ \"a\":1, \"b\":null }", unit.toString(false));
    EXPECT_EQ("{\n        \"a\" : 1\n    }", unit.toString(true));
    EXPECT_EQ("{ \"a\":1, \"b\":null }", unit.asString());
    std::ostringstream out;
    unit.dump(out);
    EXPECT_EQ("{ \"a\":1, \"b\":null }", out.str());
    JsonUnit const text(tavSharedPtr<JsonValue>(new JsonString("a/b")));
    EXPECT_EQ("a/b", text.asString());
    EXPECT_EQ("\"a\\/b\"", text.toString(false));
    std::ostringstream printed;
    text.dump(printed);
    EXPECT_EQ("\"a\\/b\"", printed.str());
}

TEST(JsonUnitHandle, CopiesShareTheValue) {
    JsonUnit a;
    a.numberValue().setValue("5");
    JsonUnit b = a;
    EXPECT_EQ(a.value(), b.value());
    b.numberValue().setValue("6");
    EXPECT_EQ("6", a.asString());
    b.stringValue().setValue("x");
    EXPECT_EQ("6", a.asString());
    EXPECT_EQ("x", b.asString());
    b.setNull();
    EXPECT_TRUE(b.isNull());
    EXPECT_FALSE(a.isNull());
}

TEST(JsonUnitHandle, ConstViewsAskForTheClass) {
    JsonUnit const array = decoded("[1]");
    JsonUnit const object = decoded("{a:1}");
    JsonUnit const boolean(tavSharedPtr<JsonValue>(new JsonBoolean(true)));
    EXPECT_EQ(array.value().get(), array.arrayValue());
    EXPECT_EQ(nullptr, array.objectValue());
    EXPECT_EQ(nullptr, array.stringValue());
    EXPECT_EQ(object.value().get(), object.objectValue());
    EXPECT_EQ(nullptr, object.arrayValue());
    EXPECT_EQ(boolean.value().get(), boolean.booleanValue());
    EXPECT_EQ(nullptr, boolean.numberValue());
}

TEST(JsonUnitHandle, ValueOfAForeignClassIsOfNoView) {
    JsonUnit unit{tavSharedPtr<JsonValue>(new OtherValue)};
    JsonUnit const & constant = unit;
    EXPECT_EQ(-1, static_cast<int>(unit.type()));
    EXPECT_EQ(nullptr, constant.arrayValue());
    EXPECT_EQ(nullptr, constant.booleanValue());
    EXPECT_EQ(nullptr, constant.numberValue());
    EXPECT_EQ(nullptr, constant.objectValue());
    EXPECT_EQ(nullptr, constant.stringValue());
    EXPECT_EQ("other", unit.toString(false));
    unit.objectValue();
    EXPECT_EQ(tav::JsonFieldObject, unit.type());
}

TEST(JsonUnitHandle, ViewsCoerce) {
    JsonUnit unit;
    unit.booleanValue().setValue(true);
    EXPECT_EQ(tav::JsonFieldBoolean, unit.type());
    EXPECT_TRUE(unit.booleanValue().getValue());
    EXPECT_EQ("", unit.numberValue().getValue());
    EXPECT_EQ(tav::JsonFieldNumber, unit.type());
    EXPECT_EQ("", unit.stringValue().getValue());
    EXPECT_EQ(tav::JsonFieldString, unit.type());
    EXPECT_EQ(0u, unit.arrayValue().size());
    EXPECT_EQ(tav::JsonFieldArray, unit.type());
    EXPECT_TRUE(unit.objectValue().begin() == unit.objectValue().end());
    EXPECT_EQ(tav::JsonFieldObject, unit.type());
    EXPECT_FALSE(unit.booleanValue().getValue());
}

TEST(JsonUnitHandle, CoercingDropsTheOldValue) {
    int ended = 0;
    JsonUnit unit{tavSharedPtr<JsonValue>(new Told(ended))};
    unit.booleanValue();
    EXPECT_EQ(0, ended);
    unit.numberValue();
    EXPECT_EQ(1, ended);
    JsonUnit kept{tavSharedPtr<JsonValue>(new Told(ended))};
    JsonUnit other = kept;
    other.arrayValue();
    EXPECT_EQ(1, ended);
    EXPECT_EQ(1u, kept.value()->getRefCount());
    kept.setNull();
    EXPECT_EQ(2, ended);
}

TEST(JsonUnitHandle, ChildInsertsAndConstChildDoesNot) {
    JsonUnit unit;
    JsonUnit const & constant = unit;
    EXPECT_EQ(&JsonUnit::null(), &constant.child("a"));
    EXPECT_TRUE(unit.isNull());
    unit.child("a").numberValue().setValue("1");
    EXPECT_EQ("1", constant.child("a").asString());
    EXPECT_EQ("1", constant["a"].asString());
    EXPECT_EQ(&unit["a"], &unit.child("a"));
    EXPECT_EQ(&JsonUnit::null(), &constant["b"]);
    unit["b"];
    EXPECT_NE(&JsonUnit::null(), &constant["b"]);
    EXPECT_TRUE(constant["b"].isNull());
    JsonUnit number;
    number.numberValue().setValue("1");
    number.child("x");
    EXPECT_EQ("{ \"x\":null }", number.toString(false));
}

TEST(JsonUnitHandle, NullIsOneUnit) {
    EXPECT_EQ(&JsonUnit::null(), &JsonUnit::null());
    EXPECT_TRUE(JsonUnit::null().isNull());
}

TEST(JsonUnitHandle, NewChildCoercesToAnArray) {
    JsonUnit unit = decoded("{a:1}");
    unit.newChild().numberValue().setValue("1");
    unit.newChild();
    EXPECT_EQ("[ 1, null ]", unit.toString(false));
}

TEST(JsonUnitHandle, MembersOfAnObjectOnly) {
    JsonUnit const object = decoded("{b:1,a:2}");
    std::string names;
    for (auto const & member : object) {
        names += std::string(tav_istr(member.first));
    }
    EXPECT_EQ("ab", names);
    for (char const * text : {"[1,2]", "[]", "{}"}) {
        JsonUnit const unit = decoded(text);
        EXPECT_TRUE(unit.begin() == unit.end()) << text;
    }
    JsonUnit const null;
    EXPECT_TRUE(null.begin() == null.end());
    EXPECT_TRUE(null.begin() == JsonUnit::const_iterator());
}

TEST(JsonUnitHandle, DecodeTakesTheValueOrKeepsTheOld) {
    JsonUnit unit = decoded("[1]");
    EXPECT_EQ(1u, unit.value()->getRefCount());
    EXPECT_THROW(unit.decode("x"), std::invalid_argument);
    EXPECT_EQ("[ 1 ]", unit.toString(false));
    unit.decode("{a:2}");
    EXPECT_EQ("{ \"a\":2 }", unit.toString(false));
}

TEST(JsonUnitHandle, TakesAPartOfItself) {
    JsonUnit unit = decoded("{a:{b:[1,{c:2}]}}");
    unit = unit["a"];
    EXPECT_EQ("{ \"b\":[ 1, { \"c\":2 } ] }", unit.toString(false));
    unit = JsonUnit(unit["b"].arrayValue().at(1));
    EXPECT_EQ("{ \"c\":2 }", unit.toString(false));
}

TEST(JsonValues, AValueOnTheStackHoldsCountedOnes) {
    int ended = 0;
    {
        JsonObject object;
        object.get("a").arrayValue().add(tavSharedPtr<JsonValue>(new Told(ended)));
        JsonObject copy(object);
        EXPECT_EQ(object.get("a").value(), copy.get("a").value());
        JsonArray array;
        array.add(object.get("a"));
        JsonArray other;
        other = array;
        EXPECT_EQ(tav::JsonFieldArray, other.at(0).type());
        EXPECT_EQ(0, ended);
    }
    EXPECT_EQ(1, ended);
}

TEST(JsonValues, ADerivedClassIsWrittenByItsOwnToString) {
    JsonUnit unit;
    unit.arrayValue().add(tavSharedPtr<JsonValue>(new Shouted("x")));
    unit.arrayValue().add(tavSharedPtr<JsonValue>(new Rounded("12")));
    unit.arrayValue().add(tavSharedPtr<JsonValue>(new JsonString("x")));
    unit.arrayValue().add(tavSharedPtr<JsonValue>(new JsonNumber("12")));
    EXPECT_EQ("[ 'x!', 0, \"x\", 12 ]", unit.toString(false));
    JsonUnit const string(unit.arrayValue().at(0));
    EXPECT_EQ(tav::JsonFieldString, string.type());
    ASSERT_NE(nullptr, string.stringValue());
    EXPECT_EQ("x", string.stringValue()->getValue());
}

TEST(JsonArrayValue, TakesTheElementsOfAnother) {
    JsonUnit unit = decoded("[[1,[2,3]],4,5,6]");
    JsonArray & array = unit.arrayValue();
    JsonArray const & same = array;
    array = same;
    EXPECT_EQ("[ [ 1, [ 2, 3 ] ], 4, 5, 6 ]", array.toString());
    array = static_cast<JsonArray const &>(*array.at(0).value());
    EXPECT_EQ("[ 1, [ 2, 3 ] ]", array.toString());
    array = static_cast<JsonArray const &>(*array.at(1).value());
    EXPECT_EQ("[ 2, 3 ]", array.toString());
    EXPECT_EQ(1u, unit.value()->getRefCount());
}

TEST(JsonObjectValue, TakesTheMembersOfAnother) {
    JsonUnit unit = decoded("{a:{a:{c:1},d:2},e:3}");
    JsonObject & object = unit.objectValue();
    JsonObject const & same = object;
    object = same;
    EXPECT_EQ("{ \"a\":{ \"a\":{ \"c\":1 }, \"d\":2 }, \"e\":3 }", object.toString());
    object = static_cast<JsonObject const &>(*object.get("a").value());
    EXPECT_EQ("{ \"a\":{ \"c\":1 }, \"d\":2 }", object.toString());
    object = static_cast<JsonObject const &>(*object.get("a").value());
    EXPECT_EQ("{ \"c\":1 }", object.toString());
}

TEST(JsonObjectValue, CopiesOfPartsOutliveTheirText) {
    JsonObject copy;
    JsonArray list;
    {
        JsonUnit unit = decoded("{o:{a:1,b:'a text that is too long to lie within its value'},l:[1,{x:2}]}");
        JsonObject const first(unit["o"].objectValue());
        copy = first;
        copy["c"] = unit["l"];
        list = unit["l"].arrayValue();
        unit["l"].newChild();
    }
    EXPECT_EQ("{ \"a\":1, \"b\":\"a text that is too long to lie within its value\", "
              "\"c\":[ 1, { \"x\":2 }, null ] }",
              copy.toString());
    EXPECT_EQ("[ 1, { \"x\":2 } ]", list.toString());
}

TEST(JsonUnitHandle, MovesWithinATree) {
    JsonUnit unit = decoded("{a:{b:[1]},c:2}");
    unit = std::move(unit["a"]);
    EXPECT_EQ("{ \"b\":[ 1 ] }", unit.toString(false));
    JsonUnit & same = unit;
    unit = std::move(same);
    EXPECT_EQ("{ \"b\":[ 1 ] }", unit.toString(false));
    JsonUnit other = decoded("[7]");
    std::swap(unit["b"], other);
    EXPECT_EQ("{ \"b\":[ 7 ] }", unit.toString(false));
    EXPECT_EQ("[ 1 ]", other.toString(false));
}

TEST(JsonUnitHandle, DecodesATextThatItHolds) {
    JsonUnit unit = decoded("['{a:[1]}']");
    unit.decode(unit.arrayValue().at(0).stringValue()->getValue());
    EXPECT_EQ("{ \"a\":[ 1 ] }", unit.toString(false));
}
