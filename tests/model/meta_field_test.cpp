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

TEST(MetaFieldIdName, StartsWithoutIdAndName) {
    IdName const v;
    EXPECT_EQ(v.id, 0);
    EXPECT_EQ(v.name, "");
    static_assert(std::is_same<short, decltype(v.id)>::value, "the tag has 16 bits and a sign");
}

TEST(MetaFieldIdName, TakesTheTagOff) {
    IdName const v(tav_istr("[3]tags"));
    EXPECT_EQ(v.id, 3);
    EXPECT_EQ(v.name, "tags");
}

TEST(MetaFieldIdName, KeepsATextWithoutTag) {
    EXPECT_EQ(IdName(tav_istr("tags")).name, "tags");
    EXPECT_EQ(IdName(tav_istr("")).name, "");
    EXPECT_EQ(IdName(tav_istr("a[3]")).name, "a[3]");
    EXPECT_EQ(IdName(tav_istr("[3tags")).name, "[3tags");
    EXPECT_EQ(IdName(tav_istr("]3[")).name, "]3[");
    EXPECT_EQ(IdName(tav_istr("a[3]")).id, 0);
    EXPECT_EQ(IdName(tav_istr("[3tags")).id, 0);
}

TEST(MetaFieldIdName, ReadsTheTagByTheIntegerRule) {
    EXPECT_EQ(IdName(tav_istr("[0x1F]a")).id, 31);
    EXPECT_EQ(IdName(tav_istr("[0b101]a")).id, 5);
    EXPECT_EQ(IdName(tav_istr("[010]a")).id, 8);
    EXPECT_EQ(IdName(tav_istr("[-5]a")).id, -5);
    EXPECT_EQ(IdName(tav_istr("[32767]a")).id, 32767);
}

TEST(MetaFieldIdName, CutsATagInARadixFormTo16Bits) {
    EXPECT_EQ(IdName(tav_istr("[0x10003]a")).id, 3);
    EXPECT_EQ(IdName(tav_istr("[0xFFFF]a")).id, -1);
}

TEST(MetaFieldIdName, CountsATagThatCannotBeReadAsNone) {
    for (char const * text : {"[]a", "[x]a", "[1x]a", "[32768]a", "[1 ]a"}) {
        IdName const v{tav_istr(text)};
        EXPECT_EQ(v.id, 0) << text;
        EXPECT_EQ(v.name, "a") << text;
    }
}

TEST(MetaFieldIdName, TakesTheNameBehindTheFirstClosingBracket) {
    IdName const v(tav_istr("[1]a]b"));
    EXPECT_EQ(v.id, 1);
    EXPECT_EQ(v.name, "a]b");
    EXPECT_EQ(IdName(tav_istr("[1]")).name, "");
}

TEST(MetaFieldIdName, PrintsWithAndWithoutItsTag) {
    IdName const v(tav_istr("[3]tags"));
    EXPECT_EQ(v.toString(true), "[3]tags");
    EXPECT_EQ(v.toString(false), "tags");
    EXPECT_EQ(IdName(tav_istr("tags")).toString(true), "[0]tags");
}

TEST(MetaFieldIdName, WritesItsTagUnlessThatIsZero) {
    IdName tagged(tav_istr("[3]tags"));
    IdName plain(tav_istr("[0]tags"));
    EXPECT_EQ(written(tagged), "([3]tags)");
    EXPECT_EQ(written(plain), "(tags)");
}

TEST(MetaFieldIdName, IsReadAsItIsWritten) {
    tavPmlInStream in(tav_istr("([3]tags)"));
    IdName v;
    v.io(in);
    EXPECT_EQ(v.id, 3);
    EXPECT_EQ(v.name, "tags");
}

TEST(MetaFieldIdName, IsNeverEmptyForTheWalk) {
    EXPECT_FALSE(IdName().empty());
    EXPECT_FALSE(ValueComment().empty());
    EXPECT_FALSE(MetaField().empty());
    EXPECT_FALSE(MetaEnum().empty());
    EXPECT_FALSE(tav::pml::MetaClass().empty());
    EXPECT_FALSE(tav::pml::MetaFactory().empty());
}

