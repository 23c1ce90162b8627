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
    EXPECT_EQ(tav::JsonFieldNull, 0);
    EXPECT_EQ(tav::JsonFieldBoolean, 1);
    EXPECT_EQ(tav::JsonFieldNumber, 2);
    EXPECT_EQ(tav::JsonFieldString, 3);
    EXPECT_EQ(tav::JsonFieldArray, 4);
    EXPECT_EQ(tav::JsonFieldObject, 5);
    EXPECT_EQ(tav::JsonFieldBoolean, JsonBoolean().type());
    EXPECT_EQ(tav::JsonFieldNumber, JsonNumber().type());
    EXPECT_EQ(tav::JsonFieldString, JsonString().type());
    EXPECT_EQ(tav::JsonFieldArray, JsonArray().type());
    EXPECT_EQ(tav::JsonFieldObject, JsonObject().type());
    EXPECT_EQ(static_cast<int>(OtherValue().type()), -1);
}

TEST(JsonValues, SimpleIsWhateverHoldsNoOthers) {
    EXPECT_TRUE(JsonBoolean().simple());
    EXPECT_TRUE(JsonNumber().simple());
    EXPECT_TRUE(JsonString().simple());
    EXPECT_FALSE(JsonArray().simple());
    EXPECT_FALSE(JsonObject().simple());
}

TEST(JsonValues, AsStringIsToStringBesidesStrings) {
    EXPECT_EQ(JsonBoolean(true).asString(), "true");
    EXPECT_EQ(JsonNumber("12").asString(), "12");
    EXPECT_EQ(JsonNumber("1234567890123456").asString(), "\"1234567890123456\"");
    EXPECT_EQ(JsonString("a/\"b").asString(), "a/\"b");
    EXPECT_EQ(JsonArray().asString(), "[ ]");
    EXPECT_EQ(JsonObject().asString(), "{ }");
    EXPECT_EQ(OtherValue().asString(), "other");
}

TEST(JsonValuesBooleanValue, TextAndValue) {
    EXPECT_FALSE(JsonBoolean().getValue());
    EXPECT_EQ(JsonBoolean().toString(), "false");
    JsonBoolean v(true);
    EXPECT_TRUE(v.getValue());
    EXPECT_EQ(v.toString(), "true");
    v.setValue(false);
    EXPECT_FALSE(v.getValue());
}

TEST(JsonValuesBooleanValue, OnlyTheTextFalseIsFalse) {
    JsonBoolean v(true);
    v.fromString("false");
    EXPECT_FALSE(v.getValue());
    for (char const * text : {"", "FALSE", "true", "0", "false "}) {
        v.setValue(false);
        v.fromString(text);
        EXPECT_TRUE(v.getValue()) << text;
    }
}

TEST(JsonValuesNumberValue, KeepsItsText) {
    EXPECT_EQ(JsonNumber().getValue(), "");
    EXPECT_EQ(JsonNumber("1abc").getValue(), "1abc");
    EXPECT_EQ(JsonNumber("\"5\"").getValue(), "\"5\"");
    JsonNumber v;
    v.setValue(" 7 ");
    EXPECT_EQ(v.getValue(), " 7 ");
}

TEST(JsonValuesNumberValue, FromStringTakesOnePairOfQuotesOff) {
    JsonNumber v;
    v.fromString("\"12\"");
    EXPECT_EQ(v.getValue(), "12");
    v.fromString("'12'");
    EXPECT_EQ(v.getValue(), "12");
    v.fromString("''12''");
    EXPECT_EQ(v.getValue(), "'12'");
    v.fromString("\"\"");
    EXPECT_EQ(v.getValue(), "");
    for (char const * text : {"12", "\"", "\"12'", "'12", "12'", ""}) {
        v.fromString(text);
        EXPECT_EQ(text, v.getValue());
    }
    v.fromString(nullptr);
    EXPECT_EQ(v.getValue(), "");
}

