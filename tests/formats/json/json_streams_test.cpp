#include "tav/vinta/vinta_json_streams.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using tav::json::JsonArray;
using tav::json::JsonInputStream;
using tav::json::JsonObject;
using tav::json::JsonOutputStream;
using tav::json::JsonString;
using tav::json::JsonUnit;

namespace {

std::string text(tavString const & v) {
    return std::string(v.data(), v.size());
}

JsonUnit parsed(char const * json) {
    JsonUnit unit;
    unit.decode(tav_istr(json));
    return unit;
}

std::string compact(JsonUnit const & unit) {
    return text(unit.toString(false));
}

tavCodecMeta const plain;

/// What io reads from the member "f" into a target that holds `before`.
template <class T>
T ioFrom(char const * json, T before) {
    tavJsonInStream s{tav_istr(json)};
    tavSharedPtr<tavCodecStream> const child = s.child(1, "f");
    EXPECT_TRUE(child);
    if (child) {
        child->io(before, plain);
    }
    return before;
}

/// The text of an object whose member "f" io wrote.
template <class T>
std::string ioTo(T v) {
    tavJsonOutStream s;
    s.child(1, "f")->io(v, plain);
    return text(s.str(false, false));
}

} // namespace

TEST(JsonStreamsInputStream, BorrowsAUnitWithoutACopy) {
    JsonUnit unit = parsed("{a:1}");
    JsonInputStream const s(unit);
    EXPECT_EQ(&s.unit(), &unit);
    EXPECT_EQ(&s.me(), &s);
    unit["a"] << 2;
    int a = 0;
    s["a"] >> a;
    EXPECT_EQ(a, 2);
    JsonInputStream const copy(s);
    EXPECT_EQ(&copy.unit(), &unit);
}

TEST(JsonStreamsInputStream, OwnsWhatItParsesAndSharesItWithCopies) {
    JsonInputStream const s(tav_istr("{a:{b:'x'}}"));
    JsonInputStream const copy(s);
    EXPECT_NE(&copy.unit(), &s.unit());
    EXPECT_EQ(copy.value().get(), s.value().get());
    EXPECT_EQ(text(copy.child("a").child("b").asString()), "x");
    EXPECT_THROW(JsonInputStream(tav_istr("5")), std::invalid_argument);
}

TEST(JsonStreamsInputStream, ReadsEachTargetOfAUnit) {
    JsonUnit unit;
    unit << "7";
    JsonInputStream const s(unit);
    char c = 0;
    unsigned char uc = 0;
    short sh = 0;
    unsigned short us = 0;
    int i = 0;
    unsigned int ui = 0;
    long l = 0;
    unsigned long ul = 0;
    long long ll = 0;
    unsigned long long ull = 0;
    float f = 0;
    double d = 0;
    tavTime time;
    tavString string;
    std::string standard;
    std::wstring wide;
    tavBytes bytes;
    bool flag = true;
    EXPECT_EQ(&(s >> c >> uc >> sh >> us >> i >> ui >> l >> ul >> ll >> ull >> f >> d >> time >> string >>
                standard >> wide >> bytes >> flag),
              &s);
    EXPECT_EQ(c, 7);
    EXPECT_EQ(uc, 7);
    EXPECT_EQ(sh, 7);
    EXPECT_EQ(us, 7);
    EXPECT_EQ(i, 7);
    EXPECT_EQ(ui, 7u);
    EXPECT_EQ(l, 7);
    EXPECT_EQ(ul, 7u);
    EXPECT_EQ(ll, 7);
    EXPECT_EQ(ull, 7u);
    EXPECT_EQ(f, 7.0f);
    EXPECT_EQ(d, 7.0);
    EXPECT_EQ(time, tavTime::milliseconds(7));
    EXPECT_EQ(text(string), "7");
    EXPECT_EQ(standard, "7");
    EXPECT_EQ(wide, L"7");
    EXPECT_FALSE(bytes.empty());
    EXPECT_TRUE(flag);
}

TEST(JsonStreamsInputStream, AlternativeNameGoesFirstIfThereIsOne) {
    JsonInputStream const s(tav_istr("{a:1,b:2}"));
    EXPECT_EQ(compact(s.child("a", "b")), "2");
    EXPECT_EQ(compact(s.child("a", "")), "1");
    EXPECT_EQ(compact(s.child("a", tav_istr())), "1");
    EXPECT_EQ(&s.child("a", "none"), &JsonUnit::null());
}