TEST(MetaFieldValueComment, KeepsAPlainTextAsValue) {
    EXPECT_EQ(valueComment("18").value, "18");
    EXPECT_EQ(valueComment("18").comment, "");
    EXPECT_EQ(valueComment("").value, "");
    EXPECT_EQ(valueComment("18{0..150}").value, "18{0..150}");
    EXPECT_EQ(valueComment("a*}").value, "a*}");
}

TEST(MetaFieldValueComment, TakesTheCommentOff) {
    ValueComment const v = valueComment("18{*years*}");
    EXPECT_EQ(v.value, "18");
    EXPECT_EQ(v.comment, "years");
}

TEST(MetaFieldValueComment, TakesBlanksOffBothEndsOfTheCommentOnly) {
    ValueComment const v = valueComment("18 {*  in years \t*}");
    EXPECT_EQ(v.value, "18 ");
    EXPECT_EQ(v.comment, "in years");
}

TEST(MetaFieldValueComment, TakesWhatFollowsTheFirstMarkUpToTheEnd) {
    EXPECT_EQ(valueComment("18{*years").comment, "years");
    EXPECT_EQ(valueComment("18{*a*}b").comment, "a*}b");
    EXPECT_EQ(valueComment("18{*a{*b*}").comment, "a{*b");
    EXPECT_EQ(valueComment("{*note*}").value, "");
    EXPECT_EQ(valueComment("{*note*}").comment, "note");
    EXPECT_EQ(valueComment("1{**}").comment, "");
    EXPECT_EQ(valueComment("1{*}").comment, "}");
}

TEST(MetaFieldValueComment, TakesTheMaskForAValue) {
    EXPECT_EQ(valueComment("{***}").value, "{***}");
    EXPECT_EQ(valueComment("{***}").comment, "");
    EXPECT_EQ(valueComment("{***} ").value, "");
    EXPECT_EQ(valueComment("{***} ").comment, "**}");
    EXPECT_EQ(valueComment("18{***}").value, "18");
    EXPECT_EQ(valueComment("18{***}").comment, "*");
    EXPECT_FALSE(fieldOf("a:int32(18{***})").isProtected);
}

TEST(MetaFieldValueComment, WritesValueAndComment) {
    ValueComment both = valueComment("18{* years *}");
    EXPECT_EQ(written(both), "(\"18{*years*}\")");
    ValueComment plain = valueComment("18");
    EXPECT_EQ(written(plain), "(18)");
    ValueComment mask = valueComment("{***}");
    mask.comment = "secret";
    EXPECT_EQ(written(mask), "(\"{***}\")");
}

TEST(MetaFieldValueComment, IsReadAsItIsWritten) {
    tavPmlInStream in(tav_istr("(\"18{*years*}\")"));
    ValueComment v;
    v.io(in);
    EXPECT_EQ(v.value, "18");
    EXPECT_EQ(v.comment, "years");
}

TEST(MetaField, StartsWithoutAnything) {
    MetaField const v;
    EXPECT_EQ(v.idName.id, 0);
    EXPECT_EQ(field_type::unknown_, v.classType.type);
    EXPECT_FALSE(v.isProtected);
    EXPECT_EQ(v.spec, "");
    EXPECT_TRUE(v.validValues.empty());
    EXPECT_TRUE(v.range.empty());
}

TEST(MetaField, ReadsTagNameAndType) {
    MetaField const v = fieldOf("[2]seq:int64()");
    EXPECT_EQ(v.idName.id, 2);
    EXPECT_EQ(v.idName.name, "seq");
    EXPECT_EQ(field_type::int64_, v.classType.type);
    EXPECT_EQ(v.classType.name, "int64");
    EXPECT_FALSE(v.classType.optional);
    EXPECT_EQ(v.valueComment.value, "");
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
    EXPECT_EQ(v.classType.name, "User");
    EXPECT_TRUE(v.classType.isRef);
}

TEST(MetaField, TakesLanguageNamesFromTheConfiguration) {
    MetaField const v(unitOf("[2]seq:int64()"), unitOf("(types(int64(long)))"));
    EXPECT_EQ(v.classType.name, "long");
}