TEST(JsonValuesNumberValue, SixteenBytesAreWrittenInQuotes) {
    EXPECT_EQ(JsonNumber("123456789012345").toString(), "123456789012345");
    EXPECT_EQ(JsonNumber("1234567890123456").toString(), "\"1234567890123456\"");
    EXPECT_EQ(JsonNumber("-123456789012345").toString(), "\"-123456789012345\"");
    EXPECT_EQ(JsonNumber("1234567890123/\\x").toString(), "\"1234567890123/\\x\"");
    EXPECT_EQ(JsonNumber().toString(), "");
}

TEST(JsonValuesNumberValue, ReadsBytesThroughSixteenBits) {
    EXPECT_EQ(asChar("65"), 65);
    EXPECT_EQ(asChar("-1"), -1);
    EXPECT_EQ(asChar("300"), 44);
    EXPECT_EQ(asChar("255"), -1);
    EXPECT_EQ(asChar("256"), 0);
    EXPECT_EQ(asChar("-32768"), 0);
    EXPECT_EQ(asUnsignedChar("255"), 255);
    EXPECT_EQ(asUnsignedChar("-1"), 255);
    EXPECT_EQ(asUnsignedChar("65535"), 255);
    EXPECT_EQ(asChar("0x10"), 16);
    EXPECT_EQ(asUnsignedChar("010"), 8);
    EXPECT_EQ(asUnsignedChar("0b101"), 5);
    EXPECT_EQ(asUnsignedChar("0x12345"), 0x45);
}

TEST(JsonValuesNumberValue, TextThatIsNoNumberLeavesTheTargetAlone) {
    for (char const * text : {"", "x", "1.5", "1 2", "-32769", "99999", "0x", "9 "}) {
        EXPECT_EQ(asChar(text), 7) << text;
        EXPECT_EQ(text == std::string("-32769") ? 255 : 7, asUnsignedChar(text)) << text;
    }
    EXPECT_EQ(asChar("32768"), 7);
    EXPECT_EQ(asUnsignedChar("65536"), 7);
    EXPECT_EQ(asUnsignedChar("-65536"), 7);
}

TEST(JsonValuesNumberValue, WritesBytesAsNumbers) {
    JsonNumber v;
    v.setValue(tavNumber<char, 0>(static_cast<char>(-1)));
    EXPECT_EQ(v.getValue(), "-1");
    v.setValue(tavNumber<char, 0>('A'));
    EXPECT_EQ(v.getValue(), "65");
    v.setValue(tavNumber<unsigned char, 0>(static_cast<unsigned char>(255)));
    EXPECT_EQ(v.getValue(), "255");
}

TEST(JsonValuesStringValue, HoldsThePlainText) {
    EXPECT_EQ(JsonString().getValue(), "");
    JsonString v("\"a\\n\"");
    EXPECT_EQ(v.getValue(), "\"a\\n\"");
    EXPECT_EQ(v.toString(), "\"\\\"a\\\\n\\\"\"");
    v.setValue("'x'");
    EXPECT_EQ(v.getValue(), "'x'");
    v.fromString("'x\\ty'");
    EXPECT_EQ(v.getValue(), "x\ty");
    v.fromString("null");
    EXPECT_EQ(v.getValue(), "");
    EXPECT_EQ(v.toString(), "\"\"");
}

TEST(JsonValuesStringValue, FromMakesAStringOrNothing) {
    tavSharedPtr<JsonString> const made = JsonString::from("\"a\\/b\"");
    ASSERT_TRUE(static_cast<bool>(made));
    EXPECT_EQ(made->getValue(), "a/b");
    EXPECT_EQ(made->getRefCount(), 1u);
    EXPECT_FALSE(static_cast<bool>(JsonString::from("null")));
    EXPECT_EQ(JsonString::from("\"null\"")->getValue(), "null");
    EXPECT_EQ(JsonString::from("")->getValue(), "");
}

TEST(JsonValuesStringEscape, AbsentIsNullWithoutQuotes) {
    EXPECT_EQ(JsonString::escape(tavOptional<tavString>()), "null");
    EXPECT_EQ(escaped("null"), "\"null\"");
    EXPECT_EQ(escaped(""), "\"\"");
}