TEST(JsonStreamsInputStream, TellsOfTheUnit) {
    JsonInputStream const s(tav_istr("{a:'x\"y',n:null,b:true,i:5,l:[],o:{a:1}}"));
    EXPECT_EQ(text(JsonInputStream(s["a"]).asString()), "x\"y");
    EXPECT_EQ(text(JsonInputStream(s["a"]).str()), "\"x\\\"y\"");
    EXPECT_EQ(text(JsonInputStream(s["o"]).str()), "{ \"a\":1 }");
    EXPECT_FALSE(s.isNull());
    EXPECT_FALSE(s.isEmpty());
    EXPECT_TRUE(JsonInputStream(s["n"]).isNull());
    EXPECT_TRUE(JsonInputStream(s["none"]).isEmpty());
    EXPECT_FALSE(JsonInputStream(s["l"]).isEmpty());
    EXPECT_EQ(s.fieldType("n"), tav::JsonFieldNull);
    EXPECT_EQ(s.fieldType("none"), tav::JsonFieldNull);
    EXPECT_EQ(s.fieldType("b"), tav::JsonFieldBoolean);
    EXPECT_EQ(s.fieldType("i"), tav::JsonFieldNumber);
    EXPECT_EQ(s.fieldType("a"), tav::JsonFieldString);
    EXPECT_EQ(s.fieldType("l"), tav::JsonFieldArray);
    EXPECT_EQ(s.fieldType("o"), tav::JsonFieldObject);
    EXPECT_TRUE(s.decoding());
    EXPECT_EQ(s.dumping(), 0);
}

TEST(JsonStreamsInputStream, ChildrenOfArraysAndObjectsOnly) {
    JsonInputStream const s(tav_istr("{l:[1,2],o:{a:3}}"));
    JsonArray::const_iterator begin;
    JsonArray::const_iterator end;
    ASSERT_TRUE(JsonInputStream(s["l"]).getArrayChildren(begin, end));
    ASSERT_EQ(end - begin, 2);
    EXPECT_EQ(compact(begin[1]), "2");
    EXPECT_FALSE(JsonInputStream(s["o"]).getArrayChildren(begin, end));
    EXPECT_EQ(end - begin, 2);
    JsonObject::const_iterator first;
    JsonObject::const_iterator last;
    ASSERT_TRUE(JsonInputStream(s["o"]).getObjectChildren(first, last));
    ASSERT_EQ(std::distance(first, last), 1);
    EXPECT_EQ(text(first->first), "a");
    EXPECT_FALSE(JsonInputStream(s["l"]).getObjectChildren(first, last));
    EXPECT_FALSE(JsonInputStream(s["none"]).getObjectChildren(first, last));
}

TEST(JsonStreamsInputStream, BracketsDoNothing) {
    JsonInputStream s(tav_istr("{a:1}"));
    s.enter("a", "b", "c");
    s.enterSuper();
    s.leaveSuper();
    s.leave();
    EXPECT_EQ(text(s.str()), "{ \"a\":1 }");
}

TEST(JsonStreamsOutputStream, BeginsWithANullOfItsOwn) {
    JsonOutputStream s;
    EXPECT_TRUE(s.unit().isNull());
    EXPECT_FALSE(s.value());
    EXPECT_EQ(&s.me(), &s);
    EXPECT_FALSE(s.decoding());
    EXPECT_EQ(s.dumping(), 0);
    EXPECT_EQ(text(s.dump(false)), "null");
    s.dumping(3);
    EXPECT_EQ(s.dumping(), 3);
    JsonOutputStream const copy(s);
    EXPECT_EQ(copy.dumping(), 3);
}

TEST(JsonStreamsOutputStream, WritesToTheUnitThatItBorrows) {
    JsonUnit unit;
    JsonOutputStream s(unit);
    EXPECT_EQ(&s.unit(), &unit);
    JsonOutputStream copy(s);
    EXPECT_EQ(&copy.unit(), &unit);
    EXPECT_EQ(&(s << 5), &s);
    EXPECT_EQ(compact(unit), "5");
    copy << "x";
    EXPECT_EQ(compact(unit), "\"x\"");
    s.setNull();
    EXPECT_TRUE(unit.isNull());
    s << std::string("a") << std::wstring(L"b") << true << 1.5 << tavTime::milliseconds(9);
    EXPECT_EQ(compact(unit), "\"9\"");
}

