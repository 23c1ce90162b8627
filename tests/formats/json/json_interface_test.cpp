#include "tav/vinta/vinta_json_parser.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <type_traits>
#include <vector>

// What programs compile against: the exact forms of the operations.

namespace {

/// Whether `member` has exactly the type T, but for noexcept; if not, this does not compile.
template <class T>
constexpr bool exact(T) {
    return true;
}

template <class C, class R, class... A>
using Op = R (C::*)(A...);
template <class C, class R, class... A>
using ConstOp = R (C::*)(A...) const;

} // namespace

using tav::JsonFieldType;

namespace tav {
namespace json {

static_assert(std::is_base_of<tavRefCountObject, JsonValue>::value, "");
static_assert(std::is_abstract<JsonValue>::value && std::has_virtual_destructor<JsonValue>::value, "");
static_assert(exact<ConstOp<JsonValue, JsonFieldType>>(&JsonValue::type), "");
static_assert(exact<ConstOp<JsonValue, tavString>>(&JsonValue::asString), "");
static_assert(exact<ConstOp<JsonValue, tavString>>(&JsonValue::toString), "");
static_assert(exact<ConstOp<JsonValue, bool>>(&JsonValue::simple), "");
static_assert(exact<ConstOp<JsonValue, tavString>>(&JsonValue::toJson), "");
static_assert(exact<ConstOp<JsonValue, tavString>>(&JsonValue::toFormatted), "");
static_assert(exact<ConstOp<JsonValue, tavString>>(&JsonValue::toFormattedSample), "");
static_assert(exact<ConstOp<JsonValue, tavString, bool>>(&JsonValue::dump), "");
static_assert(exact<ConstOp<JsonValue, tavString, bool, bool, int, bool>>(&JsonValue::encode), "");

static_assert(std::is_base_of<JsonValue, JsonBoolean>::value, "");
static_assert(std::is_default_constructible<JsonBoolean>::value, "");
static_assert(!std::is_convertible<bool, JsonBoolean>::value, "");
static_assert(exact<ConstOp<JsonBoolean, bool>>(&JsonBoolean::getValue), "");
static_assert(exact<Op<JsonBoolean, void, bool>>(&JsonBoolean::setValue), "");
static_assert(exact<Op<JsonBoolean, void, tav_istr>>(&JsonBoolean::fromString), "");

static_assert(std::is_base_of<JsonValue, JsonNumber>::value, "");
static_assert(std::is_default_constructible<JsonNumber>::value, "");
static_assert(std::is_constructible<JsonNumber, tav_istr>::value, "");
static_assert(!std::is_convertible<tav_istr, JsonNumber>::value, "");
static_assert(exact<ConstOp<JsonNumber, tavString const &>>(&JsonNumber::getValue), "");
static_assert(exact<ConstOp<JsonNumber, void, tavNumber<char, 0> &>>(&JsonNumber::getValue), "");
static_assert(exact<ConstOp<JsonNumber, void, tavNumber<unsigned char, 0> &>>(&JsonNumber::getValue), "");
static_assert(exact<Op<JsonNumber, void, tav_istr>>(&JsonNumber::setValue), "");
static_assert(exact<Op<JsonNumber, void, tavNumber<char, 0> const &>>(&JsonNumber::setValue), "");
static_assert(exact<Op<JsonNumber, void, tavNumber<unsigned char, 0> const &>>(&JsonNumber::setValue), "");
static_assert(exact<Op<JsonNumber, void, tav_istr>>(&JsonNumber::fromString), "");

static_assert(std::is_base_of<JsonValue, JsonString>::value, "");
static_assert(std::is_default_constructible<JsonString>::value, "");
static_assert(std::is_constructible<JsonString, tav_istr>::value, "");
static_assert(!std::is_convertible<tav_istr, JsonString>::value, "");
static_assert(exact<ConstOp<JsonString, tavString>>(&JsonString::asString), "");
static_assert(exact<ConstOp<JsonString, tavString const &>>(&JsonString::getValue), "");
static_assert(exact<Op<JsonString, void, tav_istr>>(&JsonString::setValue), "");
static_assert(exact<Op<JsonString, void, tav_istr>>(&JsonString::fromString), "");
static_assert(exact<tavSharedPtr<JsonString> (*)(tav_istr)>(&JsonString::from), "");
static_assert(exact<tavString (*)(tavOptional<tavString> const &)>(&JsonString::escape), "");
static_assert(exact<tavOptional<tavString> (*)(tav_istr)>(&JsonString::unescape), "");

static_assert(std::is_same<std::map<tavString, JsonUnit>::const_iterator, JsonUnit::const_iterator>::value,
              "");
static_assert(std::is_default_constructible<JsonUnit>::value, "");
static_assert(std::is_convertible<std::nullptr_t, JsonUnit>::value, "");
static_assert(std::is_convertible<tavSharedPtr<JsonValue> const &, JsonUnit>::value, "");
static_assert(exact<ConstOp<JsonUnit, bool>>(&JsonUnit::isNull), "");
static_assert(exact<ConstOp<JsonUnit, JsonFieldType>>(&JsonUnit::type), "");
static_assert(exact<ConstOp<JsonUnit, bool>>(&JsonUnit::simple), "");
static_assert(exact<ConstOp<JsonUnit, tavSharedPtr<JsonValue> const &>>(&JsonUnit::value), "");
static_assert(exact<Op<JsonUnit, void>>(&JsonUnit::setNull), "");
static_assert(exact<ConstOp<JsonUnit, tavString>>(&JsonUnit::asString), "");
static_assert(exact<ConstOp<JsonUnit, tavString, bool>>(&JsonUnit::toString), "");
static_assert(exact<ConstOp<JsonUnit, void, std::ostream &>>(&JsonUnit::dump), "");
static_assert(exact<ConstOp<JsonUnit, JsonArray const *>>(&JsonUnit::arrayValue), "");
static_assert(exact<ConstOp<JsonUnit, JsonBoolean const *>>(&JsonUnit::booleanValue), "");
static_assert(exact<ConstOp<JsonUnit, JsonNumber const *>>(&JsonUnit::numberValue), "");
static_assert(exact<ConstOp<JsonUnit, JsonObject const *>>(&JsonUnit::objectValue), "");
static_assert(exact<ConstOp<JsonUnit, JsonString const *>>(&JsonUnit::stringValue), "");
static_assert(exact<Op<JsonUnit, JsonArray &>>(&JsonUnit::arrayValue), "");
static_assert(exact<Op<JsonUnit, JsonBoolean &>>(&JsonUnit::booleanValue), "");
static_assert(exact<Op<JsonUnit, JsonNumber &>>(&JsonUnit::numberValue), "");
static_assert(exact<Op<JsonUnit, JsonObject &>>(&JsonUnit::objectValue), "");
static_assert(exact<Op<JsonUnit, JsonString &>>(&JsonUnit::stringValue), "");
static_assert(exact<Op<JsonUnit, JsonUnit &, tav_istr>>(&JsonUnit::child), "");
static_assert(exact<ConstOp<JsonUnit, JsonUnit const &, tav_istr>>(&JsonUnit::child), "");
static_assert(exact<Op<JsonUnit, JsonUnit &, tav_istr>>(&JsonUnit::operator[]), "");
static_assert(exact<ConstOp<JsonUnit, JsonUnit const &, tav_istr>>(&JsonUnit::operator[]), "");
static_assert(exact<JsonUnit const & (*)()>(&JsonUnit::null), "");
static_assert(exact<Op<JsonUnit, JsonUnit &>>(&JsonUnit::newChild), "");
static_assert(exact<ConstOp<JsonUnit, JsonUnit::const_iterator>>(&JsonUnit::begin), "");
static_assert(exact<ConstOp<JsonUnit, JsonUnit::const_iterator>>(&JsonUnit::end), "");
static_assert(exact<Op<JsonUnit, void, tav_istr>>(&JsonUnit::decode), "");

/// Whether a unit writes exactly these types, by value or reference, and reads exactly those.
template <class... T>
constexpr bool writes() {
    return (exact<Op<JsonUnit, JsonUnit &, T>>(&JsonUnit::operator<<) && ...);
}
template <class... T>
constexpr bool reads() {
    return (exact<ConstOp<JsonUnit, JsonUnit const &, T &>>(&JsonUnit::operator>>) && ...);
}
static_assert(
    writes<char, unsigned char, short, unsigned short, int, unsigned int, float, double, long, unsigned long,
           long long, unsigned long long, tavTime const &, bool, char const *, tav_istr, tavString const &,
           std::string const &, std::wstring const &, tavBytes const &>(),
    "");
static_assert(
    reads<char, unsigned char, short, unsigned short, int, unsigned int, long, unsigned long, long long,
          unsigned long long, float, double, tavTime, bool, tavString, std::string, std::wstring, tavBytes>(),
    "");

static_assert(std::is_base_of<JsonValue, JsonArray>::value, "");
static_assert(std::is_same<std::vector<JsonUnit>::const_iterator, JsonArray::const_iterator>::value, "");
static_assert(exact<Op<JsonArray, void, JsonUnit const &>>(&JsonArray::add), "");
static_assert(exact<ConstOp<JsonArray, JsonUnit const &, unsigned>>(&JsonArray::at), "");
static_assert(exact<ConstOp<JsonArray, JsonArray::const_iterator>>(&JsonArray::begin), "");
static_assert(exact<ConstOp<JsonArray, JsonArray::const_iterator>>(&JsonArray::end), "");
static_assert(exact<ConstOp<JsonArray, std::vector<JsonUnit> const &>>(&JsonArray::elements), "");
static_assert(exact<ConstOp<JsonArray, unsigned>>(&JsonArray::size), "");
static_assert(exact<Op<JsonArray, JsonUnit &>>(&JsonArray::newChild), "");

static_assert(std::is_base_of<JsonValue, JsonObject>::value, "");
static_assert(std::is_same<JsonUnit::const_iterator, JsonObject::const_iterator>::value, "");
static_assert(exact<Op<JsonObject, JsonUnit &, tav_istr>>(&JsonObject::get), "");
static_assert(exact<ConstOp<JsonObject, JsonUnit const *, tav_istr>>(&JsonObject::get), "");
static_assert(exact<Op<JsonObject, JsonUnit &, tav_istr>>(&JsonObject::operator[]), "");
static_assert(exact<Op<JsonObject, void, tav_istr, JsonUnit const &>>(&JsonObject::put), "");
static_assert(exact<ConstOp<JsonObject, JsonObject::const_iterator>>(&JsonObject::begin), "");
static_assert(exact<ConstOp<JsonObject, JsonObject::const_iterator>>(&JsonObject::end), "");

static_assert(!std::is_default_constructible<JsonParser>::value, "");
static_assert(exact<tavSharedPtr<JsonValue> (*)(tav_istr)>(&JsonParser::from), "");
static_assert(exact<tavSharedPtr<JsonValue> (*)(tav_istr)>(&JsonParser::fromSimple), "");

static_assert(std::is_constructible<JsonFormatter, JsonValue const *, bool, bool, int, bool>::value, "");
static_assert(exact<JsonValue const * JsonFormatter::*>(&JsonFormatter::value), "");
static_assert(exact<bool JsonFormatter::*>(&JsonFormatter::pretty), "");
static_assert(exact<bool JsonFormatter::*>(&JsonFormatter::skipNull), "");
static_assert(exact<int JsonFormatter::*>(&JsonFormatter::level), "");
static_assert(exact<bool JsonFormatter::*>(&JsonFormatter::sample), "");
static_assert(exact<ConstOp<JsonFormatter, void, tavString &>>(&JsonFormatter::format), "");
static_assert(exact<ConstOp<JsonFormatter, tavString>>(&JsonFormatter::toString), "");
static_assert(exact<void (*)(tavString &, bool, int)>(&JsonFormatter::indent), "");

using In = JsonInputStream;
static_assert(std::is_convertible<JsonUnit const &, In>::value && std::is_convertible<tav_istr, In>::value,
              "");
static_assert(std::is_copy_constructible<In>::value && !std::is_default_constructible<In>::value, "");
static_assert(exact<ConstOp<In, In const &, int &>>(&In::operator>><int>), "");
static_assert(exact<ConstOp<In, JsonUnit const &>>(&In::unit), "");
static_assert(exact<ConstOp<In, In const &>>(&In::me), "");
static_assert(exact<ConstOp<In, JsonUnit const &, tav_istr>>(&In::child), "");
static_assert(exact<ConstOp<In, JsonUnit const &, tav_istr, tav_istr>>(&In::child), "");
static_assert(exact<ConstOp<In, JsonUnit const &, tav_istr>>(&In::operator[]), "");
static_assert(exact<ConstOp<In, tavString>>(&In::asString), "");
static_assert(exact<ConstOp<In, tavString>>(&In::str), "");
static_assert(exact<ConstOp<In, tavSharedPtr<JsonValue> const &>>(&In::value), "");
static_assert(exact<ConstOp<In, bool>>(&In::isNull), "");
static_assert(exact<ConstOp<In, bool>>(&In::isEmpty), "");
static_assert(exact<ConstOp<In, JsonFieldType, tav_istr>>(&In::fieldType), "");
static_assert(
    exact<ConstOp<In, bool, JsonArray::const_iterator &, JsonArray::const_iterator &>>(&In::getArrayChildren),
    "");
static_assert(exact<ConstOp<In, bool, JsonObject::const_iterator &, JsonObject::const_iterator &>>(
                  &In::getObjectChildren),
              "");
static_assert(exact<ConstOp<In, bool>>(&In::decoding), "");
static_assert(exact<ConstOp<In, int>>(&In::dumping), "");
static_assert(exact<Op<In, void, tav_istr, tav_istr, tav_istr>>(&In::enter), "");
static_assert(exact<Op<In, void>>(&In::leave), "");
static_assert(exact<Op<In, void>>(&In::enterSuper), "");
static_assert(exact<Op<In, void>>(&In::leaveSuper), "");

using Out = JsonOutputStream;
static_assert(std::is_default_constructible<Out>::value && std::is_copy_constructible<Out>::value, "");
static_assert(std::is_convertible<JsonUnit &, Out>::value && std::is_convertible<In const &, Out>::value, "");
static_assert(exact<Op<Out, Out &, int const &>>(&Out::operator<< <int>), "");
static_assert(exact<Op<Out, Out &, char const * const &>>(&Out::operator<< <char const *>), "");
static_assert(exact<Op<Out, JsonUnit &>>(&Out::unit), "");
static_assert(exact<ConstOp<Out, JsonUnit const &>>(&Out::unit), "");
static_assert(exact<Op<Out, Out &>>(&Out::me), "");
static_assert(exact<Op<Out, JsonUnit &, tav_istr>>(&Out::child), "");
static_assert(exact<Op<Out, JsonUnit &, tav_istr, char const *, int>>(&Out::child), "");
static_assert(exact<Op<Out, JsonUnit &, tav_istr>>(&Out::operator[]), "");
static_assert(exact<Op<Out, JsonUnit &>>(&Out::newChild), "");
static_assert(exact<ConstOp<Out, tavSharedPtr<JsonValue> const &>>(&Out::value), "");
static_assert(exact<Op<Out, JsonArray &>>(&Out::arrayValue), "");
static_assert(exact<Op<Out, JsonObject &>>(&Out::objectValue), "");
static_assert(exact<Op<Out, void>>(&Out::setNull), "");
static_assert(exact<Op<Out, void, Out const &>>(&Out::add), "");
static_assert(exact<ConstOp<Out, bool>>(&Out::decoding), "");
static_assert(exact<ConstOp<Out, int>>(&Out::dumping), "");
static_assert(exact<Op<Out, void, int>>(&Out::dumping), "");
static_assert(exact<Op<Out, void, tav_istr, tav_istr, tav_istr>>(&Out::enter), "");
static_assert(exact<Op<Out, void>>(&Out::leave), "");
static_assert(exact<Op<Out, void>>(&Out::enterSuper), "");
static_assert(exact<Op<Out, void>>(&Out::leaveSuper), "");
static_assert(exact<ConstOp<Out, tavString, bool, bool, int, bool>>(&Out::encode), "");
static_assert(exact<ConstOp<Out, tavString, bool, bool, bool>>(&Out::str), "");
static_assert(exact<ConstOp<Out, tavString, bool>>(&Out::dump), "");

} // namespace json
} // namespace tav