TEST(MetaField, HasADefaultAndAComment) {
    MetaField const v = fieldOf("[2]age:int32(\"18{*years*}\")");
    EXPECT_EQ(v.valueComment.value, "18");
    EXPECT_EQ(v.valueComment.comment, "years");
    EXPECT_EQ(fieldOf("[2]age:int32(18{*years*})").valueComment.comment, "years");
}

TEST(MetaField, WithChildrenHasNoDefault) {
    MetaField const v = fieldOf("[2]age:int32(a(1) {***})");
    EXPECT_EQ(v.valueComment.value, "");
    EXPECT_FALSE(v.isProtected);
}

TEST(MetaField, WithATruthValueIsABool) {
    MetaField const yes = fieldOf("[3]flag:int32(true)");
    EXPECT_EQ(field_type::bool_, yes.classType.type);
    EXPECT_EQ(yes.classType.name, "bool");
    EXPECT_EQ(yes.valueComment.value, "true");
    MetaField const no = fieldOf("[3]flag:int32(false)");
    EXPECT_EQ(field_type::bool_, no.classType.type);
    EXPECT_EQ(no.valueComment.value, "false");
    EXPECT_FALSE(no.classType.optional);
}

TEST(MetaField, WithATruthValueIsABoolWhateverItsType) {
    MetaField const v = fieldOf("[3]flag:map{string,int32}[4](true)");
    EXPECT_EQ(field_type::bool_, v.classType.type);
    EXPECT_EQ(v.classType.keyName, "");
    EXPECT_EQ(field_type::unknown_, v.classType.elementType);
    EXPECT_EQ(field_type::unknown_, v.classType.keyType);
    ASSERT_EQ(v.classType.dimensions.size(), 1u);
    EXPECT_FALSE(fieldOf("flag:Foo(true)").classType.isRef);
    EXPECT_TRUE(fieldOf("flag(true)").classType.optional);
    EXPECT_EQ(MetaField(unitOf("flag:int32?(true)"), unitOf("(types(bool?('boolean?')))")).classType.name,
              "boolean?");
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
    EXPECT_EQ(v.valueComment.value, "");
    MetaField const noted = fieldOf("[3]nick:string(null{*or a name*})");
    EXPECT_TRUE(noted.classType.optional);
    EXPECT_EQ(noted.valueComment.comment, "or a name");
}

TEST(MetaField, WithTheMaskIsProtected) {
    MetaField const v = fieldOf("[2]pwd:string({***})");
    EXPECT_TRUE(v.isProtected);
    EXPECT_EQ(v.spec, "***");
    EXPECT_EQ(v.valueComment.value, "");
    EXPECT_TRUE(v.range.empty());
}

TEST(MetaField, WithAMaskOfItsOwnIsProtected) {
    MetaField const v = fieldOf("[2]phone:string({...***..})");
    EXPECT_TRUE(v.isProtected);
    EXPECT_EQ(v.spec, "...***..");
    EXPECT_EQ(v.valueComment.value, "");
    EXPECT_EQ(fieldOf("a:string({..}tail)").spec, "..");
    EXPECT_EQ(fieldOf("a:string({..}tail)").valueComment.value, "");
    EXPECT_EQ(fieldOf("a:string({..**)").spec, "..**");
    EXPECT_EQ(fieldOf("a:string({.})").spec, ".");
}

TEST(MetaField, WithAMaskBehindATextIsNotProtected) {
    MetaField const v = fieldOf("a:string(x{...})");
    EXPECT_FALSE(v.isProtected);
    EXPECT_EQ(v.valueComment.value, "x");
}

TEST(MetaField, ReadsTheRangeBehindTheDefault) {
    MetaField const v = fieldOf("[2]age:int32(18{0..150})");
    EXPECT_EQ(v.valueComment.value, "18");
    EXPECT_EQ(rangeOf(v), "{ 0:150 }");
    EXPECT_TRUE(v.range.check(150));
    EXPECT_FALSE(v.range.check(151));
    EXPECT_FALSE(v.isProtected);
}

TEST(MetaField, ReadsTheRangeUpToTheNextBrace) {
    EXPECT_EQ(rangeOf(fieldOf("a:int32({1,5..6}7{8})")), "{ 1:1 5:6 }");
    EXPECT_EQ(fieldOf("a:int32({1,5..6}7{8})").valueComment.value, "");
    EXPECT_EQ(rangeOf(fieldOf("a:int32(2{1..3)")), "{ 1:3 }");
    EXPECT_EQ(rangeOf(fieldOf("a:int32(2{})")), "{ }");
    EXPECT_EQ(fieldOf("a:int32(2{})").valueComment.value, "2");
    EXPECT_EQ(rangeOf(fieldOf("a:int32(2)")), "{ }");
}