TEST(JsonStreamsOutputStream, CopyOfAnOwnerSharesTheValue) {
    JsonOutputStream s;
    s["a"] << 1;
    JsonOutputStream copy(s);
    EXPECT_NE(&copy.unit(), &s.unit());
    copy["b"] << 2;
    EXPECT_EQ(compact(s.unit()), "{ \"a\":1, \"b\":2 }");
}

TEST(JsonStreamsOutputStream, GoesOnFromADecodedTree) {
    JsonInputStream const in(tav_istr("{a:1}"));
    JsonOutputStream out(in);
    out["b"] << 2;
    EXPECT_EQ(text(in.str()), "{ \"a\":1, \"b\":2 }");
    out << 5;
    EXPECT_EQ(text(in.str()), "{ \"a\":1, \"b\":2 }");
    JsonUnit const unit = parsed("{c:3}");
    JsonInputStream const borrowing(unit);
    JsonOutputStream both(borrowing);
    both["c"] << 4;
    EXPECT_EQ(compact(unit), "{ \"c\":4 }");
}

TEST(JsonStreamsOutputStream, MembersAndElements) {
    JsonOutputStream s;
    s.child("b") << 1;
    s["a"] << 2;
    s.child("x", "c", 9) << 3;
    s.child("d", "", 9) << 4;
    s.child("e", nullptr, 9) << 5;
    EXPECT_EQ(compact(s.unit()), "{ \"a\":2, \"b\":1, \"c\":3, \"d\":4, \"e\":5 }");
    s.newChild() << 1;
    s.newChild() << "x";
    EXPECT_EQ(compact(s.unit()), "[ 1, \"x\" ]");
    EXPECT_EQ(s.arrayValue().size(), 2u);
    s.objectValue();
    EXPECT_EQ(compact(s.unit()), "{ }");
    EXPECT_TRUE(s.value());
}

TEST(JsonStreamsOutputStream, AddAppendsTheUnitOfAnother) {
    JsonOutputStream list;
    JsonOutputStream item;
    item << 5;
    list << "dropped";
    list.add(item);
    item << 6;
    list.add(item);
    list.add(JsonOutputStream());
    EXPECT_EQ(compact(list.unit()), "[ 6, 6, null ]");
    JsonOutputStream self;
    self << 7;
    self.add(self);
    EXPECT_EQ(compact(self.unit()), "[ 7 ]");
}

TEST(JsonStreamsOutputStream, BracketsDoNothing) {
    JsonOutputStream s;
    s.enter("a", "b", "c");
    s.enterSuper();
    s.leaveSuper();
    s.leave();
    EXPECT_TRUE(s.unit().isNull());
}

TEST(JsonStreamsOutputStream, TextForms) {
    JsonOutputStream s;
    s["__class__"] << "Msg";
    s["a"] << 1;
    s["n"];
    EXPECT_EQ(text(s.encode(false, false, 0, false)), "{ \"__class__\":\"Msg\", \"a\":1, \"n\":null }");
    EXPECT_EQ(text(s.encode(true, true, 0, false)), "{\n    \"__class__\" : \"Msg\",\n    \"a\" : 1\n}");
    EXPECT_EQ(text(s.str(true, true, false)),
              "{\n        \"__class__\" : \"Msg\",\n        \"a\" : 1\n    }");
    EXPECT_EQ(text(s.str(false, true, false)), "{ \"__class__\":\"Msg\", \"a\":1 }");
    EXPECT_EQ(text(s.str(false, false, true)), "@Msg{ a:1, n:null }");
    EXPECT_EQ(text(s.str(true, false, true)), "@Msg{\n        a : 1,\n        n : null\n    }");
    EXPECT_EQ(text(s.dump(false)), "{ \"__class__\":\"Msg\", \"a\":1, \"n\":null }");
    EXPECT_EQ(text(s.dump(true)), "@Msg{ a:1, n:null }");
    EXPECT_NE(text(s.dump(false)), text(s.value()->dump(false)));
}

