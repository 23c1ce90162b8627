#include "tav/vinta/vinta_pml_meta.h"

#include "support/log_capture.h"
#include "support/meta_model.h"
#include "support/printed.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <type_traits>

using tav::pml::IdName;
using tav::pml::MetaEnum;
using tav::pml::MetaField;
using tav::pml::Unit;
using tav::pml::ValueComment;
using tav_test::fieldOf;
using tav_test::unitOf;
using tav_test::written;
namespace field_type = tav::pml::field_type;

namespace {

std::string rangeOf(MetaField const & field) {
    return tav_test::printed(field.range);
}

ValueComment valueComment(char const * text) {
    return ValueComment(tav_istr(text));
}

TEST(IdName, StartsWithoutIdAndName) {
    IdName const v;
    EXPECT_EQ(0, v.id);
    EXPECT_EQ("", v.name);
    static_assert(std::is_same<short, decltype(v.id)>::value, "the tag has 16 bits and a sign");
}

TEST(IdName, TakesTheTagOff) {
    IdName const v(tav_istr("[3]tags"));
    EXPECT_EQ(3, v.id);
    EXPECT_EQ("tags", v.name);
}

TEST(IdName, KeepsATextWithoutTag) {
    EXPECT_EQ("tags", IdName(tav_istr("tags")).name);
    EXPECT_EQ("", IdName(tav_istr("")).name);
    EXPECT_EQ("a[3]", IdName(tav_istr("a[3]")).name);
    EXPECT_EQ("[3tags", IdName(tav_istr("[3tags")).name);
    EXPECT_EQ("]3[", IdName(tav_istr("]3[")).name);
    EXPECT_EQ(0, IdName(tav_istr("a[3]")).id);
    EXPECT_EQ(0, IdName(tav_istr("[3tags")).id);
}

TEST(IdName, ReadsTheTagByTheIntegerRule) {
    EXPECT_EQ(31, IdName(tav_istr("[0x1F]a")).id);
    EXPECT_EQ(5, IdName(tav_istr("[0b101]a")).id);
    EXPECT_EQ(8, IdName(tav_istr("[010]a")).id);
    EXPECT_EQ(-5, IdName(tav_istr("[-5]a")).id);
    EXPECT_EQ(32767, IdName(tav_istr("[32767]a")).id);
}

TEST(IdName, CutsATagInARadixFormTo16Bits) {
    EXPECT_EQ(3, IdName(tav_istr("[0x10003]a")).id);
    EXPECT_EQ(-1, IdName(tav_istr("[0xFFFF]a")).id);
}

TEST(IdName, CountsATagThatCannotBeReadAsNone) {
    for (char const * text : {"[]a", "[x]a", "[1x]a", "[32768]a", "[1 ]a"}) {
        IdName const v{tav_istr(text)};
        EXPECT_EQ(0, v.id) << text;
        EXPECT_EQ("a", v.name) << text;
    }
}

TEST(IdName, TakesTheNameBehindTheFirstClosingBracket) {
    IdName const v(tav_istr("[1]a]b"));
    EXPECT_EQ(1, v.id);
    EXPECT_EQ("a]b", v.name);
    EXPECT_EQ("", IdName(tav_istr("[1]")).name);
}

TEST(IdName, PrintsWithAndWithoutItsTag) {
    IdName const v(tav_istr("[3]tags"));
    EXPECT_EQ("[3]tags", v.toString(true));
    EXPECT_EQ("tags", v.toString(false));
    EXPECT_EQ("[0]tags", IdName(tav_istr("tags")).toString(true));
}

TEST(IdName, WritesItsTagUnlessThatIsZero) {
    IdName tagged(tav_istr("[3]tags"));
    IdName plain(tav_istr("[0]tags"));
    EXPECT_EQ("([3]tags)", written(tagged));
    EXPECT_EQ("(tags)", written(plain));
}

TEST(IdName, IsReadAsItIsWritten) {
    tavPmlInStream in(tav_istr("([3]tags)"));
    IdName v;
    v.io(in);
    EXPECT_EQ(3, v.id);
    EXPECT_EQ("tags", v.name);
}

TEST(IdName, IsNeverEmptyForTheWalk) {
    EXPECT_FALSE(IdName().empty());
    EXPECT_FALSE(ValueComment().empty());
    EXPECT_FALSE(MetaField().empty());
    EXPECT_FALSE(MetaEnum().empty());
    EXPECT_FALSE(tav::pml::MetaClass().empty());
    EXPECT_FALSE(tav::pml::MetaFactory().empty());
}

TEST(ValueComment, KeepsAPlainTextAsValue) {
    EXPECT_EQ("18", valueComment("18").value);
    EXPECT_EQ("", valueComment("18").comment);
    EXPECT_EQ("", valueComment("").value);
    EXPECT_EQ("18{0..150}", valueComment("18{0..150}").value);
    EXPECT_EQ("a*}", valueComment("a*}").value);
}

TEST(ValueComment, TakesTheCommentOff) {
    ValueComment const v = valueComment("18{*years*}");
    EXPECT_EQ("18", v.value);
    EXPECT_EQ("years", v.comment);
}

TEST(ValueComment, TakesBlanksOffBothEndsOfTheCommentOnly) {
    ValueComment const v = valueComment("18 {*  in years \t*}");
    EXPECT_EQ("18 ", v.value);
    EXPECT_EQ("in years", v.comment);
}

TEST(ValueComment, TakesWhatFollowsTheFirstMarkUpToTheEnd) {
    EXPECT_EQ("years", valueComment("18{*years").comment);
    EXPECT_EQ("a*}b", valueComment("18{*a*}b").comment);
    EXPECT_EQ("a{*b", valueComment("18{*a{*b*}").comment);
    EXPECT_EQ("", valueComment("{*note*}").value);
    EXPECT_EQ("note", valueComment("{*note*}").comment);
    EXPECT_EQ("", valueComment("1{**}").comment);
    EXPECT_EQ("}", valueComment("1{*}").comment);
}

TEST(ValueComment, TakesTheMaskForAValue) {
    EXPECT_EQ("{***}", valueComment("{***}").value);
    EXPECT_EQ("", valueComment("{***}").comment);
    EXPECT_EQ("", valueComment("{***} ").value);
    EXPECT_EQ("**}", valueComment("{***} ").comment);
    EXPECT_EQ("18", valueComment("18{***}").value);
    EXPECT_EQ("*", valueComment("18{***}").comment);
    EXPECT_FALSE(fieldOf("a:int32(18{***})").isProtected);
}

TEST(ValueComment, WritesValueAndComment) {
    ValueComment both = valueComment("18{* years *}");
    EXPECT_EQ("(\"18{*years*}\")", written(both));
    ValueComment plain = valueComment("18");
    EXPECT_EQ("(18)", written(plain));
    ValueComment mask = valueComment("{***}");
    mask.comment = "secret";
    EXPECT_EQ("(\"{***}\")", written(mask));
}

TEST(ValueComment, IsReadAsItIsWritten) {
    tavPmlInStream in(tav_istr("(\"18{*years*}\")"));
    ValueComment v;
    v.io(in);
    EXPECT_EQ("18", v.value);
    EXPECT_EQ("years", v.comment);
}

TEST(MetaField, StartsWithoutAnything) {
    MetaField const v;
    EXPECT_EQ(0, v.idName.id);
    EXPECT_EQ(field_type::unknown_, v.classType.type);
    EXPECT_FALSE(v.isProtected);
    EXPECT_EQ("", v.spec);
    EXPECT_TRUE(v.validValues.empty());
    EXPECT_TRUE(v.range.empty());
}

TEST(MetaField, ReadsTagNameAndType) {
    MetaField const v = fieldOf("[2]seq:int64()");
    EXPECT_EQ(2, v.idName.id);
    EXPECT_EQ("seq", v.idName.name);
    EXPECT_EQ(field_type::int64_, v.classType.type);
    EXPECT_EQ("int64", v.classType.name);
    EXPECT_FALSE(v.classType.optional);
    EXPECT_EQ("", v.valueComment.value);
    EXPECT_FALSE(v.isProtected);
    EXPECT_TRUE(v.range.empty());
}

TEST(MetaField, WithoutTypeTextIsAnOptionalString) {
    MetaField const v = fieldOf("[2]seq()");
    EXPECT_EQ(field_type::string_, v.classType.type);
    EXPECT_TRUE(v.classType.optional);
}

TEST(MetaField, OfAClassIsAReference) {
    MetaField const v = fieldOf("[2]owner:User()");
    EXPECT_EQ(field_type::ref_, v.classType.type);
    EXPECT_EQ("User", v.classType.name);
    EXPECT_TRUE(v.classType.isRef);
}

TEST(MetaField, TakesLanguageNamesFromTheConfiguration) {
    MetaField const v(unitOf("[2]seq:int64()"), unitOf("(types(int64(long)))"));
    EXPECT_EQ("long", v.classType.name);
}

TEST(MetaField, HasADefaultAndAComment) {
    MetaField const v = fieldOf("[2]age:int32(\"18{*years*}\")");
    EXPECT_EQ("18", v.valueComment.value);
    EXPECT_EQ("years", v.valueComment.comment);
    EXPECT_EQ("years", fieldOf("[2]age:int32(18{*years*})").valueComment.comment);
}

TEST(MetaField, WithChildrenHasNoDefault) {
    MetaField const v = fieldOf("[2]age:int32(a(1) {***})");
    EXPECT_EQ("", v.valueComment.value);
    EXPECT_FALSE(v.isProtected);
}

TEST(MetaField, WithATruthValueIsABool) {
    MetaField const yes = fieldOf("[3]flag:int32(true)");
    EXPECT_EQ(field_type::bool_, yes.classType.type);
    EXPECT_EQ("bool", yes.classType.name);
    EXPECT_EQ("true", yes.valueComment.value);
    MetaField const no = fieldOf("[3]flag:int32(false)");
    EXPECT_EQ(field_type::bool_, no.classType.type);
    EXPECT_EQ("false", no.valueComment.value);
    EXPECT_FALSE(no.classType.optional);
}

TEST(MetaField, WithATruthValueIsABoolWhateverItsType) {
    MetaField const v = fieldOf("[3]flag:map{string,int32}[4](true)");
    EXPECT_EQ(field_type::bool_, v.classType.type);
    EXPECT_EQ("", v.classType.keyName);
    EXPECT_EQ(field_type::unknown_, v.classType.elementType);
    EXPECT_EQ(field_type::unknown_, v.classType.keyType);
    ASSERT_EQ(1u, v.classType.dimensions.size());
    EXPECT_FALSE(fieldOf("flag:Foo(true)").classType.isRef);
    EXPECT_TRUE(fieldOf("flag(true)").classType.optional);
    EXPECT_EQ("boolean?",
              MetaField(unitOf("flag:int32?(true)"), unitOf("(types(bool?('boolean?')))")).classType.name);
}

TEST(MetaField, ReadsTruthValuesLetterForLetter) {
    EXPECT_EQ(field_type::int32_, fieldOf("flag:int32(True)").classType.type);
    EXPECT_EQ(field_type::int32_, fieldOf("flag:int32(\"true \")").classType.type);
    EXPECT_EQ(field_type::bool_, fieldOf("flag:int32(true{*a comment*})").classType.type);
}

TEST(MetaField, WithNullIsOptionalAndHasNoDefault) {
    MetaField const v = fieldOf("[3]nick:string(null)");
    EXPECT_TRUE(v.classType.optional);
    EXPECT_EQ(field_type::string_, v.classType.type);
    EXPECT_EQ("", v.valueComment.value);
    MetaField const noted = fieldOf("[3]nick:string(null{*or a name*})");
    EXPECT_TRUE(noted.classType.optional);
    EXPECT_EQ("or a name", noted.valueComment.comment);
}

TEST(MetaField, WithTheMaskIsProtected) {
    MetaField const v = fieldOf("[2]pwd:string({***})");
    EXPECT_TRUE(v.isProtected);
    EXPECT_EQ("***", v.spec);
    EXPECT_EQ("", v.valueComment.value);
    EXPECT_TRUE(v.range.empty());
}

TEST(MetaField, WithAMaskOfItsOwnIsProtected) {
    MetaField const v = fieldOf("[2]phone:string({...***..})");
    EXPECT_TRUE(v.isProtected);
    EXPECT_EQ("...***..", v.spec);
    EXPECT_EQ("", v.valueComment.value);
    EXPECT_EQ("..", fieldOf("a:string({..}tail)").spec);
    EXPECT_EQ("", fieldOf("a:string({..}tail)").valueComment.value);
    EXPECT_EQ("..**", fieldOf("a:string({..**)").spec);
    EXPECT_EQ(".", fieldOf("a:string({.})").spec);
}

TEST(MetaField, WithAMaskBehindATextIsNotProtected) {
    MetaField const v = fieldOf("a:string(x{...})");
    EXPECT_FALSE(v.isProtected);
    EXPECT_EQ("x", v.valueComment.value);
}

TEST(MetaField, ReadsTheRangeBehindTheDefault) {
    MetaField const v = fieldOf("[2]age:int32(18{0..150})");
    EXPECT_EQ("18", v.valueComment.value);
    EXPECT_EQ("{ 0:150 }", rangeOf(v));
    EXPECT_TRUE(v.range.check(150));
    EXPECT_FALSE(v.range.check(151));
    EXPECT_FALSE(v.isProtected);
}

TEST(MetaField, ReadsTheRangeUpToTheNextBrace) {
    EXPECT_EQ("{ 1:1 5:6 }", rangeOf(fieldOf("a:int32({1,5..6}7{8})")));
    EXPECT_EQ("", fieldOf("a:int32({1,5..6}7{8})").valueComment.value);
    EXPECT_EQ("{ 1:3 }", rangeOf(fieldOf("a:int32(2{1..3)")));
    EXPECT_EQ("{ }", rangeOf(fieldOf("a:int32(2{})")));
    EXPECT_EQ("2", fieldOf("a:int32(2{})").valueComment.value);
    EXPECT_EQ("{ }", rangeOf(fieldOf("a:int32(2)")));
}

TEST(MetaField, ReadsARangeAndAComment) {
    MetaField const v = fieldOf("a:int32(18{0..150}{*years*})");
    EXPECT_EQ("18", v.valueComment.value);
    EXPECT_EQ("years", v.valueComment.comment);
    EXPECT_EQ("{ 0:150 }", rangeOf(v));
}

TEST(MetaField, TellsABadRangeToTheLogOnly) {
    tav_test::LogCapture log;
    MetaField const v = fieldOf("a:int32(1{1.5})");
    EXPECT_EQ("1", v.valueComment.value);
    EXPECT_TRUE(log.contains("invalid pattern: 1.5"));
}

TEST(MetaField, WritesOneText) {
    MetaField plain = fieldOf("[1]user:string()");
    EXPECT_EQ("(\"[1]user:string()\")", written(plain));
    MetaField untagged = fieldOf("user:int32?(5{*a note*})");
    EXPECT_EQ("(\"user:int32?(5{*a note*})\")", written(untagged));
    MetaField hidden = fieldOf("[2]pwd:string({***})");
    EXPECT_EQ("(\"[2]pwd:string(***)\")", written(hidden));
    MetaField list = fieldOf("[3]tags:list{string}()");
    EXPECT_EQ("(\"[3]tags:list{string}()\")", written(list));
    MetaField map = fieldOf("[4]m:map{string,int64}()");
    EXPECT_EQ("(\"[4]m:map{string,int64}()\")", written(map));
    MetaField ref = fieldOf("[5]owner:User[2](nobody)");
    EXPECT_EQ("(\"[5]owner:ref{User}[2](nobody)\")", written(ref));
    MetaField both = fieldOf("[5]pin:int32({..}{*hidden*})");
    EXPECT_EQ("(\"[5]pin:int32({*hidden*}..)\")", written(both));
}

TEST(MetaField, LeavesItselfAloneOnAnInputStream) {
    MetaField v = fieldOf("[1]user:string(ann)");
    tavPmlInStream in(tav_istr("(\"[2]x:int32()\")"));
    v.io(in);
    EXPECT_EQ("user", v.idName.name);
    EXPECT_EQ("ann", v.valueComment.value);
}

TEST(MetaEnum, HoldsACopyOfItsUnit) {
    Unit unit = unitOf("mood:enum{Mood}(good(0)bad(1))");
    MetaEnum const v(tav_istr("Mood"), unit);
    unit.clear();
    EXPECT_EQ("Mood", v.name);
    ASSERT_EQ(2u, v.values.size());
    EXPECT_EQ("bad", v.values.at(1).name());
    EXPECT_EQ("1", v.values.at(1).value());
    EXPECT_EQ("mood", v.values.name());
}

TEST(MetaEnum, SharesTheChildrenOfItsUnit) {
    Unit const unit = unitOf("mood:enum{Mood}(good(0))");
    MetaEnum const v(tav_istr("Mood"), unit);
    EXPECT_EQ(unit.findAt(0), v.values.findAt(0));
}

TEST(MetaEnum, StartsWithoutAnything) {
    EXPECT_EQ("", MetaEnum().name);
    EXPECT_TRUE(MetaEnum().values.empty());
}

TEST(MetaEnum, WritesATextForEachChild) {
    MetaEnum v(tav_istr("Mood"), unitOf("mood(__default__(good)good(0)bad())"));
    EXPECT_EQ(":enum{Mood}(__default__(good)good(0)bad())", written(v));
}

TEST(MetaEnum, LeavesItselfAloneOnAnInputStream) {
    MetaEnum v(tav_istr("Mood"), unitOf("mood(good(0))"));
    tavPmlInStream in(tav_istr("(good(7))"));
    v.io(in);
    EXPECT_EQ("0", v.values.at(0).value());
}

} // namespace