TEST(MetaField, ReadsARangeAndAComment) {
    MetaField const v = fieldOf("a:int32(18{0..150}{*years*})");
    EXPECT_EQ(v.valueComment.value, "18");
    EXPECT_EQ(v.valueComment.comment, "years");
    EXPECT_EQ(rangeOf(v), "{ 0:150 }");
}

TEST(MetaField, TellsABadRangeToTheLogOnly) {
    tav_test::LogCapture log;
    MetaField const v = fieldOf("a:int32(1{1.5})");
    EXPECT_EQ(v.valueComment.value, "1");
    EXPECT_TRUE(log.contains("invalid pattern: 1.5"));
}

TEST(MetaField, WritesOneText) {
    MetaField plain = fieldOf("[1]user:string()");
    EXPECT_EQ(written(plain), "(\"[1]user:string()\")");
    MetaField untagged = fieldOf("user:int32?(5{*a note*})");
    EXPECT_EQ(written(untagged), "(\"user:int32?(5{*a note*})\")");
    MetaField hidden = fieldOf("[2]pwd:string({***})");
    EXPECT_EQ(written(hidden), "(\"[2]pwd:string(***)\")");
    MetaField list = fieldOf("[3]tags:list{string}()");
    EXPECT_EQ(written(list), "(\"[3]tags:list{string}()\")");
    MetaField map = fieldOf("[4]m:map{string,int64}()");
    EXPECT_EQ(written(map), "(\"[4]m:map{string,int64}()\")");
    MetaField ref = fieldOf("[5]owner:User[2](nobody)");
    EXPECT_EQ(written(ref), "(\"[5]owner:ref{User}[2](nobody)\")");
    MetaField both = fieldOf("[5]pin:int32({..}{*hidden*})");
    EXPECT_EQ(written(both), "(\"[5]pin:int32({*hidden*}..)\")");
}

TEST(MetaField, LeavesItselfAloneOnAnInputStream) {
    MetaField v = fieldOf("[1]user:string(ann)");
    tavPmlInStream in(tav_istr("(\"[2]x:int32()\")"));
    v.io(in);
    EXPECT_EQ(v.idName.name, "user");
    EXPECT_EQ(v.valueComment.value, "ann");
}

TEST(MetaFieldEnum, HoldsACopyOfItsUnit) {
    Unit unit = unitOf("mood:enum{Mood}(good(0)bad(1))");
    MetaEnum const v(tav_istr("Mood"), unit);
    unit.clear();
    EXPECT_EQ(v.name, "Mood");
    ASSERT_EQ(v.values.size(), 2u);
    EXPECT_EQ(v.values.at(1).name(), "bad");
    EXPECT_EQ(v.values.at(1).value(), "1");
    EXPECT_EQ(v.values.name(), "mood");
}

TEST(MetaFieldEnum, SharesTheChildrenOfItsUnit) {
    Unit const unit = unitOf("mood:enum{Mood}(good(0))");
    MetaEnum const v(tav_istr("Mood"), unit);
    EXPECT_EQ(unit.findAt(0), v.values.findAt(0));
}

TEST(MetaFieldEnum, StartsWithoutAnything) {
    EXPECT_EQ(MetaEnum().name, "");
    EXPECT_TRUE(MetaEnum().values.empty());
}

TEST(MetaFieldEnum, WritesATextForEachChild) {
    MetaEnum v(tav_istr("Mood"), unitOf("mood(__default__(good)good(0)bad())"));
    EXPECT_EQ(written(v), ":enum{Mood}(__default__(good)good(0)bad())");
}

TEST(MetaFieldEnum, LeavesItselfAloneOnAnInputStream) {
    MetaEnum v(tav_istr("Mood"), unitOf("mood(good(0))"));
    tavPmlInStream in(tav_istr("(good(7))"));
    v.io(in);
    EXPECT_EQ(v.values.at(0).value(), "0");
}

} // namespace