TEST(JsonStreamsInStream, AnswersOfTheCodecInterface) {
    tavJsonInStream s(tav_istr("{a:1}"));
    EXPECT_FALSE(s.isOutputStream());
    EXPECT_FALSE(s.isNull());
    EXPECT_FALSE(s.valueIsEmpty());
    EXPECT_FALSE(s.hideEmpty());
    EXPECT_TRUE(s.isMapEntryCombined());
    EXPECT_FALSE(s.getOutputChild());
    s.enter("A", "B");
    s.leave();
    s.writeNull();
    s.makeArrayValue();
    s.makeObjectValue();
    EXPECT_EQ(text(s.fieldValue("a")), "1");
    EXPECT_THROW(tavJsonInStream(tav_istr("x")), std::invalid_argument);
}

TEST(JsonStreamsInStream, NullUnitIsANullStream) {
    JsonUnit const unit;
    tavJsonInStreamImpl impl(unit);
    tavJsonInStream s(&impl, false);
    EXPECT_TRUE(s.isNull());
    EXPECT_TRUE(s.valueIsEmpty());
    EXPECT_FALSE(s.child(1, "a"));
}

TEST(JsonStreamsInStream, DeletesItsImplementationIfItOwnsIt) {
    JsonUnit unit = parsed("{a:{}}");
    unsigned const before = unit.value()->getRefCount();
    {
        tavJsonOutStreamImpl * const out = new tavJsonOutStreamImpl(JsonInputStream(unit));
        EXPECT_EQ(unit.value()->getRefCount(), before + 1);
        tavJsonOutStream const s(out, true);
    }
    EXPECT_EQ(unit.value()->getRefCount(), before);
    { tavJsonInStream const s(new tavJsonInStreamImpl(unit), true); }
    tavJsonInStreamImpl in(unit);
    { tavJsonInStream const s(&in, false); }
    EXPECT_EQ(text(in.str()), "{ \"a\":{ } }");
}

TEST(JsonStreamsInStream, ChildOfAnAbsentOrNullMemberIsNull) {
    tavJsonInStream s(tav_istr("{a:1,n:null,l:[5]}"));
    EXPECT_TRUE(s.child(1, "a"));
    EXPECT_TRUE(s.child(99, "a"));
    EXPECT_FALSE(s.child(1, "n"));
    EXPECT_FALSE(s.child(1, "none"));
    EXPECT_FALSE(s.child(1, "A"));
    EXPECT_FALSE(s.child(1, "l")->child(1, "a"));
}

TEST(JsonStreamsInStream, ChildrenHeldTogetherStandApart) {
    tavJsonInStream s(tav_istr("{a:{x:1},b:{x:2}}"));
    tavSharedPtr<tavCodecStream> const a = s.child(1, "a");
    tavSharedPtr<tavCodecStream> const b = s.child(2, "b");
    tavSharedPtr<tavCodecStream> const ax = a->child(1, "x");
    tavSharedPtr<tavCodecStream> const bx = b->child(1, "x");
    int v = 0;
    ax->io(v, plain);
    EXPECT_EQ(v, 1);
    bx->io(v, plain);
    EXPECT_EQ(v, 2);
}

TEST(JsonStreamsInStream, ChildIsAlwaysFresh) {
    tavJsonInStream s(tav_istr("{a:1,b:2}"));
    tav::detail::FieldAccess::markFilled(*s.child(1, "a"));
    EXPECT_TRUE(s.child(2, "b")->isEmpty());
}

TEST(JsonStreamsInStream, ElementsInOrder) {
    tavJsonInStream s(tav_istr("{l:[1,'x',[2]],o:{a:1},n:5}"));
    std::vector<tavSharedPtr<tavCodecStream>> children;
    s.child(1, "o")->getInputChildren(children);
    s.child(1, "n")->getInputChildren(children);
    EXPECT_TRUE(children.empty());
    s.child(1, "l")->getInputChildren(children);
    ASSERT_EQ(children.size(), 3u);
    int number = 0;
    tavString string;
    children[0]->io(number, plain);
    children[1]->io(string, plain);
    EXPECT_EQ(number, 1);
    EXPECT_EQ(text(string), "x");
    children[2]->getInputChildren(children);
    EXPECT_EQ(children.size(), 4u);
}