TEST(JsonValuesStringEscape, TheNamedBytes) {
    EXPECT_EQ(escaped("a/b"), "\"a\\/b\"");
    EXPECT_EQ(escaped("\\\"'"), "\"\\\\\\\"'\"");
    EXPECT_EQ(escaped("\b\f\n\r\t"), "\"\\b\\f\\n\\r\\t\"");
    EXPECT_EQ(escaped("\n\x1F"), "\"\\n\\u001F\"");
    EXPECT_EQ(escaped("\x01\x0B\x0E\x10"), "\"\\u0001\\u000B\\u000E\\u0010\"");
}

TEST(JsonValuesStringEscape, AllOtherBytesStand) {
    std::string const bytes("\0\x7F\x80\xE4\xB8\xAD\xFF", 7);
    EXPECT_EQ(tavString("\"" + bytes + "\""), escaped(bytes));
}

TEST(JsonValuesStringEscape, EachByteAtEachPlaceOfARun) {
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

TEST(JsonValuesStringUnescape, NullWithoutQuotesIsAbsent) {
    EXPECT_FALSE(JsonString::unescape("null").has_value());
    EXPECT_TRUE(JsonString::unescape("\"null\"").has_value());
    EXPECT_EQ(unescaped("\"null\""), "null");
    EXPECT_EQ(unescaped("nul"), "nul");
    EXPECT_TRUE(JsonString::unescape("").has_value());
    EXPECT_EQ(unescaped(""), "");
    EXPECT_TRUE(JsonString::unescape(tav_istr()).has_value());
}

TEST(JsonValuesStringUnescape, OneByteStands) {
    EXPECT_EQ(unescaped("\""), "\"");
    EXPECT_EQ(unescaped("\\"), "\\");
}

TEST(JsonValuesStringUnescape, OnePairOfQuotesComesOff) {
    EXPECT_EQ(unescaped("\"a\""), "a");
    EXPECT_EQ(unescaped("'a'"), "a");
    EXPECT_EQ(unescaped("''"), "");
    EXPECT_EQ(unescaped("\"'a'\""), "'a'");
    EXPECT_EQ(unescaped("\"a'"), "\"a'");
    EXPECT_EQ(unescaped("\"a"), "\"a");
}

TEST(JsonValuesStringUnescape, TheEscapes) {
    EXPECT_EQ(unescaped("\\\"\\'\\/\\\\"), "\"'/\\");
    EXPECT_EQ(unescaped("\\b\\f\\n\\r\\t"), "\b\f\n\r\t");
    EXPECT_EQ(unescaped("a\\q\\x"), "aqx");
    EXPECT_EQ(tavString(std::string("ab\0", 3)), unescaped("ab\\"));
    EXPECT_EQ(tavString(std::string("\0", 1)), unescaped("\"\\\""));
}

TEST(JsonValuesStringUnescape, UGivesDecimalDigits) {
    EXPECT_EQ(unescaped("\\u0041"), "65");
    EXPECT_EQ(unescaped("\\u4e2d"), "20013");
    EXPECT_EQ(unescaped("\"\\u4E2D\""), "20013");
    EXPECT_EQ(unescaped("\\uffff"), "65535");
    EXPECT_EQ(unescaped("\\u004141"), "6541");
    EXPECT_EQ(unescaped("\\u0x41"), "65");
    EXPECT_EQ(unescaped("\\u001F"), "31");
}

TEST(JsonValuesStringUnescape, UTakesFewerDigitsAtTheEnd) {
    EXPECT_EQ(unescaped("\\u"), "0");
    EXPECT_EQ(unescaped("\\u4"), "4");
    EXPECT_EQ(unescaped("'\\u12'"), "18");
    EXPECT_EQ(unescaped("\\u0x"), "0");
}

TEST(JsonValuesStringUnescape, StrayDigitOfUCountsAsMinusOne) {
    EXPECT_EQ(unescaped("\\u000g"), "65535");
    EXPECT_EQ(unescaped("\\u001g"), "15");
    // The quote is a digit like any other byte.
    EXPECT_EQ(unescaped("\\u014\""), "319");
}

TEST(JsonValuesArrayValue, HoldsHandlesInOrder) {
    JsonArray array;
    EXPECT_EQ(array.size(), 0u);
    EXPECT_TRUE(array.begin() == array.end());
    JsonUnit shared(tavSharedPtr<JsonValue>(new JsonNumber("1")));
    array.add(shared);
    array.add(nullptr);
    array.add(tavSharedPtr<JsonValue>(new JsonString("x")));
    EXPECT_EQ(array.size(), 3u);
    EXPECT_EQ(shared.value(), array.at(0).value());
    EXPECT_TRUE(array.at(1).isNull());
    EXPECT_EQ(array.at(2).asString(), "x");
    EXPECT_EQ(array.elements().size(), 3u);
    EXPECT_EQ(array.end() - array.begin(), 3);
    EXPECT_EQ(array.toString(), "[ 1, null, \"x\" ]");
}

TEST(JsonValuesArrayValue, NewChildAppendsNull) {
    JsonArray array;
    JsonUnit & child = array.newChild();
    EXPECT_TRUE(child.isNull());
    EXPECT_EQ(array.size(), 1u);
    child.stringValue().setValue("a");
    EXPECT_EQ(array.toString(), "[ \"a\" ]");
}

TEST(JsonValuesArrayValue, AddOfAnOwnElementIsSafe) {
    JsonArray array;
    array.add(tavSharedPtr<JsonValue>(new JsonNumber("1")));
    for (int i = 0; i < 20; ++i) {
        array.add(array.at(0));
    }
    EXPECT_EQ(array.size(), 21u);
    EXPECT_EQ(array.at(20).value()->getRefCount(), 21u);
}

TEST(JsonValuesObjectValue, OrdersNamesByBytes) {
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

TEST(JsonValuesObjectValue, GetInsertsAndConstGetDoesNot) {
    JsonObject object;
    JsonObject const & constant = object;
    EXPECT_EQ(constant.get("a"), nullptr);
    EXPECT_TRUE(constant.begin() == constant.end());
    EXPECT_TRUE(object.get("a").isNull());
    ASSERT_NE(constant.get("a"), nullptr);
    EXPECT_TRUE(constant.get("a")->isNull());
    object["b"].numberValue().setValue("2");
    EXPECT_EQ(&object["b"], constant.get("b"));
    EXPECT_EQ(&object.get("b"), &object["b"]);
    EXPECT_EQ(object.toString(), "{ \"a\":null, \"b\":2 }");
}

TEST(JsonValuesObjectValue, PutReplacesAndShares) {
    JsonObject object;
    JsonUnit first(tavSharedPtr<JsonValue>(new JsonNumber("1")));
    object.put("a", first);
    EXPECT_EQ(first.value(), object.get("a").value());
    EXPECT_EQ(first.value()->getRefCount(), 2u);
    object.put("a", tavSharedPtr<JsonValue>(new JsonNumber("2")));
    EXPECT_EQ(object.toString(), "{ \"a\":2 }");
    EXPECT_EQ(first.value()->getRefCount(), 1u);
    object.put("a", nullptr);
    EXPECT_TRUE(object.get("a").isNull());
    EXPECT_EQ(std::distance(object.begin(), object.end()), 1);
}

TEST(JsonValuesObjectValue, PutOfAnOwnMemberIsSafe) {
    JsonObject object;
    object["a"]["b"].numberValue().setValue("1");
    object.put("a", object.get("a").child("b"));
    EXPECT_EQ(object.toString(), "{ \"a\":1 }");
}

TEST(JsonValuesUnitHandle, NullUnit) {
    JsonUnit const unit;
    JsonUnit const other(nullptr);
    EXPECT_TRUE(unit.isNull());
    EXPECT_TRUE(other.isNull());
    EXPECT_EQ(tav::JsonFieldNull, unit.type());
    EXPECT_TRUE(unit.simple());
    EXPECT_FALSE(static_cast<bool>(unit.value()));
    EXPECT_EQ(unit.asString(), "");
    EXPECT_EQ(unit.toString(false), "null");
    EXPECT_EQ(unit.toString(true), "null");
    EXPECT_EQ(unit.arrayValue(), nullptr);
    EXPECT_EQ(unit.booleanValue(), nullptr);
    EXPECT_EQ(unit.numberValue(), nullptr);
    EXPECT_EQ(unit.objectValue(), nullptr);
    EXPECT_EQ(unit.stringValue(), nullptr);
    std::ostringstream out;
    unit.dump(out);
    EXPECT_EQ(out.str(), "null");
}

TEST(JsonValuesUnitHandle, TextsOfAValue) {
    JsonUnit const unit = decoded("{a:1,b:null}");
    EXPECT_EQ(unit.toString(false), "{ \"a\":1, \"b\":null }");
    EXPECT_EQ(unit.toString(true), "{\n        \"a\" : 1\n    }");
    EXPECT_EQ(unit.asString(), "{ \"a\":1, \"b\":null }");
    std::ostringstream out;
    unit.dump(out);
    EXPECT_EQ(out.str(), "{ \"a\":1, \"b\":null }");
    JsonUnit const text(tavSharedPtr<JsonValue>(new JsonString("a/b")));
    EXPECT_EQ(text.asString(), "a/b");
    EXPECT_EQ(text.toString(false), "\"a\\/b\"");
    std::ostringstream printed;
    text.dump(printed);
    EXPECT_EQ(printed.str(), "\"a\\/b\"");
}

TEST(JsonValuesUnitHandle, CopiesShareTheValue) {
    JsonUnit a;
    a.numberValue().setValue("5");
    JsonUnit b = a;
    EXPECT_EQ(a.value(), b.value());
    b.numberValue().setValue("6");
    EXPECT_EQ(a.asString(), "6");
    b.stringValue().setValue("x");
    EXPECT_EQ(a.asString(), "6");
    EXPECT_EQ(b.asString(), "x");
    b.setNull();
    EXPECT_TRUE(b.isNull());
    EXPECT_FALSE(a.isNull());
}

TEST(JsonValuesUnitHandle, ConstViewsAskForTheClass) {
    JsonUnit const array = decoded("[1]");
    JsonUnit const object = decoded("{a:1}");
    JsonUnit const boolean(tavSharedPtr<JsonValue>(new JsonBoolean(true)));
    EXPECT_EQ(array.value().get(), array.arrayValue());
    EXPECT_EQ(array.objectValue(), nullptr);
    EXPECT_EQ(array.stringValue(), nullptr);
    EXPECT_EQ(object.value().get(), object.objectValue());
    EXPECT_EQ(object.arrayValue(), nullptr);
    EXPECT_EQ(boolean.value().get(), boolean.booleanValue());
    EXPECT_EQ(boolean.numberValue(), nullptr);
}

TEST(JsonValuesUnitHandle, ValueOfAForeignClassIsOfNoView) {
    JsonUnit unit{tavSharedPtr<JsonValue>(new OtherValue)};
    JsonUnit const & constant = unit;
    EXPECT_EQ(static_cast<int>(unit.type()), -1);
    EXPECT_EQ(constant.arrayValue(), nullptr);
    EXPECT_EQ(constant.booleanValue(), nullptr);
    EXPECT_EQ(constant.numberValue(), nullptr);
    EXPECT_EQ(constant.objectValue(), nullptr);
    EXPECT_EQ(constant.stringValue(), nullptr);
    EXPECT_EQ(unit.toString(false), "other");
    unit.objectValue();
    EXPECT_EQ(tav::JsonFieldObject, unit.type());
}

TEST(JsonValuesUnitHandle, ViewsCoerce) {
    JsonUnit unit;
    unit.booleanValue().setValue(true);
    EXPECT_EQ(tav::JsonFieldBoolean, unit.type());
    EXPECT_TRUE(unit.booleanValue().getValue());
    EXPECT_EQ(unit.numberValue().getValue(), "");
    EXPECT_EQ(tav::JsonFieldNumber, unit.type());
    EXPECT_EQ(unit.stringValue().getValue(), "");
    EXPECT_EQ(tav::JsonFieldString, unit.type());
    EXPECT_EQ(unit.arrayValue().size(), 0u);
    EXPECT_EQ(tav::JsonFieldArray, unit.type());
    EXPECT_TRUE(unit.objectValue().begin() == unit.objectValue().end());
    EXPECT_EQ(tav::JsonFieldObject, unit.type());
    EXPECT_FALSE(unit.booleanValue().getValue());
}

TEST(JsonValuesUnitHandle, CoercingDropsTheOldValue) {
    int ended = 0;
    JsonUnit unit{tavSharedPtr<JsonValue>(new Told(ended))};
    unit.booleanValue();
    EXPECT_EQ(ended, 0);
    unit.numberValue();
    EXPECT_EQ(ended, 1);
    JsonUnit kept{tavSharedPtr<JsonValue>(new Told(ended))};
    JsonUnit other = kept;
    other.arrayValue();
    EXPECT_EQ(ended, 1);
    EXPECT_EQ(kept.value()->getRefCount(), 1u);
    kept.setNull();
    EXPECT_EQ(ended, 2);
}

TEST(JsonValuesUnitHandle, ChildInsertsAndConstChildDoesNot) {
    JsonUnit unit;
    JsonUnit const & constant = unit;
    EXPECT_EQ(&JsonUnit::null(), &constant.child("a"));
    EXPECT_TRUE(unit.isNull());
    unit.child("a").numberValue().setValue("1");
    EXPECT_EQ(constant.child("a").asString(), "1");
    EXPECT_EQ(constant["a"].asString(), "1");
    EXPECT_EQ(&unit["a"], &unit.child("a"));
    EXPECT_EQ(&JsonUnit::null(), &constant["b"]);
    unit["b"];
    EXPECT_NE(&JsonUnit::null(), &constant["b"]);
    EXPECT_TRUE(constant["b"].isNull());
    JsonUnit number;
    number.numberValue().setValue("1");
    number.child("x");
    EXPECT_EQ(number.toString(false), "{ \"x\":null }");
}

TEST(JsonValuesUnitHandle, NullIsOneUnit) {
    EXPECT_EQ(&JsonUnit::null(), &JsonUnit::null());
    EXPECT_TRUE(JsonUnit::null().isNull());
}

TEST(JsonValuesUnitHandle, NewChildCoercesToAnArray) {
    JsonUnit unit = decoded("{a:1}");
    unit.newChild().numberValue().setValue("1");
    unit.newChild();
    EXPECT_EQ(unit.toString(false), "[ 1, null ]");
}

TEST(JsonValuesUnitHandle, MembersOfAnObjectOnly) {
    JsonUnit const object = decoded("{b:1,a:2}");
    std::string names;
    for (auto const & member : object) {
        names += std::string(tav_istr(member.first));
    }
    EXPECT_EQ(names, "ab");
    for (char const * text : {"[1,2]", "[]", "{}"}) {
        JsonUnit const unit = decoded(text);
        EXPECT_TRUE(unit.begin() == unit.end()) << text;
    }
    JsonUnit const null;
    EXPECT_TRUE(null.begin() == null.end());
    EXPECT_TRUE(null.begin() == JsonUnit::const_iterator());
}

TEST(JsonValuesUnitHandle, DecodeTakesTheValueOrKeepsTheOld) {
    JsonUnit unit = decoded("[1]");
    EXPECT_EQ(unit.value()->getRefCount(), 1u);
    EXPECT_THROW(unit.decode("x"), std::invalid_argument);
    EXPECT_EQ(unit.toString(false), "[ 1 ]");
    unit.decode("{a:2}");
    EXPECT_EQ(unit.toString(false), "{ \"a\":2 }");
}

TEST(JsonValuesUnitHandle, TakesAPartOfItself) {
    JsonUnit unit = decoded("{a:{b:[1,{c:2}]}}");
    unit = unit["a"];
    EXPECT_EQ(unit.toString(false), "{ \"b\":[ 1, { \"c\":2 } ] }");
    unit = JsonUnit(unit["b"].arrayValue().at(1));
    EXPECT_EQ(unit.toString(false), "{ \"c\":2 }");
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
        EXPECT_EQ(ended, 0);
    }
    EXPECT_EQ(ended, 1);
}

TEST(JsonValues, ADerivedClassIsWrittenByItsOwnToString) {
    JsonUnit unit;
    unit.arrayValue().add(tavSharedPtr<JsonValue>(new Shouted("x")));
    unit.arrayValue().add(tavSharedPtr<JsonValue>(new Rounded("12")));
    unit.arrayValue().add(tavSharedPtr<JsonValue>(new JsonString("x")));
    unit.arrayValue().add(tavSharedPtr<JsonValue>(new JsonNumber("12")));
    EXPECT_EQ(unit.toString(false), "[ 'x!', 0, \"x\", 12 ]");
    JsonUnit const string(unit.arrayValue().at(0));
    EXPECT_EQ(tav::JsonFieldString, string.type());
    ASSERT_NE(string.stringValue(), nullptr);
    EXPECT_EQ(string.stringValue()->getValue(), "x");
}

TEST(JsonValuesArrayValue, TakesTheElementsOfAnother) {
    JsonUnit unit = decoded("[[1,[2,3]],4,5,6]");
    JsonArray & array = unit.arrayValue();
    JsonArray const & same = array;
    array = same;
    EXPECT_EQ(array.toString(), "[ [ 1, [ 2, 3 ] ], 4, 5, 6 ]");
    array = static_cast<JsonArray const &>(*array.at(0).value());
    EXPECT_EQ(array.toString(), "[ 1, [ 2, 3 ] ]");
    array = static_cast<JsonArray const &>(*array.at(1).value());
    EXPECT_EQ(array.toString(), "[ 2, 3 ]");
    EXPECT_EQ(unit.value()->getRefCount(), 1u);
}

TEST(JsonValuesObjectValue, TakesTheMembersOfAnother) {
    JsonUnit unit = decoded("{a:{a:{c:1},d:2},e:3}");
    JsonObject & object = unit.objectValue();
    JsonObject const & same = object;
    object = same;
    EXPECT_EQ(object.toString(), "{ \"a\":{ \"a\":{ \"c\":1 }, \"d\":2 }, \"e\":3 }");
    object = static_cast<JsonObject const &>(*object.get("a").value());
    EXPECT_EQ(object.toString(), "{ \"a\":{ \"c\":1 }, \"d\":2 }");
    object = static_cast<JsonObject const &>(*object.get("a").value());
    EXPECT_EQ(object.toString(), "{ \"c\":1 }");
}

TEST(JsonValuesObjectValue, CopiesOfPartsOutliveTheirText) {
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
    EXPECT_EQ(copy.toString(), "{ \"a\":1, \"b\":\"a text that is too long to lie within its value\", "
                               "\"c\":[ 1, { \"x\":2 }, null ] }");
    EXPECT_EQ(list.toString(), "[ 1, { \"x\":2 } ]");
}

TEST(JsonValuesUnitHandle, MovesWithinATree) {
    JsonUnit unit = decoded("{a:{b:[1]},c:2}");
    unit = std::move(unit["a"]);
    EXPECT_EQ(unit.toString(false), "{ \"b\":[ 1 ] }");
    JsonUnit & same = unit;
    unit = std::move(same);
    EXPECT_EQ(unit.toString(false), "{ \"b\":[ 1 ] }");
    JsonUnit other = decoded("[7]");
    std::swap(unit["b"], other);
    EXPECT_EQ(unit.toString(false), "{ \"b\":[ 7 ] }");
    EXPECT_EQ(other.toString(false), "[ 1 ]");
}

TEST(JsonValuesUnitHandle, DecodesATextThatItHolds) {
    JsonUnit unit = decoded("['{a:[1]}']");
    unit.decode(unit.arrayValue().at(0).stringValue()->getValue());
    EXPECT_EQ(unit.toString(false), "{ \"a\":[ 1 ] }");
}