static_assert(std::is_same<tavJsonInStreamImpl, tav::json::JsonInputStream>::value, "");
static_assert(std::is_same<tavJsonOutStreamImpl, tav::json::JsonOutputStream>::value, "");

static_assert(std::is_base_of<tavCodecStream, tavJsonInStream>::value, "");
static_assert(std::is_constructible<tavJsonInStream, tav_istr>::value, "");
static_assert(!std::is_convertible<tav_istr, tavJsonInStream>::value, "");
static_assert(std::is_constructible<tavJsonInStream, tavJsonInStreamImpl *, bool>::value, "");
static_assert(exact<ConstOp<tavJsonInStream, bool, tav_istr>>(&tavJsonInStream::fieldExists), "");
static_assert(exact<ConstOp<tavJsonInStream, JsonFieldType, tav_istr>>(&tavJsonInStream::fieldType), "");
static_assert(exact<ConstOp<tavJsonInStream, tavString, tav_istr>>(&tavJsonInStream::fieldValue), "");
static_assert(exact<ConstOp<tavJsonInStream, bool>>(&tavJsonInStream::valueIsEmpty), "");

static_assert(std::is_base_of<tavCodecStream, tavJsonOutStream>::value, "");
static_assert(std::is_default_constructible<tavJsonOutStream>::value, "");
static_assert(std::is_constructible<tavJsonOutStream, tavJsonOutStreamImpl *, bool>::value, "");
static_assert(exact<Op<tavJsonOutStream, void>>(&tavJsonOutStream::writeNull), "");
static_assert(exact<Op<tavJsonOutStream, void>>(&tavJsonOutStream::makeArrayValue), "");
static_assert(exact<Op<tavJsonOutStream, void>>(&tavJsonOutStream::makeObjectValue), "");
static_assert(exact<ConstOp<tavJsonOutStream, tavString, bool, bool>>(&tavJsonOutStream::str), "");