TEST(JsonStreamsInStream, MembersByName) {
    tavJsonInStream s(tav_istr("{o:{b:2,a:1,n:null},l:[1],n:5}"));
    std::map<tavString, tavSharedPtr<tavCodecStream>> children;
    s.child(1, "l")->getInputChildMap(children);
    s.child(1, "n")->getInputChildMap(children);
    EXPECT_TRUE(children.empty());
    s.child(1, "o")->getInputChildMap(children);
    ASSERT_EQ(children.size(), 3u);
    EXPECT_TRUE(children["n"]->isNull());
    int v = 0;
    children["b"]->io(v, plain);
    EXPECT_EQ(v, 2);
}

TEST(JsonStreamsInStream, TellsOfFields) {
    tavJsonInStream const s(tav_istr("{s:\"a/b\",i:1234567890123456,n:null,b:true,l:[1],o:{}}"));
    EXPECT_TRUE(s.fieldExists("s"));
    EXPECT_FALSE(s.fieldExists("n"));
    EXPECT_FALSE(s.fieldExists("none"));
    EXPECT_EQ(s.fieldType("s"), tav::JsonFieldString);
    EXPECT_EQ(s.fieldType("i"), tav::JsonFieldNumber);
    EXPECT_EQ(s.fieldType("b"), tav::JsonFieldBoolean);
    EXPECT_EQ(s.fieldType("l"), tav::JsonFieldArray);
    EXPECT_EQ(s.fieldType("o"), tav::JsonFieldObject);
    EXPECT_EQ(s.fieldType("n"), tav::JsonFieldNull);
    EXPECT_EQ(s.fieldType("none"), tav::JsonFieldNull);
    EXPECT_EQ(text(s.fieldValue("s")), "\"a\\/b\"");
    EXPECT_EQ(text(s.fieldValue("i")), "\"1234567890123456\"");
    EXPECT_EQ(text(s.fieldValue("l")), "[ 1 ]");
    EXPECT_EQ(text(s.fieldValue("n")), "null");
    EXPECT_EQ(text(s.fieldValue("none")), "null");
}

TEST(JsonStreamsInStream, NumbersOfEachWidth) {
    EXPECT_EQ(ioFrom<int>("{f:0x10}", 1), 16);
    EXPECT_EQ(ioFrom<int>("{\"f\":\"0x10\"}", 1), 16);
    EXPECT_EQ(ioFrom<int>("{f:010}", 1), 8);
    EXPECT_EQ(ioFrom<int>("{\"f\":\"abc\"}", 1), 0);
    EXPECT_EQ(ioFrom<char>("{f:-1}", 1), -1);
    EXPECT_EQ(ioFrom<unsigned char>("{f:'255'}", 1), 255);
    EXPECT_EQ(ioFrom<short>("{f:-2}", 1), -2);
    EXPECT_EQ(ioFrom<unsigned short>("{f:2}", 1), 2);
    EXPECT_EQ(ioFrom<unsigned int>("{f:3}", 1), 3u);
    EXPECT_EQ(ioFrom<long>("{f:'-4'}", 1), -4);
    EXPECT_EQ(ioFrom<unsigned long>("{f:18446744073709551615}", 1), ~0ul);
    EXPECT_EQ(ioFrom<long long>("{f:-5}", 1), -5);
    EXPECT_EQ(ioFrom<unsigned long long>("{f:'6'}", 1), 6u);
    EXPECT_EQ(ioFrom<float>("{f:1.5}", 1), 1.5f);
    EXPECT_EQ(ioFrom<double>("{f:'1e3'}", 1), 1000.0);
    EXPECT_TRUE(ioFrom<bool>("{f:true}", false));
}

TEST(JsonStreamsInStream, UnsuitableClassLeavesNumbersAndBooleansAlone) {
    for (char const * const json : {"{f:true}", "{f:[1]}", "{f:{f:1}}"}) {
        SCOPED_TRACE(json);
        EXPECT_EQ(ioFrom<char>(json, 9), 9);
        EXPECT_EQ(ioFrom<unsigned char>(json, 9), 9);
        EXPECT_EQ(ioFrom<short>(json, 9), 9);
        EXPECT_EQ(ioFrom<unsigned short>(json, 9), 9);
        EXPECT_EQ(ioFrom<int>(json, 9), 9);
        EXPECT_EQ(ioFrom<unsigned int>(json, 9), 9u);
        EXPECT_EQ(ioFrom<long long>(json, 9), 9);
        EXPECT_EQ(ioFrom<unsigned long long>(json, 9), 9u);
        EXPECT_EQ(ioFrom<float>(json, 9), 9.0f);
        EXPECT_EQ(ioFrom<double>(json, 9), 9.0);
        EXPECT_EQ(ioFrom<long>(json, 9), 0);
        EXPECT_EQ(ioFrom<unsigned long>(json, 9), 0u);
    }
    EXPECT_TRUE(ioFrom<bool>("{f:0}", true));
    EXPECT_TRUE(ioFrom<bool>("{f:'false'}", true));
}

TEST(JsonStreamsInStream, UnsuitableClassClearsTextBytesAndTime) {
    for (char const * const json : {"{f:true}", "{f:[1]}", "{f:{f:1}}"}) {
        SCOPED_TRACE(json);
        EXPECT_EQ(ioFrom<tavTime>(json, tavTime::milliseconds(9)), tavTime());
        EXPECT_TRUE(ioFrom<tavString>(json, tavString("old")).empty());
        EXPECT_TRUE(ioFrom<tavBytes>(json, tavBytes(tav_istr("old"))).empty());
    }
    EXPECT_TRUE(ioFrom<tavString>("{f:5}", tavString("old")).empty());
    EXPECT_TRUE(ioFrom<tavBytes>("{f:5}", tavBytes(tav_istr("old"))).empty());
    EXPECT_EQ(ioFrom<tavTime>("{f:5}", tavTime()), tavTime::milliseconds(5));
    EXPECT_EQ(ioFrom<tavTime>("{f:'6'}", tavTime()), tavTime::milliseconds(6));
    EXPECT_EQ(text(ioFrom<tavString>("{f:'x'}", tavString("old"))), "x");
    EXPECT_EQ(tav_istr(ioFrom<tavBytes>("{f:'YWJj'}", tavBytes(tav_istr("old")))), tav_istr("abc"));
}

TEST(JsonStreamsInStream, AdaptedTypesGoThroughText) {
    EXPECT_EQ(ioFrom<std::string>("{f:'x'}", "old"), "x");
    EXPECT_EQ(ioFrom<std::string>("{f:5}", "old"), "");
    EXPECT_TRUE(ioFrom<tavWstring>("{f:'\xe2\x82\xac'}", tavWstring(L"old")) == tavWstring(L"\u20ac"));
    EXPECT_EQ(ioFrom<wchar_t>("{f:'xy'}", L'o'), L'x');
    EXPECT_EQ(ioFrom<wchar_t>("{f:5}", L'o'), L'o');
}

TEST(JsonStreamsOutStream, AnswersOfTheCodecInterface) {
    tavJsonOutStream s;
    EXPECT_TRUE(s.isOutputStream());
    EXPECT_FALSE(s.isNull());
    EXPECT_FALSE(s.hideEmpty());
    EXPECT_TRUE(s.isMapEntryCombined());
    std::vector<tavSharedPtr<tavCodecStream>> list;
    std::map<tavString, tavSharedPtr<tavCodecStream>> map;
    s.getInputChildren(list);
    s.getInputChildMap(map);
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(map.empty());
    s.enter("A", "B");
    s.leave();
    EXPECT_EQ(text(s.str(false, false)), "null");
}