TEST(JsonInterface, TakesTextsOfEachFormWithoutACast) {
    using namespace tav::json;
    std::string const standard = "{a:1}";
    tavString const own = standard;
    EXPECT_EQ(JsonInputStream("{a:1}").str(), "{ \"a\":1 }");
    EXPECT_EQ(JsonInputStream(standard).str(), "{ \"a\":1 }");
    EXPECT_EQ(JsonInputStream(own).str(), "{ \"a\":1 }");
    EXPECT_EQ(tavJsonInStream("{a:1}").fieldValue("a"), "1");
    EXPECT_EQ(JsonParser::from(standard)->toJson(), "{ \"a\":1 }");
    JsonUnit unit;
    unit.decode(own);
    EXPECT_EQ(unit[std::string("a")].asString(), "1");
    char name[] = "b";
    unit[name] << name;
    JsonOutputStream out(unit);
    out["c"] << "x";
    out.child(tavString("d")) << standard;
    EXPECT_EQ(out.dump(false), "{ \"a\":1, \"b\":\"b\", \"c\":\"x\", \"d\":\"{a:1}\" }");
}

TEST(JsonInterface, HandlesAreMadeOfValuesOfEachClass) {
    using namespace tav::json;
    JsonArray array;
    array.add(nullptr);
    array.add(JsonUnit(new JsonNumber("1")));
    array.add(tavSharedPtr<JsonValue>(new JsonBoolean(true)));
    array.add(JsonUnit(tavSharedPtr<JsonString>(new JsonString("x"))));
    array.add({});
    JsonUnit const kept = array.at(1);
    array.add(kept);
    EXPECT_EQ(array.toJson(), "[ null, 1, true, \"x\", null, 1 ]");
    JsonObject object;
    object.put("a", kept);
    object.put("b", nullptr);
    object.put("c", tavSharedPtr<JsonValue>(new JsonArray(array)));
    EXPECT_EQ(object.toJson(), "{ \"a\":1, \"b\":null, \"c\":[ null, 1, true, \"x\", null, 1 ] }");
}

TEST(JsonInterface, ExampleOfTheHeader) {
    tav::json::JsonUnit unit;
    unit.decode("{name: 'Ann', tags: [1, 2]}");
    tavString const name = unit["name"].asString();
    unit["age"] << 30;
    EXPECT_EQ(name, "Ann");
    EXPECT_EQ(unit.toString(false), "{ \"age\":30, \"name\":\"Ann\", \"tags\":[ 1, 2 ] }");
}