TEST(JsonStreamsOutStream, EachTypeAsAMember) {
    EXPECT_EQ(ioTo<long long>(5), "{ \"f\":\"5\" }");
    EXPECT_EQ(ioTo<unsigned long long>(5), "{ \"f\":\"5\" }");
    EXPECT_EQ(ioTo<long>(-5), "{ \"f\":\"-5\" }");
    EXPECT_EQ(ioTo<unsigned long>(~0ul), "{ \"f\":\"18446744073709551615\" }");
    EXPECT_EQ(ioTo<int>(5), "{ \"f\":5 }");
    EXPECT_EQ(ioTo<unsigned int>(4294967295u), "{ \"f\":4294967295 }");
    EXPECT_EQ(ioTo<short>(-5), "{ \"f\":-5 }");
    EXPECT_EQ(ioTo<unsigned short>(5), "{ \"f\":5 }");
    EXPECT_EQ(ioTo<char>('A'), "{ \"f\":65 }");
    EXPECT_EQ(ioTo<unsigned char>(200), "{ \"f\":200 }");
    EXPECT_EQ(ioTo<bool>(true), "{ \"f\":true }");
    EXPECT_EQ(ioTo<double>(3.14159265), "{ \"f\":3.14159 }");
    EXPECT_EQ(ioTo<float>(0.5f), "{ \"f\":0.5 }");
    EXPECT_EQ(ioTo<tavString>("a/b"), "{ \"f\":\"a\\/b\" }");
    EXPECT_EQ(ioTo<tavBytes>(tavBytes(tav_istr("abc"))), "{ \"f\":\"YWJj\" }");
    EXPECT_EQ(ioTo<tavTime>(tavTime::milliseconds(7)), "{ \"f\":\"7\" }");
    EXPECT_EQ(ioTo<std::string>("x"), "{ \"f\":\"x\" }");
    EXPECT_EQ(ioTo<tavWstring>(tavWstring(L"x")), "{ \"f\":\"x\" }");
    EXPECT_EQ(ioTo<wchar_t>(L'x'), "{ \"f\":\"x\" }");
}

TEST(JsonStreamsOutStream, ChildMakesAnObjectAndAnElementAnArray) {
    tavJsonOutStream s;
    int v = 5;
    s.io(v, plain);
    EXPECT_EQ(text(s.str(false, false)), "5");
    s.child(7, "b")->io(v, plain);
    s.child(7, "a");
    EXPECT_EQ(text(s.str(false, false)), "{ \"a\":null, \"b\":5 }");
    EXPECT_EQ(text(s.str(false, true)), "{ \"b\":5 }");
    EXPECT_EQ(text(s.str(true, true)), "{\n        \"b\" : 5\n    }");
    s.getOutputChild()->io(v, plain);
    s.getOutputChild();
    EXPECT_EQ(text(s.str(false, false)), "[ 5, null ]");
    s.makeArrayValue();
    EXPECT_EQ(text(s.str(false, false)), "[ 5, null ]");
    s.makeObjectValue();
    EXPECT_EQ(text(s.str(false, false)), "{ }");
    s.makeArrayValue();
    EXPECT_EQ(text(s.str(false, false)), "[ ]");
    s.writeNull();
    EXPECT_EQ(text(s.str(false, false)), "null");
}

TEST(JsonStreamsOutStream, ElementsHeldTogetherStayWhereTheyAre) {
    tavJsonOutStream s;
    std::vector<tavSharedPtr<tavCodecStream>> elements;
    for (int i = 0; i < 100; ++i) {
        elements.push_back(s.getOutputChild());
    }
    std::string expected = "[";
    for (int i = 0; i < 100; ++i) {
        elements[static_cast<std::size_t>(i)]->child(1, "v")->io(i, plain);
        expected += (i == 0 ? " { \"v\":" : ", { \"v\":") + std::to_string(i) + " }";
    }
    EXPECT_EQ(text(s.str(false, false)), expected + " ]");
}

TEST(JsonStreamsOutStream, MembersHeldTogetherStayWhereTheyAre) {
    tavJsonOutStream s;
    tavSharedPtr<tavCodecStream> const a = s.child(1, "a");
    tavSharedPtr<tavCodecStream> const b = s.child(2, "b");
    int v = 1;
    a->io(v, plain);
    v = 2;
    b->io(v, plain);
    EXPECT_EQ(text(s.str(false, false)), "{ \"a\":1, \"b\":2 }");
    tav::detail::FieldAccess::markFilled(*s.child(3, "c"));
    EXPECT_TRUE(s.child(4, "d")->isEmpty());
}

TEST(JsonStreamsOutStream, WritesToAnImplementationOfTheCaller) {
    JsonUnit unit;
    tavJsonOutStreamImpl impl(unit);
    tavJsonOutStream s(&impl, false);
    tavString v("x");
    s.child(1, "f")->io(v, plain);
    EXPECT_EQ(compact(unit), "{ \"f\":\"x\" }");
}
